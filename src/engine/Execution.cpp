#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/CallStackScope.h"
#include "engine/PrivateAccess.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <cstdlib>

namespace OVK_ShaderDebugger
{

bool CShaderDebuggerShaderIL::Execute(bool bUpdateHistory)
{
    const CCallStackScope scope(*this, m_CurrentCallStack, m_Leaving);
    bool bSuccess = ReadInputRegisters();
    for (const PatchPoint& pp : m_ExecuteList)
    {
        bSuccess = ExecutePatchPoint(pp, bUpdateHistory) && bSuccess;
    }
    return bSuccess;
}

/// Once a session; compute kernels have none.
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
    if (!SwitchShader(g_PC_NULL, vInputRegs))
    {
        SD_Log(GetHost(), logERROR, "Failed to switch shader");
        return false;
    }
    bool bSuccess = true;
    for (unsigned int i = 0; i < vInputRegs.size(); ++i)
    {
        if (!RunKernel(i))
        {
            bSuccess = false;
            continue;
        }
        GetDebuggerIL()->UpdateResults(vInputRegs[i]);
        m_bHasBeenExecuted = true;
    }
    return RestoreShader(true) && bSuccess;
}

bool CShaderDebuggerShaderIL::ExecutePatchPoint(const PatchPoint& pp, bool bUpdateHistory)
{
    if (!SD_AssertText(GetHost(), !pp.m_registers.empty(), "!pp->m_registers.empty()"))
    {
        return false;
    }
    if (IsLastInstruction(pp.m_pc))
    {
        // No stop shows what a run there would read: the client hears next that the kernel has ended.
        const bool bCompleted = CompleteKernel();
        if (bCompleted && bUpdateHistory)
        {
            PushStop();
        }
        return bCompleted;
    }
    bool bSuccess = true;
    std::deque<Register> expandedRegisters;
    if (!ExpandIndexedRegisters(pp.m_pc, pp.m_registers, &expandedRegisters))
    {
        SD_Log(GetHost(), logERROR, "Failed to expanded indexed registers");
        bSuccess = false;
    }
    // A run is needed for the mask in any case.
    if (expandedRegisters.empty())
    {
        expandedRegisters.push_back(g_Reg_NULL);
    }
    const std::vector<Register> vRegisters(expandedRegisters.begin(), expandedRegisters.end());
    if (!SwitchShader(pp.m_pc, vRegisters))
    {
        // The device holds another kernel, whose values belong to another place.
        SD_Log(GetHost(), logERROR, "Failed to switch shader");
        return false;
    }
    for (unsigned int i = 0; i < vRegisters.size(); ++i)
    {
        if (!RunKernel(i))
        {
            bSuccess = false;
            continue;
        }
        m_bHasBeenExecuted = true;
        m_bLastRunAtCurrent = true;
        GetDebuggerIL()->UpdateResults(pp.m_pc, vRegisters[i]);
        NoteFiled(pp.m_pc, vRegisters[i]);
        if (OpCodeAt(pp.m_pc.m_nPos) == IL_OP_SWITCH && vRegisters[i] == g_Reg_NULL)
        {
            NoteSwitchEntries(pp.m_pc);
        }
        if (m_lastGlobalStore > GetDebuggerIL()->GetLastUpdatedGlobalResultPC() || WritesGlobalMemory(pp.m_pc.m_nPos))
        {
            GetDebuggerIL()->SetGlobalResultDirtyFlag(m_lastGlobalStore);
        }
        if (bUpdateHistory)
        {
            PushStop();
        }
    }
    if (bSuccess && m_bMaskOnly)
    {
        m_MaskAt = {pp.m_pc, m_CurrentCallStack};
    }
    if (bSuccess && IsCutExactly({pp.m_pc, m_CurrentCallStack}))
    {
        m_CopiesAt = {pp.m_pc, m_CurrentCallStack};
    }
    return RestoreShader(false) && bSuccess;
}

/// One run of the kernel that the device holds, on fresh working copies.
bool CShaderDebuggerShaderIL::RunKernel(unsigned int nSelector)
{
    m_CopiesAt.reset();
    m_MaskAt.reset();
    m_bComplete = false;
    if (!GetDebuggerIL()->SwitchTargetBuffers())
    {
        SD_Log(GetHost(), logERROR, "Failed to switch buffers");
        return false;
    }
    if (!GetDebuggerIL()->SetRegisterSelectorValue(nSelector))
    {
        SD_Log(GetHost(), logERROR, "Failed to set register selector value");
        return false;
    }
    if (!GetHost()->ExecuteShader())
    {
        SD_Log(GetHost(), logERROR, "Failed to execute shader");
        return false;
    }
    if (!GetDebuggerIL()->RestoreTargetBuffers())
    {
        SD_Log(GetHost(), logERROR, "Failed to restore buffers");
        return false;
    }
    return true;
}

/// Reads a register, if there is one, and the mask at a position that isn't the present stop, and files nothing.
bool CShaderDebuggerShaderIL::Capture(const SFiling& what, std::unique_ptr<CShaderDebuggerBuffer>& pResult,
                                      std::unique_ptr<CShaderDebuggerBuffer>& pExecMask)
{
    const CCallStackScope scope(*this, what.callStack, what.leaving);
    m_bLastRunAtCurrent = false;
    if (!SwitchShader(what.pc, {what.reg}) || !RunKernel(0))
    {
        return false;
    }
    CShaderDebuggerBuffer* pResultBuffer = nullptr;
    CShaderDebuggerBuffer* pExecMaskBuffer = nullptr;
    const bool bRead = m_bMaskOnly ? GetDebuggerIL()->RetrieveExecMaskBuffer(pExecMaskBuffer)
                                   : GetDebuggerIL()->RetrieveResultsBuffers(pResultBuffer, pExecMaskBuffer);
    pResult.reset(pResultBuffer);
    pExecMask.reset(pExecMaskBuffer);
    return bRead;
}

/// Reads the registers of a skipped stretch at the current instruction: whatever position the map holds, their last
/// write lies behind it. Where the position goes on is worked out again from the mask.
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
        ExpandIndexedRegisters(m_nCurrentInstruction, {entry.first}, &registers);
    }
    for (const Register& reg : registers)
    {
        GetDebuggerIL()->DeleteResult(reg);
        KeepFiling(m_nCurrentInstruction, reg);
    }
}

bool CShaderDebuggerShaderIL::ExpandIndexedRegisters(const ProgramCounter& pc, const std::deque<Register>& registers,
                                                     std::deque<Register>* newRegisters)
{
    if (newRegisters == nullptr)
    {
        return false;
    }
    std::set<Register> indexedRegs;
    for (const Register& reg : registers)
    {
        const bool bElements = reg.reg.type == RT_IndexableTemp || reg.reg.type == RT_PrivateUAVAccess;
        if (reg.reg.type == RT_PrivateUAVAccess && reg.reg.pIndexRegister == nullptr)
        {
            AddSlots(pc, reg, *newRegisters);
        }
        else if (!IsRegTypeIndexed(reg.reg.type) || (bElements && reg.reg.pIndexRegister == nullptr))
        {
            newRegisters->push_back(reg);
        }
        else if (SD_AssertText(GetHost(), bElements,
                               "reg->reg.type == RT_IndexableTemp || reg->reg.type == RT_PrivateUAVAccess"))
        {
            indexedRegs.insert(Register(reg.reg.type, reg.reg.number, COMP_All));
        }
    }
    for (const Register& reg : indexedRegs)
    {
        const unsigned int* pSize = FindDeclaredSize(pc.m_nPos, reg);
        if (!SD_AssertText(GetHost(), pSize != nullptr, "Indexed reg decl not found in call stack"))
        {
            continue;
        }
        // An indexed temp has elements, private memory 16-byte slots at byte addresses.
        const unsigned int nStep = reg.reg.type == RT_PrivateUAVAccess ? s_nPrivateSlotSize : 1;
        for (unsigned int nIndex = 0; nIndex < *pSize; nIndex += nStep)
        {
            newRegisters->emplace_back(reg.reg.type, reg.reg.number, COMP_All, nIndex);
        }
    }
    return true;
}

/// The slots that a store to a constant address in private memory may reach: results are kept by whole ones, and of the
/// store no more is known than where it begins.
void CShaderDebuggerShaderIL::AddSlots(const ProgramCounter& pc, const Register& reg,
                                       std::deque<Register>& registers) const
{
    const unsigned int nInSlot = reg.reg.index % s_nPrivateSlotSize;
    const unsigned int nFirst = reg.reg.index - nInSlot;
    const unsigned int* pSize = FindDeclaredSize(pc.m_nPos, reg);
    const bool bNext = nInSlot != 0 && pSize != nullptr && nFirst + s_nPrivateSlotSize < *pSize;
    for (unsigned int nSlot = 0; nSlot <= (bNext ? 1u : 0u); ++nSlot)
    {
        const Register slot(reg.reg.type, reg.reg.number, reg.mask, nFirst + nSlot * s_nPrivateSlotSize);
        if (std::find(registers.begin(), registers.end(), slot) == registers.end())
        {
            registers.push_back(slot);
        }
    }
}

/// The declared size of an array, in the function of an instruction or else in those that called it. A macro has no
/// declarations of its own.
const unsigned int* CShaderDebuggerShaderIL::FindDeclaredSize(InstructionNumber nInst, const Register& reg) const
{
    const auto findIn = [&](unsigned int nFunction) -> const unsigned int*
    {
        const auto itScope = m_DeclsFuncScopeMap.find(nFunction);
        if (itScope == m_DeclsFuncScopeMap.end())
        {
            return nullptr;
        }
        const auto& sizes = reg.reg.type == RT_IndexableTemp ? itScope->second.m_IndexedTempRegisterSizes
                                                             : itScope->second.m_PrivateUAVSizes;
        const auto it = sizes.find(reg.reg.number);
        return it != sizes.end() ? &it->second : nullptr;
    };
    const bool bInMacro = MacroAround(nInst) != nullptr;
    const unsigned int* pSize = bInMacro ? nullptr : findIn(FunctionOf(nInst));
    for (auto it = m_CallStack.begin(); pSize == nullptr && it != m_CallStack.end(); ++it)
    {
        pSize = MacroAround(it->m_nPos) != nullptr ? nullptr : findIn(FunctionOf(it->m_nPos));
    }
    return pSize != nullptr || !bInMacro ? pSize : findIn(FunctionOf(nInst));
}

IL* CShaderDebuggerShaderIL::GetPatchedShader(ProgramCounter nTargetInstruction,
                                              const std::vector<Register>& vTargetRegs)
{
    if (nTargetInstruction == m_PatchedPC && vTargetRegs == m_PatchedRegs && m_CallStack == m_PatchedCallStack &&
        m_Leaving == m_PatchedLeaving)
    {
        return m_pPatchedShader;
    }
    m_PatchedPC = nTargetInstruction;
    m_PatchedRegs = vTargetRegs;
    m_PatchedCallStack = m_CallStack;
    m_PatchedLeaving = m_Leaving;
    return CreatePatchedShader(nTargetInstruction, vTargetRegs);
}

bool CShaderDebuggerShaderIL::SwitchShaderToPatchedShader(IL* pPatchedShader, size_t nPatchedShaderSize)
{
    m_bMemoryOnDevice = false;
    return pPatchedShader != nullptr && GetHost()->SetShader(GetShaderType(), pPatchedShader, nPatchedShaderSize);
}

bool CShaderDebuggerShaderIL::SwitchShader(ProgramCounter pc, const std::vector<Register>& vTargetRegs)
{
    // Of a switch the selectors are read in place of a register.
    m_bMaskOnly =
        GetDebuggerIL()->HasValuesOnDemand() && OpCodeAt(pc.m_nPos) != IL_OP_SWITCH &&
        std::all_of(vTargetRegs.begin(), vTargetRegs.end(), [](const Register& reg) { return reg == g_Reg_NULL; });
    IL* pPatchedShader = GetPatchedShader(pc, vTargetRegs);
    if (pPatchedShader == nullptr)
    {
        // The last image is for another target; the key of the failed one stays, so that it isn't tried again.
        std::free(m_pPatchedShader);
        m_pPatchedShader = nullptr;
        m_nPatchedShaderSize = 0;
    }
    return SwitchShaderToPatchedShader(pPatchedShader, m_nPatchedShaderSize);
}

bool CShaderDebuggerShaderIL::RestoreShader(bool bForceShaderRelease)
{
    if (bForceShaderRelease)
    {
        std::free(m_pPatchedShader);
        m_pPatchedShader = nullptr;
        m_nPatchedShaderSize = 0;
        m_PatchedPC = g_PC_NULL;
        m_PatchedRegs.clear();
    }
    return true;
}

} // namespace OVK_ShaderDebugger
