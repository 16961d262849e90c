#include "instrument/AnalyzedShaderIL.h"

#include "binary/CLMetadata.h"
#include "core/Log.h"

#include <algorithm>
#include <iterator>

namespace OVK_ShaderDebugger
{

namespace
{

/// Devices on which kernels can't be debugged.
constexpr const char* s_RefusedDevices[] = {"flux", "slag", "bloom"};

/// Devices on which a kernel has one raw UAV for all its buffers. All others are of the newer generation.
constexpr const char* s_OlderDevices[] = {"lathe", "forge",    "anvil",   "kiln",   "rivet",
                                          "tongs", "crucible", "bellows", "ferrule"};

constexpr unsigned int s_nElementBytes = 16;

/// The largest argument buffer that is accepted. Its elements are copied one by one to show the arguments.
constexpr unsigned int s_nMaxArgumentElements = 65536;

template <size_t N>
bool Contains(const char* const (&names)[N], const std::string& strName)
{
    return std::find(std::begin(names), std::end(names), strName) != std::end(names);
}

/// Only ASCII: device names are.
std::string Capitalized(std::string strName)
{
    if (!strName.empty() && strName[0] >= 'a' && strName[0] <= 'z')
    {
        strName[0] = static_cast<char>(strName[0] - 'a' + 'A');
    }

    return strName;
}

} // namespace

bool CAnalyzedShaderIL::AnalyzeMetadata(std::string strMetadata)
{
    CCLMetadata metadata;

    if (!metadata.FromString(strMetadata))
    {
        return Malformed("metadata.FromString(strMetadata)");
    }

    const std::string strDevice = metadata.GetDeviceName();
    m_bTidewater = !Contains(s_RefusedDevices, strDevice) && !Contains(s_OlderDevices, strDevice);

    if (Contains(s_RefusedDevices, strDevice))
    {
        return Refuse("Kernels for the device " + strDevice + " are not supported.");
    }

    if (m_DeviceName.empty())
    {
        m_DeviceName = Capitalized(strDevice);
    }

    m_b64BitAddressSpace = metadata.Uses64BitABI();
    const unsigned int nBufOffset = metadata.GetNextConstantBufferOffset();

    if ((nBufOffset & (s_nElementBytes - 1)) != 0)
    {
        return Malformed("(nBufOffset & 15) == 0");
    }

    if (nBufOffset / s_nElementBytes > s_nMaxArgumentElements)
    {
        return Malformed("nBufOffset / 16 <= s_nMaxArgumentElements");
    }

    m_nKernelABIConstantBufferSize = nBufOffset / s_nElementBytes;

    for (const CCLMetadataEntry* pEntry : metadata.GetEntries())
    {
        if (const auto* pSampler = dynamic_cast<const CCLMetadataSamplerEntry*>(pEntry))
        {
            m_Samplers.insert(pSampler->GetId());
        }
    }

    return true;
}

} // namespace OVK_ShaderDebugger
