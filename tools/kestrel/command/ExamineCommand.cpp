// The command x: memory as the kernel sees it at the stop.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Format.h"
#include "tools/session/launch/ElementType.h"
#include "tools/source/CTypes.h"

#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const size_t s_nMaxBytes = 1 << 20;
const uint64_t s_nFarAway = uint64_t(1) << 48; ///< beyond every buffer

/// The format of "/8xw": count, number format, size.
struct SShape
{
    size_t nCount = 1;
    char cFormat = 'd';
    size_t nSize = 4;
};

SShape ReadShape(const std::string& strText, SShape shape)
{
    size_t n = 0;
    if (n < strText.size() && std::isdigit(static_cast<unsigned char>(strText[n])))
    {
        shape.nCount = 0;
        while (n < strText.size() && std::isdigit(static_cast<unsigned char>(strText[n])))
        {
            shape.nCount = std::min(shape.nCount * 10 + (strText[n++] - '0'), s_nMaxBytes);
        }
    }
    for (; n < strText.size(); ++n)
    {
        const char c = strText[n];
        const size_t nSize = std::string("b?h?w???g").find(c);
        if (std::strchr("dufxis", c) != nullptr)
        {
            shape.cFormat = c;
        }
        else if (std::strchr("bhwg", c) != nullptr && nSize != std::string::npos)
        {
            shape.nSize = c == 'b' ? 1 : c == 'h' ? 2 : c == 'w' ? 4 : 8;
        }
        else
        {
            throw CCommandError("x: after the slash come a count, d, u, x, f, i or s, and b, h, w or g");
        }
    }
    if (shape.nCount == 0 || shape.nCount * shape.nSize > s_nMaxBytes)
    {
        throw CCommandError("x shows 1 byte to 1 MiB at once");
    }
    return shape;
}

std::string FormatValue(const SShape& shape, const unsigned char* pBytes)
{
    if (shape.cFormat == 'x')
    {
        uint64_t nValue = 0;
        std::memcpy(&nValue, pBytes, shape.nSize);
        return FormatHex(nValue);
    }
    if (shape.cFormat == 'f' && shape.nSize < 4)
    {
        throw CCommandError("x: a float has four bytes (w) or eight (g)");
    }
    static const char* const s_Sizes[] = {"", "8", "16", "", "32", "", "", "", "64"};
    const char* pszKind = shape.cFormat == 'f' ? "f" : shape.cFormat == 'u' ? "u" : "i";
    const SElementType* pType = FindElementType(pszKind + std::string(s_Sizes[shape.nSize]));
    return FormatElement(*pType, pBytes);
}

/// A place in memory.
struct SPlace
{
    bool bPrivate = false;
    bool bLocal = false; ///< in the group of the focused work-item, or in nGroup
    size_t nGroup = 0;
    std::string strLocal; ///< its name
    unsigned int nResource = 0;
    uint64_t nAddress = 0;
    std::optional<size_t> argument; ///< the address is relative to this argument's buffer
};

/// A number, or a register of the focused work-item; a register pair is a 64-bit address.
uint64_t ReadAddress(CDebugger& debugger, const std::string& strText)
{
    if (!strText.empty() && std::isdigit(static_cast<unsigned char>(strText[0])))
    {
        return ReadNumber(strText);
    }
    const SOperand operand = ReadOperand(strText);
    const SRegisterView view = debugger.GetValues(operand.strRegister);
    const unsigned int* pWords = view[debugger.GetFocus()];
    const uint64_t nLow = pWords[operand.vComponents[0]];
    return operand.vComponents.size() == 2 ? uint64_t(pWords[operand.vComponents[1]]) << 32 | nLow : nLow;
}

size_t FindArgument(CDebugger& debugger, const std::string& strName)
{
    const std::vector<SKernelArgument>& vArguments = debugger.GetArguments();
    for (size_t i = 0; i < vArguments.size(); ++i)
    {
        const bool bShown = vArguments[i].IsGlobal() || vArguments[i].IsLocal() || vArguments[i].strKind == "value";
        if (bShown && (vArguments[i].strName == strName || "arg" + std::to_string(i) == strName))
        {
            return i;
        }
    }
    throw CCommandError("\"" + strName +
                        "\" is no place in memory; there are an argument's name, argN, uavN:ADDRESS, "
                        "localN:ADDRESS and private:ADDRESS");
}

/// "3]" or "r0.x + 1]": an expression of the focused work-item.
uint64_t ReadIndex(CDebugger& debugger, const std::string& strText)
{
    const size_t nEnd = strText.rfind(']');
    if (nEnd == std::string::npos || nEnd + 1 != strText.size())
    {
        throw CCommandError("an element's number stands between [ and ]");
    }
    CExpression index(strText.substr(0, nEnd), &debugger);
    index.SetFloat(false);
    index.Bind(debugger);
    int64_t nIndex = 0;
    index.Evaluate(debugger.GetFocus(), 1, &nIndex);
    index.RequireValue(0);
    if (nIndex < 0)
    {
        throw CCommandError("there is no element " + std::to_string(nIndex));
    }
    return static_cast<uint64_t>(nIndex);
}

size_t GetElementSize(CDebugger& debugger, size_t nArgument)
{
    const SElementType* pType = debugger.GetGiven(nArgument).pType;
    pType = pType != nullptr ? pType : FindElementType(debugger.GetArguments()[nArgument].strType);
    return pType != nullptr ? pType->nSize : 4;
}

/// The number of the first local memory block that the kernel's text declares.
unsigned int FindFirstBlock(CDebugger& debugger)
{
    const std::string strStart = "dcl_lds_id(";
    for (unsigned int nLine = 0; nLine < debugger.GetListing().GetLineCount(); ++nLine)
    {
        const std::string& strLine = debugger.GetListing().GetLine(nLine);
        if (strLine.compare(0, strStart.size(), strStart) == 0)
        {
            return static_cast<unsigned int>(std::strtoul(strLine.c_str() + strStart.size(), nullptr, 10));
        }
    }
    throw CCommandError("the kernel declares no local memory");
}

/// Parses "local:0", "local1:0x10" or "local1@3:0": the declared block of this number (without one, the first block),
/// in the group of the focused work-item or in the one after the @.
SPlace ReadLocalPlace(CDebugger& debugger, const std::string& strSpace, const std::string& strAddress)
{
    SPlace place;
    const size_t nAt = std::min(strSpace.find('@'), strSpace.size());
    const std::string strBlock = strSpace.substr(5, nAt - 5);
    const size_t nGroups = debugger.GetExtent().GroupOf(debugger.GetExtent().Count() - 1) + 1;
    place.bLocal = true;
    place.nGroup = nAt == strSpace.size() ? debugger.GetExtent().GroupOf(debugger.GetFocus())
                                          : ReadNumber(strSpace.substr(nAt + 1));
    if (place.nGroup >= nGroups)
    {
        throw CCommandError("the dispatch has groups 0 to " + std::to_string(nGroups - 1));
    }
    place.nResource =
        OVKCLDEBUG_EXT_LOCAL_BLOCK(strBlock.empty() ? FindFirstBlock(debugger) : ReadShortNumber(strBlock) & 0xFFFF);
    place.strLocal = strSpace;
    place.nAddress = ReadAddress(debugger, strAddress);
    return place;
}

/// The place of an array, or the one that a source pointer points to.
std::optional<SPlace> FindPointed(CDebugger& debugger, const std::string& strText, std::optional<SShape>& shape)
{
    std::optional<CExpression> expression(std::in_place, strText, &debugger);
    if (expression->GetType() != nullptr && expression->GetType()->eKind == SSourceType::Array)
    {
        expression.emplace("&(" + strText + ")[0]", &debugger);
    }
    if (expression->GetType() == nullptr || expression->GetType()->eKind != SSourceType::Pointer)
    {
        return std::nullopt;
    }
    expression->Bind(debugger);
    int64_t nAddress = 0;
    expression->Evaluate(debugger.GetFocus(), 1, &nAddress);
    expression->RequireValue(0);
    const SSourceType& element = *expression->GetType()->pElement;
    if (IsArithmetic(element) && (!IsFloating(element) || element.nSize != 2))
    {
        const bool bUnsigned = element.eKind == SSourceType::Unsigned;
        shape = SShape{1, IsFloating(element) ? 'f' : bUnsigned ? 'u' : 'd', element.nSize};
    }
    SPlace place;
    place.nAddress = static_cast<uint64_t>(nAddress);
    place.bPrivate = expression->GetType()->eSpace == SSourceType::PrivateSpace;
    for (const SMemory& memory : debugger.ListMemory(expression->GetType()->eSpace))
    {
        if (place.bPrivate || place.nAddress < memory.nBase || place.nAddress - memory.nBase >= memory.nSize)
        {
            continue;
        }
        place.nAddress -= memory.nBase;
        if (memory.nPlace < debugger.GetArguments().size())
        {
            place.argument = memory.nPlace;
            return place;
        }
        place.bLocal = true;
        place.nGroup = debugger.GetExtent().GroupOf(debugger.GetFocus());
        place.nResource = debugger.FindDeclaredLocal();
        place.strLocal = "local";
        return place;
    }
    if (!place.bPrivate)
    {
        throw CCommandError("nothing of the kernel's lies at " + debugger.NameAddress(place.nAddress));
    }
    return place;
}

/// Whether a text can only be a memory place, since it doesn't begin with a variable of the source.
bool IsBarePlace(CDebugger& debugger, const std::string& strText)
{
    const size_t nStart = std::min(strText.find_first_not_of("&*( "), strText.size());
    size_t nEnd = nStart;
    while (nEnd < strText.size() &&
           (std::isalnum(static_cast<unsigned char>(strText[nEnd])) != 0 || strText[nEnd] == '_'))
    {
        ++nEnd;
    }
    const bool bCast = strText[0] == '(' || strText[0] == '*';
    return strText.find(':') != std::string::npos ||
           (!bCast && !debugger.FindVariable(strText.substr(nStart, nEnd - nStart), true));
}

/// "x/3i": lists instructions of the kernel.
json ListInstructions(CDebugger& debugger, const std::string& strText, size_t nCount)
{
    const CListing& listing = debugger.GetListing();
    unsigned int nLine = strText.empty() ? debugger.GetLine() : *ReadPlace(debugger, strText).begin();
    json lines = json::array();
    for (; nLine != CListing::NoLine && lines.size() < nCount; nLine = listing.GetNextInstruction(nLine))
    {
        json line = {{"line", nLine}, {"text", listing.GetLine(nLine)}, {"here", nLine == debugger.GetLine()}};
        if (!listing.GetPlace(nLine).empty())
        {
            line["source"] = listing.GetPlace(nLine);
        }
        lines.push_back(line);
    }
    return {{"view", "lines"}, {"lines", lines}};
}

SPlace ReadMemoryPlace(CDebugger& debugger, const std::string& strText)
{
    SPlace place;
    const size_t nColon = strText.find(':');
    if (nColon != std::string::npos)
    {
        const std::string strSpace = strText.substr(0, nColon);
        if (strSpace.compare(0, 5, "local") == 0)
        {
            return ReadLocalPlace(debugger, strSpace, strText.substr(nColon + 1));
        }
        place.nAddress = ReadAddress(debugger, strText.substr(nColon + 1));
        place.bPrivate = strSpace == "private";
        if (!place.bPrivate && strSpace.compare(0, 3, "uav") != 0)
        {
            throw CCommandError("\"" + strSpace + "\" is no memory; there are uavN, localN and private");
        }
        place.nResource = place.bPrivate ? 0 : ReadShortNumber(strSpace.substr(3));
        return place;
    }
    const size_t nName = strText[0] == '&' ? 1 : 0;
    const size_t nNameEnd = std::min(strText.find_first_of("[+", nName), strText.size());
    place.argument = FindArgument(debugger, strText.substr(nName, nNameEnd - nName));
    if (nNameEnd == strText.size())
    {
        return place;
    }
    if (strText[nNameEnd] == '[')
    {
        const uint64_t nElement = ReadIndex(debugger, strText.substr(nNameEnd + 1));
        place.nAddress = std::min<uint64_t>(nElement, s_nFarAway) * GetElementSize(debugger, *place.argument);
    }
    else
    {
        place.nAddress = ReadNumber(strText.substr(nNameEnd + 1));
    }
    return place;
}

SShape GetShapeOf(CDebugger& debugger, const SPlace& place)
{
    SShape shape;
    const SElementType* pType = place.argument ? debugger.GetGiven(*place.argument).pType : nullptr;
    if (place.argument && pType == nullptr)
    {
        pType = FindElementType(debugger.GetArguments()[*place.argument].strType);
    }
    if (pType != nullptr)
    {
        shape.nSize = pType->nSize;
        shape.cFormat = pType->eKind == SElementType::Float ? 'f' : pType->eKind == SElementType::Unsigned ? 'u' : 'd';
    }
    return shape;
}

std::vector<unsigned char> ReadMemory(CDebugger& debugger, const SPlace& place, size_t nBytes)
{
    if (place.bLocal)
    {
        return debugger.ReadLocal(place.nResource, place.nGroup, place.nAddress, nBytes);
    }
    if (place.argument && debugger.GetArguments()[*place.argument].IsLocal())
    {
        return debugger.ReadLocal(OVKCLDEBUG_EXT_LOCAL_ARGUMENT(*place.argument),
                                  debugger.GetExtent().GroupOf(debugger.GetFocus()), place.nAddress, nBytes);
    }
    if (place.argument)
    {
        return debugger.ReadBuffer(*place.argument, place.nAddress, nBytes);
    }
    if (debugger.IsAtEntry())
    {
        throw CCommandError("in front of the first instruction only buffers can be shown, by their names");
    }
    if (!place.bPrivate)
    {
        return debugger.GetSession().GetGlobalMemory(place.nResource, place.nAddress, nBytes);
    }
    return debugger.ReadPrivate(debugger.GetFocus(), place.nAddress, nBytes);
}

std::string NamePlace(CDebugger& debugger, const SPlace& place, uint64_t nAddress)
{
    if (place.bPrivate || place.bLocal)
    {
        return (place.bLocal ? place.strLocal + "+" : "") + FormatHex(nAddress);
    }
    if (!place.argument)
    {
        return debugger.NameAddress(nAddress);
    }
    const std::string& strName = debugger.GetArguments()[*place.argument].strName;
    const size_t nElement = GetElementSize(debugger, *place.argument);
    return nAddress % nElement == 0 ? strName + "[" + std::to_string(nAddress / nElement) + "]"
                                    : strName + "+" + std::to_string(nAddress);
}

/// "x/s": reads characters up to a zero.
std::string ReadString(CDebugger& debugger, SPlace& place)
{
    const size_t nMost = 200;
    std::string strText;
    for (; strText.size() < nMost; ++place.nAddress)
    {
        const std::vector<unsigned char> vByte = ReadMemory(debugger, place, 1);
        if (vByte.empty() || vByte[0] == 0)
        {
            break;
        }
        strText += static_cast<char>(vByte[0]);
    }
    ++place.nAddress;
    return "\"" + strText + (strText.size() == nMost ? "\"..." : "\"");
}

} // namespace

json DoExamine(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    const SShape asked = ReadShape(context.GetFormat(), SShape());
    if (asked.cFormat == 'i')
    {
        return ListInstructions(debugger, context.GetArguments(), asked.nCount);
    }
    std::optional<SShape> natural;
    const std::string& strText = context.GetText("a place in memory");
    std::optional<SPlace> pointed =
        IsBarePlace(debugger, strText) ? std::nullopt : FindPointed(debugger, strText, natural);
    SPlace place = pointed ? *pointed : ReadMemoryPlace(debugger, strText);
    const SShape shape = ReadShape(context.GetFormat(), natural ? *natural : GetShapeOf(debugger, place));
    if (shape.cFormat == 's')
    {
        json rows = json::array();
        for (size_t n = 0; n < shape.nCount; ++n)
        {
            const std::string strPlace = NamePlace(debugger, place, place.nAddress);
            rows.push_back({{"place", strPlace}, {"values", {ReadString(debugger, place)}}});
        }
        return {{"view", "examine"}, {"rows", rows}, {"short", false}};
    }
    const std::vector<unsigned char> vBytes = ReadMemory(debugger, place, shape.nCount * shape.nSize);
    if (vBytes.size() < shape.nSize)
    {
        throw CCommandError("no buffer of the kernel's holds " + context.GetArguments());
    }
    const size_t nPerRow = shape.nSize == 1 ? 8 : shape.nSize == 8 ? 2 : 4;
    json rows = json::array();
    for (size_t n = 0; n + shape.nSize <= vBytes.size(); n += shape.nSize)
    {
        if (n / shape.nSize % nPerRow == 0)
        {
            rows.push_back({{"place", NamePlace(debugger, place, place.nAddress + n)}, {"values", json::array()}});
        }
        rows.back()["values"].push_back(FormatValue(shape, &vBytes[n]));
    }
    const uint64_t nNext = place.nAddress + vBytes.size();
    const std::string strPlace = place.bLocal     ? place.strLocal + ":" + FormatHex(nNext)
                                 : place.bPrivate ? "private:" + FormatHex(nNext)
                                                  : "uav" + std::to_string(place.nResource) + ":" + FormatHex(nNext);
    context.GetInterpreter().SetRepeat(
        "x/" + std::to_string(shape.nCount) + shape.cFormat +
        (shape.nSize == 1   ? "b"
         : shape.nSize == 2 ? "h"
         : shape.nSize == 4 ? "w"
                            : "g") +
        " " + (place.argument ? "arg" + std::to_string(*place.argument) + "+" + std::to_string(nNext) : strPlace));
    return {{"view", "examine"}, {"rows", rows}, {"short", vBytes.size() < shape.nCount * shape.nSize}};
}

} // namespace KestrelTool
