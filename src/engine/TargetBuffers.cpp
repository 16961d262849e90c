#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <cstring>

namespace OVK_ShaderDebugger
{

namespace
{

/// Whether an argument names memory, which a run can change.
bool IsMemory(const CShaderDebuggerDeviceBuffer& buffer)
{
    return buffer.GetBufferType() != ShaderUtils::BT_Value && buffer.GetBufferType() != ShaderUtils::BT_LocalBuffer;
}

/// The memory object that an argument names, as the device hands it over.
void* GetMemoryObject(const CShaderDebuggerDeviceBuffer& buffer)
{
    void* pObject = nullptr;
    if (buffer.GetDeviceBuffer() != nullptr)
    {
        std::memcpy(&pObject, buffer.GetDeviceBuffer(), sizeof(pObject));
    }
    return pObject;
}

bool HaveSameContents(const CShaderDebuggerBuffer& lhs, const CShaderDebuggerBuffer& rhs)
{
    return lhs.GetSize() == rhs.GetSize() && std::memcmp(lhs.GetData(), rhs.GetData(), lhs.GetSize()) == 0;
}

/// Puts the bytes of now that differ from before into merged.
void Overlay(CShaderDebuggerBuffer& merged, const CShaderDebuggerBuffer& before, const CShaderDebuggerBuffer& now)
{
    const size_t nSize = std::min({merged.GetSize(), before.GetSize(), now.GetSize()});
    for (size_t n = 0; n < nSize; ++n)
    {
        if (now.GetData()[n] != before.GetData()[n])
        {
            merged.GetData()[n] = now.GetData()[n];
        }
    }
}

} // namespace

bool CShaderDebuggerIL::CreateTargetBuffers()
{
    BufferDesc desc;
    if (!GetHost()->GetDeviceBufferDesc(ShaderUtils::ST_Compute, -1, desc))
    {
        SD_Log(GetHost(), logERROR, "ShaderDebugger can not get render target description.\n");
        return false;
    }
    m_dwWidth = desc.m_nWidth;
    m_dwHeight = desc.m_nHeight;
    m_dwDepth = desc.m_nDepth;
    m_dwArraySize = desc.m_nArraySize;
    m_BufferType = desc.m_Type;
    return CreateOutputBuffers(desc) && SaveArguments() && CreateWorkingCopies();
}

/// One element a work-item: a register's four components, and whether the work-item was active. With values on demand
/// the first run that needs them makes them.
bool CShaderDebuggerIL::CreateOutputBuffers(BufferDesc desc)
{
    // All slices of the dispatch lie in one, one behind the other as before: active work-items are counted, and masks
    // applied, by the first slice of a buffer alone.
    desc.m_nHeight *= std::max(desc.m_nDepth, 1u);
    desc.m_nDepth = 1;
    desc.m_nPitch = 0;
    m_OutputDesc = desc;
    m_OutputDesc.m_Format = ShaderUtils::BF_RGBA_32F;
    m_OutputDesc.m_Usage = ShaderUtils::BU_Results;
    m_MaskDesc = desc;
    m_MaskDesc.m_Format = ShaderUtils::BF_R_32;
    m_MaskDesc.m_Usage = ShaderUtils::BU_ExecMask;
    m_bByteMask = m_bValuesOnDemand;
    return m_bValuesOnDemand || (BringOutputBuffer(SD_Results) && BringOutputBuffer(SD_ExecMask));
}

/// Makes an output buffer unless it is there.
bool CShaderDebuggerIL::BringOutputBuffer(int nBuffer)
{
    std::unique_ptr<CShaderDebuggerDeviceBuffer>& pBuffer = m_pSwitchedTargetBuffers[nBuffer];
    if (pBuffer == nullptr)
    {
        BufferDesc desc = nBuffer == SD_Results ? m_OutputDesc : m_MaskDesc;
        desc.m_Format = nBuffer == SD_ExecMask && m_bByteMask ? ShaderUtils::BF_R_8 : desc.m_Format;
        pBuffer.reset(GetHost()->CreateDeviceBuffer(desc));
    }
    return pBuffer != nullptr;
}

bool CShaderDebuggerIL::SaveArguments()
{
    const unsigned int numBuffers = GetHost()->GetNumDeviceBuffers(GetShaderType());
    SD_Assert(GetHost(), m_vpOriginalTargetBuffers.empty());
    SD_Assert(GetHost(), m_vpOriginalTargetBuffersData.empty());
    m_vpOriginalTargetBuffers.clear();
    m_vpOriginalTargetBuffersData.clear();
    m_vpOriginalTargetBuffers.resize(numBuffers);
    m_vpOriginalTargetBuffersData.resize(numBuffers);
    for (unsigned int i = 0; i < numBuffers; ++i)
    {
        CShaderDebuggerDeviceBuffer* pOriginalBuffer = GetHost()->GetDeviceBuffer(GetShaderType(), i);
        if (!SD_AssertText(GetHost(), pOriginalBuffer != nullptr, "pOriginalBuffer != NULL"))
        {
            return false;
        }
        m_vpOriginalTargetBuffers[i].reset(pOriginalBuffer);
        if (IsMemory(*pOriginalBuffer))
        {
            m_vpOriginalTargetBuffersData[i].reset(pOriginalBuffer->GetDataBuffer(nullptr));
        }
    }
    return true;
}

bool CShaderDebuggerIL::CreateWorkingCopies()
{
    const size_t numBuffers = m_vpOriginalTargetBuffers.size();
    SD_Assert(GetHost(), m_vpModifiedTargetBuffers.empty());
    SD_Assert(GetHost(), m_GlobalResults.empty());
    m_vpModifiedTargetBuffers.clear();
    m_GlobalResults.clear();
    m_vpModifiedTargetBuffers.resize(numBuffers);
    m_GlobalResultDirtyFlags.assign(numBuffers, false);
    for (size_t i = 0; i < numBuffers; ++i)
    {
        if (!IsMemory(*m_vpOriginalTargetBuffers[i]))
        {
            continue;
        }
        // Without a working copy the runs would work on the client's own memory.
        BufferDesc desc;
        if (!GetHost()->GetDeviceBufferDesc(ShaderUtils::ST_Compute, static_cast<int>(i), desc))
        {
            return false;
        }
        m_vpModifiedTargetBuffers[i].reset(GetHost()->CreateDeviceBuffer(desc));
        CShaderDebuggerResult* pResult = GetResult(m_GlobalResults, GetGlobalResultName(i));
        if (m_vpOriginalTargetBuffersData[i] == nullptr || m_vpModifiedTargetBuffers[i] == nullptr ||
            pResult == nullptr)
        {
            return false;
        }
        pResult->UpdateDataType(ShaderUtils::DT_UInt32, COMP_All);
    }
    return true;
}

bool CShaderDebuggerIL::SwitchTargetBuffers()
{
    if (!SD_Assert(GetHost(), GetCurrentShader()))
    {
        return false;
    }
    const bool bValues = GetCurrentShader()->StoresValues();
    if ((bValues && !SD_Assert(GetHost(), BringOutputBuffer(SD_Results))) ||
        !SD_Assert(GetHost(), BringOutputBuffer(SD_ExecMask)))
    {
        return false;
    }
    // Who comes to the stores writes both elements. Where that isn't everybody, what an earlier run wrote must not
    // pass for what this one did.
    if (GetCurrentShader()->CanMissStores() && ((bValues && !m_pSwitchedTargetBuffers[SD_Results]->Clear()) ||
                                                !m_pSwitchedTargetBuffers[SD_ExecMask]->Clear()))
    {
        return false;
    }
    return ReloadWorkingCopies() && BindArguments(GetResultsArgument());
}

bool CShaderDebuggerIL::SwitchMemoryBuffers(CShaderDebuggerDeviceBuffer* pLocal)
{
    return ReloadWorkingCopies() && BindArguments(pLocal != nullptr ? *pLocal : GetResultsArgument());
}

/// What stands for the results. Where there are none it is a buffer that the kernel doesn't store to in this place.
CShaderDebuggerDeviceBuffer& CShaderDebuggerIL::GetResultsArgument() const
{
    const bool bResults = m_pSwitchedTargetBuffers[SD_Results] != nullptr;
    return *m_pSwitchedTargetBuffers[bResults ? SD_Results : SD_ExecMask];
}

unsigned int CShaderDebuggerIL::GetLocalArgumentSize(size_t nArgument) const
{
    BufferDesc desc;
    if (nArgument < m_vpOriginalTargetBuffers.size() && m_vpOriginalTargetBuffers[nArgument] != nullptr)
    {
        m_vpOriginalTargetBuffers[nArgument]->GetDeviceBufferDesc(&desc);
    }
    return desc.m_Type == ShaderUtils::BT_LocalBuffer ? static_cast<unsigned int>(desc.m_nSize) : 0;
}

bool CShaderDebuggerIL::ReloadWorkingCopies()
{
    for (size_t i = 0; i < m_vpModifiedTargetBuffers.size(); ++i)
    {
        if (m_vpModifiedTargetBuffers[i] == nullptr)
        {
            continue;
        }
        CShaderDebuggerBuffer& saved = *m_vpOriginalTargetBuffersData[i];
        if (!m_vpModifiedTargetBuffers[i]->UpdateData(saved.GetData(), saved.GetSize()))
        {
            return false;
        }
    }
    return true;
}

bool CShaderDebuggerIL::BindOwnArguments()
{
    bool bBound = true;
    for (unsigned int i = 0; i < m_vpOriginalTargetBuffers.size(); ++i)
    {
        CShaderDebuggerDeviceBuffer* pWorkingCopy = m_vpModifiedTargetBuffers[i].get();
        bBound = GetHost()->SetDeviceBuffer(
                     GetShaderType(), i, pWorkingCopy != nullptr ? pWorkingCopy : m_vpOriginalTargetBuffers[i].get()) &&
                 bBound;
    }
    return bBound;
}

bool CShaderDebuggerIL::BindArguments(CShaderDebuggerDeviceBuffer& results)
{
    const unsigned int n = static_cast<unsigned int>(m_vpOriginalTargetBuffers.size());
    return BindOwnArguments() && GetHost()->SetDeviceBuffer(GetShaderType(), n, &results) &&
           GetHost()->SetDeviceBuffer(GetShaderType(), n + 1, m_pSwitchedTargetBuffers[SD_ExecMask].get());
}

/// What a run changed is undone in front of the next one.
bool CShaderDebuggerIL::RestoreTargetBuffers()
{
    return true;
}

bool CShaderDebuggerIL::SetRegisterSelectorValue(unsigned int nRegSelector)
{
    BufferDesc desc;
    desc.m_Type = ShaderUtils::BT_Value;
    desc.m_ShaderType = GetShaderType();
    desc.m_nSize = sizeof(nRegSelector);
    desc.m_nArraySize = 1;
    const std::unique_ptr<CShaderDebuggerDeviceBuffer> pValueBuffer(GetHost()->CreateDeviceBuffer(desc));
    const unsigned int nIndex = static_cast<unsigned int>(m_vpOriginalTargetBuffers.size()) + 2;
    // The device takes the value when it is set; the object isn't needed any more.
    return SD_Assert(GetHost(), pValueBuffer) && pValueBuffer->UpdateData(&nRegSelector, sizeof(nRegSelector)) &&
           GetHost()->SetDeviceBuffer(GetShaderType(), nIndex, pValueBuffer.get());
}

void CShaderDebuggerIL::DeleteTargetBuffers(bool bUpdateOriginalBuffers)
{
    if (bUpdateOriginalBuffers)
    {
        m_bResultsDelivered = m_bOutputsComplete && WriteBack();
    }
    m_vpOriginalTargetBuffers.clear();
    m_vpOriginalTargetBuffersData.clear();
    m_vpModifiedTargetBuffers.clear();
    m_pSwitchedTargetBuffers[SD_Results].reset();
    m_pSwitchedTargetBuffers[SD_ExecMask].reset();
    m_pValues.reset();
    m_pSpareExecMask.reset();
    m_StopMask.Forget();
    m_KeptMask.Forget();
}

bool CShaderDebuggerIL::RestoreArguments()
{
    bool bRestored = m_bIsDebugging;
    for (size_t i = 0; i < m_vpOriginalTargetBuffers.size(); ++i)
    {
        const std::unique_ptr<CShaderDebuggerBuffer>& pSaved = m_vpOriginalTargetBuffersData[i];
        bRestored = bRestored && (pSaved == nullptr ||
                                  m_vpOriginalTargetBuffers[i]->UpdateData(pSaved->GetData(), pSaved->GetSize()));
    }
    return bRestored;
}

/// What the client's memory is to get from the last run, by the argument through which it goes there. Of arguments that
/// name one object each contributes what it changed.
bool CShaderDebuggerIL::ReadOutputs(Contents& outputs)
{
    std::map<void*, size_t> firstOf;
    for (size_t i = 0; i < m_vpModifiedTargetBuffers.size(); ++i)
    {
        if (m_vpModifiedTargetBuffers[i] == nullptr)
        {
            continue;
        }
        std::unique_ptr<CShaderDebuggerBuffer> pNow(m_vpModifiedTargetBuffers[i]->GetDataBuffer(nullptr));
        if (pNow == nullptr)
        {
            return false;
        }
        const CShaderDebuggerBuffer& saved = *m_vpOriginalTargetBuffersData[i];
        if (HaveSameContents(*pNow, saved))
        {
            continue;
        }
        const size_t nFirst = firstOf.emplace(GetMemoryObject(*m_vpOriginalTargetBuffers[i]), i).first->second;
        if (nFirst == i)
        {
            outputs[i] = std::move(pNow);
        }
        else
        {
            Overlay(*outputs[nFirst], saved, *pNow);
        }
    }
    return true;
}

/// Gives the client's memory what the last run left in the working copies: all of it or nothing, so that the launch can
/// still be made.
bool CShaderDebuggerIL::WriteBack()
{
    Contents outputs;
    if (!ReadOutputs(outputs))
    {
        SD_Log(GetHost(), logERROR, "Failed to read the outputs");
        return false;
    }
    for (auto it = outputs.begin(); it != outputs.end(); ++it)
    {
        if (m_vpOriginalTargetBuffers[it->first]->UpdateData(it->second->GetData(), it->second->GetSize()))
        {
            continue;
        }
        SD_Log(GetHost(), logERROR, "Failed to write the outputs back");
        for (auto itWritten = outputs.begin(); itWritten != it; ++itWritten)
        {
            CShaderDebuggerBuffer& saved = *m_vpOriginalTargetBuffersData[itWritten->first];
            m_vpOriginalTargetBuffers[itWritten->first]->UpdateData(saved.GetData(), saved.GetSize());
        }
        return false;
    }
    return true;
}

} // namespace OVK_ShaderDebugger
