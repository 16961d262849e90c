#include "engine/TargetBuffers.h"

#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <string_view>
#include <utility>

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

CTargetBuffers::CTargetBuffers(CShaderDebuggerHost* pHost) : m_pHost(pHost) {}

CTargetBuffers::~CTargetBuffers() = default;

bool CTargetBuffers::Create(const BufferDesc& dispatch, bool bOnDemand)
{
    m_bByteMask = bOnDemand;
    DescribeOutputs(dispatch);
    return (bOnDemand || (BringValues() && BringMask())) && SaveArguments() && CreateWorkingCopies();
}

void CTargetBuffers::Clear()
{
    m_vpArguments.clear();
    m_vpSaved.clear();
    m_vpWorkingCopies.clear();
    m_pValues.reset();
    m_pMask.reset();
}

void CTargetBuffers::DescribeOutputs(BufferDesc desc)
{
    // All slices of the dispatch lie in one, in the same layout, since counts of active work-items and masks use the
    // first slice of a buffer alone.
    desc.m_nHeight *= std::max(desc.m_nDepth, 1u);
    desc.m_nDepth = 1;
    desc.m_nPitch = 0;
    m_ValuesDesc = desc;
    m_ValuesDesc.m_Format = ShaderUtils::BF_RGBA_32F;
    m_ValuesDesc.m_Usage = ShaderUtils::BU_Results;
    m_MaskDesc = desc;
    m_MaskDesc.m_Format = ShaderUtils::BF_R_32;
    m_MaskDesc.m_Usage = ShaderUtils::BU_ExecMask;
}

/// Makes the values' buffer if there is none yet.
bool CTargetBuffers::BringValues()
{
    if (m_pValues == nullptr)
    {
        m_pValues.reset(m_pHost->CreateDeviceBuffer(m_ValuesDesc));
    }
    return m_pValues != nullptr;
}

bool CTargetBuffers::BringMask()
{
    if (m_pMask == nullptr)
    {
        BufferDesc desc = m_MaskDesc;
        desc.m_Format = m_bByteMask ? ShaderUtils::BF_R_8 : desc.m_Format;
        m_pMask.reset(m_pHost->CreateDeviceBuffer(desc));
    }
    return m_pMask != nullptr;
}

void CTargetBuffers::DropValues()
{
    m_pValues.reset();
}

bool CTargetBuffers::SaveArguments()
{
    const unsigned int numBuffers = m_pHost->GetNumDeviceBuffers(ShaderUtils::ST_Compute);
    SD_Assert(m_pHost, m_vpArguments.empty());
    SD_Assert(m_pHost, m_vpSaved.empty());
    m_vpArguments.clear();
    m_vpSaved.clear();
    m_vpArguments.resize(numBuffers);
    m_vpSaved.resize(numBuffers);
    for (unsigned int i = 0; i < numBuffers; ++i)
    {
        CShaderDebuggerDeviceBuffer* pOriginalBuffer = m_pHost->GetDeviceBuffer(ShaderUtils::ST_Compute, i);
        if (!SD_AssertText(m_pHost, pOriginalBuffer != nullptr, "pOriginalBuffer != NULL"))
        {
            return false;
        }
        m_vpArguments[i].reset(pOriginalBuffer);
        if (IsMemory(*pOriginalBuffer))
        {
            m_vpSaved[i].reset(pOriginalBuffer->GetDataBuffer(nullptr));
        }
    }
    return true;
}

bool CTargetBuffers::CreateWorkingCopies()
{
    const size_t numBuffers = m_vpArguments.size();
    SD_Assert(m_pHost, m_vpWorkingCopies.empty());
    m_vpWorkingCopies.clear();
    m_vpWorkingCopies.resize(numBuffers);
    for (size_t i = 0; i < numBuffers; ++i)
    {
        if (!IsMemory(*m_vpArguments[i]))
        {
            continue;
        }
        // Without a working copy the runs would work on the client's own memory.
        BufferDesc desc;
        if (!m_pHost->GetDeviceBufferDesc(ShaderUtils::ST_Compute, static_cast<int>(i), desc))
        {
            return false;
        }
        m_vpWorkingCopies[i].reset(m_pHost->CreateDeviceBuffer(desc));
        if (m_vpSaved[i] == nullptr || m_vpWorkingCopies[i] == nullptr)
        {
            return false;
        }
    }
    return true;
}

bool CTargetBuffers::Switch(bool bValues, bool bMissStores)
{
    if ((bValues && !SD_Assert(m_pHost, BringValues())) || !SD_Assert(m_pHost, BringMask()))
    {
        return false;
    }
    // Work-items that come to the stores write both elements. Where not all do, what an earlier run wrote mustn't be
    // taken for this run's values.
    if (bMissStores && ((bValues && !m_pValues->Clear()) || !m_pMask->Clear()))
    {
        return false;
    }
    return ReloadWorkingCopies() && BindArguments(GetResultsArgument());
}

bool CTargetBuffers::SwitchForMemory(CShaderDebuggerDeviceBuffer* pLocal)
{
    return SD_Assert(m_pHost, BringMask()) && ReloadWorkingCopies() &&
           BindArguments(pLocal != nullptr ? *pLocal : GetResultsArgument());
}

bool CTargetBuffers::SwitchPlain()
{
    return ReloadWorkingCopies() && BindOwnArguments();
}

/// The buffer bound as the results. Without one it is a buffer that the kernel doesn't store to in this place.
CShaderDebuggerDeviceBuffer& CTargetBuffers::GetResultsArgument() const
{
    return m_pValues != nullptr ? *m_pValues : *m_pMask;
}

unsigned int CTargetBuffers::GetLocalArgumentSize(size_t nArgument) const
{
    BufferDesc desc;
    if (nArgument < m_vpArguments.size() && m_vpArguments[nArgument] != nullptr)
    {
        m_vpArguments[nArgument]->GetDeviceBufferDesc(&desc);
    }
    return desc.m_Type == ShaderUtils::BT_LocalBuffer ? static_cast<unsigned int>(desc.m_nSize) : 0;
}

bool CTargetBuffers::ReloadWorkingCopies()
{
    for (size_t i = 0; i < m_vpWorkingCopies.size(); ++i)
    {
        if (m_vpWorkingCopies[i] == nullptr)
        {
            continue;
        }
        CShaderDebuggerBuffer& saved = *m_vpSaved[i];
        if (!m_vpWorkingCopies[i]->UpdateData(saved.GetData(), saved.GetSize()))
        {
            return false;
        }
    }
    return true;
}

bool CTargetBuffers::BindOwnArguments()
{
    bool bBound = true;
    for (unsigned int i = 0; i < m_vpArguments.size(); ++i)
    {
        CShaderDebuggerDeviceBuffer* pWorkingCopy = m_vpWorkingCopies[i].get();
        bBound = m_pHost->SetDeviceBuffer(ShaderUtils::ST_Compute, i,
                                          pWorkingCopy != nullptr ? pWorkingCopy : m_vpArguments[i].get()) &&
                 bBound;
    }
    return bBound;
}

bool CTargetBuffers::BindArguments(CShaderDebuggerDeviceBuffer& results)
{
    return BindOwnArguments() && BindInPlaceOfResults(&results) && BindInPlaceOfMask(m_pMask.get());
}

bool CTargetBuffers::BindInPlaceOfResults(CShaderDebuggerDeviceBuffer* pBuffer)
{
    return Bind(m_vpArguments.size(), pBuffer);
}

bool CTargetBuffers::BindInPlaceOfMask(CShaderDebuggerDeviceBuffer* pBuffer)
{
    return Bind(m_vpArguments.size() + 1, pBuffer);
}

bool CTargetBuffers::Bind(size_t nArgument, CShaderDebuggerDeviceBuffer* pBuffer)
{
    return m_pHost->SetDeviceBuffer(ShaderUtils::ST_Compute, static_cast<unsigned int>(nArgument), pBuffer);
}

bool CTargetBuffers::SetSelector(unsigned int nSelector)
{
    BufferDesc desc;
    desc.m_Type = ShaderUtils::BT_Value;
    desc.m_ShaderType = ShaderUtils::ST_Compute;
    desc.m_nSize = sizeof(nSelector);
    desc.m_nArraySize = 1;
    const std::unique_ptr<CShaderDebuggerDeviceBuffer> pValueBuffer(m_pHost->CreateDeviceBuffer(desc));
    // The device takes the value when it is set; the object isn't needed any more.
    return SD_Assert(m_pHost, pValueBuffer) && pValueBuffer->UpdateData(&nSelector, sizeof(nSelector)) &&
           Bind(m_vpArguments.size() + 2, pValueBuffer.get());
}

std::unique_ptr<CShaderDebuggerBuffer> CTargetBuffers::ReadValues() const
{
    if (m_pValues == nullptr)
    {
        return nullptr;
    }
    std::unique_ptr<CShaderDebuggerBuffer> pResultBuffer(m_pValues->GetDataBuffer(nullptr));
    SD_Assert(m_pHost, pResultBuffer);
    return pResultBuffer;
}

std::unique_ptr<CShaderDebuggerBuffer> CTargetBuffers::ReadMask() const
{
    if (m_pMask == nullptr)
    {
        return nullptr;
    }
    std::unique_ptr<CShaderDebuggerBuffer> pExecMaskBuffer(m_bByteMask ? ReadByteMask()
                                                                       : m_pMask->GetDataBuffer(nullptr));
    SD_Assert(m_pHost, pExecMaskBuffer);
    return pExecMaskBuffer;
}

/// A new buffer with a word for each byte; null when memory runs out, and if the bytes can't be read.
CShaderDebuggerBuffer* CTargetBuffers::ReadByteMask() const
{
    std::unique_ptr<CShaderDebuggerBuffer> pWords(new (std::nothrow) CShaderDebuggerBuffer(m_pHost));
    if (pWords == nullptr || !pWords->Create(m_MaskDesc, nullptr))
    {
        return nullptr;
    }
    const auto widen = [&](const unsigned char* pBytes, size_t nSize)
    { std::copy_n(pBytes, std::min(nSize, pWords->GetItemCount()), reinterpret_cast<uint32_t*>(pWords->GetData())); };
    return m_pMask->Visit(widen) ? pWords.release() : nullptr;
}

std::vector<size_t> CTargetBuffers::HashWorkingCopies() const
{
    std::vector<size_t> vHashes;
    for (const auto& pCopy : m_vpWorkingCopies)
    {
        if (pCopy == nullptr)
        {
            continue;
        }
        const std::unique_ptr<CShaderDebuggerBuffer> pBytes(pCopy->GetDataBuffer(nullptr));
        if (pBytes == nullptr)
        {
            return {};
        }
        const std::string_view bytes(reinterpret_cast<const char*>(pBytes->GetData()), pBytes->GetSize());
        vHashes.push_back(std::hash<std::string_view>()(bytes));
    }
    return vHashes;
}

bool CTargetBuffers::RestoreArguments()
{
    bool bRestored = true;
    for (size_t i = 0; i < m_vpArguments.size(); ++i)
    {
        const std::unique_ptr<CShaderDebuggerBuffer>& pSaved = m_vpSaved[i];
        bRestored =
            bRestored && (pSaved == nullptr || m_vpArguments[i]->UpdateData(pSaved->GetData(), pSaved->GetSize()));
    }
    return bRestored;
}

/// What the client's memory is to get from the last run, by the argument through which it goes there. If several
/// arguments name one object, each contributes what it changed.
bool CTargetBuffers::ReadOutputs(Contents& outputs) const
{
    std::map<void*, size_t> firstOf;
    for (size_t i = 0; i < m_vpWorkingCopies.size(); ++i)
    {
        if (m_vpWorkingCopies[i] == nullptr)
        {
            continue;
        }
        std::unique_ptr<CShaderDebuggerBuffer> pNow(m_vpWorkingCopies[i]->GetDataBuffer(nullptr));
        if (pNow == nullptr)
        {
            return false;
        }
        const CShaderDebuggerBuffer& saved = *m_vpSaved[i];
        if (HaveSameContents(*pNow, saved))
        {
            continue;
        }
        const size_t nFirst = firstOf.emplace(GetMemoryObject(*m_vpArguments[i]), i).first->second;
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

bool CTargetBuffers::WriteBack()
{
    Contents outputs;
    if (!ReadOutputs(outputs))
    {
        SD_Log(m_pHost, logERROR, "Failed to read the outputs");
        return false;
    }
    for (auto it = outputs.begin(); it != outputs.end(); ++it)
    {
        if (m_vpArguments[it->first]->UpdateData(it->second->GetData(), it->second->GetSize()))
        {
            continue;
        }
        SD_Log(m_pHost, logERROR, "Failed to write the outputs back");
        for (auto itWritten = outputs.begin(); itWritten != it; ++itWritten)
        {
            CShaderDebuggerBuffer& saved = *m_vpSaved[itWritten->first];
            m_vpArguments[itWritten->first]->UpdateData(saved.GetData(), saved.GetSize());
        }
        return false;
    }
    return true;
}

} // namespace OVK_ShaderDebugger
