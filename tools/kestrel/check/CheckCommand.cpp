#include "tools/kestrel/check/CheckCommand.h"

#include "tools/kestrel/check/CheckProgram.h"
#include "tools/kestrel/check/RenderCheck.h"
#include "tools/kestrel/check/ReportFile.h"
#include "tools/session/ExitCode.h"
#include "tools/session/launch/Files.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace KestrelTool
{

namespace
{

/// The checks requested by name, or else the default ones.
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

/// "2/8": the second of eight parts.
/// \throws CLaunchFileError
std::pair<size_t, size_t> ReadShard(const std::string& strShard)
{
    size_t nPart = 0;
    size_t nParts = 0;
    const char* const pEnd = strShard.data() + strShard.size();
    const auto part = std::from_chars(strShard.data(), pEnd, nPart);
    if (part.ec == std::errc() && part.ptr != pEnd && *part.ptr == '/')
    {
        const auto parts = std::from_chars(part.ptr + 1, pEnd, nParts);
        if (parts.ec == std::errc() && parts.ptr == pEnd && nPart >= 1 && nPart <= nParts)
        {
            return {nPart, nParts};
        }
    }
    throw CLaunchFileError("--shard takes a number from 1, a slash and how many parts there are, as in 2/8");
}

/// The launch files, including those in folders, sorted by name; with a shard, only its part of them.
std::vector<std::string> ListLaunches(const SCheckOptions& options)
{
    std::vector<std::string> vAll;
    for (const std::string& strName : options.vLaunches)
    {
        if (!std::filesystem::is_directory(strName))
        {
            vAll.push_back(strName);
            continue;
        }
        const size_t nBefore = vAll.size();
        for (const auto& entry : std::filesystem::directory_iterator(strName))
        {
            if (entry.path().extension() == ".json")
            {
                vAll.push_back(entry.path().string());
            }
        }
        std::sort(vAll.begin() + static_cast<std::ptrdiff_t>(nBefore), vAll.end());
    }
    if (options.strShard.empty())
    {
        return vAll;
    }
    const auto [nPart, nParts] = ReadShard(options.strShard);
    std::vector<std::string> vPart;
    for (size_t n = nPart - 1; n < vAll.size(); n += nParts)
    {
        vPart.push_back(vAll[n]);
    }
    return vPart;
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

/// One launch file that can't be checked keeps none of the others from it. If it is the only one, its failure is the
/// command's.
void CheckFile(const CCheckedRuns& runs, const CLibraries& libraries, const std::string& strLaunch, bool bOnly,
               CCheckReport& report)
{
    try
    {
        report.Run(runs, libraries, ReadLaunchFile(strLaunch));
    }
    catch (const std::runtime_error& error)
    {
        if (bOnly)
        {
            throw;
        }
        report.Miss(strLaunch, error.what());
    }
}

/// \param nCode  what the command ends with if nothing is found
int JudgeReport(const CCheckReport& report, int nCode)
{
    // This exit code is reserved for findings.
    if (!report.GetFindings().empty())
    {
        return EXIT_FAULT;
    }
    return nCode == EXIT_FAULT || (nCode == EXIT_GOOD && !report.GetMissed().empty()) ? EXIT_COMMAND_FAILED : nCode;
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
    CCheckReport report(ReadSuppressions(options));
    const CCheckedRuns runs(libraries, nChecks, options.nLimit);
    int nCode = EXIT_GOOD;
    const std::vector<std::string> vLaunches = ListLaunches(options);
    const bool bOnly = vLaunches.size() == 1 && vLaunches == options.vLaunches;
    for (const std::string& strLaunch : vLaunches)
    {
        CheckFile(runs, libraries, strLaunch, bOnly, report);
    }
    if (options.program)
    {
        nCode = CheckProgram(runs, libraries, *options.program, bApi, report, messages);
    }
    Deliver(options, report, vNames, output);
    return JudgeReport(report, nCode);
}

int MergeReports(const SCheckOptions& options, std::ostream& output)
{
    CCheckReport report(ReadSuppressions(options));
    for (const std::string& strReport : options.vLaunches)
    {
        JoinReport(strReport, report);
    }
    std::vector<std::string> vNames;
    for (const SCheckName& check : ChooseChecks(options))
    {
        vNames.emplace_back(check.pszName);
    }
    Deliver(options, report, vNames, output);
    return JudgeReport(report, EXIT_GOOD);
}

} // namespace KestrelTool
