#include "tools/session/debug/Outcome.h"

#include "tools/session/debug/Faults.h"
#include "tools/session/debug/ReadListing.h"
#include "tools/session/launch/PlatformDoor.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const size_t s_nShownElements = 16;

} // namespace

json DescribeOutputs(const CLaunch& launch)
{
    json outcome = {{"outputs", json::array()}, {"differences", json::array()}};
    for (size_t i = 0; i < launch.GetFile().vArguments.size(); ++i)
    {
        const SArgument& argument = launch.GetFile().vArguments[i];
        if (!argument.vExpected)
        {
            continue;
        }
        const std::vector<unsigned char> vBytes = launch.ReadContents(i);
        const size_t nElements = vBytes.size() / argument.pType->nSize;
        json values = json::array();
        for (size_t n = 0; n < std::min(nElements, s_nShownElements); ++n)
        {
            values.push_back(FormatElement(*argument.pType, &vBytes[n * argument.pType->nSize]));
        }
        outcome["outputs"].push_back({{"argument", i}, {"values", values}, {"elements", nElements}});
    }
    for (const SDifference& difference : launch.Compare())
    {
        outcome["differences"].push_back({{"argument", difference.nArgument},
                                          {"element", difference.nElement},
                                          {"got", difference.strGot},
                                          {"expected", difference.strExpected}});
    }
    return outcome;
}

std::string DescribeRunEnd(const CLibraries& libraries, const CLaunch& launch)
{
    const std::vector<char> vBinary = launch.ReadBinary();
    const unsigned int nLabel = ReadLabel(ReadMetadata(vBinary, launch.GetFile().strKernel));
    const CFaults faults(FindPlatformControl(libraries));
    return faults.DescribeEnd(ReadListing(vBinary, nLabel), {});
}

json DescribeRun(const CLibraries& libraries, const CLaunch& launch)
{
    json outcome = DescribeOutputs(launch);
    const std::vector<char> vBinary = launch.ReadBinary();
    const std::vector<std::string> vMetadata = ReadMetadata(vBinary, launch.GetFile().strKernel);
    CFaults faults(FindPlatformControl(libraries));
    faults.SetArguments(ReadArguments(vMetadata));
    const CListing listing = ReadListing(vBinary, ReadLabel(vMetadata));
    const std::optional<SFaults> found = faults.Check(listing, {});
    outcome["faulty"] = faults.HasAny();
    if (found)
    {
        outcome["faults"] = DescribeFaults(*found, found->vShown.size());
    }
    return outcome;
}

} // namespace KestrelTool
