#ifndef KESTREL_TOOLS_CHECK_RENDERCHECK_H
#define KESTREL_TOOLS_CHECK_RENDERCHECK_H

#include "tools/kestrel/check/CheckReport.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// The findings with their source lines, and their number.
std::string RenderCheck(const CCheckReport& report);
nlohmann::json DescribeCheck(const CCheckReport& report);
/// SARIF 2.1.0 (OASIS), which code hosts show beside the source.
nlohmann::json MakeSarif(const CCheckReport& report);
/// XML in the format of test runners: one case for each check, which fails if it has findings.
std::string MakeJUnit(const CCheckReport& report, const std::vector<std::string>& vChecks);

} // namespace KestrelTool

#endif
