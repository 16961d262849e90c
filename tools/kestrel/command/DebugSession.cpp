#include "tools/kestrel/command/DebugSession.h"

#include "tools/kestrel/command/Interpreter.h"
#include "tools/kestrel/command/Prompt.h"
#include "tools/session/ExitCode.h"
#include "tools/session/launch/Files.h"
#include "tools/session/program/ProgramSession.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <iostream>

namespace KestrelTool
{

namespace
{

/// Runs the commands of the command line in order. Neighbouring ones form one input, so that a command that reads
/// further lines finds them.
CInterpreter::EResult RunScripts(CInterpreter& interpreter, const std::vector<SDebugOptions::SScript>& vScripts)
{
    size_t nNext = 0;
    const LineReader reader = [&]() -> std::optional<std::string>
    {
        if (nNext == vScripts.size())
        {
            return std::nullopt;
        }
        const SDebugOptions::SScript& script = vScripts[nNext++];
        return script.bFile ? "source " + script.strText : script.strText;
    };
    return interpreter.ExecuteAll(reader, false);
}

/// Runs commands from standard input, whatever it is.
CInterpreter::EResult ReadCommands(CInterpreter& interpreter, const SDebugOptions& options)
{
    // An interrupt is forgotten when the user's next line is read.
    const auto clear = [&](std::optional<std::string> line)
    {
        CDebugger* const pDebugger = interpreter.FindDebugger();
        if (pDebugger != nullptr)
        {
            pDebugger->ClearInterrupts();
        }
        return line;
    };
    if (options.bJson || isatty(STDIN_FILENO) == 0)
    {
        CLineInput input(STDIN_FILENO);
        input.SetWait(
            [&]
            {
                while (interpreter.AwaitInput(STDIN_FILENO) != CInterpreter::Ready)
                {
                }
            });
        const CInterpreter::EResult eResult = interpreter.ExecuteAll([&] { return clear(input.ReadLine()); }, true);
        if (input.GetError().empty())
        {
            return eResult;
        }
        std::cerr << "kestrel: the standard input can't be read: " << input.GetError() << std::endl;
        return CInterpreter::Failed;
    }
    CPrompt prompt(interpreter);
    return interpreter.ExecuteAll([&] { return clear(prompt.ReadLine()); }, true);
}

std::string MakeBanner(CDebugger& debugger)
{
    return "Kernel " + debugger.GetLaunch().GetFile().strKernel + " on " + debugger.GetLaunch().GetDeviceName() + ", " +
           std::to_string(debugger.GetExtent().Count()) + " work-items. run starts it, help lists the commands.\n";
}

CInterpreter::EResult RunInput(CInterpreter& interpreter, const SDebugOptions& options)
{
    const CInterpreter::EResult eResult = ReadCommands(interpreter, options);
    interpreter.ClosePage(); // nobody answers it any more
    return eResult;
}

} // namespace

int RunDebugSession(const CLibraries& libraries, const SDebugOptions& options)
{
    CTextOutput text(std::cout, std::cerr, options.bEcho);
    CJsonOutput json(std::cout);
    CInterpreter interpreter(options.bJson ? static_cast<IOutput&>(json) : text);
    CDebugger debugger(libraries, ReadLaunchFile(options.strLaunch), interpreter);
    interpreter.SetDebugger(debugger);
    text.SetSettings(debugger.GetSettings());
    debugger.GetSettings().bUnicode = !NeedsAsciiPictures();
    interpreter.SetPageMaker(options.bBatch ? PageMaker() : options.makePage);
    const CInterruptScope interrupts(&debugger, interpreter, !options.bBatch);
    if (!options.bQuiet && !options.bJson)
    {
        std::cout << CTextStyle::Of(std::cout).Wrap(MakeBanner(debugger));
    }

    CInterpreter::EResult eResult = RunScripts(interpreter, options.vScripts);
    if (eResult == CInterpreter::Good && !options.bBatch)
    {
        eResult = RunInput(interpreter, options);
        // At a prompt, the user has seen a failure and could react.
        eResult = isatty(STDIN_FILENO) != 0 && eResult == CInterpreter::Failed ? CInterpreter::Good : eResult;
    }
    debugger.Kill();
    if (interpreter.GetQuitCode())
    {
        return *interpreter.GetQuitCode();
    }
    if (eResult == CInterpreter::Failed)
    {
        return interpreter.GetFailureCode() != EXIT_GOOD ? interpreter.GetFailureCode() : EXIT_COMMAND_FAILED;
    }
    if (debugger.HasPlatformFailed())
    {
        return EXIT_PLATFORM_FAILED;
    }
    if (debugger.GetFaults().HasAny())
    {
        return EXIT_FAULT;
    }
    return debugger.HasDifference() ? EXIT_OUTPUT_DIFFERS : EXIT_GOOD;
}

namespace
{

/// Lets the program run to its end.
void RunOut(CProgramSession& program)
{
    if (!program.IsRunning())
    {
        return;
    }
    program.GetBreakpoints().Clear();
    while (program.GetDebugger() != nullptr)
    {
        program.FinishLaunch();
    }
}

} // namespace

int RunProgramSession(const CLibraries& libraries, const SProgramCommand& command, const SDebugOptions& options)
{
    CTextOutput text(std::cout, std::cerr, options.bEcho);
    CJsonOutput json(std::cout);
    CInterpreter interpreter(options.bJson ? static_cast<IOutput&>(json) : text);
    CProgramSession program(libraries, command, interpreter);
    interpreter.SetProgram(program);
    text.SetSettings(program.GetSettings());
    program.GetSettings().bUnicode = !NeedsAsciiPictures();
    const bool bPrompt = !options.bBatch && (options.bJson || isatty(STDIN_FILENO) != 0);
    const CInterruptScope interrupts(nullptr, interpreter, bPrompt);
    interpreter.SetPageMaker(bPrompt ? options.makePage : PageMaker());
    program.SetWatcher(
        [&](CDebugger* pDebugger)
        {
            interrupts.Watch(pDebugger);
            interpreter.Watch(pDebugger);
        });
    if (bPrompt && !options.bQuiet && !options.bJson)
    {
        const std::string strBanner =
            "Program " + command.vWords.front() + ". run starts it, help lists the commands.\n";
        std::cout << CTextStyle::Of(std::cout).Wrap(strBanner);
    }

    CInterpreter::EResult eResult = RunScripts(interpreter, options.vScripts);
    if (eResult == CInterpreter::Good && options.vScripts.empty() && !bPrompt)
    {
        eResult = interpreter.Execute("run");
    }
    if (eResult == CInterpreter::Good && bPrompt)
    {
        eResult = RunInput(interpreter, options);
        eResult = !options.bJson && eResult == CInterpreter::Failed ? CInterpreter::Good : eResult;
    }
    else if (eResult == CInterpreter::Good)
    {
        RunOut(program);
    }
    if (interpreter.GetQuitCode())
    {
        return *interpreter.GetQuitCode();
    }
    if (eResult == CInterpreter::Failed)
    {
        return interpreter.GetFailureCode() != EXIT_GOOD ? interpreter.GetFailureCode() : EXIT_COMMAND_FAILED;
    }
    return program.GetExitCode();
}

} // namespace KestrelTool
