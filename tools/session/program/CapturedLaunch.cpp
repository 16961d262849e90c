#include "tools/session/program/CapturedLaunch.h"

#include "tools/session/launch/Files.h"
#include "tools/session/program/LaunchWriter.h"
#include "tools/session/program/ReplayProgram.h"

#include <charconv>
#include <filesystem>

namespace KestrelTool
{

namespace
{

/// Parses a whole number of at least 1; false for anything else.
bool ReadCount(std::string_view text, uint64_t& nNumber)
{
    const std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), nNumber);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && nNumber != 0;
}

/// The name of the program's file in the launch's folder: the one that it has, with the extension for its kind. A
/// binary without debug data gives a text for each kernel.
std::string NameProgramFile(const SKnownProgram& program, const std::string& strText, const std::string& strKernel)
{
    const std::filesystem::path name = std::filesystem::path(program.strFile).filename();
    if (strText.compare(0, 4, "\177ELF") == 0)
    {
        return name.string() + ".bin";
    }
    const bool bIL = strText.compare(0, 3, "il_") == 0 || strText.compare(0, 9, ";ARGSTART") == 0;
    const std::string strOfKernel = program.strSource.empty() ? "-" + strKernel : "";
    return bIL ? name.stem().string() + strOfKernel + ".il" : name.string();
}

} // namespace

bool ReadLaunchRange(const std::string& strText, SLaunchRule& rule)
{
    const std::string_view text = strText;
    const size_t nHyphen = text.find('-');
    const std::string_view last = nHyphen == std::string_view::npos ? text : text.substr(nHyphen + 1);
    return ReadCount(text.substr(0, nHyphen), rule.nFirst) && ReadCount(last, rule.nLast) && rule.nLast >= rule.nFirst;
}

std::string WriteCapturedLaunch(const SLaunchFile& file, const SKnownLaunch& launch, const SKnownProgram& program,
                                const SCaptureTarget& target)
{
    std::filesystem::create_directories(target.strFolder);
    const std::string strProcess = launch.nProcess > 1 ? "p" + std::to_string(launch.nProcess) + "-" : "";
    const std::string strName = strProcess + std::to_string(launch.nNumber) + "-" + launch.strKernel;
    std::string strPath = target.strFolder + "/" + strName + ".json";
    const std::string strProgram = NameProgramFile(program, file.strSource, launch.strKernel);
    WriteLaunch(file, strPath, strProgram);
    if (target.bEmitC)
    {
        WriteFileBytes(target.strFolder + "/" + strName + ".c", MakeReplayProgram(file, strName, strProgram));
    }
    return strPath;
}

} // namespace KestrelTool
