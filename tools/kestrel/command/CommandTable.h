#ifndef KESTREL_TOOLS_COMMAND_COMMANDTABLE_H
#define KESTREL_TOOLS_COMMAND_COMMANDTABLE_H

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace KestrelTool
{

class CCommandContext;

/// The kind of argument that a command takes, for completion.
enum class ECompletion
{
    Nothing,
    Register,
    Place,
    Command,
    Setting,
    File
};

/// Everything about a command: the prompt's help, the manual and the man page are generated from this.
struct SCommand
{
    const char* pszName;    ///< one word, or two
    const char* pszAliases; ///< separated by blanks; for commands of two words, of the second word
    const char* pszArguments;
    const char* pszGroup;
    const char* pszSummary; ///< one line
    const char* pszText;    ///< more, or empty
    /// Lines. "@NAME" at the start names the example's launch; "$ NAME" is a recorded session of a program.
    const char* pszExample;
    nlohmann::json (*pFunction)(CCommandContext&);
    bool bRepeats; ///< an empty line repeats it
    ECompletion eCompletion;
};

extern const SCommand g_Commands[];
extern const size_t g_nCommands;

/// A parsed line of input, such as "12 print/x r3".
struct SCommandLine
{
    std::string strToken; ///< the number at the start
    const SCommand* pCommand = nullptr;
    std::string strFormat; ///< the letters after the slash
    std::string strArguments;
};

/// Removes the number at the start of a line and the blanks after it, and gives it; empty if there is none.
std::string TakeToken(std::string& strLine);
/// Parses a line without its number.
/// \throws CCommandError for an unknown or ambiguous command
SCommandLine ParseCommandLine(const std::string& strLine);

/// The command with this name or abbreviation, or the only one whose name begins with it; null for none or several.
const SCommand* FindCommand(const std::string& strWords);
/// The command names that begin with a text; a second word is completed only after a complete first one.
std::vector<std::string> CompleteCommand(const std::string& strBeginning);

} // namespace KestrelTool

#endif
