#ifndef KESTREL_TOOLS_SHELLCOMPLETION_H
#define KESTREL_TOOLS_SHELLCOMPLETION_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// An option as it is typed, "--output".
struct SOptionWords
{
    std::string strName;
    std::string strText; ///< what it does
    bool bTakesValue;
};

/// A command of the command line.
struct SCommandWords
{
    std::string strName;
    std::string strText; ///< what it does
    std::vector<SOptionWords> vOptions;
};

/// A script that makes a shell complete commands, their options, and files elsewhere.
/// \param strShell  bash, zsh or fish; bash's is made for any other
std::string MakeShellCompletion(const std::string& strShell, const std::vector<SCommandWords>& vCommands);

} // namespace KestrelTool

#endif
