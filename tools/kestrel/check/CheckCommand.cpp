#include "tools/kestrel/check/CheckCommand.h"

#include "tools/kestrel/check/RenderCheck.h"
#include "tools/session/ExitCode.h"
#include "tools/session/launch/Files.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

namespace
{

struct SCheckName
{
    const char* pszName;
    uint32_t nCheck;
    bool bDefault;
};

const SCheckName s_CheckNames[] = {
    {"memory", PLATFORM_CHECK_MEMORY, true},   {"race", PLATFORM_CHECK_RACE, true},
    {"init", PLATFORM_CHECK_INIT, true},       {"nan", PLATFORM_CHECK_NAN, false},
    {"barrier", PLATFORM_CHECK_BARRIER, true}, {"alignment", PLATFORM_CHECK_ALIGNMENT, false},
};

} // namespace

int CheckLaunches(const CLibraries& libraries, const SCheckOptions& options, std::ostream& output)
{
    uint32_t nChecks = 0;
    std::vector<std::string> vChecks;
    for (const SCheckName& check : s_CheckNames)
    {
        bool bWanted = options.vChecks.empty() && check.bDefault;
        for (const std::string& strCheck : options.vChecks)
        {
            bWanted = bWanted || strCheck == check.pszName;
        }
        if (bWanted)
        {
            nChecks |= check.nCheck;
            vChecks.emplace_back(check.pszName);
        }
    }
    CSuppressions suppressions;
    if (!options.strSuppressions.empty())
    {
        suppressions.Read(ReadFileBytes(options.strSuppressions), options.strSuppressions);
    }
    CCheckReport report(libraries, nChecks, options.nLimit, suppressions);
    for (const std::string& strLaunch : options.vLaunches)
    {
        CLaunch launch(libraries, ReadLaunchFile(strLaunch));
        report.Run(launch);
    }
    const auto dump = [](const nlohmann::json& value)
    { return value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) + "\n"; };
    if (!options.strSarif.empty())
    {
        WriteReport(options.strSarif, dump(MakeSarif(report)));
    }
    if (!options.strJUnit.empty())
    {
        WriteReport(options.strJUnit, MakeJUnit(report, vChecks));
    }
    output << (options.bJson ? dump(DescribeCheck(report)) : RenderCheck(report));
    return report.GetFindings().empty() ? EXIT_GOOD : EXIT_FAULT;
}

} // namespace KestrelTool
