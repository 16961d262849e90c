#include "api/QueryGlobalMemory.h"

#include "api/Query.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <vector>

using namespace Kestrel;
using OVK_ShaderDebugger::CShaderDebuggerHostCL;
using OVK_ShaderDebugger::memoryRegion;

namespace
{

std::vector<memoryRegion> ListRegions(CShaderDebuggerHostCL& host)
{
    size_t nCount = 0;
    host.GetValidGlobalMemoryRegions(0, nullptr, &nCount);
    std::vector<memoryRegion> vRegions(nCount);
    host.GetValidGlobalMemoryRegions(vRegions.size(), vRegions.data(), nullptr);
    return vRegions;
}

void TraceRegions(CShaderDebuggerHostCL& host)
{
    std::ostringstream list;
    unsigned int nNumber = 0;
    for (const memoryRegion& region : ListRegions(host))
    {
        list << nNumber++ << ". " << region.resource << " ( " << region.first << " - " << region.last << " )\n";
    }
    GetLogger() << list.str();
}

void TraceBytes(const void* buffer, size_t nRead, const size_t* outputSize)
{
    std::string strLines;
    if (buffer != nullptr)
    {
        strLines = ToHexadecimal(static_cast<const unsigned char*>(buffer), nRead) + "\n";
    }
    if (outputSize != nullptr)
    {
        strLines += "*outputSize = " + std::to_string(*outputSize) + "\n";
    }
    GetLogger() << strLines;
}

/// The UAVs to be tried, in order: on older devices one raw UAV stands for what newer ones number.
std::vector<unsigned int> GetResourcesToTry(const CKernelDebugState& state, ovkclDebugMemoryResource resource)
{
    if (state.m_bTidewater || (resource != 0 && resource != 8 && resource != 11))
    {
        return {resource};
    }
    return {resource, 11, 8};
}

// How a resource names local memory; see OVKCLDEBUG_EXT_LOCAL_BLOCK and its kind.
const ovkclDebugMemoryResource s_nLocalBit = 0x80000000u;
const ovkclDebugMemoryResource s_nArgumentBit = 0x40000000u;
const unsigned int s_nGroupShift = 32;

/// Local memory of the present stop. Its size is known without a run.
ovkclDebugError ReadLocalMemory(CShaderDebuggerHostCL& host, ovkclDebugMemoryResource resource,
                                ovkclDebugMemoryAddress address, size_t count, void* buffer, size_t* outputSize)
{
    const unsigned int nNumber = resource & ~(s_nLocalBit | s_nArgumentBit);
    const size_t nOffset = static_cast<uint32_t>(address);
    const unsigned int nGroup = static_cast<unsigned int>(address >> s_nGroupShift);
    const unsigned char* pBytes = nullptr;
    size_t nSize = 0;
    if (!host.GetLocalMemory((resource & s_nArgumentBit) != 0, nNumber, nGroup, buffer != nullptr ? &pBytes : nullptr,
                             &nSize))
    {
        return nSize != 0 ? OVKCLDEBUG_ERROR_OPERATION_FAILED : OVKCLDEBUG_ERROR_INVALID_LOCATION;
    }
    if (nOffset >= nSize || (buffer != nullptr && pBytes == nullptr))
    {
        return OVKCLDEBUG_ERROR_INVALID_LOCATION;
    }
    const size_t nRead = buffer != nullptr ? std::min(count, nSize - nOffset) : nSize;
    if (buffer != nullptr)
    {
        std::memcpy(buffer, pBytes + nOffset, nRead);
    }
    if (outputSize != nullptr)
    {
        *outputSize = nRead;
    }
    Trace([&] { TraceBytes(buffer, nRead, outputSize); });
    return OVKCLDEBUG_SUCCESS;
}

} // namespace

ovkclDebugError ovkclDebugGetGlobalMemoryValues(ovkclDebugContext debugContext, ovkclDebugMemoryResource resource,
                                                ovkclDebugMemoryAddress address, size_t count, void* buffer,
                                                size_t* outputSize)
{
    TraceCall(__func__, debugContext, resource, address, count, buffer, outputSize);
    return RunQuery(
        __func__, debugContext, EAllowedAt::Halted, buffer != nullptr || count == 0,
        [&](CKernelDebugState& state) -> ovkclDebugError
        {
            CShaderDebuggerHostCL& host = *state.m_pShaderDebuggerHost;
            Trace([&] { TraceRegions(host); });

            if ((resource & s_nLocalBit) != 0)
            {
                return ReadLocalMemory(host, resource, address, count, buffer, outputSize);
            }
            const std::vector<unsigned int> vResources = GetResourcesToTry(state, resource);
            for (size_t i = 0; i < vResources.size(); ++i)
            {
                if (i != 0)
                {
                    CLD_Log("Trying UAV ", vResources[i], "\n");
                }
                size_t nRead = 0;
                size_t* pOutputSize = outputSize != nullptr || buffer == nullptr ? outputSize : &nRead;
                if (host.GetGlobalMemory(vResources[i], address, count, buffer, pOutputSize))
                {
                    Trace([&] { TraceBytes(buffer, outputSize != nullptr ? *outputSize : nRead, outputSize); });
                    return OVKCLDEBUG_SUCCESS;
                }
            }
            const bool bThere =
                std::any_of(vResources.begin(), vResources.end(),
                            [&](unsigned int nResource) { return host.HasGlobalMemory(nResource, address); });
            return bThere && buffer != nullptr ? OVKCLDEBUG_ERROR_OPERATION_FAILED : OVKCLDEBUG_ERROR_INVALID_LOCATION;
        });
}

ovkclDebugError ovkclDebugGetValidGlobalMemoryRegions(ovkclDebugContext debugContext, size_t numRegions,
                                                      ovkclDebugMemoryRegion* regions, size_t* numRegionsRet)
{
    TraceCall(__func__, debugContext, numRegions, regions, numRegionsRet);
    return RunQuery(__func__, debugContext, EAllowedAt::Halted, regions != nullptr || numRegions == 0,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        const std::vector<memoryRegion> vRegions = ListRegions(*state.m_pShaderDebuggerHost);
                        const size_t nWritten = regions != nullptr ? std::min(numRegions, vRegions.size()) : 0;
                        for (size_t i = 0; i < nWritten; ++i)
                        {
                            regions[i] = {vRegions[i].resource, vRegions[i].first, vRegions[i].last};
                        }
                        if (numRegionsRet != nullptr)
                        {
                            *numRegionsRet = vRegions.size();
                        }
                        return regions == nullptr || vRegions.size() <= numRegions ? OVKCLDEBUG_SUCCESS
                                                                                   : OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL;
                    });
}
