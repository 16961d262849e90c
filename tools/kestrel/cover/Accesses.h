#ifndef KESTREL_TOOLS_COVER_ACCESSES_H
#define KESTREL_TOOLS_COVER_ACCESSES_H

#include "KestrelPlatform.h"
#include "tools/session/debug/KernelArguments.h"
#include "tools/session/launch/Launch.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace KestrelTool
{

/// An element of a buffer whose accesses are asked for: "out[5]".
struct SWatchedElement
{
    std::string strText;
    const SElementType* pType = nullptr;
    SPlatformWatch watch = {};
};

/// \throws CCommandError for what is no element of a buffer of the launch's
SWatchedElement ReadWatchedElement(const std::string& strText, const std::vector<SKernelArgument>& vArguments,
                                   const SLaunchFile& file);

/// The accesses to some bytes in a plain run of a launch, in their order, from contents as the launch file has them.
/// \param launch  which isn't debugged meanwhile
/// \throws CCommandError on a platform that can't tell, CPlatformError
std::vector<SPlatformAccess> RecordAccesses(const CLibraries& libraries, CLaunch& launch, const SPlatformWatch& watch);

/// Who wrote and read an element, where, in which order and with which values, with a text of it.
/// \param nMost  accesses that are told of
nlohmann::json DescribeAccesses(const CLibraries& libraries, const SLaunchFile& file, const std::string& strElement,
                                size_t nMost);

} // namespace KestrelTool

#endif
