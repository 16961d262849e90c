#include "core/Log.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

/// Whether the block that an instruction opens or divides holds a breakpoint. Its first and last line don't count:
/// they are caught when the position comes to them. Without a construct the caller has to step.
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
               HasBreakpointBetween(pLoop->GetStart(), pLoop->GetEnd());
    }
    if (const CIL_Switch* pSwitch = pFlowControl->AsSwitch())
    {
        return SD_AssertText(GetHost(), inst == pSwitch->GetStart() || inst == pSwitch->GetEnd(),
                             "Not at switch or endswitch") &&
               inst == pSwitch->GetStart() && HasBreakpointBetween(pSwitch->GetStart(), pSwitch->GetEnd());
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
                InstructionNumber nLast = *nCallee;
                while (nLast < m_nEndOfShader && OpCodeAt(nLast) != IL_OP_ENDFUNC && nLast != m_nOutlineMacroEnd)
                {
                    called.insert(nLast++);
                }
                vRanges.push_back({*nCallee, nLast});
            }
        }
    }
    return called;
}

/// The first instruction of the function that an instruction calls.
std::optional<InstructionNumber> CShaderDebuggerShaderIL::FindCallee(InstructionNumber nInst) const
{
    const ILOpCode op = OpCodeAt(nInst);
    auto it = m_FunctionInstruction.end();
    if (op == IL_OP_CALL)
    {
        it = m_FunctionInstruction.find(m_Instructions[nInst].GetToken(1));
    }
    else if (op == IL_OP_MACROCALL && GetMacroLabel(m_Instructions[nInst].GetToken(0)) == m_OutlineMacroLabel)
    {
        it = m_FunctionInstruction.find(m_OutlineMacroLabel);
    }
    return it != m_FunctionInstruction.end() ? std::optional<InstructionNumber>(it->second) : std::nullopt;
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
    const std::optional<uint64_t> nActive = FindCount(m_nCurrentInstruction);
    m_nNextInstruction.m_nPos = skip.nBlockEnd;
    MoveToNext();
    const bool bEscapes = NoteEscapes(skip, regPCMap);
    if (skip.bWhole && !bEscapes && nActive.has_value())
    {
        m_ExecMaskHistory[m_CurrentCallStack][m_nCurrentInstruction] = *nActive;
    }
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
        if (reg != g_Reg_NULL && std::find(vRegisters.begin(), vRegisters.end(), reg) == vRegisters.end())
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
    const std::set<Register> rejoining = TakeRejoining(loop.GetEnd());
    if (inst == loop.GetEnd())
    {
        // The way here was a break, which took the loop's entry.
        skip.vRegisters.assign(rejoining.begin(), rejoining.end());
        return true;
    }
    TakeRejoining(loop.GetStart());
    skip.vRegisters = loop.GetRegisters();
    if (IsInnermostLoop(loop))
    {
        skip.bWhole = m_nNextInstruction.m_LoopStack.back().nLoopIteration == 0;
        m_nNextInstruction.m_LoopStack.pop_back();
    }
    return true;
}

bool CShaderDebuggerShaderIL::DescribeSkip(const CIL_Switch& block, InstructionNumber inst, SSkip& skip)
{
    skip.nBlockEnd = block.GetEnd();
    skip.vRegisters = block.GetRegisters();
    skip.bWhole = inst == block.GetStart();
    TakeRejoining(block.GetEnd());
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
    if (HasBreakpointInFlowControlBlock(&block, block.GetElse()))
    {
        skip.nBlockEnd = block.GetElse() - 1;
        skip.bReadBefore = true;
        return true;
    }
    skip.vRegisters.insert(skip.vRegisters.end(), vInElse.begin(), vInElse.end());
    skip.nBlockEnd = block.GetEndIf();
    skip.bWhole = true;
    return true;
}

/// A break, continue or return that leads out of a skipped block takes work-items along that aren't active where the
/// skipped registers are read next. They are where it leads to, and there those registers have to be read again.
/// \return whether there is such a jump
bool CShaderDebuggerShaderIL::NoteEscapes(const SSkip& skip, const RegPCMap& regPCMap)
{
    std::set<Register> unread(skip.vRegisters.begin(), skip.vRegisters.end());
    for (const auto& entry : regPCMap)
    {
        unread.insert(entry.first);
    }
    bool bEscapes = false;
    for (InstructionNumber n = skip.nFirst; n <= skip.nLast; ++n)
    {
        const ILOpCode op = OpCodeAt(n);
        if (IsReturn(op) || IsConditionalReturn(op))
        {
            bEscapes = true;
            if (!m_CurrentCallStack.empty())
            {
                CallPath caller = m_CurrentCallStack;
                caller.pop_front();
                NoteRejoin(caller, m_CurrentCallStack.front().m_nPos, unread);
            }
            continue;
        }
        if (!IsBreak(op) && !IsContinue(op))
        {
            continue;
        }
        const CIL_FCConstruct* pTarget = ConstructOf(n);
        while (pTarget != nullptr && pTarget->AsLoop() == nullptr && (IsContinue(op) || pTarget->AsSwitch() == nullptr))
        {
            pTarget = pTarget->GetParent();
        }
        const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(pTarget);
        const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(pTarget);
        const InstructionNumber nStart = pLoop != nullptr     ? pLoop->GetStart()
                                         : pSwitch != nullptr ? pSwitch->GetStart()
                                                              : n;
        if (nStart < skip.nFirst)
        {
            bEscapes = true;
            const InstructionNumber nEnd = pLoop != nullptr ? pLoop->GetEnd() : pSwitch->GetEnd();
            NoteRejoin(m_CurrentCallStack, IsContinue(op) ? nStart : nEnd, unread);
        }
    }
    return bEscapes;
}

void CShaderDebuggerShaderIL::NoteRejoin(const CallPath& path, InstructionNumber nInst,
                                         const std::set<Register>& registers)
{
    m_Rejoin[{path, nInst}].insert(registers.begin(), registers.end());
}

/// The registers to be read at an instruction of the present call, or that a call which ended has left behind.
std::set<Register> CShaderDebuggerShaderIL::TakeRejoining(InstructionNumber nInst)
{
    std::set<Register> registers;
    for (auto it = m_Rejoin.begin(); it != m_Rejoin.end();)
    {
        const bool bHere = it->first.first == m_CallStack && it->first.second == nInst;
        const bool bEndedCall = it->first.first.size() > m_CallStack.size();
        if (!bHere && !bEndedCall)
        {
            ++it;
            continue;
        }
        registers.insert(it->second.begin(), it->second.end());
        it = m_Rejoin.erase(it);
    }
    for (auto it = registers.begin(); it != registers.end();)
    {
        it = GetDebuggerIL()->IsTracked(*it) ? std::next(it) : registers.erase(it);
    }
    return registers;
}

} // namespace OVK_ShaderDebugger
