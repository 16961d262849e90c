#include "tools/kestrel/check/CheckCommand.h"

#include "tools/kestrel/check/CheckProgram.h"
#include "tools/kestrel/check/RenderCheck.h"
#include "tools/session/ExitCode.h"
#include "tools/session/launch/Files.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

namespace
{

/// Those that are asked for, by name, or that are made by default.
std::vector<SCheckName> ChooseChecks(const SCheckOptions& options)
{
    std::vector<SCheckName> vChosen;
    for (const SCheckName& check : ListChecks())
    {
        const bool bNamed =
            std::find(options.vChecks.begin(), options.vChecks.end(), check.pszName) != options.vChecks.end();
        const bool bOfPrograms = check.nCheck == g_nCheckProgram;
        if ((bNamed || (options.vChecks.empty() && check.bDefault)) && (!bOfPrograms || options.program))
        {
            vChosen.push_back(check);
        }
    }
    return vChosen;
}

CSuppressions ReadSuppressions(const SCheckOptions& options)
{
    CSuppressions suppressions;
    if (!options.strSuppressions.empty())
    {
        suppressions.Read(ReadFileBytes(options.strSuppressions), options.strSuppressions);
    }
    return suppressions;
}

void Deliver(const SCheckOptions& options, const CCheckReport& report, const std::vector<std::string>& vChecks,
             std::ostream& output)
{
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
}

} // namespace

int CheckLaunches(const CLibraries& libraries, const SCheckOptions& options, std::ostream& output,
                  std::ostream& messages)
{
    uint32_t nChecks = 0;
    bool bApi = false;
    std::vector<std::string> vNames;
    for (const SCheckName& check : ChooseChecks(options))
    {
        nChecks |= check.nCheck;
        bApi = bApi || check.nCheck == g_nCheckProgram;
        vNames.emplace_back(check.pszName);
    }
    CCheckReport report(libraries, nChecks, options.nLimit, ReadSuppressions(options));
    int nCode = EXIT_GOOD;
    for (const std::string& strLaunch : options.vLaunches)
    {
        report.Run(libraries, ReadLaunchFile(strLaunch));
    }
    if (options.program)
    {
        nCode = CheckProgram(libraries, *options.program, bApi, report, messages);
    }
    Deliver(options, report, vNames, output);
    // This code tells of findings, and of nothing else.
    return !report.GetFindings().empty() ? EXIT_FAULT : nCode == EXIT_FAULT ? EXIT_COMMAND_FAILED : nCode;
}

} // namespace KestrelTool
