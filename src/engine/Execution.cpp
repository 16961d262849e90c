#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/BufferWords.h"
#include "engine/RegisterExpansion.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"
#include "engine/TargetBuffers.h"
#include "instrument/TargetScope.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

bool CShaderDebuggerShaderIL::Execute(bool bUpdateHistory)
{
    const CTargetScope scope(*this, m_CurrentCallStack, m_Leaving);
    bool bSuccess = ReadInputRegisters();
    for (const PatchPoint& pp : m_ExecuteList)
    {
        bSuccess = ExecutePatchPoint(pp, bUpdateHistory) && bSuccess;
    }
    return bSuccess;
}

/// Reads the input registers, once a session. Compute kernels have none.
bool CShaderDebuggerShaderIL::ReadInputRegisters()
{
    if (!m_bReadInputRegisters)
    {
        return true;
    }
    m_bReadInputRegisters = false;
    if (m_InputRegisters.empty())
    {
        return true;
    }
    std::vector<Register> vInputRegs;
    for (const auto& entry : m_InputRegisters)
    {
        vInputRegs.emplace_back(entry.first, entry.second);
    }
    if (!m_Runs.Switch(g_PC_NULL, vInputRegs, GetDebuggerIL()->HasValuesOnDemand()))
    {
        SD_Log(GetHost(), logERROR, "Failed to switch shader");
        return false;
    }
    bool bSuccess = true;
    for (unsigned int i = 0; i < vInputRegs.size(); ++i)
    {
        if (!m_Runs.Run(i))
        {
            bSuccess = false;
            continue;
        }
        GetDebuggerIL()->UpdateResults(vInputRegs[i]);
    }
    m_Runs.DropPatchedKernel();
    return bSuccess;
}

bool CShaderDebuggerShaderIL::ExecutePatchPoint(const PatchPoint& pp, bool bUpdateHistory)
{
    if (!SD_AssertText(GetHost(), !pp.m_registers.empty(), "!pp->m_registers.empty()"))
    {
        return false;
    }
    if (IsLastInstruction(pp.m_pc))
    {
        // No stop would show what a run there reads, since the kernel ends next.
        const bool bCompleted = CompleteKernel();
        if (bCompleted && bUpdateHistory)
        {
            PushStop();
        }
        return bCompleted;
    }
    std::deque<Register> expanded = ExpandRegisters(*this, {pp.m_pc, m_CallStack}, pp.m_registers);
    // A run is needed for the mask in any case.
    if (expanded.empty())
    {
        expanded.push_back(g_Reg_NULL);
    }
    const std::vector<Register> vRegisters(expanded.begin(), expanded.end());
    if (!m_Runs.Switch(pp.m_pc, vRegisters, GetDebuggerIL()->HasValuesOnDemand()))
    {
        // The device holds another kernel, whose values belong to another place.
        SD_Log(GetHost(), logERROR, "Failed to switch shader");
        return false;
    }
    bool bSuccess = true;
    for (unsigned int i = 0; i < vRegisters.size(); ++i)
    {
        const bool bRun = ExecuteRegister(pp.m_pc, vRegisters[i], i);
        if (bRun && bUpdateHistory)
        {
            PushStop();
        }
        bSuccess = bRun && bSuccess;
    }
    if (bSuccess)
    {
        m_Runs.NoteStop({pp.m_pc, m_CurrentCallStack});
    }
    return bSuccess;
}

/// Makes the run for one register of the patched kernel's list, and takes over its result.
bool CShaderDebuggerShaderIL::ExecuteRegister(const ProgramCounter& pc, const Register& reg, unsigned int nSelector)
{
    if (!m_Runs.Run(nSelector))
    {
        return false;
    }
    m_Runs.SetPresentMask(true);
    GetDebuggerIL()->UpdateResults(pc, reg);
    NoteFiled(pc, reg);
    if (OpCodeAt(pc.m_nPos) == IL_OP_SWITCH && reg == g_Reg_NULL)
    {
        NoteSwitchEntries(pc);
    }
    if (m_lastGlobalStore > GetDebuggerIL()->GetLastUpdatedGlobalResultPC() || m_Course.WritesGlobalMemory(pc.m_nPos))
    {
        GetDebuggerIL()->SetGlobalResultDirtyFlag(m_lastGlobalStore);
    }
    return true;
}

/// The selectors of the work-items that came to a switch are in the results.
void CShaderDebuggerShaderIL::NoteSwitchEntries(const ProgramCounter& pc)
{
    const CTargetBuffers& buffers = GetDebuggerIL()->GetTargetBuffers();
    const std::unique_ptr<CShaderDebuggerBuffer> pSelectors = buffers.ReadValues();
    const std::unique_ptr<CShaderDebuggerBuffer> pExecMask = pSelectors != nullptr ? buffers.ReadMask() : nullptr;
    m_Lanes.ForgetSwitchEntries();
    if (pExecMask != nullptr)
    {
        m_Lanes.NoteSwitchEntries({pc, m_CallStack}, *pSelectors, *pExecMask);
    }
}

/// Reads a register, if there is one, and the mask at a position that isn't the present stop, and stores no result.
bool CShaderDebuggerShaderIL::Capture(const SFiling& what, std::unique_ptr<CShaderDebuggerBuffer>& pResult,
                                      std::unique_ptr<CShaderDebuggerBuffer>& pExecMask)
{
    return m_Runs.Capture(what, GetDebuggerIL()->HasValuesOnDemand(), pResult, pExecMask);
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

/// Reads the registers of a skipped stretch at the current instruction: whatever position the map holds, their last
/// write lies after it. Where the position goes on is worked out again from the mask.
/// \return false if they couldn't be read
bool CShaderDebuggerShaderIL::RetrieveRegisters(const RegPCMap& regPCMap, bool bGetExecMask)
{
    m_ExecuteList.clear();
    PatchPoint pp(m_nCurrentInstruction);
    for (const auto& entry : regPCMap)
    {
        if (GetDebuggerIL()->IsTracked(entry.first))
        {
            pp.m_registers.push_back(entry.first);
        }
    }
    if (pp.m_registers.empty() && bGetExecMask)
    {
        pp.m_registers.push_back(g_Reg_NULL);
    }
    bool bRead = true;
    if (!pp.m_registers.empty())
    {
        m_ExecuteList.push_back(pp);
        bRead = GetDebuggerIL()->DoExecute(false);
        if (bRead)
        {
            PostStepAsm();
        }
    }
    UpdateTargetInstruction(true);
    return bRead;
}

/// Deletes the results of registers that couldn't be read: no value is better than an old one. The way back may read
/// them here.
void CShaderDebuggerShaderIL::DropResults(const RegPCMap& regPCMap)
{
    std::deque<Register> registers;
    for (const auto& entry : regPCMap)
    {
        registers.push_back(entry.first);
    }
    for (const Register& reg : ExpandRegisters(*this, {m_nCurrentInstruction, m_CallStack}, registers))
    {
        GetDebuggerIL()->DeleteResult(reg);
        KeepFiling(m_nCurrentInstruction, reg);
    }
}

} // namespace OVK_ShaderDebugger
