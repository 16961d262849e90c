#ifndef KESTREL_TOOLS_COMMAND_COMMANDTABLE_H
#define KESTREL_TOOLS_COMMAND_COMMANDTABLE_H

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace KestrelTool
{

class CCommandContext;

/// What may stand after a command, for completion.
enum class ECompletion
{
    Nothing,
    Register,
    Place,
    Command,
    Setting,
    File
};

/// A command, and all that is said of it anywhere: the prompt's help, the manual and the man page
/// are made from this.
struct SCommand
{
    const char* pszName;    ///< one word, or two
    const char* pszAliases; ///< abbreviations with blanks between; those of two words take the second word's
    const char* pszArguments;
    const char* pszGroup;
    const char* pszSummary; ///< one line
    const char* pszText;    ///< more, or empty
    /// Lines; "@NAME" at the front takes that example's launch. "$ NAME" is a recorded session of a program.
    const char* pszExample;
    nlohmann::json (*pFunction)(CCommandContext&);
    bool bRepeats; ///< an empty line does it again
    ECompletion eCompletion;
};

extern const SCommand g_Commands[];
extern const size_t g_nCommands;

/// A line of input, taken apart: "12 print/x r3".
struct SCommandLine
{
    std::string strToken; ///< the number in front
    const SCommand* pCommand = nullptr;
    std::string strFormat; ///< what stands after the slash
    std::string strArguments;
};

/// Takes the number off the front of a line, with the blanks after it; empty if there is none.
std::string TakeToken(std::string& strLine);
/// Of a line without its number.
/// \throws CCommandError for a command that isn't known, or of which there are several
SCommandLine ParseCommandLine(const std::string& strLine);

/// The command of a name, an abbreviation or the beginning of a name; null for none or several.
const SCommand* FindCommand(const std::string& strWords);
/// The names that begin with a text, of two words only if the text has the first.
std::vector<std::string> CompleteCommand(const std::string& strBeginning);

} // namespace KestrelTool

#endif
