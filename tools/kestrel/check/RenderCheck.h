#ifndef KESTREL_TOOLS_CHECK_RENDERCHECK_H
#define KESTREL_TOOLS_CHECK_RENDERCHECK_H

#include "tools/kestrel/check/CheckReport.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// Findings with their lines, and how many there are.
std::string RenderCheck(const CCheckReport& report);
nlohmann::json DescribeCheck(const CCheckReport& report);
/// SARIF 2.1.0 (OASIS), which hosts of code show beside the lines.
nlohmann::json MakeSarif(const CCheckReport& report);
/// XML as test runners write it: a case of each check, which fails with its findings.
std::string MakeJUnit(const CCheckReport& report, const std::vector<std::string>& vChecks);

} // namespace KestrelTool

#endif
