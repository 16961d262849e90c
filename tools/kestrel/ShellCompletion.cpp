#include "tools/kestrel/ShellCompletion.h"

#include <sstream>

namespace KestrelTool
{

namespace
{

/// Puts a text in single quotes, which all three shells understand.
std::string Quote(const std::string& strText)
{
    std::string strQuoted = "'";
    for (const char c : strText)
    {
        strQuoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return strQuoted + "'";
}

/// Command names are single words, so that a list can be split at blanks.
std::string JoinCommands(const std::vector<SCommandWords>& vCommands)
{
    std::string strNames;
    for (const SCommandWords& command : vCommands)
    {
        strNames += (strNames.empty() ? "" : " ") + command.strName;
    }
    return strNames;
}

std::string JoinOptions(const SCommandWords& command)
{
    std::string strNames;
    for (const SOptionWords& option : command.vOptions)
    {
        strNames += (strNames.empty() ? "" : " ") + option.strName;
    }
    return strNames;
}

/// A word that isn't an option may be a file.
std::string MakeBash(const std::vector<SCommandWords>& vCommands)
{
    std::ostringstream script;
    script << "# bash completion for kestrel\n"
              "_kestrel()\n"
              "{\n"
              "    local current=\"${COMP_WORDS[COMP_CWORD]}\" command=\"${COMP_WORDS[1]}\" options=\"\"\n"
              "    COMPREPLY=()\n"
              "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
              "        COMPREPLY=($(compgen -W \"help "
           << JoinCommands(vCommands)
           << " --help --version\" -- \"$current\"))\n"
              "        return\n"
              "    fi\n"
              "    if [ \"$command\" = help ]; then\n"
              "        COMPREPLY=($(compgen -W \""
           << JoinCommands(vCommands)
           << "\" -- \"$current\"))\n"
              "        return\n"
              "    fi\n"
              "    case \"${COMP_WORDS[COMP_CWORD-1]}\" in\n"
              "        --platform) COMPREPLY=($(compgen -W \"software system\" -- \"$current\")); return ;;\n"
              "        completion) COMPREPLY=($(compgen -W \"bash zsh fish\" -- \"$current\")); return ;;\n"
              "    esac\n"
              "    case \"$command\" in\n";
    for (const SCommandWords& command : vCommands)
    {
        script << "        " << command.strName << ") options=\"" << JoinOptions(command) << "\" ;;\n";
    }
    script << "    esac\n"
              "    case \"$current\" in\n"
              "        -*) COMPREPLY=($(compgen -W \"$options\" -- \"$current\")) ;;\n"
              "        *) COMPREPLY=($(compgen -f -- \"$current\")) ;;\n"
              "    esac\n"
              "}\n"
              "complete -o filenames -F _kestrel kestrel\n";
    return script.str();
}

/// Escapes the colon and brackets, which end a part of a description.
std::string EscapeForZsh(const std::string& strText)
{
    std::string strEscaped;
    for (const char c : strText)
    {
        strEscaped += c == ':' || c == '[' || c == ']' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return strEscaped;
}

std::string DescribeForZsh(const SOptionWords& option)
{
    std::string strAction;
    if (option.bTakesValue)
    {
        strAction = option.strName == "--platform" ? ":platform:(software system)" : ":value:_files";
    }
    return Quote(option.strName + "[" + EscapeForZsh(option.strText) + "]" + strAction);
}

std::string MakeZsh(const std::vector<SCommandWords>& vCommands)
{
    std::ostringstream script;
    script << "#compdef kestrel\n"
              "_kestrel()\n"
              "{\n"
              "    local -a commands\n"
              "    commands=(\n";
    for (const SCommandWords& command : vCommands)
    {
        script << "        " << Quote(command.strName + ":" + EscapeForZsh(command.strText)) << "\n";
    }
    script << "    )\n"
              "    if (( CURRENT == 2 )); then\n"
              "        _describe command commands\n"
              "        return\n"
              "    fi\n"
              "    local command=$words[2]\n"
              "    shift words\n"
              "    (( CURRENT-- ))\n"
              "    case $command in\n"
              "        help) _describe command commands ;;\n";
    for (const SCommandWords& command : vCommands)
    {
        script << "        " << command.strName << ") _arguments";
        for (const SOptionWords& option : command.vOptions)
        {
            script << " \\\n            " << DescribeForZsh(option);
        }
        script << " \\\n            "
               << (command.strName == "completion" ? "':shell:(bash zsh fish)'" : "'*:file:_files'") << " ;;\n";
    }
    script << "    esac\n"
              "}\n"
              "compdef _kestrel kestrel\n";
    return script.str();
}

void AddFishOption(std::ostream& script, const SCommandWords& command, const SOptionWords& option)
{
    const bool bLong = option.strName.compare(0, 2, "--") == 0;
    script << "complete -c kestrel -n '__fish_seen_subcommand_from " << command.strName << "' "
           << (bLong ? "-l " : "-s ") << option.strName.substr(bLong ? 2 : 1);
    if (option.strName == "--platform")
    {
        script << " -x -a 'software system'";
    }
    else if (option.bTakesValue)
    {
        script << " -r -F";
    }
    script << " -d " << Quote(option.strText) << "\n";
}

std::string MakeFish(const std::vector<SCommandWords>& vCommands)
{
    std::ostringstream script;
    script << "# fish completion for kestrel\n";
    for (const SCommandWords& command : vCommands)
    {
        script << "complete -c kestrel -n __fish_use_subcommand -f -a " << command.strName << " -d "
               << Quote(command.strText) << "\n";
    }
    script << "complete -c kestrel -n '__fish_seen_subcommand_from help' -f -a '" << JoinCommands(vCommands) << "'\n"
           << "complete -c kestrel -n '__fish_seen_subcommand_from completion' -f -a 'bash zsh fish'\n";
    for (const SCommandWords& command : vCommands)
    {
        for (const SOptionWords& option : command.vOptions)
        {
            AddFishOption(script, command, option);
        }
    }
    return script.str();
}

} // namespace

std::string MakeShellCompletion(const std::string& strShell, const std::vector<SCommandWords>& vCommands)
{
    return strShell == "zsh" ? MakeZsh(vCommands) : strShell == "fish" ? MakeFish(vCommands) : MakeBash(vCommands);
}

} // namespace KestrelTool
