#include "tools/kestrel/command/Manual.h"

#include "tools/kestrel/command/Interpreter.h"
#include "tools/session/launch/BinarySections.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace KestrelTool
{

namespace
{

const char* const s_pszDefaultLaunch = "nested_if";

const char* const s_pszIntroduction =
    "# `kestrel`\n\n"
    "The command-line debugger. This page is made from the table of commands by `kestrel manual EXAMPLES`. "
    "Examples were run to make it, in an empty folder, on `examples/nested_if/nested_if.json` where no other launch is "
    "named. Sessions with programs are recorded in `examples/programs/sessions`. `help` gives the same text.\n\n"
    "| Call | What it does |\n"
    "|---|---|\n"
    "| `kestrel debug LAUNCH` | debug a launch file at a prompt |\n"
    "| `kestrel exec -- PROGRAM ARGS` | debug the launches of a program that uses OpenCL; the program stays as it is "
    "|\n"
    "| `kestrel dap` | speak the Debug Adapter Protocol with an editor, see `docs/editors.md` |\n"
    "| `kestrel view LAUNCH`, `kestrel view -- PROGRAM ARGS` | serve a page that shows a session over the whole "
    "dispatch, see `docs/view.md` |\n"
    "| `kestrel run LAUNCH` | run a launch file and compare its outputs |\n"
    "| `kestrel step LAUNCH` | step a launch file to its end and print every stop |\n"
    "| `kestrel new PROGRAM` | write a launch file for a kernel, with comments |\n"
    "| `kestrel cover LAUNCH...` | run launch files and print which lines of their kernels ran, how often and with how "
    "many lanes, and which ways branches went, see `docs/cover.md` |\n"
    "| `kestrel profile LAUNCH...` | the same with passes of loops, bytes and cache lines, see `docs/cover.md` |\n"
    "| `kestrel who LAUNCH ELEMENT` | run a launch file and print who wrote and read an element of a buffer, as in "
    "`who launch.json 'out[5]'` |\n"
    "| `kestrel check LAUNCH...`, `kestrel check -- PROGRAM ARGS` | run launch files and folders of them, or the "
    "launches of a program, and say what their kernels do wrong and at which lines, see `docs/checks.md` |\n"
    "| `kestrel capture -- PROGRAM ARGS` | run a program that uses OpenCL and write its launches as launch files, with "
    "program and contents |\n"
    "| `kestrel cc SOURCE` | compile OpenCL C and print the compiler's messages and the IL |\n"
    "| `kestrel asm PROGRAM -o BINARY` | make a kernel binary of IL |\n"
    "| `kestrel disasm BINARY` | print a binary's IL |\n"
    "| `kestrel info BINARY` | show a binary's sections, kernels, arguments, metadata and lines |\n\n"
    "Their options:\n\n"
    "- `debug`, `exec`: `-q` prints no greeting. `-x FILE` and `-ex COMMAND` execute commands first, in their order, "
    "and `-batch` ends after them. `--json` is for programs that read the answers. `--echo` prints each command.\n"
    "- `dap`: `--port N` takes a port of the loopback address in place of the standard input and output.\n"
    "- `view`: `--port N` chooses the port of the loopback address; the page's address is printed.\n"
    "- `new`: `--kernel NAME`, `-o FILE`.\n"
    "- `cover`, `profile`: `--json`, and `--lcov FILE` for `genhtml`.\n"
    "- `who`: `--json`.\n"
    "- `check`: `--checks memory,race`, `--suppress FILE`, `--limit N`, `--json`, `--sarif FILE` and `--junit FILE`. "
    "`--shard I/N` runs one of N parts of the launches. `--merge REPORT...` joins reports.\n"
    "- `capture`: `-o FOLDER` (`captured` if missing), `--kernel NAME`, and `--launch N` or `N-M`, counted from 1. "
    "`--emit-c` adds a program in C that makes the launch on any OpenCL platform.\n"
    "- `cc`: `-g` compiles for debugging and prints the source's lines beside the IL. `--emit-llvm` prints LLVM's "
    "intermediate code in place of the IL. Also `--options TEXT`, `--device NAME`, `--numbers` and `-o FILE`.\n"
    "- `asm`: `--device NAME`, `--options TEXT`. `--tokens` writes the IL alone, as 32-bit words.\n"
    "- `disasm`: `--numbers` prints the numbers of the lines. A file of IL words alone is recognised by its contents, "
    "or named as such by `--tokens`.\n\n"
    "`--platform system`, before the name of a call, takes the machine's own OpenCL in place of the software platform. "
    "Launch files are described in `tools/session/launch/LaunchFile.h`, and by the comments that `kestrel new` "
    "writes.\n\n"
    "Exit codes: 0 good, 1 a command failed, 2 the call or the launch file is wrong, 3 the platform failed, 4 an "
    "output differs from what is expected, 5 the platform has recorded a fault, or `check` has found something. A "
    "script ends with the first command that fails. `exec` and `capture` give the program's own code if nothing else "
    "went wrong. If a signal ended the program, that is 128 plus the signal's number.\n\n"
    "`exec` stops in a launch that comes to the place of a breakpoint. What is debugged is a replay of the launch from "
    "the same contents, in a process of its own. The program waits in its call, and its own launch runs afterwards as "
    "it would have. The program keeps the standard input and output. Without a terminal, only the commands of `-x` and "
    "`-ex` are executed, and after them the program runs to its end; without such commands, it just runs. While a "
    "launch waits, `run` replays it from its beginning. A program that was made from a binary is debugged as IL. So "
    "that "
    "pyopencl passes sources and not what it keeps of earlier builds, `exec` sets `PYOPENCL_NO_CACHE`.\n\n"
    "At a stop every work-item has executed what comes before the position, and nothing else. Instructions are in the "
    "order of the text, the passes of a loop follow each other, and a called function comes at its call. The mask "
    "shows who took part in the last instruction. Registers and private, local and global memory are those of that "
    "moment. What isn't known isn't shown. A run stops at a breakpoint on any line at which steps stop.\n\n"
    "Every stop is computed by runs of the kernel from its start. Where results depend on the order of the "
    "work-groups, a stop shows what one run did. The end of the session says so if two runs were seen to differ, in "
    "what they leave in memory or in how many work-items come to a place. At the end, the stops after steps are also "
    "compared with the plain run that ends the session.\n\n"
    "Commands may be cut short where they stay unique. Enter repeats those that step, list or print. A format follows "
    "a slash: `print/x r3`. A line that begins with `#` is a comment.\n\n"
    "With `--json` each line is an object. An answer has `answer` (the command), `ok`, `token` (the number before the "
    "command, if there was one: `12 mask`), and `result` or `error`. Events have `event`: `started`, `stopped` (with "
    "`reason`, `line`, `count` of active work-items, `breakpoints`, `faults`), `finished` (with `outputs` and "
    "`differences`), `display`, `error`.\n\n"
    "History is kept in `~/.kestrel_history`, or in the file that `KESTREL_HISTORY` names. The library's logs are in "
    "`~/.local/state/kestrel`, or in the folder that `OVK_CL_DEBUG_LOG_FOLDER` names.\n\n"
    "An interrupt (Ctrl-C) ends the command, its count and the commands of a breakpoint. On the software platform it "
    "breaks off a kernel run, also one that only reads a value, and says where the work-items were. The session is "
    "then where the command began. On another platform it takes effect at the next place where it can: between the "
    "steps of a command that makes many, or at the start of a loop's pass. The progress line says which kernel run it "
    "waits for. There a second interrupt asks whether to give the session up, and a third leaves `kestrel` if a single "
    "kernel run doesn't end.\n";

const char* const s_pszProgramMark = "$ "; ///< precedes the name of a program's session

const char* const s_pszShownMark = "= "; ///< precedes an example that is different in each run, and isn't run

/// The launch and the commands of an example.
struct SExample
{
    std::string strLaunch = s_pszDefaultLaunch;
    std::vector<std::string> vLines;
};

SExample ReadExample(const SCommand& command)
{
    SExample example;
    example.vLines = SplitLines(command.pszExample);
    if (!example.vLines.empty() && example.vLines.front()[0] == '@')
    {
        example.strLaunch = example.vLines.front().substr(1);
        example.vLines.erase(example.vLines.begin());
    }
    return example;
}

/// A temporary working folder. Its path differs between runs, so texts show s_pszFolder instead.
class CScratchFolder
{
public:
    CScratchFolder() : m_Before(std::filesystem::current_path())
    {
        std::string strName = (std::filesystem::temp_directory_path() / "kestrel-XXXXXX").string();
        if (mkdtemp(strName.data()) == nullptr)
        {
            throw std::runtime_error("there is no folder for the examples to work in");
        }
        m_Folder = std::filesystem::canonical(strName);
        std::filesystem::current_path(m_Folder);
    }
    ~CScratchFolder()
    {
        std::error_code error;
        std::filesystem::current_path(m_Before, error);
        std::filesystem::remove_all(m_Folder, error);
    }
    CScratchFolder(const CScratchFolder&) = delete;
    CScratchFolder& operator=(const CScratchFolder&) = delete;

    /// Also makes paths relative to the folder where the tool was started.
    std::string Hide(std::string strText) const
    {
        Replace(strText, m_Folder.string(), s_pszFolder);
        Replace(strText, m_Before.string() + "/", "./");
        return strText;
    }

private:
    static constexpr const char* s_pszFolder = "/home/user/kernels";

    static void Replace(std::string& strText, const std::string& strWhat, const std::string& strBy)
    {
        for (size_t nAt = strText.find(strWhat); nAt != std::string::npos; nAt = strText.find(strWhat, nAt))
        {
            strText.replace(nAt, strWhat.size(), strBy);
            nAt += strBy.size();
        }
    }

    std::filesystem::path m_Before;
    std::filesystem::path m_Folder;
};

/// The recording of a program's session. A test of `kestrel exec` compares it with a new run.
std::string ReadProgramSession(const std::string& strExamples, const std::string& strName)
{
    const std::string strPath = strExamples + "/programs/sessions/" + strName + ".txt";
    std::ifstream file(strPath);
    std::ostringstream text;
    if (!(text << file.rdbuf()))
    {
        throw std::runtime_error(strPath + " can't be read");
    }
    const std::string strText = text.str();
    return strText.substr(0, strText.rfind("exit ")); // the last line is for the test only
}

std::string RunExample(const CLibraries& libraries, const std::string& strExamples, const SExample& example)
{
    std::ostringstream output;
    CTextOutput text(output, output, true);
    CInterpreter interpreter(text);
    // Launches with a folder of their own are in it.
    const bool bFolder = example.strLaunch.find('/') == std::string::npos;
    const std::string strPath = std::filesystem::absolute(strExamples).string() + "/" +
                                (bFolder ? example.strLaunch + "/" : "") + example.strLaunch + ".json";
    CDebugger debugger(libraries, ReadLaunchFile(strPath), interpreter);
    const CScratchFolder folder;
    interpreter.SetDebugger(debugger);
    debugger.GetSettings().nWidth = 70;
    debugger.GetSettings().nHeight = 20;
    text.SetSettings(debugger.GetSettings());
    size_t nNext = 0;
    interpreter.ExecuteAll(
        [&]() -> std::optional<std::string>
        { return nNext < example.vLines.size() ? std::optional<std::string>(example.vLines[nNext++]) : std::nullopt; },
        false);
    return folder.Hide(output.str());
}

std::string MakeExample(const CLibraries& libraries, const std::string& strExamples, const SCommand& command)
{
    const std::string strText = command.pszExample;
    const std::string strMark = s_pszProgramMark;
    const std::string strShown = s_pszShownMark;
    if (strText.compare(0, strShown.size(), strShown) == 0)
    {
        return "\n```\n" + strText.substr(strShown.size()) + "\n```\n";
    }
    if (strText.compare(0, strMark.size(), strMark) == 0)
    {
        return "\n```\n" + ReadProgramSession(strExamples, strText.substr(strMark.size())) + "```\n";
    }
    const SExample example = ReadExample(command);
    return (example.strLaunch != s_pszDefaultLaunch ? "\nWith `" + example.strLaunch + "`:\n" : "") + "\n```\n" +
           RunExample(libraries, strExamples, example) + "```\n";
}

/// Prose for Markdown, broken between words. Lines of tables and headings stay whole. Outside of code, < begins no tag.
std::string Fill(const std::string& strText)
{
    const size_t nWidth = 120;
    std::string strFilled;
    for (const std::string& strLine : SplitLines(strText))
    {
        const bool bBroken = strLine.empty() || (strLine[0] != '|' && strLine[0] != '#');
        bool bCode = false;
        size_t nBegin = strFilled.size();
        size_t nBlank = std::string::npos;
        for (const char c : strLine)
        {
            bCode = bCode != (c == '`');
            nBlank = c == ' ' ? strFilled.size() : nBlank;
            strFilled += c == '<' && !bCode ? "&lt;" : std::string(1, c);
            if (bBroken && strFilled.size() - nBegin > nWidth && nBlank != std::string::npos)
            {
                strFilled[nBlank] = '\n';
                nBegin = nBlank + 1;
                nBlank = std::string::npos;
            }
        }
        strFilled += '\n';
    }
    return strFilled;
}

std::vector<std::string> ListGroups()
{
    std::vector<std::string> vGroups;
    for (size_t i = 0; i < g_nCommands; ++i)
    {
        if (std::find(vGroups.begin(), vGroups.end(), g_Commands[i].pszGroup) == vGroups.end())
        {
            vGroups.push_back(g_Commands[i].pszGroup);
        }
    }
    return vGroups;
}

std::string MakeHead(const SCommand& command)
{
    const std::string strArguments = command.pszArguments;
    return command.pszName + std::string(strArguments.empty() || strArguments.compare(0, 2, "[/") == 0 ? "" : " ") +
           strArguments;
}

/// In roff, a hyphen in a name is written \-, and a line must not begin with a dot or quote.
std::string Escape(const std::string& strText)
{
    std::string strEscaped;
    for (const char c : strText)
    {
        if (c == '\\' || c == '-')
        {
            strEscaped += '\\';
        }
        const bool bLineStart = strEscaped.empty() || strEscaped.back() == '\n';
        strEscaped += (c == '.' || c == '\'') && bLineStart ? "\\&" : "";
        strEscaped += c;
    }
    return strEscaped;
}

} // namespace

std::string MakeManual(const CLibraries& libraries, const std::string& strExamples)
{
    std::ostringstream manual;
    manual << Fill(s_pszIntroduction);
    for (const std::string& strGroup : ListGroups())
    {
        manual << "\n## " << strGroup << "\n";
        for (size_t i = 0; i < g_nCommands; ++i)
        {
            const SCommand& command = g_Commands[i];
            if (strGroup != command.pszGroup)
            {
                continue;
            }
            manual << "\n### `" << MakeHead(command) << "`\n\n" << Fill(command.pszSummary);
            for (const std::string& strLine : SplitLines(command.pszText))
            {
                manual << "\n" << Fill(strLine);
            }
            if (command.pszAliases[0] != '\0')
            {
                manual << "\nShort: `" << command.pszAliases << "`\n";
            }
            manual << MakeExample(libraries, strExamples, command);
        }
    }
    return manual.str();
}

std::string MakeManPage()
{
    std::ostringstream page;
    page
        << ".TH KESTREL 1\n.SH NAME\nkestrel \\- single\\-step OpenCL kernels\n.SH SYNOPSIS\n"
           ".B kestrel\n[\\-\\-platform software|system]\n.B debug\n[\\-q] [\\-batch] [\\-x FILE] [\\-ex COMMAND] "
           "[\\-\\-json] [\\-\\-echo] LAUNCH\n.br\n.B kestrel exec\n[\\-q] [\\-batch] [\\-x FILE] [\\-ex COMMAND] "
           "[\\-\\-json] [\\-\\-echo] \\-\\- PROGRAM ARGS\n.br\n.B kestrel run\nLAUNCH\n.br\n.B kestrel "
           "step\nLAUNCH\n.br\n"
           ".B kestrel new\nPROGRAM [\\-\\-kernel NAME] [\\-o FILE]\n.br\n.B kestrel cover\nLAUNCH... "
           "[\\-\\-json] [\\-\\-lcov FILE]\n.br\n.B kestrel profile\nLAUNCH... [\\-\\-json] [\\-\\-lcov FILE]\n.br\n"
           ".B kestrel who\nLAUNCH ELEMENT [\\-\\-json]\n.br\n"
           ".B kestrel check\n[\\-\\-checks NAMES] [\\-\\-suppress FILE] [\\-\\-json] [\\-\\-sarif FILE] "
           "[\\-\\-junit FILE] LAUNCH... | \\-\\- PROGRAM ARGS\n.br\n"
           ".B kestrel view\n[\\-\\-port N] LAUNCH | \\-\\- PROGRAM ARGS\n.br\n"
           ".B kestrel dap\n[\\-\\-port N]\n.br\n"
           ".B kestrel capture\n[\\-o FOLDER] "
           "[\\-\\-kernel NAME] [\\-\\-launch N\\-M] [\\-\\-emit\\-c] "
           "\\-\\- PROGRAM ARGS\n.br\n.B kestrel cc\nSOURCE [\\-g] "
           "[\\-\\-emit\\-llvm] [\\-\\-numbers]\n.br\n.B kestrel asm\nPROGRAM \\-o BINARY "
           "[\\-\\-tokens]\n.br\n"
           ".B kestrel disasm\nBINARY [\\-\\-numbers] [\\-\\-tokens]\n.br\n.B kestrel info\nBINARY\n.SH DESCRIPTION\n"
           "Steps a kernel over its whole dispatch: at each stop the line, the active work\\-items, and every register "
           "and byte of memory of every work\\-item can be read.\n.SH EXIT STATUS\n0 good, 1 a command failed, 2 the "
           "call "
           "or the launch file is wrong, 3 the platform failed, 4 an output differs from what is expected, 5 the "
           "platform has recorded a fault, or check has found something.\n";
    for (const std::string& strGroup : ListGroups())
    {
        std::string strTitle = strGroup;
        std::transform(strTitle.begin(), strTitle.end(), strTitle.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        page << ".SH \"" << Escape(strTitle) << "\"\n";
        for (size_t i = 0; i < g_nCommands; ++i)
        {
            const SCommand& command = g_Commands[i];
            if (strGroup != command.pszGroup)
            {
                continue;
            }
            page << ".TP\n.B " << Escape(MakeHead(command)) << "\n" << Escape(command.pszSummary) << "\n";
            for (const std::string& strLine : SplitLines(command.pszText))
            {
                page << Escape(strLine) << "\n";
            }
            if (command.pszAliases[0] != '\0')
            {
                page << "Short: " << Escape(command.pszAliases) << ".\n";
            }
        }
    }
    page << ".SH FILES\n~/.kestrel_history, or what KESTREL_HISTORY names\n.br\n"
            "~/.local/state/kestrel/: the library's logs, unless OVK_CL_DEBUG_LOG_FOLDER names another folder\n";
    return page.str();
}

} // namespace KestrelTool
