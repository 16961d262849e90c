#include "tools/kestrel/Options.h"

#include "tools/kestrel/ShellCompletion.h"
#include "tools/session/ExitCode.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace KestrelTool
{

namespace
{

/// Removes the words after the first "--", which are another program's command line, and gives them.
std::vector<std::string> TakeProgram(std::vector<std::string>& vArguments)
{
    const auto itEnd = std::find(vArguments.begin(), vArguments.end(), "--");
    std::vector<std::string> vProgram(itEnd == vArguments.end() ? itEnd : itEnd + 1, vArguments.end());
    vArguments.erase(itEnd, vArguments.end());
    return vProgram;
}

/// Adds the second hyphen to long options with one, as debuggers allow, and turns `help [COMMAND]` into `[COMMAND]
/// --help`. The last word comes first, as the parser expects.
std::vector<std::string> SpellOut(std::vector<std::string> vArguments)
{
    if (!vArguments.empty() && vArguments.front() == "help")
    {
        vArguments.erase(vArguments.begin());
        vArguments.push_back("--help");
    }
    for (std::string& strArgument : vArguments)
    {
        for (const char* pszName : {"-batch", "-ex", "-json", "-echo"})
        {
            if (strArgument == pszName)
            {
                strArgument.insert(0, "-");
            }
        }
    }
    std::reverse(vArguments.begin(), vArguments.end());
    return vArguments;
}

/// Adds a command's options, except those already there: every command repeats the global ones.
void AddOptionWords(const CLI::App& app, std::vector<SOptionWords>& vWords)
{
    const auto add = [&vWords](const std::string& strName, const CLI::Option& option)
    {
        const bool bKnown = std::any_of(vWords.begin(), vWords.end(),
                                        [&](const SOptionWords& words) { return words.strName == strName; });
        if (!bKnown)
        {
            vWords.push_back({strName, option.get_description(), option.get_type_size() != 0});
        }
    };
    for (const CLI::Option* pOption : app.get_options())
    {
        for (const std::string& strName : pOption->get_lnames())
        {
            add("--" + strName, *pOption);
        }
        for (const std::string& strName : pOption->get_snames())
        {
            add("-" + strName, *pOption);
        }
    }
}

} // namespace

COptionParser::COptionParser() : m_pApp(std::make_unique<CLI::App>("Single-steps OpenCL kernels.", "kestrel"))
{
    m_pApp->require_subcommand(1);
    m_pApp->fallthrough();
    m_pApp->set_version_flag("--version", "kestrel " KESTREL_VERSION, "Print the version and end");
    m_pApp
        ->add_option("--platform", m_Options.strPlatform,
                     "software: the platform that comes with Kestrel; system: the machine's own runtime")
        ->check(CLI::IsMember({"software", "system"}));
    AddRunning();
    AddConverters();
    AddCompiler();
    AddPrograms();
    AddCover();
    AddCheck();
    AddFrontEnds();
    m_pApp->add_subcommand("completion", "Print what a shell needs to complete these commands")
        ->add_option("SHELL", m_Options.strShell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
}

COptionParser::~COptionParser() = default;

void COptionParser::AddRunning()
{
    CLI::App* pRun = m_pApp->add_subcommand("run", "Run a launch file and compare its outputs");
    pRun->add_option("LAUNCH", m_Options.strLaunch, "launch file (JSON)")->required();
    CLI::App* pStep = m_pApp->add_subcommand("step", "Step a launch file to its end and print every stop");
    pStep->add_option("LAUNCH", m_Options.strLaunch, "launch file (JSON)")->required();
    pStep->add_option("--stops", m_Options.nStops, "run on to the end after that many stops");

    CLI::App* pDebug = m_pApp->add_subcommand("debug", "Debug a launch at a prompt, or by a script");
    pDebug->add_option("LAUNCH", m_Options.strLaunch, "launch file (JSON)")->required();
    AddScripts(*pDebug);
}

/// The options for scripts of commands that debug.
void COptionParser::AddScripts(CLI::App& command)
{
    SDebugOptions& debug = m_Options.debug;
    command.add_flag("-q,--quiet", debug.bQuiet, "say nothing at the start");
    command.add_flag("--batch", debug.bBatch, "end after the scripts");
    command.add_flag("--json", debug.bJson, "answers and events as JSON, one object a line");
    command.add_flag("--echo", debug.bEcho, "print each command before its output");
    // Called in the order of the command line.
    const auto addScript = [&debug](bool bFile) {
        return [&debug, bFile](const std::string& strText) { debug.vScripts.push_back({bFile, strText}); };
    };
    command.add_option_function<std::string>("-x", addScript(true), "do the commands of a file")
        ->type_name("FILE")
        ->trigger_on_parse();
    command.add_option_function<std::string>("--ex", addScript(false), "do a command")
        ->type_name("COMMAND")
        ->trigger_on_parse();
}

CLI::App* COptionParser::AddConverter(const char* pszName, const char* pszInput, const char* pszText)
{
    CLI::App* pCommand = m_pApp->add_subcommand(pszName, pszText);
    pCommand->add_option(pszInput, m_Options.strInput, "file")->required(std::strcmp(pszName, "manual") != 0);
    pCommand->add_option("-o,--output", m_Options.strOutput, "write to a file");
    return pCommand;
}

void COptionParser::AddConverters()
{
    CLI::App* pAsm = AddConverter("asm", "PROGRAM", "Make a kernel binary of IL");
    pAsm->get_option("--output")->required();
    pAsm->add_flag("--tokens", m_Options.bTokens, "the IL alone, as 32-bit words, in place of a kernel binary");
    CLI::App* pDisasm = AddConverter("disasm", "BINARY", "Print the IL of a kernel binary");
    pDisasm->add_flag("--numbers", m_Options.bNumbers, "with the numbers of the lines");
    pDisasm->add_flag("--tokens", m_Options.bTokens, "the file holds IL as 32-bit words, whatever it looks like");
    CLI::App* pInfo = AddConverter("info", "BINARY", "Show what a kernel binary holds");
    CLI::App* pNew = AddConverter("new", "PROGRAM", "Write a launch file for a kernel, with comments");
    pNew->add_option("--kernel", m_Options.strKernel, "the kernel; the first if missing");
    for (CLI::App* pCommand : {pAsm, pDisasm, pInfo, pNew})
    {
        pCommand->add_option("--device", m_Options.strDevice, "device to build for");
        pCommand->add_option("--options", m_Options.strBuildOptions, "build options");
    }
    AddConverter("manual", "EXAMPLES", "Make the manual with what the examples give; without a folder the man page");
}

void COptionParser::AddCompiler()
{
    CLI::App* pCompile = AddConverter("cc", "SOURCE", "Compile OpenCL C and print its IL");
    pCompile->add_flag("--emit-llvm", m_Options.bEmitLLVM, "LLVM's intermediate code in place of the IL");
    pCompile->add_flag("--numbers", m_Options.bNumbers, "with the numbers of the lines");
    pCompile->add_flag_callback(
        "-g",
        [this]
        {
            m_Options.strCompileOptions += " -g";
            m_Options.bPlaces = true;
        },
        "every variable keeps a place of its own; the source's lines are printed beside the IL");
    pCompile->add_option("--device", m_Options.strDevice, "device to compile for");
    pCompile->add_option_function<std::string>(
        "--options", [this](const std::string& strMore) { m_Options.strCompileOptions += " " + strMore; },
        "build options of OpenCL");
}

void COptionParser::AddPrograms()
{
    AddScripts(*m_pApp->add_subcommand("exec", "Debug the launches of a program: exec [OPTIONS] -- PROGRAM ARGS"));
    CLI::App* pCapture = m_pApp->add_subcommand(
        "capture", "Write launches of a program as launch files: capture [OPTIONS] -- PROGRAM ARGS");
    pCapture->add_option("-o,--output", m_Options.strOutput, "folder for them; captured if missing");
    pCapture->add_option("--kernel", m_Options.strKernel, "launches of this kernel only, counted for themselves");
    pCapture->add_option("--launch", m_Options.strLaunches, "launch N or N-M only, counted from 1");
    pCapture->add_flag("--emit-c", m_Options.bEmitC,
                       "write a program in C beside each that makes the launch on any OpenCL platform");
}

void COptionParser::AddCover()
{
    const auto add = [this](const char* pszName, const char* pszText)
    {
        SCoverOptions& cover = m_Options.cover;
        CLI::App* pCommand = m_pApp->add_subcommand(pszName, pszText);
        pCommand->add_option("LAUNCH", cover.vLaunches, "launch files (JSON), whose counts are added")->required();
        pCommand->add_flag("--json", cover.bJson, "all that is known of each line, as JSON");
        pCommand->add_option("--lcov", cover.strLcov, "write a file for lcov and genhtml in place of the listing");
    };
    add("cover", "Run launch files and show which lines ran, and which ways branches went");
    add("profile", "Run launch files and show passes of loops, bytes and cache lines by line");
    CLI::App* pWho =
        m_pApp->add_subcommand("who", "Run a launch file and show who wrote and read an element of a buffer");
    pWho->add_option("LAUNCH", m_Options.strLaunch, "launch file (JSON)")->required();
    pWho->add_option("ELEMENT", m_Options.strElement, "an argument's name and a number, as in out[5]")->required();
    pWho->add_flag("--json", m_Options.cover.bJson, "as JSON");
}

void COptionParser::AddCheck()
{
    SCheckOptions& check = m_Options.check;
    CLI::App* pCommand =
        m_pApp->add_subcommand("check", "Run launches and say what their kernels do wrong, and at which lines: check "
                                        "LAUNCH... | -- PROGRAM ARGS");
    pCommand->add_option("LAUNCH", check.vLaunches, "launch files (JSON), and folders of them");
    pCommand->add_option("--shard", check.strShard, "I/N: only the I-th of N parts of them");
    pCommand->add_flag("--merge", check.bMerge, "they are reports of --json; join them");
    pCommand
        ->add_option(
            "--checks", check.vChecks,
            "of memory, race, init, nan, barrier, alignment and, of a program, api, with commas; all but nan and "
            "alignment if missing")
        ->delimiter(',')
        ->allow_extra_args(false) // the word after it is a launch file
        ->check(CLI::IsMember({"memory", "race", "init", "nan", "barrier", "alignment", "api"}));
    pCommand->add_option("--suppress", check.strSuppressions, "file with findings that aren't wanted");
    pCommand->add_option("--limit", check.nLimit, "instructions after which a work-group counts as one that hangs");
    pCommand->add_flag("--json", check.bJson, "findings as JSON");
    pCommand->add_option("--sarif", check.strSarif, "write them as SARIF too");
    pCommand->add_option("--junit", check.strJUnit, "write them as JUnit's XML too");
}

void COptionParser::AddFrontEnds()
{
    const unsigned int nMostPort = 65535;
    m_pApp->add_subcommand("dap", "Speak the Debug Adapter Protocol with an editor")
        ->add_option(
            "--port", m_Options.nPort,
            "on this port of the loopback address, 0 for a free one, in place of the standard input and output")
        ->check(CLI::Range(0U, nMostPort));
    CLI::App* pView = m_pApp->add_subcommand(
        "view", "Serve a page on the loopback address that shows a session: view LAUNCH | -- PROGRAM ARGS");
    pView->add_option("LAUNCH", m_Options.strLaunch, "launch file (JSON)");
    pView->add_option("--port", m_Options.nPort, "the page's port; a free one if missing")
        ->check(CLI::Range(0U, nMostPort));
}

std::optional<int> COptionParser::Read(int argc, char** argv, SOptions& options)
{
    try
    {
        std::vector<std::string> vArguments(argv + 1, argv + argc);
        m_Options.vProgram = TakeProgram(vArguments);
        m_pApp->parse(SpellOut(std::move(vArguments)));
    }
    catch (const CLI::ParseError& error)
    {
        return m_pApp->exit(error) == 0 ? EXIT_GOOD : EXIT_USAGE;
    }
    m_Options.strCommand = m_pApp->get_subcommands().front()->get_name();
    options = m_Options;
    return std::nullopt;
}

std::string COptionParser::MakeCompletion(const std::string& strShell) const
{
    std::vector<SCommandWords> vCommands;
    for (const CLI::App* pCommand : std::as_const(*m_pApp).get_subcommands({}))
    {
        SCommandWords command{pCommand->get_name(), pCommand->get_description(), {}};
        AddOptionWords(*pCommand, command.vOptions);
        AddOptionWords(*m_pApp, command.vOptions);
        vCommands.push_back(std::move(command));
    }
    return MakeShellCompletion(strShell, vCommands);
}

} // namespace KestrelTool
