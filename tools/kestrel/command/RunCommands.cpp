// Commands that launch and continue the kernel.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/LineStepper.h"
#include "tools/session/program/ProgramSession.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// "-focus 3": how often, and whether only steps of the focused work-item count.
struct SSteps
{
    size_t nTimes = 1;
    bool bFocus = false;
};

SSteps ReadSteps(const CCommandContext& context)
{
    SSteps steps;
    std::vector<std::string> vWords = context.GetWords();
    const std::string strFocus = "-focus";
    if (!vWords.empty() && vWords.front().size() > 1 && strFocus.compare(0, vWords.front().size(), vWords.front()) == 0)
    {
        steps.bFocus = true;
        vWords.erase(vWords.begin());
    }
    if (vWords.size() > 1)
    {
        throw CCommandError("it takes -focus and a number, or one of them");
    }
    steps.nTimes = vWords.empty() ? 1 : ReadNumber(vWords.front());
    if (steps.nTimes == 0)
    {
        throw CCommandError("how many times? At least 1");
    }
    return steps;
}

} // namespace

json DoRun(CCommandContext& context)
{
    context.AllowNone();
    CProgramSession* const pProgram = context.GetInterpreter().GetProgram();
    if (pProgram != nullptr && pProgram->GetDebugger() == nullptr)
    {
        pProgram->Run();
        return nullptr;
    }
    context.GetDebugger().Run();
    return nullptr;
}

json DoStart(CCommandContext& context)
{
    context.AllowNone();
    CProgramSession* const pProgram = context.GetInterpreter().GetProgram();
    if (pProgram != nullptr && pProgram->GetDebugger() == nullptr)
    {
        SLaunchPlace first;
        first.eKind = SLaunchPlace::Launch;
        pProgram->AddBreakpoint(first, true);
        pProgram->Run();
        return nullptr;
    }
    context.GetDebugger().Start();
    return nullptr;
}

json DoContinue(CCommandContext& context)
{
    if (CProgramSession* const pProgram = context.GetInterpreter().GetProgram())
    {
        pProgram->Continue(context.GetCount(1));
    }
    else
    {
        context.GetDebugger().Continue(context.GetCount(1));
    }
    context.GetInterpreter().SetRepeat("continue");
    return nullptr;
}

json DoStep(CCommandContext& context)
{
    const SSteps steps = ReadSteps(context);
    CLineStepper(context.GetDebugger()).Step(steps.nTimes, steps.bFocus);
    return nullptr;
}

json DoStepInstruction(CCommandContext& context)
{
    context.GetDebugger().Step(context.GetCount(1));
    return nullptr;
}

json DoNext(CCommandContext& context)
{
    const SSteps steps = ReadSteps(context);
    CLineStepper(context.GetDebugger()).Next(steps.nTimes, steps.bFocus);
    return nullptr;
}

json DoNextInstruction(CCommandContext& context)
{
    context.GetDebugger().Next(context.GetCount(1));
    return nullptr;
}

json DoFinish(CCommandContext& context)
{
    context.AllowNone();
    CLineStepper(context.GetDebugger()).Finish();
    return nullptr;
}

json DoUntil(CCommandContext& context)
{
    if (!context.GetArguments().empty())
    {
        return DoAdvance(context);
    }
    CLineStepper(context.GetDebugger()).Until();
    return nullptr;
}

json DoAdvance(CCommandContext& context)
{
    context.GetDebugger().RequireLive();
    context.GetDebugger().Advance(ReadPlace(context.GetDebugger(), context.GetText("a place")));
    return nullptr;
}

json DoReverseStep(CCommandContext& context)
{
    CLineStepper(context.GetDebugger()).StepBack(context.GetCount(1));
    return nullptr;
}

json DoReverseStepInstruction(CCommandContext& context)
{
    context.GetDebugger().StepBack(context.GetCount(1));
    return nullptr;
}

json DoReverseNext(CCommandContext& context)
{
    CLineStepper(context.GetDebugger()).NextBack(context.GetCount(1));
    return nullptr;
}

json DoReverseNextInstruction(CCommandContext& context)
{
    context.GetDebugger().NextBack(context.GetCount(1));
    return nullptr;
}

json DoReverseContinue(CCommandContext& context)
{
    context.GetDebugger().ContinueBack(context.GetCount(1));
    return nullptr;
}

json DoGoTo(CCommandContext& context)
{
    const size_t nStop = ReadNumber(context.GetWord("a stop's number, as info stops has it"));
    if (nStop == 0)
    {
        throw CCommandError("stops are counted from 1");
    }
    context.GetDebugger().GoTo(nStop - 1);
    return nullptr;
}

json DoKill(CCommandContext& context)
{
    context.AllowNone();
    if (CProgramSession* const pProgram = context.GetInterpreter().GetProgram())
    {
        pProgram->Kill();
        return {{"view", "text"}, {"text", "the program has been ended"}};
    }
    context.GetDebugger().RequireLive();
    context.GetDebugger().Kill();
    return {{"view", "text"}, {"text", "the session has ended"}};
}

} // namespace KestrelTool
