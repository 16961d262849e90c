#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/PrivateAccess.h"
#include "engine/ResultRegister.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"
#include "il/ShaderDebuggerUtilsIL.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace OVK_ShaderDebugger
{

const char CShaderDebuggerIL::s_szNoDestination[] = "NoDestinationRegister";

bool CShaderDebuggerIL::RetrieveResultBuffer(CShaderDebuggerBuffer*& pResultBuffer)
{
    pResultBuffer = m_TargetBuffers.ReadValues().release();
    return pResultBuffer != nullptr;
}

bool CShaderDebuggerIL::RetrieveExecMaskBuffer(CShaderDebuggerBuffer*& pExecMaskBuffer)
{
    pExecMaskBuffer = m_TargetBuffers.ReadMask().release();
    return pExecMaskBuffer != nullptr;
}

bool CShaderDebuggerIL::RetrieveResultsBuffers(CShaderDebuggerBuffer*& pResultBuffer,
                                               CShaderDebuggerBuffer*& pExecMaskBuffer)
{
    pExecMaskBuffer = nullptr;
    return RetrieveResultBuffer(pResultBuffer) && RetrieveExecMaskBuffer(pExecMaskBuffer);
}

void CShaderDebuggerIL::UpdateResults(ProgramCounter pc, Register reg)
{
    CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    if (!SD_AssertText(GetHost(), pShader != nullptr, "pShader != NULL"))
    {
        return;
    }
    if (m_bValuesOnDemand)
    {
        UpdateMask(pc, reg);
        return;
    }
    std::unique_ptr<CShaderDebuggerBuffer> pExecMask = ReadExecMask();
    if (pExecMask == nullptr)
    {
        return;
    }
    size_t nActive = pExecMask->GetActiveItemCount(0);
    const bool bAllRead = nActive == pExecMask->GetItemCount();
    const EFiling eFiling = GetFiling(reg, nActive != 0);
    std::unique_ptr<CShaderDebuggerBuffer> pRead;
    if (pShader->ReadsLeavers())
    {
        pRead.reset(new (std::nothrow) CShaderDebuggerBuffer(*pExecMask));
        if (!SD_Assert(GetHost(), pRead != nullptr))
        {
            return;
        }
        CShaderDebuggerShaderIL::HideLeavers(*pExecMask);
        nActive = pExecMask->GetActiveItemCount(0);
    }
    const bool bAllActive = nActive == pExecMask->GetItemCount();
    std::unique_ptr<CShaderDebuggerBuffer> pValues;
    if (eFiling == FILE_Values && !ReadValues(reg, bAllRead, pValues))
    {
        return;
    }
    pShader->NoteActiveCount(pc, nActive);
    if (eFiling == FILE_Values)
    {
        if (FileValues(pc, reg, std::move(pValues), pRead != nullptr ? pRead.get() : pExecMask.get()))
        {
            FileExecMask(*m_pLastTouchedResult, std::move(pExecMask), bAllActive);
        }
    }
    else if (eFiling == FILE_Mask)
    {
        FileMask(pc, std::move(pExecMask), bAllActive);
    }
    else
    {
        m_pSpareExecMask = std::move(pExecMask);
    }
}

/// The mask of the last run, in the memory of an older one if there is any. Null if it can't be read.
std::unique_ptr<CShaderDebuggerBuffer> CShaderDebuggerIL::ReadExecMask()
{
    CShaderDebuggerDeviceBuffer* const pMask = m_TargetBuffers.GetMask();
    if (m_pSpareExecMask == nullptr || m_TargetBuffers.HasByteMask() || pMask == nullptr)
    {
        return m_TargetBuffers.ReadMask();
    }
    const CShaderDebuggerBuffer* pRead = pMask->GetDataBuffer(m_pSpareExecMask.get());
    return SD_Assert(GetHost(), pRead) ? std::move(m_pSpareExecMask) : nullptr;
}

/// If the mask and the one before both have all work-items, the one just read is reused for the next run, since its
/// memory is the one that is still in the processor's cache.
void CShaderDebuggerIL::FileExecMask(CShaderDebuggerResult& result,
                                     std::unique_ptr<CShaderDebuggerBuffer> pExecMaskBuffer, bool bAllActive)
{
    m_bMaskStale = false;
    if (bAllActive && result.HasFullExecMask())
    {
        m_pSpareExecMask = std::move(pExecMaskBuffer);
        return;
    }
    m_bMaskFiled = true;
    m_StopMask.Forget();
    m_pSpareExecMask.reset(result.ExchangeExecMask(pExecMaskBuffer.release(), bAllActive));
}

void CShaderDebuggerIL::UpdateResults(Register inputReg)
{
    CShaderDebuggerBuffer* pResultBuffer = nullptr;
    CShaderDebuggerBuffer* pExecMaskBuffer = nullptr;
    RetrieveResultsBuffers(pResultBuffer, pExecMaskBuffer);
    const std::unique_ptr<CShaderDebuggerBuffer> pExecMaskOwner(pExecMaskBuffer);
    std::unique_ptr<CShaderDebuggerBuffer> pResultOwner(pResultBuffer);
    CShaderDebuggerResult* pResult = GetResult(inputReg);
    if (pResult != nullptr && pResultOwner != nullptr)
    {
        pResult->UpdateResult(pResultOwner.release(), nullptr, 0, 0, 0);
    }
}

/// How a run's values are kept: a register that no work-item has written yet has no values to show.
CShaderDebuggerIL::EFiling CShaderDebuggerIL::GetFiling(const Register& reg, bool bAnyActive)
{
    if (reg == g_Reg_NULL)
    {
        return FILE_Mask;
    }
    if (!IsTracked(reg) || IsWriteAcrossSlots(reg))
    {
        return FILE_Nothing;
    }
    return bAnyActive || FindResult(GetResultRegister(reg)) != nullptr ? FILE_Values : FILE_Mask;
}

/// Reads the values of a run. If all work-items have new ones they overwrite the old ones, with no second copy.
/// \param[out] pValues  null if the register's own buffer has them
bool CShaderDebuggerIL::ReadValues(const Register& reg, bool bAllActive,
                                   std::unique_ptr<CShaderDebuggerBuffer>& pValues)
{
    const CShaderDebuggerResult* pResult = FindResult(GetResultRegister(reg));
    const bool bReplaced = bAllActive && reg.reg.type != RT_PrivateUAVAccess;
    CShaderDebuggerDeviceBuffer* const pOnDevice = m_TargetBuffers.GetValues();
    if (bReplaced && pResult != nullptr && pResult->GetResult() != nullptr && pOnDevice != nullptr)
    {
        return pOnDevice->GetDataBuffer(pResult->GetResult()) != nullptr;
    }
    pValues = m_TargetBuffers.ReadValues();
    return pValues != nullptr;
}

void CShaderDebuggerIL::FileMask(ProgramCounter pc, std::unique_ptr<CShaderDebuggerBuffer> pExecMaskBuffer,
                                 bool bAllActive)
{
    CShaderDebuggerResult* pResult = GetResult(m_Results, s_szNoDestination);
    if (pResult == nullptr)
    {
        return;
    }
    m_pLastTouchedResult = pResult;
    pResult->SetProgramCounter(pc, RegisterMask(0));
    FileExecMask(*pResult, std::move(pExecMaskBuffer), bAllActive);
}

void CShaderDebuggerIL::FileStopMask(const ProgramCounter& pc, std::unique_ptr<CShaderDebuggerBuffer> pExecMask)
{
    if (m_bValuesOnDemand)
    {
        CKeptMask mask;
        mask.KeepWords(pExecMask->GetData(), pExecMask->GetItemCount(), nullptr);
        pExecMask.reset();
        FileBits(pc, std::move(mask));
        return;
    }
    const bool bAllActive = pExecMask->GetActiveItemCount(0) == pExecMask->GetItemCount();
    FileMask(pc, std::move(pExecMask), bAllActive);
}

/// \param pValues  null if the register's own buffer has them
/// \param pRead  the mask of the work-items whose values were read
/// \return whether there is a result, which is then the last touched one
bool CShaderDebuggerIL::FileValues(ProgramCounter pc, const Register& reg,
                                   std::unique_ptr<CShaderDebuggerBuffer> pValues, CShaderDebuggerBuffer* pRead)
{
    CShaderDebuggerResult* pResult = GetResult(GetResultRegister(reg));
    if (pResult == nullptr)
    {
        return false;
    }
    m_pLastTouchedResult = pResult;
    pResult->SetProgramCounter(pc, reg.mask);
    UpdateResultDataType(*pResult);
    if (pValues != nullptr)
    {
        const SPrivateAccess access = GetAccess(reg);
        const bool bPart = reg.reg.type == RT_PrivateUAVAccess;
        pResult->UpdateResult(pValues.release(), pRead, access.nFirstComponent, 0, bPart ? access.nComponents : 0);
    }
    return true;
}

void CShaderDebuggerIL::UpdateResultDataType(CShaderDebuggerResult& result)
{
    result.UpdateDataType(ShaderUtils::DT_UInt32, COMP_All);
}

Register CShaderDebuggerIL::GetResultRegister(const Register& reg)
{
    return ResultRegisterOf(reg);
}

bool CShaderDebuggerIL::IsWriteAcrossSlots(const Register& reg) const
{
    const SPrivateAccess access = GetAccess(reg);
    if (access.nFirstComponent + access.nComponents <= 4)
    {
        return false;
    }
    SD_Break(m_pHost, "No support for writes across 16 byte private UAV boundaries");
    return true;
}

bool CShaderDebuggerIL::HasPrivateUAV(unsigned int nNumber) const
{
    const CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    return pShader != nullptr && pShader->HasPrivateUAV(nNumber);
}

bool CShaderDebuggerIL::IsTracked(const Register& reg) const
{
    if (m_bValuesOnDemand)
    {
        return false;
    }
    return !m_bEnableTrackingVariables ||
           TrackedNames().count(ShaderDebuggerUtilsIL::GetILRegisterName(reg, false)) != 0;
}

bool CShaderDebuggerIL::IsTracked(const std::string& strName) const
{
    return !m_bEnableTrackingVariables || TrackedNames().count(strName.substr(0, strName.find('['))) != 0;
}

CShaderDebuggerResult* CShaderDebuggerIL::FindResult(ResultMap& results, const std::string& strName)
{
    const auto it = results.find(strName);
    return it != results.end() ? it->second.get() : nullptr;
}

CShaderDebuggerResult* CShaderDebuggerIL::FindResult(Register reg)
{
    return FindResult(m_Results, ShaderDebuggerUtilsIL::GetILRegisterName(reg, true));
}

CShaderDebuggerResult* CShaderDebuggerIL::GetResult(ResultMap& results, const std::string& strName)
{
    CShaderDebuggerResult* pResult = FindResult(results, strName);
    if (pResult == nullptr)
    {
        std::unique_ptr<CShaderDebuggerResult> pNew(new (std::nothrow) CShaderDebuggerResult(GetHost(), strName));
        pResult = pNew.get();
        if (pResult != nullptr)
        {
            results[strName] = std::move(pNew);
        }
    }
    return pResult;
}

CShaderDebuggerResult* CShaderDebuggerIL::GetResult(Register reg)
{
    return GetResult(m_Results, ShaderDebuggerUtilsIL::GetILRegisterName(reg, true));
}

void CShaderDebuggerIL::DeleteResult(const Register& reg)
{
    const auto it = m_Results.find(ShaderDebuggerUtilsIL::GetILRegisterName(GetResultRegister(reg), true));
    if (it == m_Results.end())
    {
        return;
    }
    const bool bLastTouched = it->second.get() == m_pLastTouchedResult;
    m_Results.erase(it);
    if (bLastTouched)
    {
        FindLastResult(GetCurrentInstruction());
    }
}

bool CShaderDebuggerIL::FindLastResult(const ProgramCounter& pc)
{
    m_pLastTouchedResult = nullptr;
    for (InstructionNumber nPos = pc.m_nPos; nPos != 0 && m_pLastTouchedResult == nullptr; --nPos)
    {
        const Register reg = GetCurrentShader()->GetDestRegister(ProgramCounter(nPos));
        if (reg != g_Reg_NULL)
        {
            m_pLastTouchedResult = FindResult(GetResultRegister(reg));
        }
    }
    return m_pLastTouchedResult != nullptr;
}

/// A result for each argument of memory.
bool CShaderDebuggerIL::CreateGlobalResults()
{
    SD_Assert(GetHost(), m_GlobalResults.empty());
    m_GlobalResults.clear();
    m_GlobalResultDirtyFlags.assign(m_TargetBuffers.CountArguments(), false);
    for (size_t i = 0; i < m_TargetBuffers.CountArguments(); ++i)
    {
        if (m_TargetBuffers.GetWorkingCopy(i) == nullptr)
        {
            continue;
        }
        CShaderDebuggerResult* pResult = GetResult(m_GlobalResults, GetGlobalResultName(i));
        if (pResult == nullptr)
        {
            return false;
        }
        pResult->UpdateDataType(ShaderUtils::DT_UInt32, COMP_All);
    }
    return true;
}

std::string CShaderDebuggerIL::GetGlobalResultName(size_t idx)
{
    return "m" + std::to_string(idx);
}

void CShaderDebuggerIL::SetGlobalResultDirtyFlag(const ProgramCounter& pc)
{
    m_GlobalResultDirtyFlags.assign(m_GlobalResultDirtyFlags.size(), true);
    m_LastUpdatedGlobalResultPC = pc;
}

bool CShaderDebuggerIL::UpdateGlobalResult(CShaderDebuggerResult* pUpdateResult)
{
    for (size_t i = 0; i < m_TargetBuffers.CountArguments(); ++i)
    {
        if (m_TargetBuffers.GetWorkingCopy(i) != nullptr &&
            FindResult(m_GlobalResults, GetGlobalResultName(i)) == pUpdateResult)
        {
            return LoadGlobalResult(i, *pUpdateResult);
        }
    }
    return false;
}

/// Brings the contents of an argument at the present stop into its result. Until something may have been written these
/// are the saved contents, in a copy: the saved buffer itself is what the runs start from.
bool CShaderDebuggerIL::LoadGlobalResult(size_t i, CShaderDebuggerResult& result)
{
    CShaderDebuggerBuffer* pBuf = result.GetResult();
    const CShaderDebuggerBuffer& saved = *m_TargetBuffers.GetSaved(i);
    CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    if (!SD_Assert(GetHost(), pShader))
    {
        return false;
    }
    if (pShader->MayHaveWritten())
    {
        m_GlobalResultDirtyFlags[i] = true;
        CShaderDebuggerBuffer* pRead =
            pShader->BringMemory() ? m_TargetBuffers.GetWorkingCopy(i)->GetDataBuffer(pBuf) : nullptr;
        if (pBuf == nullptr && pRead != nullptr)
        {
            result.UpdateResult(pRead, nullptr, 0, 0, 0);
        }
        return SD_AssertText(GetHost(), pRead != nullptr, "pBuf");
    }
    if (pBuf == nullptr)
    {
        pBuf = new (std::nothrow) CShaderDebuggerBuffer(saved);
        result.UpdateResult(pBuf, nullptr, 0, 0, 0);
    }
    else if (m_GlobalResultDirtyFlags[i])
    {
        std::memcpy(pBuf->GetData(), saved.GetData(), std::min(pBuf->GetSize(), saved.GetSize()));
    }
    m_GlobalResultDirtyFlags[i] = false;
    return SD_AssertText(GetHost(), pBuf != nullptr, "pBuf");
}

bool CShaderDebuggerIL::IsOfArgument(const CShaderDebuggerResult* pResult) const
{
    for (size_t i = 0; i < m_TargetBuffers.CountArguments(); ++i)
    {
        const auto it = m_GlobalResults.find(GetGlobalResultName(i));
        if (m_TargetBuffers.GetWorkingCopy(i) != nullptr && it != m_GlobalResults.end() && it->second.get() == pResult)
        {
            return true;
        }
    }
    return false;
}

} // namespace OVK_ShaderDebugger
