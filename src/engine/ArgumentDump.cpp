#include "engine/ArgumentDump.h"

#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/TargetBuffers.h"
#include "instrument/InstrumentedShaderIL.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace OVK_ShaderDebugger
{

CArgumentDump::CArgumentDump() = default;

CArgumentDump::~CArgumentDump() = default;

bool CArgumentDump::CreateBuffer(const CInstrumentedShaderIL& kernel)
{
    BufferDesc desc;
    desc.m_Type = ShaderUtils::BT_Buffer;
    desc.m_Format = ShaderUtils::BF_RGBA_32F;
    desc.m_Usage = ShaderUtils::BU_Results;
    desc.m_ShaderType = ShaderUtils::ST_Compute;
    // A kernel without arguments still binds the buffer, and there is none of size 0.
    desc.m_nWidth = std::max(kernel.GetKernelABIConstantBufferSize(), 1u);
    desc.m_nHeight = desc.m_nDepth = desc.m_nArraySize = 1;
    m_pBuffer.reset(kernel.GetHost()->CreateDeviceBuffer(desc));
    return m_pBuffer != nullptr;
}

bool CArgumentDump::Run(CInstrumentedShaderIL& kernel, CTargetBuffers& buffers, bool bOutputs)
{
    CShaderDebuggerHost* const pHost = kernel.GetHost();
    std::vector<char> vImage;
    const struct
    {
        const char* pszMessage;
        std::function<bool()> run;
    } steps[] = {
        {"Failed to create cb1 dump kernel.", [&] { return kernel.CreateArgumentDump(vImage); }},
        {"Failed to switch to cb1 dump kernel.",
         [&] { return pHost->SetShader(kernel.GetShaderType(), vImage.data(), vImage.size()); }},
        {"Failed to switch target buffer.", [&] { return Switch(buffers, bOutputs); }},
        {"Failed to set register selector value", [&] { return buffers.SetSelector(0); }},
        {"Failed to bind cbdump device buffer.", [&] { return buffers.BindInPlaceOfResults(m_pBuffer.get()); }},
        {"Failed to execute cb1 dump kernel.", [&] { return pHost->ExecuteShader(); }},
    };
    for (const auto& step : steps)
    {
        if (!step.run())
        {
            SD_Log(pHost, logERROR, "%s", step.pszMessage);
            return false;
        }
    }
    return true;
}

bool CArgumentDump::Switch(CTargetBuffers& buffers, bool bOutputs)
{
    return bOutputs ? buffers.Switch(true, false) : buffers.SwitchPlain() && buffers.BindInPlaceOfMask(m_pBuffer.get());
}

std::unique_ptr<CShaderDebuggerBuffer> CArgumentDump::Read() const
{
    return std::unique_ptr<CShaderDebuggerBuffer>(m_pBuffer->GetDataBuffer(nullptr));
}

void CArgumentDump::Clear()
{
    m_pBuffer.reset();
}

} // namespace OVK_ShaderDebugger
