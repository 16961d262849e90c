#ifndef KESTREL_TOOLS_COMMAND_DEBUGSESSION_H
#define KESTREL_TOOLS_COMMAND_DEBUGSESSION_H

#include "tools/session/Page.h"
#include "tools/session/launch/Libraries.h"
#include "tools/session/program/ProgramProcess.h"

#include <string>
#include <vector>

namespace KestrelTool
{

/// The options of `kestrel debug`.
struct SDebugOptions
{
    struct SScript
    {
        bool bFile; ///< a file's path, otherwise a command
        std::string strText;
    };

    std::string strLaunch;
    std::vector<SScript> vScripts; ///< in the order given
    bool bQuiet = false;
    bool bBatch = false; ///< end after the scripts
    bool bJson = false;
    bool bEcho = false; ///< print each command
    PageMaker makePage; ///< for the command view
};

/// Runs a debugging session from its scripts to its end, with a prompt if there is a terminal.
/// \return an EExitCode
/// \throws CLaunchFileError, CPlatformError
int RunDebugSession(const CLibraries& libraries, const SDebugOptions& options);

/// The same for the launches of a program, which uses the standard input and output. Without a terminal only the
/// scripts are run, and then the program runs to its end.
/// \return an EExitCode, or the program's own exit code if nothing else failed
int RunProgramSession(const CLibraries& libraries, const SProgramCommand& command, const SDebugOptions& options);

} // namespace KestrelTool

#endif
