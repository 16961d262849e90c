#ifndef KESTREL_TOOLS_COVER_RENDERPROFILE_H
#define KESTREL_TOOLS_COVER_RENDERPROFILE_H

#include "tools/kestrel/cover/ProfileReport.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// The files' lines with their coverage: how often, with how many lanes, and which ways branches went.
std::string RenderCover(const CProfileReport& report);
/// The same with loop passes, bytes and cache lines instead of branches.
std::string RenderProfile(const CProfileReport& report);
/// The data of both.
nlohmann::json DescribeProfile(const CProfileReport& report);
/// The format of lcov and genhtml. A kernel's IL has to be in the named file.
std::string MakeLcov(const CProfileReport& report, const std::map<std::string, std::string>& mapPaths);

} // namespace KestrelTool

#endif
