#include "engine/LaneFlow.h"

#include "engine/BufferWords.h"
#include "engine/OpCodeRoles.h"
#include "instrument/AnalyzedShaderIL.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace OVK_ShaderDebugger
{

bool CLaneFlow::TakeEffect(const SPosition& at, uint64_t nActive)
{
    const InstructionNumber nPos = at.pc.m_nPos;
    const ILOpCode op = m_Course.GetKernel().OpCodeAt(nPos);
    const CIL_FCConstruct* pConstruct = m_Course.GetKernel().ConstructOf(nPos);
    const CIL_IfElseEndif* pIf = CIL_FCConstruct::AsIfElseEndif(pConstruct);
    const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(pConstruct);
    const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(pConstruct);
    const SLaneCount before = m_Ledger.GetActive();
    const bool bFlow = ILShaderUtils::IsFlowControlOp(op);
    if (!bFlow && nActive == 0 && before.IsSomebody())
    {
        // No work-item leaves at such an instruction: the mask wasn't read.
        return true;
    }
    const bool bAsExpected = bFlow || before.bMore || nActive == before.nSure;
    // Work-items that aren't active after a block's end have left it; after other flow control they may be where it
    // leads.
    const bool bAllWhoStay = !bFlow || op == IL_OP_ENDIF || op == IL_OP_ENDLOOP || op == IL_OP_ENDSWITCH;
    bAllWhoStay ? m_Ledger.SetActive(nActive) : m_Ledger.Replace({nActive, false});
    if (IsIf(op) && pIf != nullptr)
    {
        m_Ledger.Open(nPos, false);
        m_Ledger.Wait(nPos, pIf->GetElse(), before - nActive);
    }
    else if (op == IL_OP_ELSE && pIf != nullptr)
    {
        m_Ledger.Take(pIf->GetIf(), nPos);
        m_Ledger.Wait(pIf->GetIf(), pIf->GetEndIf(), before);
    }
    else if (op == IL_OP_WHILE && pLoop != nullptr)
    {
        m_Ledger.Open(nPos, true);
        m_Ledger.Take(nPos, nPos);
    }
    else if (op == IL_OP_SWITCH && pSwitch != nullptr)
    {
        EnterSwitch(*pSwitch, at, nActive);
    }
    else if (IsCase(op) && pSwitch != nullptr)
    {
        m_Ledger.Take(pSwitch->GetStart(), nPos);
    }
    else if (op == IL_OP_ENDIF && pIf != nullptr)
    {
        m_Ledger.Close(pIf->GetIf());
    }
    else if (op == IL_OP_ENDLOOP && pLoop != nullptr)
    {
        m_Ledger.Close(pLoop->GetStart());
    }
    else if (op == IL_OP_ENDSWITCH && pSwitch != nullptr)
    {
        m_Ledger.Close(pSwitch->GetStart());
    }
    else if (IsBreak(op) || IsContinue(op))
    {
        const std::optional<CKernelCourse::STarget> target = m_Course.FindTarget(nPos);
        if (target.has_value())
        {
            m_Ledger.Wait(target->nBlock, target->nInst, before - nActive);
        }
    }
    else if (IsReturn(op))
    {
        m_Ledger.Replace({});
    }
    return bAsExpected;
}

/// Makes all work-items that came to a switch wait at one of its labels, or at its end if no label is meant.
void CLaneFlow::EnterSwitch(const CIL_Switch& block, const SPosition& at, uint64_t nActive)
{
    m_Ledger.Open(block.GetStart(), false);
    m_Ledger.Replace({});
    if (m_SwitchEntries.at == at)
    {
        for (const auto& entry : m_SwitchEntries.mapEntries)
        {
            m_Ledger.Wait(block.GetStart(), entry.first, {entry.second, false});
        }
        return;
    }
    // How many go where is unknown until the position needs it.
    for (InstructionNumber n = block.GetNextCase(block.GetStart()); nActive != 0; n = block.GetNextCase(n))
    {
        m_Ledger.Wait(block.GetStart(), n, {0, true});
        if (n == block.GetEnd())
        {
            break;
        }
    }
}

std::set<InstructionNumber> CLaneFlow::PassOver(InstructionNumber nFirst, InstructionNumber nLast)
{
    if (const CIL_FCConstruct* pConstruct = m_Course.GetKernel().ConstructOf(nFirst))
    {
        PassOverPart(*pConstruct, nFirst, nLast);
    }
    std::set<InstructionNumber> jumps;
    std::vector<CLaneLedger::SPlace> vPlaces;
    for (InstructionNumber n = nFirst; n <= nLast; ++n)
    {
        if (!IsJump(m_Course.GetKernel().OpCodeAt(n)))
        {
            continue;
        }
        const CKernelCourse::STarget target = m_Course.FindTarget(n).value_or(CKernelCourse::STarget());
        if (target.nInst < nFirst || target.nInst > nLast)
        {
            jumps.insert(n);
            vPlaces.push_back({target.nBlock, target.nInst, target.bLoop, {}});
        }
    }
    m_Ledger.MayLeave(vPlaces);
    return jumps;
}

/// Updates the ledger for a block, or one part of an if.
void CLaneFlow::PassOverPart(const CIL_FCConstruct& construct, InstructionNumber nFirst, InstructionNumber nLast)
{
    const CIL_IfElseEndif* pIf = construct.AsIfElseEndif();
    const CIL_Loop* pLoop = construct.AsLoop();
    const CIL_Switch* pSwitch = construct.AsSwitch();
    const InstructionNumber nStart = pIf != nullptr     ? pIf->GetIf()
                                     : pLoop != nullptr ? pLoop->GetStart()
                                                        : pSwitch->GetStart();
    if (pIf != nullptr && nFirst == pIf->GetIf() && nLast != pIf->GetEndIf())
    {
        // How many take which part becomes known at the else.
        m_Ledger.Open(nStart, false);
        m_Ledger.Wait(nStart, pIf->GetElse(), {0, true});
        m_Ledger.Replace({0, true});
    }
    else if (pIf != nullptr && nLast != pIf->GetEndIf())
    {
        const SLaneCount inElse = m_Ledger.Take(nStart, nFirst);
        m_Ledger.Wait(nStart, pIf->GetEndIf(), m_Ledger.GetActive());
        m_Ledger.Replace(inElse);
    }
    else
    {
        m_Ledger.Gather(nStart);
    }
}

void CLaneFlow::LeapInto(const CIL_Loop& loop)
{
    m_Ledger.Open(loop.GetStart(), true);
    m_Ledger.Wait(loop.GetStart(), loop.GetEnd(), {0, true});
}

void CLaneFlow::NoteSwitchEntries(const SPosition& at, const CShaderDebuggerBuffer& selectors,
                                  const CShaderDebuggerBuffer& execMask)
{
    ForgetSwitchEntries();
    const CAnalyzedShaderIL& kernel = m_Course.GetKernel();
    const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(kernel.ConstructOf(at.pc.m_nPos));
    if (pSwitch == nullptr)
    {
        return;
    }
    std::map<unsigned int, InstructionNumber> mapLabels;
    InstructionNumber nOther = pSwitch->GetEnd();
    for (InstructionNumber n = pSwitch->GetNextCase(pSwitch->GetStart()); n != pSwitch->GetEnd();
         n = pSwitch->GetNextCase(n))
    {
        if (kernel.OpCodeAt(n) == IL_OP_DEFAULT)
        {
            nOther = n;
        }
        else
        {
            mapLabels.emplace(kernel.InstructionAt(n).GetToken(1), n);
        }
    }
    const size_t nItems = std::min(selectors.GetItemCount(), execMask.GetItemCount());
    for (size_t i = 0; i < nItems; ++i)
    {
        if (WordAt(execMask, i) != 0)
        {
            const auto it = mapLabels.find(WordAt(selectors, 4 * i));
            ++m_SwitchEntries.mapEntries[it != mapLabels.end() ? it->second : nOther];
        }
    }
    m_SwitchEntries.at = at;
}

ProgramCounter CLaneFlow::PositionOf(const CLaneLedger::SPlace& place, const ProgramCounter& from)
{
    ProgramCounter pc = from;
    while (!pc.m_LoopStack.empty() && pc.m_LoopStack.back().nLoopStart > place.nBlock)
    {
        pc.m_LoopStack.pop_back();
    }
    if (place.bLoop && !pc.m_LoopStack.empty() && pc.m_LoopStack.back().nLoopStart == place.nBlock)
    {
        if (place.nInst == place.nBlock)
        {
            ++pc.m_LoopStack.back().nLoopIteration;
        }
        else
        {
            pc.m_LoopStack.pop_back();
        }
    }
    pc.m_nPos = place.nInst;
    return pc;
}

} // namespace OVK_ShaderDebugger
