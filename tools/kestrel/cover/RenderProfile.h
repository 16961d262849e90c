#ifndef KESTREL_TOOLS_COVER_RENDERPROFILE_H
#define KESTREL_TOOLS_COVER_RENDERPROFILE_H

#include "tools/kestrel/cover/ProfileReport.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// The files' lines with what ran of them: how often, with how many lanes, and which ways branches went.
std::string RenderCover(const CProfileReport& report);
/// The same with passes of loops, bytes and cache lines in place of branches.
std::string RenderProfile(const CProfileReport& report);
/// All of both.
nlohmann::json DescribeProfile(const CProfileReport& report);
/// What lcov and genhtml read. A kernel's IL must lie in the file that is named: as many texts as there are of them.
std::string MakeLcov(const CProfileReport& report, const std::map<std::string, std::string>& mapPaths);

} // namespace KestrelTool

#endif
