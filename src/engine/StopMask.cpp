#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <new>
#include <utility>

/// The mask of a stop with values on demand: a byte a work-item on the device, and a bit here. The form that the client
/// sees is made when it asks, and dropped at the next movement.
namespace OVK_ShaderDebugger
{

/// The mask of the last run; no mask is kept if it can't be read.
CKeptMask CShaderDebuggerIL::ReadMask(bool bHideLeavers)
{
    CKeptMask mask;
    const unsigned char nLeaver = CShaderDebuggerShaderIL::s_nLeaverFlag;
    const unsigned char* pHidden = bHideLeavers ? &nLeaver : nullptr;
    const auto keep = [&](const unsigned char* pBytes, size_t nSize)
    {
        if (m_TargetBuffers.HasByteMask())
        {
            mask.KeepBytes(pBytes, nSize, pHidden);
        }
        else
        {
            mask.KeepWords(pBytes, nSize / sizeof(uint32_t), pHidden);
        }
    };
    CShaderDebuggerDeviceBuffer* const pDevice = m_TargetBuffers.GetMask();
    if (pDevice != nullptr && !SD_Assert(GetHost(), pDevice->Visit(keep)))
    {
        mask.Forget();
    }
    return mask;
}

void CShaderDebuggerIL::UpdateMask(const ProgramCounter& pc, const Register& reg)
{
    CKeptMask mask = ReadMask(GetCurrentShader()->ReadsLeavers());
    if (!mask.IsKept())
    {
        return;
    }
    GetCurrentShader()->NoteActiveCount(pc, mask.GetActiveCount());
    if (reg == g_Reg_NULL)
    {
        FileBits(pc, std::move(mask));
    }
}

void CShaderDebuggerIL::FileBits(const ProgramCounter& pc, CKeptMask mask)
{
    CShaderDebuggerResult* pResult = GetResult(m_Results, s_szNoDestination);
    if (pResult == nullptr)
    {
        return;
    }
    m_pLastTouchedResult = pResult;
    pResult->SetProgramCounter(pc, RegisterMask(0));
    pResult->UpdateExecMask(nullptr);
    m_bMaskStale = false;
    if (!m_bMaskFiled)
    {
        m_KeptMask = std::move(m_StopMask);
    }
    m_bMaskFiled = true;
    m_StopMask = std::move(mask);
}

bool CShaderDebuggerIL::BringExecMask(const ProgramCounter& pc)
{
    if (!HasMask())
    {
        CKeptMask mask = ReadMask(false);
        if (mask.IsKept())
        {
            FileBits(pc, std::move(mask));
        }
    }
    return HasMask();
}

/// Puts back the mask that the present stop had before a movement that was broken off.
bool CShaderDebuggerIL::RestoreMask()
{
    if (!m_bValuesOnDemand || !m_KeptMask.IsKept())
    {
        return false;
    }
    FileBits(GetCurrentInstruction(), std::exchange(m_KeptMask, CKeptMask()));
    return true;
}

/// Whether the present stop has a mask to show, which may take a run.
bool CShaderDebuggerIL::HasMask() const
{
    if (m_bMaskStale && !(GetCurrentShader() != nullptr && GetCurrentShader()->ReadStopMask()))
    {
        return false;
    }
    return m_pLastTouchedResult != nullptr && (m_pLastTouchedResult->GetExecMask() != nullptr || m_StopMask.IsKept());
}

bool CShaderDebuggerIL::CountActive(size_t& nActive) const
{
    if (!HasMask())
    {
        return false;
    }
    const CShaderDebuggerBuffer* pShown = m_pLastTouchedResult->GetExecMask();
    nActive = pShown != nullptr ? pShown->GetActiveItemCount(0) : m_StopMask.GetActiveCount();
    return true;
}

/// The mask in the client's form. Null when memory runs out.
CShaderDebuggerBuffer* CShaderDebuggerIL::ShowMask(CShaderDebuggerResult& result) const
{
    if (result.GetExecMask() == nullptr)
    {
        std::unique_ptr<CShaderDebuggerBuffer> pShown(new (std::nothrow) CShaderDebuggerBuffer(m_pHost));
        if (pShown != nullptr && pShown->Create(m_TargetBuffers.GetMaskDesc(), nullptr) && m_StopMask.Restore(*pShown))
        {
            result.UpdateExecMask(pShown.release());
        }
    }
    return result.GetExecMask();
}

void CShaderDebuggerIL::HideMask()
{
    CShaderDebuggerResult* pResult = m_StopMask.IsKept() ? FindResult(m_Results, s_szNoDestination) : nullptr;
    if (pResult != nullptr)
    {
        pResult->UpdateExecMask(nullptr);
    }
}

} // namespace OVK_ShaderDebugger
