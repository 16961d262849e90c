#include "engine/BufferWords.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

namespace OVK_ShaderDebugger
{

/// Keeps the ledger's books of the current instruction, behind which nActive are active.
void CShaderDebuggerShaderIL::TakeEffect(uint64_t nActive)
{
    const InstructionNumber nPos = m_nCurrentInstruction.m_nPos;
    const ILOpCode op = OpCodeAt(nPos);
    const CIL_FCConstruct* pConstruct = ConstructOf(nPos);
    const CIL_IfElseEndif* pIf = CIL_FCConstruct::AsIfElseEndif(pConstruct);
    const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(pConstruct);
    const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(pConstruct);
    const SLaneCount before = m_Ledger.GetActive();
    const bool bFlow = ILShaderUtils::IsFlowControlOp(op);
    if (!bFlow && nActive == 0 && before.IsSomebody())
    {
        // Nobody leaves at such an instruction: the mask wasn't read.
        return;
    }
    m_bRunsDiffer = m_bRunsDiffer || (!bFlow && !before.bMore && nActive != before.nSure);
    // Who isn't active behind the end of a block has left it; behind others somebody may have gone where they lead.
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
        EnterSwitch(*pSwitch, nActive);
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
        const std::optional<CLaneLedger::SPlace> target = FindTarget(nPos);
        if (target.has_value())
        {
            m_Ledger.Wait(target->nBlock, target->nInst, before - nActive);
        }
    }
    else if (IsReturn(op))
    {
        m_Ledger.Replace({});
    }
}

/// Everybody who came to a switch waits at one of its labels, or at its end if no label is meant.
void CShaderDebuggerShaderIL::EnterSwitch(const CIL_Switch& block, uint64_t nActive)
{
    m_Ledger.Open(block.GetStart(), false);
    m_Ledger.Replace({});
    if (m_SwitchEntries.pc == m_nCurrentInstruction && m_SwitchEntries.callStack == m_CurrentCallStack)
    {
        for (const auto& entry : m_SwitchEntries.mapEntries)
        {
            m_Ledger.Wait(block.GetStart(), entry.first, {entry.second, false});
        }
        return;
    }
    // Whoever looks finds out.
    for (InstructionNumber n = block.GetNextCase(block.GetStart()); nActive != 0; n = block.GetNextCase(n))
    {
        m_Ledger.Wait(block.GetStart(), n, {0, true});
        if (n == block.GetEnd())
        {
            break;
        }
    }
}

/// Where a break or continue leads: an instruction of the loop or switch that it leaves. A return leads to no such
/// place.
std::optional<CLaneLedger::SPlace> CShaderDebuggerShaderIL::FindTarget(InstructionNumber nJump) const
{
    const ILOpCode op = OpCodeAt(nJump);
    const bool bContinue = IsContinue(op);
    CLaneLedger::SPlace place;
    const CIL_FCConstruct* p = bContinue || IsBreak(op) ? ConstructOf(nJump) : nullptr;
    for (; p != nullptr; p = p->GetParent())
    {
        if (const CIL_Loop* pLoop = p->AsLoop())
        {
            place.nBlock = pLoop->GetStart();
            place.nInst = bContinue ? pLoop->GetStart() : pLoop->GetEnd();
            place.bLoop = true;
            return place;
        }
        const CIL_Switch* pSwitch = p->AsSwitch();
        if (pSwitch != nullptr && !bContinue)
        {
            place.nBlock = pSwitch->GetStart();
            place.nInst = pSwitch->GetEnd();
            return place;
        }
    }
    return std::nullopt;
}

/// From the current instruction, behind which nobody is active, sets the next instruction to the place where others
/// take part again: further on in the function, or at the call that it came from.
/// \return false at the end of the kernel
bool CShaderDebuggerShaderIL::Resume()
{
    m_Ledger.Replace({});
    while (const std::optional<CLaneLedger::SPlace> place = m_Ledger.FindNext(m_nCurrentInstruction.m_nPos))
    {
        const ProgramCounter pc = PositionOf(*place);
        if (place->count.IsSomebody() || GetCount(pc, m_CurrentCallStack).value_or(1) != 0)
        {
            m_Ledger.Close(place->nBlock + 1);
            m_nNextInstruction = pc;
            return true;
        }
        m_Ledger.Take(place->nBlock, place->nInst);
    }
    if (ReturnToCaller())
    {
        return true;
    }
    m_nNextInstruction.m_nPos = m_nEndOfShader;
    return false;
}

/// A place as a position: a loop's head is that of the next pass, its end lies in none.
ProgramCounter CShaderDebuggerShaderIL::PositionOf(const CLaneLedger::SPlace& place) const
{
    ProgramCounter pc = m_nCurrentInstruction;
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

bool CShaderDebuggerShaderIL::IsInnermostLoop(const CIL_Loop& loop) const
{
    const std::vector<LoopState>& stack = m_nNextInstruction.m_LoopStack;
    return !stack.empty() && stack.back().nLoopStart == loop.GetStart();
}

/// Counts how many of those who came to a switch go to which of its labels; the selectors are in the results.
void CShaderDebuggerShaderIL::NoteSwitchEntries(const ProgramCounter& pc)
{
    const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(ConstructOf(pc.m_nPos));
    CShaderDebuggerBuffer* pResultBuffer = nullptr;
    CShaderDebuggerBuffer* pExecMaskBuffer = nullptr;
    const bool bRead = GetDebuggerIL()->RetrieveResultsBuffers(pResultBuffer, pExecMaskBuffer);
    const std::unique_ptr<CShaderDebuggerBuffer> pSelectors(pResultBuffer);
    const std::unique_ptr<CShaderDebuggerBuffer> pExecMask(pExecMaskBuffer);
    m_SwitchEntries = SSwitchEntries();
    if (!bRead || pSwitch == nullptr)
    {
        return;
    }
    std::map<unsigned int, InstructionNumber> mapLabels;
    InstructionNumber nOther = pSwitch->GetEnd();
    for (InstructionNumber n = pSwitch->GetNextCase(pSwitch->GetStart()); n != pSwitch->GetEnd();
         n = pSwitch->GetNextCase(n))
    {
        if (OpCodeAt(n) == IL_OP_DEFAULT)
        {
            nOther = n;
        }
        else
        {
            mapLabels.emplace(m_Instructions[n].GetToken(1), n);
        }
    }
    const size_t nItems = std::min(pSelectors->GetItemCount(), pExecMask->GetItemCount());
    for (size_t i = 0; i < nItems; ++i)
    {
        if (WordAt(*pExecMask, i) != 0)
        {
            const auto it = mapLabels.find(WordAt(*pSelectors, 4 * i));
            ++m_SwitchEntries.mapEntries[it != mapLabels.end() ? it->second : nOther];
        }
    }
    m_SwitchEntries.pc = pc;
    m_SwitchEntries.callStack = m_CallStack;
}

void CShaderDebuggerShaderIL::HideLeavers(CShaderDebuggerBuffer& execMask)
{
    for (size_t n = 0; n < execMask.GetItemCount(); ++n)
    {
        if (WordAt(execMask, n) == s_nLeaverFlag)
        {
            std::memset(execMask.GetData() + n * sizeof(uint32_t), 0, sizeof(uint32_t));
        }
    }
}

/// The recorded count, or else that of a run of its own.
std::optional<uint64_t> CShaderDebuggerShaderIL::GetCount(const ProgramCounter& pc, const CCallPath& path)
{
    std::map<ProgramCounter, uint64_t>& counts = m_ExecMaskHistory[path];
    const auto it = counts.find(pc);
    if (it != counts.end())
    {
        return it->second;
    }
    std::unique_ptr<CShaderDebuggerBuffer> pResult;
    std::unique_ptr<CShaderDebuggerBuffer> pExecMask;
    if (!Capture({pc, path, g_Reg_NULL, {}}, pResult, pExecMask))
    {
        return std::nullopt;
    }
    return counts[pc] = pExecMask->GetActiveItemCount(0);
}

} // namespace OVK_ShaderDebugger
