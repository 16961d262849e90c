// Subcommands of info about lines, addresses and work-groups.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

json TellText(const std::string& strText)
{
    return {{"view", "text"}, {"text", strText}};
}

/// The last of the IL lines from nLine on that come from the same source place.
unsigned int FindLastOfPlace(const CListing& listing, unsigned int nLine)
{
    unsigned int nLast = nLine;
    for (unsigned int n = nLine + 1; n < listing.GetLineCount() && listing.GetPlace(n) == listing.GetPlace(nLine); ++n)
    {
        nLast = n;
    }
    return nLast;
}

std::string TellRange(size_t nFirst, size_t nLast)
{
    return nFirst == nLast ? std::to_string(nFirst) : std::to_string(nFirst) + "-" + std::to_string(nLast);
}

/// Consecutive groups with the same number of active work-items.
struct SGroups
{
    size_t nFirst = 0;
    size_t nLast = 0;
    size_t nActive = 0;
};

} // namespace

json DoInfoStops(CCommandContext& context)
{
    context.AllowNone();
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    const CTimeLine& timeLine = debugger.GetTimeLine();
    const std::vector<CTimeLine::SStop>& vStops = timeLine.GetStops();
    const size_t nLimit = debugger.GetSettings().nLimit;
    const auto itHere = std::find_if(vStops.begin(), vStops.end(),
                                     [&](const CTimeLine::SStop& stop) { return timeLine.GetPlace() == stop.nPlace; });
    const size_t nHere = static_cast<size_t>(itHere - vStops.begin());
    const size_t nShown = std::min(nLimit, vStops.size());
    const size_t nFirst = std::min(nHere - std::min(nHere, nShown / 2), vStops.size() - nShown);
    std::string strText = itHere == vStops.end() ? "the present stop is none of these\n" : "";
    for (size_t n = nFirst; n < nFirst + nShown; ++n)
    {
        const std::string strPlace = ShortenPlace(debugger.GetListing().GetPlace(vStops[n].nLine));
        strText += (n == nHere ? "=> " : "   ") + std::to_string(n + 1) + "  " +
                   (strPlace.empty() ? "line " + std::to_string(vStops[n].nLine) : strPlace) + ", " +
                   std::to_string(vStops[n].nActive) + " active\n";
    }
    strText += nShown < vStops.size() ? "of " + std::to_string(vStops.size()) + " stops\n" : "";
    strText.pop_back();
    return TellText(strText);
}

json DoInfoLine(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    const CListing& listing = debugger.GetListing();
    if (context.GetArguments().empty())
    {
        debugger.RequireLive();
    }
    const std::set<unsigned int> lines = context.GetArguments().empty() ? std::set<unsigned int>{debugger.GetLine()}
                                                                        : ReadPlace(debugger, context.GetArguments());
    std::string strText;
    for (const unsigned int nLine : lines)
    {
        std::string strPlace = ShortenPlace(listing.GetPlace(nLine));
        const bool bNowhere = strPlace.empty();
        const unsigned int nLast = bNowhere ? nLine : FindLastOfPlace(listing, nLine);
        const std::string strCode = (nLine == nLast ? "line *" : "lines *") + TellRange(nLine, nLast) + " of the IL";
        const CCodeMap::SFunction* const pFunction = debugger.GetCode().FindFunction(nLine);
        strText += strText.empty() ? "" : "\n";
        strText += bNowhere ? strCode : strPlace.append(" is ").append(strCode);
        strText += pFunction != nullptr && !pFunction->strName.empty() ? ", in " + pFunction->strName : "";
        strText += bNowhere ? ", which comes from no line of a source" : "";
    }
    return TellText(strText);
}

json DoInfoSource(CCommandContext& context)
{
    context.AllowNone();
    CDebugger& debugger = context.GetDebugger();
    const CListing& listing = debugger.GetListing();
    const unsigned int nHere = debugger.IsLive() ? debugger.GetLine() : debugger.GetCode().GetFirstStop();
    const auto fileOf = [&](unsigned int nLine)
    {
        const std::string& strPlace = listing.GetPlace(nLine);
        return strPlace.substr(0, strPlace.rfind(':'));
    };
    const std::string strHere = fileOf(nHere);
    std::set<std::string> files;
    for (unsigned int n = 0; n < listing.GetLineCount(); ++n)
    {
        files.insert(fileOf(n));
    }
    files.erase(std::string());
    if (files.empty())
    {
        return TellText("the kernel's program has no lines of a source; -g at its build keeps them");
    }
    std::string strText = strHere.empty() ? "this line comes from no source" : "this line is in " + strHere;
    for (const std::string& strFile : files)
    {
        const unsigned int nLines = debugger.GetSourceText().GetLastLine(strFile);
        strText += "\n" + strFile + ": " + (nLines != 0 ? std::to_string(nLines) + " lines" : "can't be read");
    }
    return TellText(strText);
}

json DoInfoSymbol(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    CExpression expression(context.GetText("an address"), &debugger);
    expression.Bind(debugger);
    int64_t nSigned = 0;
    expression.Evaluate(debugger.GetFocus(), 1, &nSigned);
    expression.RequireValue(0);
    const auto nAddress = static_cast<uint64_t>(nSigned);
    const bool bPointer = expression.GetType() != nullptr && expression.GetType()->eKind == SSourceType::Pointer;
    const bool bLocal = bPointer && expression.GetType()->eSpace == SSourceType::LocalSpace;
    if (bPointer && expression.GetType()->eSpace == SSourceType::PrivateSpace)
    {
        return TellText("byte " + std::to_string(nAddress) + " of the work-item's private memory");
    }
    for (const SMemory& memory : debugger.ListMemory(bLocal ? SSourceType::LocalSpace : SSourceType::GlobalSpace))
    {
        if (memory.nBase <= nAddress && nAddress - memory.nBase < memory.nSize)
        {
            const bool bArgument = memory.nPlace < debugger.GetArguments().size();
            const std::string strName = bArgument ? debugger.GetArguments()[memory.nPlace].strName
                                                  : "the local memory that the kernel declares";
            return TellText("byte " + std::to_string(nAddress - memory.nBase) + " of " + std::to_string(memory.nSize) +
                            " in " + strName);
        }
    }
    throw CCommandError("nothing of the kernel's lies at " + FormatHex(nAddress));
}

json DoInfoThreads(CCommandContext& context)
{
    context.AllowNone();
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    const SExtent& extent = debugger.GetExtent();
    if (!extent.bLocalKnown)
    {
        throw CCommandError("the launch leaves the size of groups to the platform; mask draws who is active");
    }
    const size_t nGroups = extent.GroupOf(extent.Count() - 1) + 1;
    std::vector<size_t> vActive(nGroups);
    const bool bAll = debugger.IsAtEntry();
    const SMaskView mask = bAll ? SMaskView() : debugger.GetActive();
    for (size_t n = 0; n < extent.Count(); ++n)
    {
        vActive[extent.GroupOf(n)] += bAll || mask.pActive[n] != 0 ? 1 : 0;
    }
    std::vector<SGroups> vRanges;
    for (size_t n = 0; n < nGroups; ++n)
    {
        const bool bSame = !vRanges.empty() && vRanges.back().nActive == vActive[n];
        if (!bSame)
        {
            vRanges.push_back({n, n, vActive[n]});
        }
        vRanges.back().nLast = n;
    }
    const size_t nFocused = extent.GroupOf(debugger.GetFocus());
    json list = json::array();
    for (const SGroups& groups : vRanges)
    {
        const bool bFocus = groups.nFirst <= nFocused && nFocused <= groups.nLast;
        if (list.size() < debugger.GetSettings().nLimit || bFocus)
        {
            list.push_back(
                {{"groups", TellRange(groups.nFirst, groups.nLast)}, {"active", groups.nActive}, {"focus", bFocus}});
        }
    }
    return {{"view", "threads"},
            {"groups", nGroups},
            {"size", extent.nLocal[0] * extent.nLocal[1] * extent.nLocal[2]},
            {"item", debugger.GetFocus()},
            {"focus", nFocused},
            {"more", vRanges.size() - list.size()},
            {"list", list}};
}

} // namespace KestrelTool
