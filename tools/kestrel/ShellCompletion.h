#ifndef KESTREL_TOOLS_SHELLCOMPLETION_H
#define KESTREL_TOOLS_SHELLCOMPLETION_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// An option as typed, such as "--output".
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

/// A script that makes a shell complete commands and options, and files in other places.
/// \param strShell  bash, zsh or fish; anything else gives bash's
std::string MakeShellCompletion(const std::string& strShell, const std::vector<SCommandWords>& vCommands);

} // namespace KestrelTool

#endif
