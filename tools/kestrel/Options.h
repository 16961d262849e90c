#ifndef KESTREL_TOOLS_OPTIONS_H
#define KESTREL_TOOLS_OPTIONS_H

#include "tools/kestrel/check/CheckCommand.h"
#include "tools/kestrel/command/DebugSession.h"
#include "tools/kestrel/cover/CoverCommands.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace KestrelTool
{

/// The options of the command line; each command reads those that concern it.
struct SOptions
{
    std::string strCommand; ///< "run", "debug" and so on
    std::string strLaunch;
    std::string strPlatform = "software"; ///< or "system"
    size_t nStops = 0;
    SDebugOptions debug;
    std::string strInput;
    std::string strOutput; ///< empty for the standard output
    std::string strDevice;
    std::string strKernel;
    std::string strBuildOptions = "-g";
    bool bNumbers = false;
    bool bPlaces = false;
    bool bTokens = false;
    std::string strCompileOptions;
    bool bEmitLLVM = false;
    std::string strShell;
    std::vector<std::string> vProgram; ///< the words after --
    std::string strLaunches;
    bool bEmitC = false;
    SCoverOptions cover;
    SCheckOptions check;
    std::string strElement;
    std::optional<unsigned int> nPort; ///< none: standard input and output
};

/// The commands and options of the command line.
class COptionParser
{
public:
    COptionParser();
    ~COptionParser();

    /// Reads a command line. Handles `--help`, `--version` and faults itself.
    /// \return the exit code if nothing is left to do
    std::optional<int> Read(int argc, char** argv, SOptions& options);

    /// A shell script that completes `kestrel`'s command line.
    /// \param strShell  bash, zsh or fish
    std::string MakeCompletion(const std::string& strShell) const;

private:
    void AddRunning();
    void AddConverters();
    void AddCompiler();
    void AddPrograms();
    void AddCover();
    void AddCheck();
    void AddFrontEnds();
    void AddScripts(CLI::App& command);
    /// A command that converts one file to another.
    CLI::App* AddConverter(const char* pszName, const char* pszInput, const char* pszText);

    SOptions m_Options;
    std::unique_ptr<CLI::App> m_pApp;
};

} // namespace KestrelTool

#endif
