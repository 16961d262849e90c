#ifndef KESTREL_TOOLS_DEBUG_ACCESSES_H
#define KESTREL_TOOLS_DEBUG_ACCESSES_H

#include "KestrelPlatform.h"
#include "tools/session/debug/KernelArguments.h"
#include "tools/session/launch/Launch.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace KestrelTool
{

/// A buffer element whose accesses are requested, such as "out[5]".
struct SWatchedElement
{
    std::string strText;
    const SElementType* pType = nullptr;
    SPlatformWatch watch = {};
};

/// \throws CCommandError for a text that isn't an element of one of the launch's buffers
SWatchedElement ReadWatchedElement(const std::string& strText, const std::vector<SKernelArgument>& vArguments,
                                   const SLaunchFile& file);

/// Records the accesses to some bytes in a plain run of a launch, in order, with buffer contents as in the launch file.
/// \param launch  mustn't be debugged meanwhile
/// \throws CCommandError on a platform that doesn't support it, CPlatformError
std::vector<SPlatformAccess> RecordAccesses(const CLibraries& libraries, CLaunch& launch, const SPlatformWatch& watch);

/// Who wrote and read an element, where, in which order and with which values, including a text.
/// \param nMost  limit of accesses to list
nlohmann::json DescribeAccesses(const CLibraries& libraries, const SLaunchFile& file, const std::string& strElement,
                                size_t nMost);

} // namespace KestrelTool

#endif
