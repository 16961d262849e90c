#include "tools/kestrel/cover/CoverCommands.h"

#include "tools/kestrel/cover/RenderProfile.h"
#include "tools/session/launch/Files.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

namespace
{

/// The IL of kernels without a source is written beside the file, so that genhtml finds it.
void WriteLcov(const CProfileReport& report, const std::string& strPath)
{
    std::map<std::string, std::string> mapPaths;
    for (const auto& [strName, file] : report.GetFiles())
    {
        if (file.bSource)
        {
            continue;
        }
        std::string strText;
        for (const std::string& strLine : file.vTexts)
        {
            strText.append(strLine).append("\n");
        }
        mapPaths[strName] = std::string(strPath).append(".").append(strName);
        WriteReport(mapPaths[strName], strText);
    }
    WriteReport(strPath, MakeLcov(report, mapPaths));
}

} // namespace

void ShowCover(const CLibraries& libraries, const SCoverOptions& options, std::ostream& output)
{
    CProfileReport report;
    for (const std::string& strLaunch : options.vLaunches)
    {
        CLaunch launch(libraries, ReadLaunchFile(strLaunch));
        report.Run(libraries, launch);
    }
    if (!options.strLcov.empty())
    {
        WriteLcov(report, options.strLcov);
    }
    if (options.bJson)
    {
        output << DescribeProfile(report).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) << "\n";
    }
    else if (options.strLcov.empty())
    {
        output << (options.bProfile ? RenderProfile(report) : RenderCover(report));
    }
}

} // namespace KestrelTool
