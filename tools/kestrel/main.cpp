#include "tools/dap/Adapter.h"
#include "tools/kestrel/LogFolder.h"
#include "tools/kestrel/Options.h"
#include "tools/kestrel/StepPrinter.h"
#include "tools/kestrel/Visible.h"
#include "tools/kestrel/command/Manual.h"
#include "tools/kestrel/command/Output.h"
#include "tools/kestrel/command/SessionConsole.h"
#include "tools/kestrel/convert/Tokens.h"
#include "tools/session/ExitCode.h"
#include "tools/session/debug/Accesses.h"
#include "tools/session/debug/Outcome.h"
#include "tools/session/launch/BinarySections.h"
#include "tools/session/launch/BuiltProgram.h"
#include "tools/session/launch/Codes.h"
#include "tools/session/launch/Describe.h"
#include "tools/session/launch/Files.h"
#include "tools/session/launch/HostMemory.h"
#include "tools/session/program/Capture.h"
#include "tools/view/View.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <limits>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

using namespace KestrelTool;

namespace
{

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

/// Prints faults and outputs, and where they differ from what the launch file expects.
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

/// What the prompt's view command makes.
std::unique_ptr<IPage> MakePage(CDebugger* pLaunch, CProgramSession* pProgram, unsigned int nPort)
{
    return ServePage(MakeSessionConsole, pLaunch, pProgram, nPort);
}

int Debug(const SOptions& options)
{
    const CLibraries libraries = OpenLibraries(options);
    SDebugOptions debug = options.debug;
    debug.strLaunch = options.strLaunch;
    debug.makePage = MakePage;
    return RunDebugSession(libraries, debug);
}

/// The image in a file, or one built from the program text in it.
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

/// Compiles OpenCL C, prints the compiler's messages, and then the result: IL, or LLVM's intermediate code.
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
    // Paths in the launch file are relative to where it is written.
    const std::filesystem::path output = options.strOutput.empty() ? "launch.json" : options.strOutput;
    const std::filesystem::path program = std::filesystem::relative(std::filesystem::absolute(options.strInput),
                                                                    std::filesystem::absolute(output).parent_path());
    return Deliver(options, MakeLaunchFile(ReadBinary(options), program.string(), options.strKernel));
}

std::string GetLayer()
{
    return GetLibraryFolder() + "/kestrel/libkestrel-layer.so";
}

/// The OpenCL drivers for programs; empty for the machine's own.
std::string GetVendors(const SOptions& options)
{
    return options.strPlatform == "software" ? GetPlatformFolder() + "/libOpenCL.so.1" : std::string();
}

int Adapt(const SOptions& options)
{
    const CLibraries libraries = OpenLibraries(options);
    return RunDebugAdapter({libraries, GetLayer(), GetVendors(options), MakeSessionConsole}, options.nPort);
}

SProgramCommand MakeProgramCommand(const SOptions& options)
{
    if (options.vProgram.empty())
    {
        throw CLaunchFileError("a program is needed after --: kestrel exec -- ./program");
    }
    SProgramCommand command;
    command.vWords = options.vProgram;
    command.strLayer = GetLayer();
    command.strVendors = GetVendors(options);
    command.bNoInput = options.debug.bJson;
    return command;
}

int View(const SOptions& options)
{
    if (options.strLaunch.empty() == options.vProgram.empty())
    {
        throw CLaunchFileError("either a launch file or, after --, a program is needed");
    }
    SDebuggeeOptions debuggee;
    debuggee.strLaunch = options.strLaunch;
    if (debuggee.strLaunch.empty())
    {
        debuggee.command = MakeProgramCommand(options);
        debuggee.command.bNoInput = true;
    }
    debuggee.bStopOnEntry = true;
    const CLibraries libraries = OpenLibraries(options);
    return RunView({libraries, GetLayer(), GetVendors(options), MakeSessionConsole}, debuggee,
                   options.nPort.value_or(0));
}

int Exec(const SOptions& options)
{
    const SProgramCommand command = MakeProgramCommand(options);
    const CLibraries libraries = OpenLibraries(options);
    SDebugOptions debug = options.debug;
    debug.makePage = MakePage;
    return RunProgramSession(libraries, command, debug);
}

int Capture(const SOptions& options)
{
    SCaptureOptions capture;
    capture.command = MakeProgramCommand(options);
    capture.target.strFolder = options.strOutput.empty() ? capture.target.strFolder : options.strOutput;
    capture.target.bEmitC = options.bEmitC;
    capture.wanted.strKernel = options.strKernel;
    capture.wanted.bTurns = !options.strKernel.empty();
    if (!options.strLaunches.empty() && !ReadLaunchRange(options.strLaunches, capture.wanted))
    {
        throw CLaunchFileError("--launch takes a number from 1, or two with a hyphen between");
    }
    return CaptureLaunches(capture, std::cerr);
}

int Cover(const SOptions& options)
{
    SCoverOptions cover = options.cover;
    cover.bProfile = options.strCommand == "profile";
    ShowCover(OpenLibraries(options), cover, std::cout);
    return EXIT_GOOD;
}

int Who(const SOptions& options)
{
    const CLibraries libraries = OpenLibraries(options);
    const nlohmann::json accesses = DescribeAccesses(libraries, ReadLaunchFile(options.strLaunch), options.strElement,
                                                     std::numeric_limits<size_t>::max());
    std::cout << (options.cover.bJson
                      ? accesses["accesses"].dump(-1, ' ', true, nlohmann::json::error_handler_t::replace)
                      : accesses["text"].get<std::string>())
              << "\n";
    return EXIT_GOOD;
}

int Check(const SOptions& options)
{
    if (options.check.bMerge && options.vProgram.empty() && !options.check.vLaunches.empty())
    {
        return MergeReports(options.check, std::cout);
    }
    if (options.check.vLaunches.empty() == options.vProgram.empty())
    {
        throw CLaunchFileError("either launch files or, after --, a program are needed");
    }
    SCheckOptions check = options.check;
    if (!options.vProgram.empty())
    {
        check.program = MakeProgramCommand(options);
    }
    return CheckLaunches(OpenLibraries(options), check, std::cout, std::cerr);
}

int Manual(const SOptions& options)
{
    return Deliver(options,
                   options.strInput.empty() ? MakeManPage() : MakeManual(OpenLibraries(options), options.strInput));
}

/// If a standard descriptor is closed, the next file opened would get its number, and with it the output. This fills
/// the number with a descriptor that fails like a closed one.
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

/// If the output couldn't be written, the command has failed.
int CheckOutput(int nCode)
{
    errno = 0;
    std::cout.flush();
    if (std::cout && std::ferror(stdout) == 0 && std::fflush(stdout) == 0)
    {
        return nCode;
    }
    // The failed write has left no error code; writing once more gives it.
    if (errno == 0)
    {
        [[maybe_unused]] const ssize_t nWritten = write(STDOUT_FILENO, "\n", 1);
    }
    std::cerr << "kestrel: the output can't be written" << (errno != 0 ? ": " : "")
              << (errno != 0 ? std::strerror(errno) : "") << "\n";
    return nCode == EXIT_GOOD ? EXIT_COMMAND_FAILED : nCode;
}

int Complete(const SOptions& options)
{
    return Deliver(options, COptionParser().MakeCompletion(options.strShell));
}

const std::pair<const char*, int (*)(const SOptions&)> s_Commands[] = {
    {"run", Run},         {"step", Step}, {"debug", Debug}, {"asm", Assemble},  {"disasm", Disassemble},
    {"cc", Compile},      {"info", Info}, {"new", New},     {"manual", Manual}, {"completion", Complete},
    {"capture", Capture}, {"exec", Exec}, {"cover", Cover}, {"profile", Cover}, {"check", Check},
    {"who", Who},         {"dap", Adapt}, {"view", View}};

int RunCommandLine(int argc, char** argv)
{
    SOptions options;
    if (const std::optional<int> nEnd = COptionParser().Read(argc, argv, options))
    {
        return *nEnd;
    }
    try
    {
        for (const auto& command : s_Commands)
        {
            if (options.strCommand == command.first)
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
    catch (const std::system_error& error)
    {
        // The error for a thread that can't be started.
        const bool bThread = error.code() == std::errc::resource_unavailable_try_again;
        std::cerr << "kestrel: " << (bThread ? "a thread can't be started: " : "") << error.what() << "\n";
        return bThread ? EXIT_PLATFORM_FAILED : EXIT_COMMAND_FAILED;
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
    std::signal(SIGXFSZ, SIG_IGN); // makes reaching the file size limit an ordinary error
    // C++ streams with their own buffers continue a write after a signal; C's fail and lose the text.
    std::ios::sync_with_stdio(false);
    const CVisibleStream output(std::cout);
    const CVisibleStream errors(std::cerr);
    return CheckOutput(RunCommandLine(argc, argv));
}
