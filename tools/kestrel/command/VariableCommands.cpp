// Commands about source variables.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/ExpressionNode.h"
#include "tools/session/debug/SourceValues.h"

#include <nlohmann/json.hpp>

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

/// The type with this name, or the type of an expression.
json ShowType(CCommandContext& context, bool bMembers)
{
    CDebugger& debugger = context.GetDebugger();
    const std::string& strText = context.GetText("an expression or a type");
    CTypeStore types;
    const SSourceType* pType = ParseTypeName(strText, &debugger, types);
    std::optional<CExpression> expression;
    if (pType == nullptr)
    {
        expression.emplace(strText, &debugger);
        pType = expression->GetType();
    }
    if (pType == nullptr)
    {
        throw CCommandError("registers have no type");
    }
    std::string strType = pType->strName;
    if (bMembers && pType->eKind == SSourceType::Struct)
    {
        strType += " {\n";
        for (const SSourceType::SMember& member : pType->vMembers)
        {
            strType += "    " + member.pType->strName + " " + member.strName + "; // at byte " +
                       std::to_string(member.nOffset) + "\n";
        }
        strType += "}";
    }
    return {{"view", "text"}, {"text", strType}};
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
