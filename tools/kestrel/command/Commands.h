#ifndef KESTREL_TOOLS_COMMAND_COMMANDS_H
#define KESTREL_TOOLS_COMMAND_COMMANDS_H

#include "tools/kestrel/command/Interpreter.h"

namespace KestrelTool
{

/// The context of a command's function. Functions give a structured answer, or null, and throw CCommandError.
class CCommandContext
{
public:
    CCommandContext(CInterpreter& interpreter, const SCommandLine& line) : m_Interpreter(interpreter), m_Line(line) {}

    CInterpreter& GetInterpreter() { return m_Interpreter; }
    CDebugger& GetDebugger() { return m_Interpreter.GetDebugger(); }
    const std::string& GetArguments() const { return m_Line.strArguments; }
    const std::string& GetFormat() const { return m_Line.strFormat; }
    std::vector<std::string> GetWords() const;
    /// The only argument as a number; nDefault if there is none.
    /// \throws CCommandError for anything else
    size_t GetCount(size_t nDefault) const;
    /// The only argument.
    std::string GetWord(const char* pszWhat) const;
    /// The text after the command; must not be empty.
    const std::string& GetText(const char* pszWhat) const;
    /// Removes "a" from the format letters. \return whether it was there
    bool TakeAll(std::string& strFormat) const;
    void AllowNone() const;

private:
    CInterpreter& m_Interpreter;
    const SCommandLine& m_Line;
};

/// A whole number, decimal or with 0x. \throws CCommandError
uint64_t ReadNumber(const std::string& strText);
/// The same for 32 bits.
unsigned int ReadShortNumber(const std::string& strText);
/// Parses a place into lines of IL: a line, "FILE:LINE" of the source, "*LINE" of IL, a function's name, "func LABEL",
/// "entry", "+N" or "-N". A line is a source line if the kernel has one, else a line of IL. A place in a function that
/// is inlined several times gives several lines. All of them have an instruction.
std::set<unsigned int> ReadPlace(CDebugger& debugger, const std::string& strText);
/// The source line of a place; nothing for a line of IL.
std::optional<SSourceLine> ReadSourcePlace(CDebugger& debugger, const std::string& strText);
/// The answer of print and display.
nlohmann::json PrintExpression(CDebugger& debugger, const std::string& strFormat, const std::string& strExpression);
/// The columns and rows available to a picture.
size_t GetPictureWidth(const SSettings& settings);
size_t GetPictureHeight(const SSettings& settings);
/// A breakpoint as shown by info breakpoints.
nlohmann::json DescribeBreakpoint(const CDebugger* pDebugger, const SBreakpoint& breakpoint);

// clang-format off
#define KESTREL_COMMAND_FUNCTIONS(X)                                                                                   \
    X(Run)                                                                                                             \
    X(Start)                                                                                                           \
    X(Continue)                                                                                                        \
    X(Step)                                                                                                            \
    X(Next)                                                                                                            \
    X(Finish) X(Until) X(Advance) X(ReverseStep) X(ReverseNext) X(StepInstruction) X(NextInstruction) X(ReverseStepInstruction) X(ReverseNextInstruction) X(ReverseContinue) X(Kill) X(Break) X(TemporaryBreak)  \
        X(Condition) X(Ignore) X(BreakpointCommands) X(Enable) X(Disable) X(Delete) X(InfoBreakpoints) X(List)         \
            X(Disassemble) X(Print) X(Display) X(Undisplay) X(InfoDisplay) X(Examine) X(InfoRegisters) X(InfoMemory)   \
                X(InfoKernel) X(InfoDispatch) X(InfoFaults) X(Mask) X(Grid) X(Stats) X(Where) X(Diff) X(WorkItem) X(Set) X(Show)     \
        X(Help) X(Source) X(Quit) X(CatchLaunch) X(Capture) X(InfoLocals) X(InfoArgs) X(PrintType) X(WhatIs) X(FinishLaunch) X(Backtrace) X(Frame) X(Up) X(Down) X(InfoLaunches) X(InfoKernels) X(InfoPrograms) X(Who) X(Watch) X(ReadWatch) X(AccessWatch) X(StopOn) X(Define) X(Alias) X(Apropos) X(Shell) X(Pwd) X(Cd) X(SaveBreakpoints) X(InfoLine) X(InfoSource) X(InfoSymbol) X(InfoThreads) X(InfoStops) X(GoTo) X(View)
// clang-format on
#define KESTREL_DECLARE_COMMAND(name) nlohmann::json Do##name(CCommandContext& context);
KESTREL_COMMAND_FUNCTIONS(KESTREL_DECLARE_COMMAND)
#undef KESTREL_DECLARE_COMMAND

} // namespace KestrelTool

#endif
