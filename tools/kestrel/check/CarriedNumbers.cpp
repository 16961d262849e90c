#include "tools/kestrel/check/CarriedNumbers.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

/// The number of the program's buffer that starts at an address in a run; 0 if there is none.
uint64_t FindObject(uint64_t nAddress, const SCheckedRun& run, const SLaunchFile& file)
{
    const auto it = std::find_if(run.vBuffers.begin(), run.vBuffers.end(),
                                 [&](const SPlatformBuffer& buffer) { return buffer.nAddress == nAddress; });
    return it != run.vBuffers.end() && it->nArgument < file.vArguments.size() ? file.vArguments[it->nArgument].nObject
                                                                              : 0;
}

} // namespace

std::vector<uint32_t> CCarriedNumbers::FindFollowed(const SLaunchFile& file) const
{
    std::vector<uint32_t> vFollowed;
    for (uint32_t n = 0; n < file.vArguments.size(); ++n)
    {
        if (m_mapReached.count(file.vArguments[n].nObject) != 0)
        {
            vFollowed.push_back(n);
        }
    }
    return vFollowed;
}

void CCarriedNumbers::Reach(const SPlatformFinding& raw, const SCheckedRun& run, const SLaunchFile& file,
                            size_t nFinding)
{
    for (uint32_t n = 0; n < raw.nOutputs; ++n)
    {
        const uint64_t nObject = FindObject(raw.outputs[n], run, file);
        if (nObject != 0)
        {
            m_mapReached[nObject] = nFinding;
        }
    }
}

std::optional<size_t> CCarriedNumbers::FindOrigin(const SPlatformFinding& carried, const SCheckedRun& run,
                                                  const SLaunchFile& file) const
{
    const auto it = m_mapReached.find(FindObject(carried.nOriginAddress, run, file));
    return it != m_mapReached.end() ? std::optional<size_t>(it->second) : std::nullopt;
}

} // namespace KestrelTool
