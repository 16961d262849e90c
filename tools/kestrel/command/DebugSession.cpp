#include "tools/kestrel/command/DebugSession.h"

#include "tools/kestrel/command/ExitCode.h"
#include "tools/kestrel/command/Interpreter.h"
#include "tools/kestrel/command/Prompt.h"

#include <unistd.h>

#include <iostream>

namespace KestrelTool
{

namespace
{

/// Commands of the command line, one after the other. Those behind each other make up one input, so
/// that what reads further lines finds them.
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

std::optional<std::string> ReadInput()
{
    std::string strLine;
    return std::getline(std::cin, strLine) ? std::optional<std::string>(strLine) : std::nullopt;
}

/// Commands from whatever the standard input is.
CInterpreter::EResult RunInput(CInterpreter& interpreter, const SDebugOptions& options)
{
    if (options.bJson || isatty(STDIN_FILENO) == 0)
    {
        return interpreter.ExecuteAll(ReadInput, true);
    }
    CPrompt prompt(interpreter);
    return interpreter.ExecuteAll([&] { return prompt.ReadLine(); }, true);
}

std::string MakeBanner(CDebugger& debugger)
{
    return "Kernel " + debugger.GetLaunch().GetFile().strKernel + " on " + debugger.GetLaunch().GetDeviceName() + ", " +
           std::to_string(debugger.GetExtent().Count()) + " work-items. run starts it, help lists the commands.\n";
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
    const CInterruptScope interrupts(debugger, interpreter, !options.bBatch);
    if (!options.bQuiet && !options.bJson)
    {
        std::cout << MakeBanner(debugger);
    }

    CInterpreter::EResult eResult = RunScripts(interpreter, options.vScripts);
    if (eResult == CInterpreter::Good && !options.bBatch)
    {
        eResult = RunInput(interpreter, options);
        // At a prompt a mistake has been seen and put right.
        eResult = isatty(STDIN_FILENO) != 0 && eResult == CInterpreter::Failed ? CInterpreter::Good : eResult;
    }
    debugger.Kill();
    if (eResult == CInterpreter::Failed)
    {
        return EXIT_COMMAND_FAILED;
    }
    if (debugger.GetFaults().HasAny())
    {
        return EXIT_FAULT;
    }
    return debugger.HasDifference() ? EXIT_OUTPUT_DIFFERS : EXIT_GOOD;
}

} // namespace KestrelTool
