#ifndef KESTREL_TESTS_SUPPORT_SIMTDEVICE_H
#define KESTREL_TESTS_SUPPORT_SIMTDEVICE_H

#include "binary/ElfUtils.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "platform/compiler/Assembler.h"
#include "platform/simt/WideLaunch.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace OVK_ShaderDebugger
{

/// Counts the calls of a device and its buffers, and can make one fail.
struct SSimtCalls
{
    enum EKind
    {
        Read, ///< of a buffer's contents
        Other
    };

    /// Counts a call. \return whether it is the one that fails
    bool Hits(EKind eCall) { return eCall == eKind && ++nCalls == nFail; }

    EKind eKind = Other;
    unsigned int nCalls = 0;
    unsigned int nFail = 0; ///< the number of the call of this kind that fails; 0 for none
    unsigned int nCleared = 0;
};

/// A buffer of CSimtDevice: host memory with an address in the device's flat address space.
class CSimtBuffer : public CShaderDebuggerDeviceBuffer
{
public:
    typedef std::vector<unsigned char> Bytes;

    CSimtBuffer(CShaderDebuggerHost* pHost, const BufferDesc& desc, std::shared_ptr<Bytes> pBytes,
                std::shared_ptr<SSimtCalls> pCalls)
        : CShaderDebuggerDeviceBuffer(pHost), m_pBytes(std::move(pBytes)), m_pCalls(std::move(pCalls)),
          m_pObject(m_pBytes.get())
    {
        m_Desc = desc;
    }

    bool Create(const BufferDesc&) override { return false; }

    CShaderDebuggerBuffer* GetDataBuffer(CShaderDebuggerBuffer* pDataBuffer) override
    {
        if (m_pCalls->Hits(SSimtCalls::Read))
        {
            return nullptr;
        }
        if (pDataBuffer == nullptr)
        {
            pDataBuffer = new CShaderDebuggerBuffer(m_pHost);
            pDataBuffer->Create(m_Desc, nullptr);
        }
        std::memcpy(pDataBuffer->GetData(), m_pBytes->data(), std::min(pDataBuffer->GetSize(), m_pBytes->size()));
        return pDataBuffer;
    }

    bool Visit(const std::function<void(const unsigned char* pBytes, size_t nSize)>& visit) override
    {
        if (m_pCalls->Hits(SSimtCalls::Read))
        {
            return false;
        }
        visit(m_pBytes->data(), m_pBytes->size());
        return true;
    }

    const void* GetDeviceBuffer() const override { return &m_pObject; }
    bool Clear() override
    {
        ++m_pCalls->nCleared;
        return UpdateData(nullptr, 0);
    }
    bool DumpBuffer(const std::string&) const override { return false; }

    bool UpdateData(void* pData, size_t nSize) override
    {
        if (m_pCalls->Hits(SSimtCalls::Other))
        {
            return false;
        }
        std::fill(m_pBytes->begin(), m_pBytes->end(), 0);
        if (pData != nullptr)
        {
            std::memcpy(m_pBytes->data(), pData, std::min(nSize, m_pBytes->size()));
        }
        return true;
    }

    const std::shared_ptr<Bytes>& GetBytes() const { return m_pBytes; }

private:
    std::shared_ptr<Bytes> m_pBytes;
    std::shared_ptr<SSimtCalls> m_pCalls;
    void* m_pObject; ///< represents the memory object's handle
};

/// A device that runs kernels on the platform's interpreter, without a runtime in between. Arguments are buffers of
/// bytes; each takes one element of constant buffer 1.
class CSimtDevice : public CShaderDebuggerDevice
{
public:
    typedef CSimtBuffer::Bytes Bytes;

    CSimtDevice(unsigned int nItems, std::vector<std::shared_ptr<Bytes>> vArguments)
        : CShaderDebuggerDevice(nullptr), m_nItems(nItems), m_vArguments(std::move(vArguments))
    {
    }

    bool EnterDebuggingMode() override { return ++nEntered > 0; }
    bool ExitDebuggingMode() override { return --nEntered >= 0; }

    bool GetDeviceBufferDesc(ShaderType, int nIndex, BufferDesc& desc) override
    {
        if (pCalls->Hits(SSimtCalls::Other))
        {
            return false;
        }
        desc = BufferDesc();
        desc.m_Type = ShaderUtils::BT_Buffer;
        desc.m_ShaderType = ShaderUtils::ST_Compute;
        desc.m_nArraySize = 1;
        desc.m_nHeight = desc.m_nDepth = 1;
        desc.m_nWidth = m_nItems;
        if (nIndex >= 0)
        {
            desc.m_Format = ShaderUtils::BF_RAW;
            desc.m_nSize = m_vArguments[nIndex]->size();
            desc.m_nWidth = 0;
        }
        return true;
    }

    CShaderDebuggerDeviceBuffer* CreateDeviceBuffer(const BufferDesc& desc) override
    {
        const size_t nSize = desc.m_nSize != 0
                                 ? desc.m_nSize
                                 : size_t(desc.m_nWidth) * desc.m_nHeight * ShaderUtils::GetPointSize(desc.m_Format);
        return pCalls->Hits(SSimtCalls::Other) ? nullptr
                                               : new CSimtBuffer(m_pHost, desc, std::make_shared<Bytes>(nSize), pCalls);
    }

    unsigned int GetNumDeviceBuffers(ShaderType) const override
    {
        return static_cast<unsigned int>(m_vArguments.size());
    }

    CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType, std::string) override { return nullptr; }
    CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType shaderType, unsigned int nIndex) override
    {
        BufferDesc desc;
        return GetDeviceBufferDesc(shaderType, static_cast<int>(nIndex), desc)
                   ? new CSimtBuffer(m_pHost, desc, m_vArguments[nIndex], pCalls)
                   : nullptr;
    }

    bool SetDeviceBuffer(ShaderType, std::string, CShaderDebuggerDeviceBuffer*) override { return false; }
    bool SetDeviceBuffer(ShaderType, unsigned int nIndex, CShaderDebuggerDeviceBuffer* pBuffer) override
    {
        if (pCalls->Hits(SSimtCalls::Other))
        {
            return false;
        }
        m_vBound.resize(std::max<size_t>(m_vBound.size(), nIndex + 1));
        BufferDesc desc;
        pBuffer->GetDeviceBufferDesc(&desc);
        m_vBound[nIndex] = {desc.m_Type == ShaderUtils::BT_Value, static_cast<CSimtBuffer*>(pBuffer)->GetBytes()};
        return true;
    }

    bool CreateShader(ShaderType, const void*, size_t, void**) override { return false; }

    bool SetShader(ShaderType, const void* pShader, size_t nShaderSize) override
    {
        const char* pBytes = static_cast<const char*>(pShader);
        std::vector<char> vText;
        std::vector<uint32_t> vTokens;
        KestrelPlatform::SDiagnostic diagnostic;
        KestrelPlatform::SDecodeError error;
        m_pProgram.reset();
        m_vBound.clear();
        if (OVK_ElfUtils::GetDataFromSection(".debugil", std::vector<char>(pBytes, pBytes + nShaderSize), &vText) &&
            KestrelPlatform::AssembleIL(vText.data(), strnlen(vText.data(), vText.size()), vTokens, diagnostic))
        {
            m_pProgram = KestrelPlatform::DecodeProgram(vTokens.data(), vTokens.size(), error);
        }
        strShaderError = diagnostic.strMessage + error.strMessage;
        return m_pProgram != nullptr && !pCalls->Hits(SSimtCalls::Other);
    }

    void* GetShader(ShaderType) override { return nullptr; }
    std::string GetShaderFunctionName(ShaderType) const override { return "k"; }
    bool DisassembleShader(const void*, size_t, std::string&) override { return false; }

    /// Runs the shader set last with the bound arguments.
    bool Launch()
    {
        const bool bBound = std::all_of(m_vBound.begin(), m_vBound.end(), [](const SBound& b) { return b.pBytes; });
        return m_pProgram != nullptr && bBound && !pCalls->Hits(SSimtCalls::Other) &&
               Launch(m_pProgram, m_vBound, nullptr).eStatus == KestrelPlatform::SLaunchResult::Complete;
    }

    /// Runs an unpatched kernel on the client's arguments.
    void LaunchPlain(const std::vector<uint32_t>& vTokens, KestrelPlatform::ITraceSink* pTrace)
    {
        KestrelPlatform::SDecodeError error;
        std::vector<SBound> vBound;
        for (const auto& pBytes : m_vArguments)
        {
            vBound.push_back({false, pBytes});
        }
        Launch(KestrelPlatform::DecodeProgram(vTokens.data(), vTokens.size(), error), vBound, pTrace);
    }

    int nEntered = 0;
    std::string strShaderError;
    const std::shared_ptr<SSimtCalls> pCalls = std::make_shared<SSimtCalls>();

private:
    struct SBound
    {
        bool bValue = false;
        std::shared_ptr<Bytes> pBytes;
    };

    KestrelPlatform::SLaunchResult Launch(std::shared_ptr<const KestrelPlatform::CProgram> pProgram,
                                          const std::vector<SBound>& vBound, KestrelPlatform::ITraceSink* pTrace)
    {
        KestrelPlatform::SLaunch launch;
        launch.pProgram = std::move(pProgram);
        launch.nGlobalSize[0] = launch.nLocalSize[0] = m_nItems;
        launch.nInstructionLimit = 10000000;
        launch.pTrace = pTrace;
        uint64_t nAddress = 0x1000;
        for (const SBound& bound : vBound)
        {
            uint32_t element[4] = {static_cast<uint32_t>(nAddress), 0, 0, 0};
            if (bound.bValue)
            {
                std::memcpy(element, bound.pBytes->data(), std::min(sizeof(element), bound.pBytes->size()));
            }
            else
            {
                launch.vMemory.push_back({nAddress, bound.pBytes->size(), bound.pBytes->data(), false});
                nAddress += (bound.pBytes->size() + 0xFFF) / 0x1000 * 0x1000;
            }
            launch.vConstantBuffer1.insert(launch.vConstantBuffer1.end(), element, element + 4);
        }
        return KestrelPlatform::RunLaunch(launch);
    }

    unsigned int m_nItems;
    std::vector<std::shared_ptr<Bytes>> m_vArguments;
    std::vector<SBound> m_vBound;
    std::shared_ptr<const KestrelPlatform::CProgram> m_pProgram;
};

} // namespace OVK_ShaderDebugger

#endif
