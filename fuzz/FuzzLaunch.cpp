#include "fuzz/Targets.h"

#include "tools/session/launch/LaunchFile.h"

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace KestrelFuzz
{

using namespace KestrelTool;

namespace
{

/// A folder with the files that the launch files of the corpus name.
class CLaunchFolder
{
public:
    CLaunchFolder() : m_Path(std::filesystem::temp_directory_path() / ("kestrel_launch_" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(m_Path);
        std::ofstream(m_Path / "k.il") << "il_cs_2_0\nend\n";
        std::ofstream(m_Path / "bytes.bin") << "abcdefgh";
    }
    ~CLaunchFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(m_Path, error);
    }

    std::string LaunchPath() const { return (m_Path / "launch.json").string(); }

private:
    std::filesystem::path m_Path;
};

size_t ChannelCount(const SArgument& image)
{
    return image.vContents.size() / image.pType->nSize / image.nWidth / image.nHeight /
           (image.nDepth == 0 ? 1 : image.nDepth);
}

void CheckArgument(const SLaunchFile& launch, size_t nArgument)
{
    const SArgument& argument = launch.vArguments[nArgument];
    const bool bHasContents =
        argument.eKind == SArgument::Buffer || argument.eKind == SArgument::Value || argument.eKind == SArgument::Image;
    Require(argument.vContents.empty() != bHasContents, "what has contents has some");
    Require(!argument.vExpected || argument.vExpected->size() == argument.vContents.size(),
            "what is expected is as large as what it is compared with");
    Require(argument.eKind != SArgument::Local || argument.nLocalBytes != 0, "local memory has a size");
    if (argument.eKind == SArgument::Same)
    {
        Require(argument.nSame < nArgument && !launch.vArguments[argument.nSame].vContents.empty(),
                "the same argument is an earlier one");
    }
    if (argument.eKind == SArgument::Image)
    {
        const size_t nChannels = ChannelCount(argument);
        const size_t nTexels = argument.vContents.size() / argument.pType->nSize / nChannels;
        Require(nChannels >= 1 && nChannels <= 4 &&
                    nTexels / argument.nWidth / argument.nHeight == (argument.nDepth == 0 ? 1 : argument.nDepth) &&
                    nTexels % argument.nWidth == 0,
                "an image has the contents of all of its texels");
    }
}

} // namespace

void FuzzLaunch(const uint8_t* pData, size_t nSize)
{
    static const CLaunchFolder s_Folder;
    SLaunchFile launch;
    try
    {
        launch = ParseLaunchFile(std::string(reinterpret_cast<const char*>(pData), nSize), s_Folder.LaunchPath());
    }
    catch (const CLaunchFileError& error)
    {
        Require(std::string(error.what()).find("launch.json: ") != std::string::npos, "a complaint names the file",
                error.what());
        return;
    }
    Require(launch.nDimensions >= 1 && launch.nDimensions <= 3, "a launch has one to three dimensions");
    for (const size_t nGlobal : launch.nGlobalSize)
    {
        Require(nGlobal != 0, "no size of a launch is 0");
    }
    for (size_t i = 0; i < launch.vArguments.size(); ++i)
    {
        CheckArgument(launch, i);
    }
}

} // namespace KestrelFuzz
