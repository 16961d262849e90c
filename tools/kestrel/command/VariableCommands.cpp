// Commands about variables of the source.

#include "tools/kestrel/command/Commands.h"
#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/SourceValues.h"

#include <set>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// The variables of the selected function.
json ListVariables(CCommandContext& context, bool bParameters)
{
    context.AllowNone();
    CDebugger& debugger = context.GetDebugger();
    CSourceValues values(debugger);
    std::set<std::string> setShown;
    json list = json::array();
    for (const SSourceVariable& variable : values.List())
    {
        if (variable.nFrame != SSourceVariable::NoFrame && variable.bParameter == bParameters &&
            setShown.insert(variable.strName).second)
        {
            const SSourceValue value = values.Read(variable, debugger.GetFocus());
            list.push_back({{"name", variable.strName},
                            {"type", variable.pType->strName},
                            {"value", values.Format(value, debugger.GetSettings().eFormat)}});
        }
    }
    return {{"view", "variables"}, {"item", debugger.GetFocus()}, {"variables", list}};
}

json ShowType(CCommandContext& context, bool bMembers)
{
    CSourceValues values(context.GetDebugger());
    const std::string strPath = context.GetText("a variable");
    const std::optional<SSourceValue> value = values.ReadPath(strPath);
    if (!value)
    {
        throw CCommandError("there is no variable \"" + strPath + "\" here");
    }
    std::string strText = value->pType->strName;
    if (bMembers && value->pType->eKind == SSourceType::Struct)
    {
        strText += " {\n";
        for (const SSourceType::SMember& member : value->pType->vMembers)
        {
            strText += "    " + member.pType->strName + " " + member.strName + "; // at byte " +
                       std::to_string(member.nOffset) + "\n";
        }
        strText += "}";
    }
    return {{"view", "text"}, {"text", strText}};
}

} // namespace

json DoInfoLocals(CCommandContext& context)
{
    return ListVariables(context, false);
}

json DoInfoArgs(CCommandContext& context)
{
    return ListVariables(context, true);
}

json DoPrintType(CCommandContext& context)
{
    return ShowType(context, true);
}

json DoWhatIs(CCommandContext& context)
{
    return ShowType(context, false);
}

} // namespace KestrelTool
