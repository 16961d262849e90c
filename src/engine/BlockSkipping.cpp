#include "core/Log.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

/// Whether a run has to walk through the block, or the part of an if, that an instruction opens: there is a breakpoint
/// inside, at the head of a loop, to which later passes come, or at the end of a switch. Without a construct the caller
/// has to step.
bool CShaderDebuggerShaderIL::HasBreakpointInFlowControlBlock(const CIL_FCConstruct* pFlowControl,
                                                              InstructionNumber inst)
{
    if (pFlowControl == nullptr)
    {
        return true;
    }
    if (const CIL_Loop* pLoop = pFlowControl->AsLoop())
    {
        return SD_AssertText(GetHost(), inst == pLoop->GetStart() || inst == pLoop->GetEnd(),
                             "Not at while or endloop") &&
               (HasBreakpointBetween(pLoop->GetStart(), pLoop->GetEnd()) ||
                (inst == pLoop->GetStart() && GetDebugger()->HasBreakPointAtInstructionNumber(inst)));
    }
    if (const CIL_Switch* pSwitch = pFlowControl->AsSwitch())
    {
        return SD_AssertText(GetHost(), inst == pSwitch->GetStart() || inst == pSwitch->GetEnd(),
                             "Not at switch or endswitch") &&
               inst == pSwitch->GetStart() &&
               (HasBreakpointBetween(pSwitch->GetStart(), pSwitch->GetEnd()) ||
                GetDebugger()->HasBreakPointAtInstructionNumber(pSwitch->GetEnd()));
    }
    const CIL_IfElseEndif* pIf = pFlowControl->AsIfElseEndif();
    if (!SD_AssertText(GetHost(), pIf != nullptr, "Bad flow control type"))
    {
        return true;
    }
    if (inst == pIf->GetIf())
    {
        return HasBreakpointBetween(pIf->GetIf(), pIf->GetElse());
    }
    if (inst == pIf->GetEndIf())
    {
        return false;
    }
    return SD_AssertText(GetHost(), inst == pIf->GetElse(), "Not at if, else or endif") &&
           HasBreakpointBetween(pIf->GetElse(), pIf->GetEndIf());
}

/// Strictly between two instructions, or in a function that is called from there.
bool CShaderDebuggerShaderIL::HasBreakpointBetween(InstructionNumber nFrom, InstructionNumber nTo)
{
    if (GetDebugger()->HasBreakPointInInstructionRange(nFrom, nTo))
    {
        return true;
    }
    const std::set<InstructionNumber> called = FindCalled(nFrom + 1, nTo);
    return std::any_of(called.begin(), called.end(),
                       [&](InstructionNumber n) { return GetDebugger()->HasBreakPointAtInstructionNumber(n); });
}

/// The instructions of all functions that are called, directly or not, from the instructions between nFirst and nEnd.
std::set<InstructionNumber> CShaderDebuggerShaderIL::FindCalled(InstructionNumber nFirst, InstructionNumber nEnd) const
{
    std::set<InstructionNumber> called;
    std::vector<std::pair<InstructionNumber, InstructionNumber>> vRanges = {{nFirst, nEnd}};
    while (!vRanges.empty())
    {
        const auto range = vRanges.back();
        vRanges.pop_back();
        for (InstructionNumber n = range.first; n < range.second; ++n)
        {
            const std::optional<InstructionNumber> nCallee = FindCallee(n);
            if (nCallee.has_value() && called.count(*nCallee) == 0)
            {
                const InstructionNumber nLast = EndOfBody(*nCallee);
                for (InstructionNumber nInside = *nCallee; nInside < nLast; ++nInside)
                {
                    called.insert(nInside);
                }
                vRanges.push_back({*nCallee, nLast});
            }
        }
    }
    return called;
}

/// Passes over a block without a breakpoint: the patched kernel of a later position runs through it anyway.
CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::SkipBlock(RegPCMap& regPCMap,
                                                                  const CIL_FCConstruct* pFlowControl)
{
    SSkip skip;
    skip.nFirst = m_nNextInstruction.m_nPos;
    if (!DescribeSkip(pFlowControl, m_nNextInstruction.m_nPos, skip))
    {
        return EWalk::Failed;
    }
    if (skip.bReadBefore)
    {
        const ProgramCounter next = m_nNextInstruction;
        ReadSkipped(regPCMap, false);
        // Reading may have told that nobody comes to the block.
        if (m_nNextInstruction != next)
        {
            return EWalk::Moved;
        }
    }
    skip.nLast = skip.nBlockEnd;
    const std::set<InstructionNumber> called = FindCalled(skip.nFirst, skip.nLast + 1);
    AddWrittenBy(called, skip.vRegisters);
    for (InstructionNumber n = skip.nFirst; n <= skip.nLast; ++n)
    {
        AddNew(RegistersPassedBy(n), skip.vRegisters);
    }
    m_nNextInstruction.m_nPos = skip.nBlockEnd;
    PassOver(skip);
    m_Pending.bGap = true;
    MoveToNext();
    const bool bMoved = UpdateNextInst();
    for (const Register& reg : skip.vRegisters)
    {
        regPCMap[reg] = m_nNextInstruction;
        NoteWritten(reg);
    }
    bool bStores =
        std::any_of(called.begin(), called.end(), [&](InstructionNumber n) { return WritesGlobalMemory(n); });
    for (InstructionNumber n = skip.nFirst; n <= skip.nLast; ++n)
    {
        bStores = bStores || WritesGlobalMemory(n);
    }
    m_lastGlobalStore = bStores ? m_nCurrentInstruction : m_lastGlobalStore;
    return bMoved ? EWalk::Moved : EWalk::End;
}

void CShaderDebuggerShaderIL::AddWrittenBy(const std::set<InstructionNumber>& instructions,
                                           std::vector<Register>& vRegisters)
{
    for (const InstructionNumber n : instructions)
    {
        const Register reg = GetDestRegister(ProgramCounter(n));
        if (reg != g_Reg_NULL)
        {
            AddNew({reg}, vRegisters);
        }
        AddNew(RegistersPassedBy(n), vRegisters);
    }
}

void CShaderDebuggerShaderIL::AddNew(const std::vector<Register>& vNew, std::vector<Register>& vRegisters)
{
    for (const Register& reg : vNew)
    {
        if (std::find(vRegisters.begin(), vRegisters.end(), reg) == vRegisters.end())
        {
            vRegisters.push_back(reg);
        }
    }
}

bool CShaderDebuggerShaderIL::DescribeSkip(const CIL_FCConstruct* pFlowControl, InstructionNumber inst, SSkip& skip)
{
    if (const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(pFlowControl))
    {
        return DescribeSkip(*pLoop, inst, skip);
    }
    if (const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(pFlowControl))
    {
        return DescribeSkip(*pSwitch, inst, skip);
    }
    const CIL_IfElseEndif* pIf = CIL_FCConstruct::AsIfElseEndif(pFlowControl);
    return SD_AssertText(GetHost(), pIf != nullptr, "pIfElseEndif != NULL") && DescribeSkip(*pIf, inst, skip);
}

bool CShaderDebuggerShaderIL::DescribeSkip(const CIL_Loop& loop, InstructionNumber inst, SSkip& skip)
{
    skip.nBlockEnd = loop.GetEnd();
    if (inst == loop.GetEnd())
    {
        // The way here was a break, which took the loop's entry.
        return true;
    }
    skip.vRegisters = loop.GetRegisters();
    if (IsInnermostLoop(loop))
    {
        m_nNextInstruction.m_LoopStack.pop_back();
    }
    return true;
}

bool CShaderDebuggerShaderIL::DescribeSkip(const CIL_Switch& block, InstructionNumber, SSkip& skip)
{
    skip.nBlockEnd = block.GetEnd();
    skip.vRegisters = block.GetRegisters();
    return true;
}

bool CShaderDebuggerShaderIL::DescribeSkip(const CIL_IfElseEndif& block, InstructionNumber inst, SSkip& skip)
{
    const std::vector<Register> vInElse = block.GetRegistersInElse();
    if (inst == block.GetEndIf())
    {
        skip.nBlockEnd = block.GetEndIf();
        return true;
    }
    if (inst != block.GetIf())
    {
        skip.vRegisters = vInElse;
        skip.nBlockEnd = block.GetEndIf() - 1;
        skip.bReadBefore = true;
        return true;
    }
    skip.vRegisters = block.GetRegistersInIf();
    if (HasBreakpointInFlowControlBlock(&block, block.GetElse()) ||
        GetDebugger()->HasBreakPointAtInstructionNumber(block.GetElse()) ||
        GetDebugger()->HasBreakPointAtInstructionNumber(block.GetEndIf()))
    {
        skip.nBlockEnd = block.GetElse() - 1;
        skip.bReadBefore = true;
        return true;
    }
    skip.vRegisters.insert(skip.vRegisters.end(), vInElse.begin(), vInElse.end());
    skip.nBlockEnd = block.GetEndIf();
    return true;
}

/// Keeps the ledger's books of a block that is passed over, or of one part of an if, and notes the jumps out of it.
void CShaderDebuggerShaderIL::PassOver(const SSkip& skip)
{
    const CIL_FCConstruct* pConstruct = ConstructOf(skip.nFirst);
    const CIL_IfElseEndif* pIf = CIL_FCConstruct::AsIfElseEndif(pConstruct);
    const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(pConstruct);
    const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(pConstruct);
    const InstructionNumber nStart = pIf != nullptr     ? pIf->GetIf()
                                     : pLoop != nullptr ? pLoop->GetStart()
                                                        : pSwitch->GetStart();
    if (pIf != nullptr && skip.nFirst == pIf->GetIf() && skip.nLast != pIf->GetEndIf())
    {
        // How many take which part is told at the else.
        m_Ledger.Open(nStart, false);
        m_Ledger.Wait(nStart, pIf->GetElse(), {0, true});
        m_Ledger.Replace({0, true});
    }
    else if (pIf != nullptr && skip.nLast != pIf->GetEndIf())
    {
        const SLaneCount inElse = m_Ledger.Take(nStart, skip.nFirst);
        m_Ledger.Wait(nStart, pIf->GetEndIf(), m_Ledger.GetActive());
        m_Ledger.Replace(inElse);
    }
    else
    {
        m_Ledger.Gather(nStart);
    }
    std::vector<CLaneLedger::SPlace> vPlaces;
    for (InstructionNumber n = skip.nFirst; n <= skip.nLast; ++n)
    {
        if (!IsJump(OpCodeAt(n)))
        {
            continue;
        }
        const CLaneLedger::SPlace place = FindTarget(n).value_or(CLaneLedger::SPlace());
        if (place.nInst < skip.nFirst || place.nInst > skip.nLast)
        {
            m_Skipped.insert(n);
            vPlaces.push_back(place);
        }
    }
    m_Ledger.MayLeave(vPlaces);
}

} // namespace OVK_ShaderDebugger
