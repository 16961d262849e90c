#include "engine/BlockWalk.h"

#include "core/Log.h"
#include "instrument/AnalyzedShaderIL.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

bool CBlockWalk::HasBreakpointInFlowControlBlock(const CIL_FCConstruct* pFlowControl, InstructionNumber nInst) const
{
    CShaderDebuggerHost* const pHost = m_Breakpoints.GetHost();
    if (pFlowControl == nullptr)
    {
        return true;
    }
    if (const CIL_Loop* pLoop = pFlowControl->AsLoop())
    {
        return SD_AssertText(pHost, nInst == pLoop->GetStart() || nInst == pLoop->GetEnd(),
                             "Not at while or endloop") &&
               (HasBreakpointBetween(pLoop->GetStart(), pLoop->GetEnd()) ||
                (nInst == pLoop->GetStart() && m_Breakpoints.HasBreakPointAtInstructionNumber(nInst)));
    }
    if (const CIL_Switch* pSwitch = pFlowControl->AsSwitch())
    {
        return SD_AssertText(pHost, nInst == pSwitch->GetStart() || nInst == pSwitch->GetEnd(),
                             "Not at switch or endswitch") &&
               nInst == pSwitch->GetStart() &&
               (HasBreakpointBetween(pSwitch->GetStart(), pSwitch->GetEnd()) ||
                m_Breakpoints.HasBreakPointAtInstructionNumber(pSwitch->GetEnd()));
    }
    const CIL_IfElseEndif* pIf = pFlowControl->AsIfElseEndif();
    if (!SD_AssertText(pHost, pIf != nullptr, "Bad flow control type"))
    {
        return true;
    }
    if (nInst == pIf->GetIf())
    {
        return HasBreakpointBetween(pIf->GetIf(), pIf->GetElse());
    }
    if (nInst == pIf->GetEndIf())
    {
        return false;
    }
    return SD_AssertText(pHost, nInst == pIf->GetElse(), "Not at if, else or endif") &&
           HasBreakpointBetween(pIf->GetElse(), pIf->GetEndIf());
}

/// Whether there is a breakpoint strictly between two instructions, or in a function that is called from there.
bool CBlockWalk::HasBreakpointBetween(InstructionNumber nFrom, InstructionNumber nTo) const
{
    return m_Breakpoints.HasBreakPointInInstructionRange(nFrom, nTo) ||
           HasBreakpointIn(m_Course.FindCalled(nFrom + 1, nTo));
}

bool CBlockWalk::HasBreakpointIn(const std::set<InstructionNumber>& instructions) const
{
    return std::any_of(instructions.begin(), instructions.end(),
                       [this](InstructionNumber n) { return m_Breakpoints.HasBreakPointAtInstructionNumber(n); });
}

std::set<InstructionNumber> CBlockWalk::FindBreakpointsIn(InstructionNumber nBody) const
{
    std::set<InstructionNumber> found;
    const InstructionNumber nEnd = m_Course.GetKernel().EndOfBody(nBody);
    for (InstructionNumber n = nBody; n < nEnd; ++n)
    {
        if (m_Breakpoints.HasBreakPointAtInstructionNumber(n) || HasBreakpointIn(m_Course.FindCalled(n, n + 1)))
        {
            found.insert(n);
        }
    }
    return found;
}

std::optional<CBlockWalk::SSkip> CBlockWalk::DescribeSkip(InstructionNumber nInst) const
{
    const CIL_FCConstruct* pFlowControl = m_Course.GetKernel().ConstructOf(nInst);
    const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(pFlowControl);
    const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(pFlowControl);
    const CIL_IfElseEndif* pIf = CIL_FCConstruct::AsIfElseEndif(pFlowControl);
    if (!SD_AssertText(m_Breakpoints.GetHost(), pLoop != nullptr || pSwitch != nullptr || pIf != nullptr,
                       "pIfElseEndif != NULL"))
    {
        return std::nullopt;
    }
    SSkip skip;
    if (pLoop != nullptr)
    {
        skip = DescribeLoop(*pLoop, nInst);
    }
    else if (pSwitch != nullptr)
    {
        skip.nLast = pSwitch->GetEnd();
        skip.vRegisters = pSwitch->GetRegisters();
    }
    else
    {
        skip = DescribeIf(*pIf, nInst);
    }
    skip.nFirst = nInst;
    m_Course.AddWrittenByCalls(skip.nFirst, skip.nLast + 1, skip.vRegisters);
    return skip;
}

CBlockWalk::SSkip CBlockWalk::DescribeLoop(const CIL_Loop& loop, InstructionNumber nInst) const
{
    SSkip skip;
    skip.nLast = loop.GetEnd();
    // A position at the end came there by a break, which has removed the loop from its stack.
    if (nInst != loop.GetEnd())
    {
        skip.vRegisters = loop.GetRegisters();
        skip.bLeavesLoop = true;
    }
    return skip;
}

CBlockWalk::SSkip CBlockWalk::DescribeIf(const CIL_IfElseEndif& block, InstructionNumber nInst) const
{
    SSkip skip;
    skip.nLast = block.GetEndIf();
    if (nInst == block.GetEndIf())
    {
        return skip;
    }
    const std::vector<Register> vInElse = block.GetRegistersInElse();
    if (nInst != block.GetIf())
    {
        skip.vRegisters = vInElse;
        skip.nLast = block.GetEndIf() - 1;
        skip.bReadBefore = true;
        return skip;
    }
    skip.vRegisters = block.GetRegistersInIf();
    if (HasBreakpointInFlowControlBlock(&block, block.GetElse()) ||
        m_Breakpoints.HasBreakPointAtInstructionNumber(block.GetElse()) ||
        m_Breakpoints.HasBreakPointAtInstructionNumber(block.GetEndIf()))
    {
        skip.nLast = block.GetElse() - 1;
        skip.bReadBefore = true;
        return skip;
    }
    skip.vRegisters.insert(skip.vRegisters.end(), vInElse.begin(), vInElse.end());
    return skip;
}

void CBlockWalk::Forget()
{
    m_Unread.clear();
    m_Jumps.clear();
}

} // namespace OVK_ShaderDebugger
