#include "tools/kestrel/Codes.h"
#include "tools/kestrel/Files.h"
#include "tools/kestrel/HostMemory.h"
#include "tools/kestrel/KernelText.h"
#include "tools/kestrel/LogFolder.h"
#include "tools/kestrel/StepPrinter.h"
#include "tools/kestrel/Visible.h"
#include "tools/kestrel/command/DebugSession.h"
#include "tools/kestrel/command/ExitCode.h"
#include "tools/kestrel/command/Manual.h"
#include "tools/kestrel/command/Output.h"
#include "tools/kestrel/convert/Describe.h"
#include "tools/kestrel/convert/ProgramBuild.h"
#include "tools/kestrel/convert/Tokens.h"
#include "tools/kestrel/debug/Outcome.h"
#include "tools/kestrel/program/Capture.h"

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <new>

using namespace KestrelTool;

namespace
{

struct SOptions
{
    std::string strLaunch;
    std::string strPlatform = "software";
    size_t nStops = 0;
    SDebugOptions debug;
    std::string strInput;
    std::string strOutput;
    std::string strDevice;
    std::string strKernel;
    std::string strBuildOptions = "-g";
    bool bNumbers = false;
    bool bPlaces = false;
    bool bTokens = false;
    std::string strCompileOptions;
    bool bEmitLLVM = false;
    std::vector<std::string> vProgram; ///< the words behind --
    std::string strLaunches;
};

std::string GetPlatformFolder()
{
    return GetLibraryFolder() + "/kestrel-platform";
}

CLibraries OpenLibraries(const SOptions& options)
{
    ChooseLogFolder();
    const bool bSoftware = options.strPlatform == "software";
    return CLibraries(bSoftware ? GetPlatformFolder() : std::string(), GetLibraryFolder() + "/libOVKKestrel.so.1");
}

/// Prints faults and outputs, and says where they differ from what the launch file expects.
int Report(const CLibraries& libraries, const CLaunch& launch)
{
    const nlohmann::json outcome = DescribeRun(libraries, launch);
    std::cout << RenderFaults(outcome) << RenderOutputs(outcome);
    return outcome["faulty"] ? EXIT_FAULT : outcome["differences"].empty() ? EXIT_GOOD : EXIT_OUTPUT_DIFFERS;
}

int Run(const SOptions& options)
{
    const CLibraries libraries = OpenLibraries(options);
    CLaunch launch(libraries, ReadLaunchFile(options.strLaunch));
    try
    {
        launch.Run();
    }
    catch (const CPlatformError&)
    {
        const std::string strEnd = DescribeRunEnd(libraries, launch);
        if (strEnd.empty())
        {
            throw;
        }
        throw CPlatformError(options.strLaunch + ": " + strEnd);
    }
    launch.SaveOutputs();
    return Report(libraries, launch);
}

int Step(const SOptions& options)
{
    const CLibraries libraries = OpenLibraries(options);
    CLaunch launch(libraries, ReadLaunchFile(options.strLaunch));
    std::cout << "kernel " << launch.GetFile().strKernel << " on " << launch.GetDeviceName() << ", "
              << launch.GetWorkItems() << " work-items\n";
    RequireSessionMemory(options.strLaunch, launch.GetWorkItems());
    CStepPrinter printer(std::cout, options.nStops);
    const cl_int nCode = RunSession(libraries, launch, printer);
    if (nCode != CL_SUCCESS)
    {
        std::cerr << "kestrel: the launch can't be debugged: " << NameCode(nCode) << "\n";
        return IsPlatformFailure(nCode) ? EXIT_PLATFORM_FAILED : EXIT_COMMAND_FAILED;
    }
    if (!printer.IsFinished())
    {
        return EXIT_COMMAND_FAILED;
    }
    launch.SaveOutputs();
    return Report(libraries, launch);
}

int Debug(const SOptions& options)
{
    const CLibraries libraries = OpenLibraries(options);
    SDebugOptions debug = options.debug;
    debug.strLaunch = options.strLaunch;
    return RunDebugSession(libraries, debug);
}

/// The image in a file, or what a program's text in it builds to.
std::vector<char> ReadBinary(const SOptions& options)
{
    const std::string strBytes = ReadFileBytes(options.strInput);
    if (IsImage(strBytes))
    {
        return std::vector<char>(strBytes.begin(), strBytes.end());
    }
    return BuildProgram(OpenLibraries(options), ReadProgramText(options.strInput), options.strDevice,
                        options.strBuildOptions)
        .vImage;
}

/// Writes a text to the output file, or prints it.
int Deliver(const SOptions& options, const std::string& strText)
{
    if (options.strOutput.empty())
    {
        std::cout << strText;
        return EXIT_GOOD;
    }
    if (IsSameFile(options.strInput, options.strOutput))
    {
        std::cerr << "kestrel: " << options.strOutput << " is what is read, and would be overwritten\n";
        return EXIT_USAGE;
    }
    WriteFileBytes(options.strOutput, strText);
    return EXIT_GOOD;
}

int Assemble(const SOptions& options)
{
    if (options.bTokens)
    {
        return Deliver(options, TextToTokens(GetPlatformFolder(), ReadFileBytes(options.strInput)));
    }
    const std::vector<char> vBinary = ReadBinary(options);
    return Deliver(options, std::string(vBinary.begin(), vBinary.end()));
}

int Disassemble(const SOptions& options)
{
    const std::string strBytes = ReadFileBytes(options.strInput);
    if (options.bTokens || IsTokens(strBytes))
    {
        return Deliver(options, TokensToText(GetPlatformFolder(), strBytes));
    }
    return Deliver(options, DisassembleBinary(ReadBinary(options), options.bNumbers));
}

/// Compiles OpenCL C, tells the compiler's words, and prints what it made: IL, or LLVM's intermediate code.
int Compile(const SOptions& options)
{
    const std::string strBuildOptions = options.strCompileOptions + (options.bEmitLLVM ? " -emit-llvm" : "");
    const SBuiltProgram program =
        BuildProgram(OpenLibraries(options), ReadProgramText(options.strInput), options.strDevice, strBuildOptions);
    std::cerr << program.strLog;
    return Deliver(options, options.bEmitLLVM ? FindSection(program.vImage, ".llvmir")
                                              : DisassembleBinary(program.vImage, options.bNumbers, options.bPlaces));
}

int Info(const SOptions& options)
{
    return Deliver(options, DescribeBinary(ReadBinary(options)));
}

int New(const SOptions& options)
{
    // The launch file names the program from where it will lie.
    const std::filesystem::path output = options.strOutput.empty() ? "launch.json" : options.strOutput;
    const std::filesystem::path program = std::filesystem::relative(std::filesystem::absolute(options.strInput),
                                                                    std::filesystem::absolute(output).parent_path());
    return Deliver(options, MakeLaunchFile(ReadBinary(options), program.string(), options.strKernel));
}

SProgramCommand MakeProgramCommand(const SOptions& options)
{
    if (options.vProgram.empty())
    {
        throw CLaunchFileError("a program is needed, behind --: kestrel exec -- ./program");
    }
    const bool bSoftware = options.strPlatform == "software";
    return {options.vProgram, GetLibraryFolder() + "/libkestrel-layer.so",
            bSoftware ? GetPlatformFolder() + "/icd" : std::string()};
}

int Capture(const SOptions& options)
{
    SCaptureOptions capture;
    capture.command = MakeProgramCommand(options);
    capture.strFolder = options.strOutput.empty() ? capture.strFolder : options.strOutput;
    capture.wanted.strKernel = options.strKernel;
    capture.wanted.bTurns = !options.strKernel.empty();
    if (!options.strLaunches.empty() && !ReadLaunchRange(options.strLaunches, capture.wanted))
    {
        throw CLaunchFileError("--launch takes a number from 1, or two with a hyphen between");
    }
    return CaptureLaunches(capture, std::cerr);
}

int Manual(const SOptions& options)
{
    return Deliver(options,
                   options.strInput.empty() ? MakeManPage() : MakeManual(OpenLibraries(options), options.strInput));
}

/// A subcommand that makes one file of another.
CLI::App* AddConverter(CLI::App& app, const char* pszName, const char* pszInput, const char* pszText, SOptions& options)
{
    CLI::App* pCommand = app.add_subcommand(pszName, pszText);
    pCommand->add_option(pszInput, options.strInput, "file")->required(pszName != std::string("manual"));
    pCommand->add_option("-o,--output", options.strOutput, "write to a file");
    return pCommand;
}

/// Takes the words behind the first "--" off: another program's. No other command has use for them.
std::vector<std::string> TakeProgram(std::vector<std::string>& vArguments)
{
    const auto itEnd = std::find(vArguments.begin(), vArguments.end(), "--");
    const std::vector<std::string> vProgram(itEnd == vArguments.end() ? itEnd : itEnd + 1, vArguments.end());
    vArguments.erase(itEnd, vArguments.end());
    return vProgram;
}

/// Long options with one hyphen, as debuggers have them, and `help [COMMAND]` for `[COMMAND] --help`; last word first,
/// as the parser takes them.
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

/// A descriptor that is closed would be given to the next file that is opened, which would get what is printed. What
/// stands there instead fails as a closed one does.
void HoldStandardDescriptors()
{
    for (const int nFile : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
        if (fcntl(nFile, F_GETFD) == -1 && open("/dev/null", nFile == STDIN_FILENO ? O_WRONLY : O_RDONLY) != nFile)
        {
            std::_Exit(EXIT_PLATFORM_FAILED);
        }
    }
}

/// What has been printed must have arrived, or nothing has been done.
int CheckOutput(int nCode)
{
    errno = 0;
    std::cout.flush();
    if (std::cout && std::ferror(stdout) == 0 && std::fflush(stdout) == 0)
    {
        return nCode;
    }
    std::cerr << "kestrel: the output can't be written: " << (errno != 0 ? std::strerror(errno) : "an error") << "\n";
    return nCode == EXIT_GOOD ? EXIT_COMMAND_FAILED : nCode;
}

int RunCommandLine(int argc, char** argv)
{
    CLI::App app("Single-steps OpenCL kernels.", "kestrel");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "kestrel " KESTREL_VERSION, "Print the version and end");
    SOptions options;
    app.add_option("--platform", options.strPlatform,
                   "software: the platform that comes with Kestrel; system: the machine's own runtime")
        ->check(CLI::IsMember({"software", "system"}));

    CLI::App* pRun = app.add_subcommand("run", "Run a launch file and compare its outputs");
    pRun->add_option("LAUNCH", options.strLaunch, "launch file (JSON)")->required();
    CLI::App* pStep = app.add_subcommand("step", "Step a launch file to its end and print every stop");
    pStep->add_option("LAUNCH", options.strLaunch, "launch file (JSON)")->required();
    pStep->add_option("--stops", options.nStops, "run on to the end behind that many stops");

    CLI::App* pDebug = app.add_subcommand("debug", "Debug a launch at a prompt, or by a script");
    pDebug->add_option("LAUNCH", options.strLaunch, "launch file (JSON)")->required();
    pDebug->add_flag("-q,--quiet", options.debug.bQuiet, "say nothing at the start");
    pDebug->add_flag("--batch", options.debug.bBatch, "end behind the scripts");
    pDebug->add_flag("--json", options.debug.bJson, "answers and events as JSON, one object a line");
    pDebug->add_flag("--echo", options.debug.bEcho, "print each command in front of what comes of it");
    std::vector<std::string> vFiles;
    std::vector<std::string> vCommands;
    const CLI::Option* pFile =
        pDebug->add_option("-x", vFiles, "do the commands of a file")->take_all()->allow_extra_args(false);
    const CLI::Option* pCommand =
        pDebug->add_option("--ex", vCommands, "do a command")->take_all()->allow_extra_args(false);

    CLI::App* pAsm = AddConverter(app, "asm", "PROGRAM", "Make a kernel binary of IL", options);
    pAsm->get_option("--output")->required();
    CLI::App* pDisasm = AddConverter(app, "disasm", "BINARY", "Print the IL of a kernel binary", options);
    pDisasm->add_flag("--numbers", options.bNumbers, "with the numbers of the lines");
    pAsm->add_flag("--tokens", options.bTokens, "the IL alone, as 32-bit words, in place of a kernel binary");
    pDisasm->add_flag("--tokens", options.bTokens, "the file holds IL as 32-bit words, whatever it looks like");
    CLI::App* pCompile = AddConverter(app, "cc", "SOURCE", "Compile OpenCL C and print its IL", options);
    pCompile->add_flag("--emit-llvm", options.bEmitLLVM, "LLVM's intermediate code in place of the IL");
    pCompile->add_flag("--numbers", options.bNumbers, "with the numbers of the lines");
    pCompile->add_flag_callback(
        "-g",
        [&options]
        {
            options.strCompileOptions += " -g";
            options.bPlaces = true;
        },
        "every variable keeps a place of its own; the source's lines are printed beside the IL");
    pCompile->add_option("--device", options.strDevice, "device to compile for");
    pCompile->add_option_function<std::string>(
        "--options", [&options](const std::string& strMore) { options.strCompileOptions += " " + strMore; },
        "build options of OpenCL");
    CLI::App* pInfo = AddConverter(app, "info", "BINARY", "Show what a kernel binary holds", options);
    CLI::App* pNew = AddConverter(app, "new", "PROGRAM", "Write a launch file for a kernel, with comments", options);
    pNew->add_option("--kernel", options.strKernel, "the kernel; the first if missing");
    for (CLI::App* pCommand : {pAsm, pDisasm, pInfo, pNew})
    {
        pCommand->add_option("--device", options.strDevice, "device to build for");
        pCommand->add_option("--options", options.strBuildOptions, "build options");
    }
    CLI::App* pCapture =
        app.add_subcommand("capture", "Write launches of a program as launch files: capture [OPTIONS] -- PROGRAM ARGS");
    pCapture->add_option("-o,--output", options.strOutput, "folder for them; captured if missing");
    pCapture->add_option("--kernel", options.strKernel, "launches of this kernel only, counted for themselves");
    pCapture->add_option("--launch", options.strLaunches, "launch N or N-M only, counted from 1");
    CLI::App* pManual =
        AddConverter(app, "manual", "EXAMPLES",
                     "Make the manual with what the examples give; without a folder the man page", options);

    try
    {
        std::vector<std::string> vArguments(argv + 1, argv + argc);
        options.vProgram = TakeProgram(vArguments);
        app.parse(SpellOut(vArguments));
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? EXIT_GOOD : EXIT_USAGE;
    }

    // In the order of the command line.
    size_t nFile = 0;
    size_t nCommand = 0;
    for (const CLI::Option* pOption : pDebug->parse_order())
    {
        if (pOption == pFile)
        {
            options.debug.vScripts.push_back({true, vFiles[nFile++]});
        }
        else if (pOption == pCommand)
        {
            options.debug.vScripts.push_back({false, vCommands[nCommand++]});
        }
    }

    try
    {
        const std::pair<const CLI::App*, int (*)(const SOptions&)> commands[] = {
            {pRun, Run},         {pStep, Step}, {pDebug, Debug}, {pAsm, Assemble},  {pDisasm, Disassemble},
            {pCompile, Compile}, {pInfo, Info}, {pNew, New},     {pManual, Manual}, {pCapture, Capture}};
        for (const auto& command : commands)
        {
            if (command.first->parsed())
            {
                return command.second(options);
            }
        }
        return EXIT_USAGE;
    }
    catch (const CLaunchFileError& error)
    {
        std::cerr << "kestrel: " << error.what() << "\n";
        return EXIT_USAGE;
    }
    catch (const CPlatformError& error)
    {
        std::cerr << "kestrel: " << error.what() << "\n";
        return EXIT_PLATFORM_FAILED;
    }
    catch (const std::bad_alloc&)
    {
        std::cerr << "kestrel: there isn't enough memory\n";
        return EXIT_PLATFORM_FAILED;
    }
    catch (const std::exception& error)
    {
        std::cerr << "kestrel: " << error.what() << "\n";
        return EXIT_COMMAND_FAILED;
    }
}

} // namespace

int main(int argc, char** argv)
{
    HoldStandardDescriptors();
    std::signal(SIGXFSZ, SIG_IGN); // a file that may grow no more is an error like others
    const CVisibleStream output(std::cout);
    const CVisibleStream errors(std::cerr);
    return CheckOutput(RunCommandLine(argc, argv));
}
