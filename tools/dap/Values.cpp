#include "tools/dap/Values.h"

#include "tools/dap/Address.h"
#include "tools/dap/Fields.h"
#include "tools/dap/Formatting.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceValues.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <set>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

json MakeText(const std::string& strName, const std::string& strValue)
{
    return {{"name", strName}, {"value", strValue}, {"variablesReference", 0}};
}

/// A path that something may be put after.
std::string Enclose(const std::string& strPath)
{
    const bool bSimple =
        std::all_of(strPath.begin(), strPath.end(),
                    [](unsigned char c) { return std::isalnum(c) != 0 || std::strchr("_.[]", c) != nullptr; });
    return bSimple ? strPath : "(" + strPath + ")";
}

std::string Join(const std::string& strPath, const std::string& strRest)
{
    return strPath.empty() ? std::string() : Enclose(strPath) + strRest;
}

uint64_t AddressOf(const SSourceValue& value)
{
    uint64_t nAddress = 0;
    std::memcpy(&nAddress, value.vBytes.data(), std::min(value.vBytes.size(), sizeof(nAddress)));
    return nAddress;
}

bool IsPointerTo(const SSourceValue& value, SSourceType::ESpace eSpace)
{
    return value.pType != nullptr && value.pType->eKind == SSourceType::Pointer && value.pType->eSpace == eSpace &&
           value.IsKnown();
}

/// How many elements a pointer has before it up to the end of the buffer that it points into.
size_t CountElements(CDebugger& debugger, const SSourceValue& value)
{
    const SSourceType* const pElement = value.pType->pElement;
    if (!IsPointerTo(value, SSourceType::GlobalSpace) || pElement == nullptr || pElement->nSize == 0)
    {
        return 0;
    }
    const uint64_t nAddress = AddressOf(value);
    for (const SMemory& memory : debugger.ListMemory(SSourceType::GlobalSpace))
    {
        if (memory.nBase <= nAddress && nAddress - memory.nBase < memory.nSize)
        {
            return (memory.nSize - (nAddress - memory.nBase)) / pElement->nSize;
        }
    }
    return 0;
}

/// The indexed parts that a value has.
size_t CountParts(CDebugger& debugger, const SSourceValue& value)
{
    if (value.pType == nullptr)
    {
        return 0;
    }
    switch (value.pType->eKind)
    {
    case SSourceType::Array:
    case SSourceType::Vector:
        return value.pType->nCount;
    case SSourceType::Pointer:
        return CountElements(debugger, value);
    default:
        return 0;
    }
}

/// How the source names an element: a vector's are components.
std::string NamePart(const SSourceType& type, size_t n)
{
    return type.eKind == SSourceType::Vector ? std::string(".s") + "0123456789abcdef"[n % 16]
                                             : "[" + std::to_string(n) + "]";
}

/// \return the end of a page's indexed children
size_t FindEnd(const CValues::SPage& page, size_t nAll)
{
    const size_t nStart = std::min(page.nStart, nAll);
    return page.nCount == 0 ? nAll : nStart + std::min(page.nCount, nAll - nStart);
}

/// What each work-item is in the dispatch.
json ListPlaces(CDebugger& debugger)
{
    const SExtent& extent = debugger.GetExtent();
    const size_t nItem = debugger.GetFocus();
    const size_t place[3] = {nItem % extent.nGlobal[0], nItem / extent.nGlobal[0] % extent.nGlobal[1],
                             nItem / (extent.nGlobal[0] * extent.nGlobal[1])};
    std::vector<std::string> vLocal;
    std::vector<std::string> vGroup;
    for (unsigned int n = 0; n < extent.nDimensions; ++n)
    {
        vLocal.push_back(std::to_string(place[n] % extent.nLocal[n]));
        vGroup.push_back(std::to_string(place[n] / extent.nLocal[n]));
    }
    json list = {MakeText("global id", NameItem(extent, nItem))};
    if (extent.bLocalKnown)
    {
        list.push_back(MakeText("local id", FormatTuple(vLocal)));
        list.push_back(MakeText("group id", FormatTuple(vGroup)));
    }
    list.push_back(MakeText("number", std::to_string(nItem)));
    list.push_back(MakeText("active", debugger.GetActive().pActive[nItem] != 0 ? "yes" : "no"));
    list.push_back(MakeText("active work-items",
                            std::to_string(debugger.CountActive()) + " of " + std::to_string(extent.Count())));
    return list;
}

} // namespace

void CValues::Forget()
{
    m_nFirst = (m_nFirst + static_cast<int64_t>(m_vHandles.size())) % 0x3FFFFFFF + 1;
    m_vHandles.clear();
}

const CValues::SHandle& CValues::Find(int64_t nReference) const
{
    if (nReference < m_nFirst || nReference - m_nFirst >= static_cast<int64_t>(m_vHandles.size()))
    {
        throw CRequestError("this reference is of an earlier stop, or of none");
    }
    return m_vHandles[static_cast<size_t>(nReference - m_nFirst)];
}

int64_t CValues::Keep(SHandle handle)
{
    m_vHandles.push_back(std::move(handle));
    return m_nFirst + static_cast<int64_t>(m_vHandles.size()) - 1;
}

json CValues::ListScopes(CDebugger& debugger, size_t nFrame)
{
    struct SScope
    {
        const char* pszName;
        EKind eKind;
        const char* pszHint; ///< null for none
        bool bExpensive;
    };
    static const SScope s_Scopes[] = {{"Locals", Locals, "locals", false},
                                      {"Arguments", Arguments, "arguments", false},
                                      {"Work-item", Item, nullptr, false},
                                      {"Registers", Registers, "registers", true},
                                      {"Local memory", LocalMemory, nullptr, true}};
    json list = json::array();
    for (const SScope& scope : s_Scopes)
    {
        if (scope.eKind == Locals && !debugger.HasSource())
        {
            continue;
        }
        SHandle handle;
        handle.eKind = scope.eKind;
        handle.nFrame = nFrame;
        json object = {
            {"name", scope.pszName}, {"variablesReference", Keep(std::move(handle))}, {"expensive", scope.bExpensive}};
        if (scope.pszHint != nullptr)
        {
            object["presentationHint"] = scope.pszHint;
        }
        list.push_back(std::move(object));
    }
    return {{"scopes", list}};
}

json CValues::List(CDebugger& debugger, int64_t nReference, const SPage& page)
{
    const SHandle handle = Find(nReference);
    debugger.SelectFrame(handle.nFrame);
    switch (handle.eKind)
    {
    case Locals:
        return ListVariables(debugger, false, page.eFormat);
    case Arguments:
        return debugger.HasSource() && !debugger.IsAtEntry() ? ListVariables(debugger, true, page.eFormat)
                                                             : ListArguments(debugger);
    case Item:
        return ListPlaces(debugger);
    case Registers:
        return ListRegisters(debugger, page.eFormat);
    case LocalMemory:
        return ListLocalMemory(debugger);
    case AllItems:
        return page.bIndexed ? ListAllItems(debugger, handle, page) : json::array();
    case Elements:
        return page.bIndexed ? ListElements(debugger, handle, page) : json::array();
    default:
        return ListParts(debugger, handle, page);
    }
}

/// A variable with a value, whose children are its parts and the values of all work-items.
json CValues::MakeVariable(CDebugger& debugger, const std::string& strName, SHandle handle, EFormat eFormat)
{
    const std::string strValue =
        FormatValue(handle.value, eFormat, [&](uint64_t nAddress) { return debugger.NameAddress(nAddress); });
    json variable = {{"name", strName}, {"value", strValue}, {"type", handle.value.pType->strName}};
    if (!handle.strPath.empty())
    {
        variable["evaluateName"] = handle.strPath;
    }
    if (handle.value.pType->eKind == SSourceType::Pointer && handle.value.IsKnown())
    {
        variable["memoryReference"] = MakeMemoryReference(handle.value.pType->eSpace, AddressOf(handle.value));
    }
    handle.eKind = Value;
    handle.nCount = CountParts(debugger, handle.value);
    if (handle.nCount != 0)
    {
        variable["indexedVariables"] = handle.nCount;
    }
    const size_t nNamed = handle.value.pType->vMembers.size() + (handle.strPath.empty() ? 0 : 1);
    if (nNamed != 0)
    {
        variable["namedVariables"] = nNamed;
    }
    variable["variablesReference"] = handle.nCount + nNamed != 0 ? Keep(std::move(handle)) : 0;
    return variable;
}

/// Of the selected function; what an inner scope hides can't be named.
json CValues::ListVariables(CDebugger& debugger, bool bParameters, EFormat eFormat)
{
    CSourceValues values(debugger);
    std::set<std::string> names;
    json list = json::array();
    for (const SSourceVariable& variable : values.List())
    {
        const bool bFirst = names.insert(variable.strName).second;
        const bool bHere = variable.nFrame != SSourceVariable::NoFrame || !bParameters;
        if (!bHere || variable.bParameter != bParameters)
        {
            continue;
        }
        SHandle handle;
        handle.nFrame = debugger.GetFrame();
        handle.strPath = bFirst ? variable.strName : "";
        handle.pKept = debugger.KeepTypes();
        try
        {
            handle.value = values.Read(variable, debugger.GetFocus());
            list.push_back(MakeVariable(debugger, variable.strName, std::move(handle), eFormat));
        }
        catch (const CCommandError& error)
        {
            list.push_back(MakeText(variable.strName, error.what()));
        }
    }
    return list;
}

json CValues::MakeElements(const SElements& elements)
{
    SHandle handle;
    handle.eKind = Elements;
    handle.strPath = elements.strName;
    handle.nCount = elements.nCount;
    return {{"name", elements.strName},
            {"value", std::string(elements.pType->pszName) + "[" + std::to_string(elements.nCount) + "]"},
            {"evaluateName", elements.strName},
            {"indexedVariables", elements.nCount},
            {"variablesReference", elements.nCount != 0 ? Keep(std::move(handle)) : 0}};
}

/// A kernel's arguments as the launch gives them.
json CValues::ListArguments(CDebugger& debugger)
{
    json list = json::array();
    for (const SKernelArgument& argument : debugger.GetArguments())
    {
        const std::optional<SElements> elements = debugger.FindElements(argument.strName);
        if (!elements)
        {
            list.push_back(MakeText(argument.strName, argument.strKind));
        }
        else if (elements->bAlone)
        {
            const std::vector<unsigned char> vBytes = debugger.ReadElements(*elements, 0, 0, elements->GetBytes());
            list.push_back(MakeText(argument.strName, FormatElement(*elements->pType, vBytes.data())));
            list.back()["type"] = elements->pType->pszName;
        }
        else
        {
            list.push_back(MakeElements(*elements));
        }
    }
    return list;
}

json CValues::ListRegisters(CDebugger& debugger, EFormat eFormat)
{
    std::vector<std::string> vNames = debugger.GetActiveRegisters();
    std::sort(vNames.begin(), vNames.end(),
              [](const std::string& strLeft, const std::string& strRight)
              { return std::make_pair(strLeft.size(), strLeft) < std::make_pair(strRight.size(), strRight); });
    json list = json::array();
    for (const std::string& strName : vNames)
    {
        if (strName.compare(0, 3, "mem") == 0)
        {
            continue; // stands for stores to memory, and has no values of its own
        }
        // A variable of the source goes before a register of its name.
        const std::string& strPath = strName;
        CExpression expression(strPath, &debugger);
        expression.Bind(debugger);
        SHandle handle;
        handle.eKind = Value;
        handle.nFrame = debugger.GetFrame();
        handle.strPath = strPath;
        list.push_back({{"name", strName},
                        {"value", FormatFor(debugger, expression, debugger.GetFocus(), eFormat)},
                        {"evaluateName", strPath},
                        {"namedVariables", 1},
                        {"variablesReference", Keep(std::move(handle))}});
    }
    return list;
}

/// Of the group of the work-item in focus.
json CValues::ListLocalMemory(CDebugger& debugger)
{
    json list = json::array();
    for (const SKernelArgument& argument : debugger.GetArguments())
    {
        const std::optional<SElements> elements =
            argument.IsLocal() ? debugger.FindElements(argument.strName) : std::nullopt;
        if (elements)
        {
            list.push_back(MakeElements(*elements));
        }
    }
    const unsigned int nMostBlocks = 16;
    for (unsigned int n = 0; n < nMostBlocks; ++n)
    {
        const std::optional<SElements> elements = debugger.FindElements("local" + std::to_string(n));
        if (elements && elements->nCount != 0)
        {
            list.push_back(MakeElements(*elements));
        }
    }
    return list;
}

void CValues::AddMembers(CDebugger& debugger, const SHandle& handle, const SPage& page, json& list)
{
    if (handle.value.pType != nullptr)
    {
        for (const SSourceType::SMember& member : handle.value.pType->vMembers)
        {
            SHandle part;
            part.nFrame = handle.nFrame;
            part.pKept = handle.pKept;
            part.strPath = Join(handle.strPath, "." + member.strName);
            part.value = PartOf(handle.value, member.nOffset, *member.pType);
            list.push_back(MakeVariable(debugger, member.strName, std::move(part), page.eFormat));
        }
    }
    if (!handle.strPath.empty())
    {
        SHandle all;
        all.eKind = AllItems;
        all.nFrame = handle.nFrame;
        all.strPath = handle.strPath;
        all.nCount = debugger.GetExtent().Count();
        const size_t nItems = all.nCount;
        list.push_back({{"name", "all work-items"},
                        {"value", std::to_string(nItems) + " values"},
                        {"indexedVariables", nItems},
                        {"presentationHint", {{"kind", "virtual"}}},
                        {"variablesReference", Keep(std::move(all))}});
    }
}

json CValues::ListParts(CDebugger& debugger, const SHandle& handle, const SPage& page)
{
    json list = json::array();
    if (page.bNamed)
    {
        AddMembers(debugger, handle, page, list);
    }
    if (!page.bIndexed || handle.nCount == 0)
    {
        return list;
    }
    if (handle.value.pType->eKind == SSourceType::Pointer)
    {
        const json elements = ListElements(debugger, handle, page);
        list.insert(list.end(), elements.begin(), elements.end());
        return list;
    }
    const SSourceType& element = *handle.value.pType->pElement;
    for (size_t n = page.nStart; n < FindEnd(page, handle.nCount); ++n)
    {
        SHandle part;
        part.nFrame = handle.nFrame;
        part.pKept = handle.pKept;
        part.strPath = Join(handle.strPath, NamePart(*handle.value.pType, n));
        part.value = PartOf(handle.value, n * element.nSize, element);
        list.push_back(MakeVariable(debugger, "[" + std::to_string(n) + "]", std::move(part), page.eFormat));
    }
    return list;
}

json CValues::ListAllItems(CDebugger& debugger, const SHandle& handle, const SPage& page)
{
    CExpression expression(handle.strPath, &debugger);
    expression.Bind(debugger);
    const SMaskView mask = debugger.GetActive();
    json list = json::array();
    for (size_t n = page.nStart; n < FindEnd(page, handle.nCount); ++n)
    {
        std::string strValue;
        try
        {
            strValue = FormatFor(debugger, expression, n, page.eFormat);
        }
        catch (const CCommandError& error)
        {
            strValue = error.what();
        }
        list.push_back(
            MakeText("[" + std::to_string(n) + "]", strValue + (mask.pActive[n] != 0 ? "" : " (not active)")));
        if (debugger.GetExtent().nDimensions > 1)
        {
            list.back()["type"] = NameItem(debugger.GetExtent(), n);
        }
    }
    return list;
}

json CValues::ListElements(CDebugger& debugger, const SHandle& handle, const SPage& page)
{
    json list = json::array();
    for (size_t n = page.nStart; n < FindEnd(page, handle.nCount); ++n)
    {
        const std::string strPath = Join(handle.strPath, "[" + std::to_string(n) + "]");
        CExpression expression(strPath, &debugger);
        expression.Bind(debugger);
        json element =
            MakeText("[" + std::to_string(n) + "]", FormatFor(debugger, expression, debugger.GetFocus(), page.eFormat));
        element["evaluateName"] = strPath;
        list.push_back(std::move(element));
    }
    return list;
}

json CValues::Evaluate(CDebugger& debugger, size_t nFrame, const std::string& strText, EFormat eFormat)
{
    debugger.SelectFrame(nFrame);
    const auto pExpression = std::make_shared<CExpression>(strText, &debugger);
    pExpression->Bind(debugger);
    SHandle handle;
    handle.eKind = Value;
    handle.nFrame = nFrame;
    handle.strPath = strText;
    handle.pKept = pExpression;
    if (!pExpression->IsOperand())
    {
        handle.value = pExpression->Read(debugger.GetFocus());
    }
    if (handle.value.pType == nullptr || pExpression->GetType() == nullptr)
    {
        const std::string strValue = FormatFor(debugger, *pExpression, debugger.GetFocus(), eFormat);
        handle.value = SSourceValue();
        return {{"result", strValue}, {"namedVariables", 1}, {"variablesReference", Keep(std::move(handle))}};
    }
    json body = MakeVariable(debugger, strText, std::move(handle), eFormat);
    body["result"] = body["value"];
    for (const char* pszField : {"name", "value", "evaluateName"})
    {
        body.erase(pszField);
    }
    return body;
}

std::string CValues::NamePath(CDebugger& debugger, int64_t nReference, const std::string& strName)
{
    const SHandle handle = Find(nReference);
    const bool bElement = handle.eKind == Elements || handle.eKind == Value;
    if (handle.eKind == AllItems || handle.eKind == Item || handle.eKind == Registers ||
        (bElement && handle.strPath.empty()))
    {
        throw CRequestError(strName + " isn't in memory");
    }
    debugger.SelectFrame(handle.nFrame);
    return bElement ? Join(handle.strPath, strName.compare(0, 1, "[") == 0 ? strName : "." + strName) : strName;
}

} // namespace KestrelTool
