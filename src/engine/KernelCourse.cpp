#include "engine/KernelCourse.h"

#include "engine/OpCodeRoles.h"
#include "instrument/AnalyzedShaderIL.h"

#include <algorithm>
#include <utility>

namespace OVK_ShaderDebugger
{

namespace
{

void AddNew(const Register& reg, std::vector<Register>& vRegisters)
{
    if (reg != g_Reg_NULL && std::find(vRegisters.begin(), vRegisters.end(), reg) == vRegisters.end())
    {
        vRegisters.push_back(reg);
    }
}

void AddNew(const std::vector<Register>& vNew, std::vector<Register>& vRegisters)
{
    for (const Register& reg : vNew)
    {
        AddNew(reg, vRegisters);
    }
}

} // namespace

std::set<InstructionNumber> CKernelCourse::FindCalled(InstructionNumber nFirst, InstructionNumber nEnd) const
{
    std::set<InstructionNumber> called;
    std::vector<std::pair<InstructionNumber, InstructionNumber>> vRanges = {{nFirst, nEnd}};
    while (!vRanges.empty())
    {
        const auto range = vRanges.back();
        vRanges.pop_back();
        for (InstructionNumber n = range.first; n < range.second; ++n)
        {
            const std::optional<InstructionNumber> nCallee = m_Kernel.FindCallee(n);
            if (nCallee.has_value() && called.count(*nCallee) == 0)
            {
                const InstructionNumber nLast = m_Kernel.EndOfBody(*nCallee);
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

void CKernelCourse::AddWithCalled(InstructionNumber nFirst, InstructionNumber nEnd,
                                  std::set<InstructionNumber>& found) const
{
    std::vector<std::pair<InstructionNumber, InstructionNumber>> vRanges = {{nFirst, nEnd}};
    while (!vRanges.empty())
    {
        const auto range = vRanges.back();
        vRanges.pop_back();
        for (InstructionNumber n = range.first; n < range.second && n < m_Kernel.CountInstructions(); ++n)
        {
            const std::optional<InstructionNumber> nCallee = m_Kernel.FindCallee(n);
            if (found.insert(n).second && nCallee)
            {
                vRanges.push_back({*nCallee, m_Kernel.EndOfBody(*nCallee)});
            }
        }
    }
}

void CKernelCourse::AddWrittenByCalls(InstructionNumber nFirst, InstructionNumber nEnd,
                                      std::vector<Register>& vRegisters) const
{
    for (const InstructionNumber n : FindCalled(nFirst, nEnd))
    {
        AddNew(m_Kernel.WrittenBy(n), vRegisters);
        AddNew(m_Kernel.RegistersPassedBy(n), vRegisters);
    }
    for (InstructionNumber n = nFirst; n < nEnd; ++n)
    {
        AddNew(m_Kernel.RegistersPassedBy(n), vRegisters);
    }
}

bool CKernelCourse::Stores(InstructionNumber nFirst, InstructionNumber nEnd) const
{
    const std::set<InstructionNumber> called = FindCalled(nFirst, nEnd);
    bool bStores =
        std::any_of(called.begin(), called.end(), [&](InstructionNumber n) { return WritesGlobalMemory(n); });
    for (InstructionNumber n = nFirst; n < nEnd; ++n)
    {
        bStores = bStores || WritesGlobalMemory(n);
    }
    return bStores;
}

bool CKernelCourse::WritesGlobalMemory(InstructionNumber nInst) const
{
    return ILShaderUtils::WritesGlobalMemory(m_Kernel.OpCodeAt(nInst));
}

bool CKernelCourse::MayWrite(InstructionNumber nInst) const
{
    const CShaderDebuggerInstructionIL& instruction = m_Kernel.InstructionAt(nInst);
    return (instruction.GetOpCode() == IL_OP_MACROCALL && !m_Kernel.FindCallee(nInst)) ||
           (WritesGlobalMemory(nInst) && !m_Kernel.IsPrivateUAVWrite(instruction));
}

bool CKernelCourse::MayHaveWritten(const SPosition& position) const
{
    return AnyMayWrite(FindAround(position, true));
}

bool CKernelCourse::MayStillWrite(const SPosition& position) const
{
    return AnyMayWrite(FindAround(position, false));
}

bool CKernelCourse::AnyMayWrite(const std::set<InstructionNumber>& instructions) const
{
    return std::any_of(instructions.begin(), instructions.end(), [this](InstructionNumber n) { return MayWrite(n); });
}

/// The instructions that work-items may have executed at a place, its own included; or those that they may execute
/// after it.
std::set<InstructionNumber> CKernelCourse::FindAround(const SPosition& position, bool bBefore) const
{
    std::set<InstructionNumber> found;
    std::vector<InstructionNumber> vFrames = {position.pc.m_nPos};
    for (const ProgramCounter& call : position.callStack)
    {
        vFrames.push_back(call.m_nPos);
    }
    for (size_t i = 0; i < vFrames.size(); ++i)
    {
        const InstructionNumber nPos = vFrames[i];
        if (!bBefore)
        {
            AddWithCalled(nPos + 1, m_Kernel.EndOfBody(nPos), found);
        }
        else
        {
            // The rest of the call in which the place lies is still to come.
            AddWithCalled(m_Kernel.StartOfBody(nPos), i == 0 ? nPos + 1 : nPos, found);
        }
        for (const CIL_FCConstruct* p = m_Kernel.ConstructOf(nPos); p != nullptr; p = p->GetParent())
        {
            if (const CIL_Loop* pLoop = p->AsLoop())
            {
                AddWithCalled(pLoop->GetStart(), pLoop->GetEnd(), found);
            }
        }
    }
    return found;
}

bool CKernelCourse::IsCutExactly(const SPosition& position) const
{
    const InstructionNumber nPos = position.pc.m_nPos;
    if (nPos >= m_Kernel.CountInstructions() || IsInRepeatedText(nPos))
    {
        return false;
    }
    // A write without a destination is left out at the target.
    if (MayWrite(nPos) && m_Kernel.OpCodeAt(nPos) != IL_OP_MACROCALL && !m_Kernel.InstructionAt(nPos).HasDestReg())
    {
        return false;
    }
    for (const ProgramCounter& call : position.callStack)
    {
        if (IsInRepeatedText(call.m_nPos))
        {
            return false;
        }
    }
    if (position.callStack.empty())
    {
        return true;
    }
    // The main body isn't cut.
    for (InstructionNumber n = position.callStack.FromOutside(0).m_nPos + 1; m_Kernel.OpCodeAt(n) != IL_OP_ENDMAIN; ++n)
    {
        if (n >= m_Kernel.GetEndOfShader() || MayWrite(n) || m_Kernel.FindCallee(n))
        {
            return false;
        }
    }
    return true;
}

/// Whether the text that follows an instruction may be executed again before what comes after the block, or, in a
/// switch, is kept after a target.
bool CKernelCourse::IsInRepeatedText(InstructionNumber nInst) const
{
    for (const CIL_FCConstruct* p = m_Kernel.ConstructOf(nInst); p != nullptr; p = p->GetParent())
    {
        const CIL_Loop* pLoop = p->AsLoop();
        const CIL_Switch* pSwitch = p->AsSwitch();
        if ((pLoop != nullptr && pLoop->IsInsideLoop(nInst)) ||
            (pSwitch != nullptr && pSwitch->GetStart() <= nInst && nInst < pSwitch->GetEnd()))
        {
            return true;
        }
    }
    return false;
}

bool CKernelCourse::CanMissStores() const
{
    for (InstructionNumber n = 0; n < m_Kernel.CountInstructions(); ++n)
    {
        const ILOpCode op = m_Kernel.OpCodeAt(n);
        const bool bLeaves = IsReturn(op) || op == IL_OP_CALL || op == IL_OP_MACROCALL;
        if ((bLeaves && m_Kernel.ConstructOf(n) != nullptr) || IsConditionalReturn(op) || IsConditionalCall(op))
        {
            return true;
        }
    }
    return false;
}

std::optional<CKernelCourse::STarget> CKernelCourse::FindTarget(InstructionNumber nJump) const
{
    const ILOpCode op = m_Kernel.OpCodeAt(nJump);
    const bool bContinue = IsContinue(op);
    STarget target;
    const CIL_FCConstruct* p = bContinue || IsBreak(op) ? m_Kernel.ConstructOf(nJump) : nullptr;
    for (; p != nullptr; p = p->GetParent())
    {
        if (const CIL_Loop* pLoop = p->AsLoop())
        {
            target.nBlock = pLoop->GetStart();
            target.nInst = bContinue ? pLoop->GetStart() : pLoop->GetEnd();
            target.bLoop = true;
            return target;
        }
        const CIL_Switch* pSwitch = p->AsSwitch();
        if (pSwitch != nullptr && !bContinue)
        {
            target.nBlock = pSwitch->GetStart();
            target.nInst = pSwitch->GetEnd();
            return target;
        }
    }
    return std::nullopt;
}

} // namespace OVK_ShaderDebugger
