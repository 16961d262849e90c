#include "tools/kestrel/cover/WatchPlaces.h"

#include "tools/session/debug/Accesses.h"
#include "tools/session/debug/CommandError.h"

#include <cstdlib>
#include <cstring>

namespace KestrelTool
{

namespace
{

const uint32_t s_nAnyArgument = ~0u;
const uint64_t s_nWordBytes = 4;

/// Reads "local1:0x40" or "private:8", which name a word. \return false for a text of another form
bool ReadAddress(const CDebugger& debugger, const std::string& strText, SWatch& watch)
{
    const size_t nColon = strText.find(':');
    const std::string strMemory = strText.substr(0, nColon);
    const bool bPrivate = strMemory == "private";
    const bool bLocal = strMemory.size() > 5 && strMemory.compare(0, 5, "local") == 0 &&
                        strMemory.find_first_not_of("0123456789", 5) == std::string::npos;
    if (nColon == std::string::npos || (!bPrivate && !bLocal))
    {
        return false;
    }
    char* pEnd = nullptr;
    const uint64_t nAddress = std::strtoull(strText.c_str() + nColon + 1, &pEnd, 0);
    if (*pEnd != '\0' || pEnd == strText.c_str() + nColon + 1)
    {
        throw CCommandError("an address is needed after the colon, as in private:8");
    }
    const uint32_t nBlock =
        bLocal ? static_cast<uint32_t>(std::strtoul(strMemory.c_str() + 5, nullptr, 10)) : s_nAnyArgument;
    watch.bytes = {bPrivate ? static_cast<uint32_t>(PLATFORM_MEMORY_PRIVATE)
                            : static_cast<uint32_t>(PLATFORM_MEMORY_LOCAL),
                   nBlock, nAddress, s_nWordBytes};
    return true;
}

/// Reads the address of a source expression at this stop.
void ReadPlaceOf(CDebugger& debugger, const std::string& strText, SWatch& watch)
{
    debugger.RequireLive();
    CExpression address("&(" + strText + ")", &debugger);
    address.Bind(debugger);
    const SSourceValue value = address.Read(debugger.GetFocus());
    const SSourceType* const pType = address.GetType();
    if (pType == nullptr || pType->eKind != SSourceType::Pointer || pType->pElement == nullptr || !value.IsKnown())
    {
        throw CCommandError(strText + " has no address here");
    }
    uint64_t nAddress = 0;
    std::memcpy(&nAddress, value.vBytes.data(), std::min(sizeof(nAddress), value.vBytes.size()));
    const size_t nBytes = pType->pElement->nSize;
    if (pType->eSpace == SSourceType::PrivateSpace || pType->eSpace == SSourceType::LocalSpace)
    {
        const bool bLocal = pType->eSpace == SSourceType::LocalSpace;
        watch.bytes = {bLocal ? static_cast<uint32_t>(PLATFORM_MEMORY_LOCAL)
                              : static_cast<uint32_t>(PLATFORM_MEMORY_PRIVATE),
                       s_nAnyArgument, nAddress, nBytes};
        return;
    }
    watch.bytes = debugger.FindArgumentOf(nAddress, nBytes);
}

} // namespace

SWatch ReadWatch(CDebugger& debugger, const std::string& strText)
{
    SWatch watch;
    try
    {
        watch.bytes = ReadWatchedElement(strText, debugger.GetArguments(), debugger.GetLaunch().GetFile()).watch;
    }
    catch (const CCommandError&)
    {
        if (!debugger.IsLive() && strText.find(':') == std::string::npos)
        {
            throw; // anything else can be resolved only at a stop
        }
        if (!ReadAddress(debugger, strText, watch))
        {
            ReadPlaceOf(debugger, strText, watch);
        }
    }
    if (watch.bytes.nMemory == PLATFORM_MEMORY_LOCAL)
    {
        watch.nGroup = debugger.GetExtent().GroupOf(debugger.GetFocus());
    }
    if (watch.bytes.nMemory == PLATFORM_MEMORY_PRIVATE)
    {
        watch.nItem = debugger.GetFocus();
    }
    return watch;
}

void FindWatchedLines(CDebugger& debugger, SWatch& watch)
{
    CLaunch launch(debugger.GetLibraries(), debugger.GetLaunch().GetFile());
    for (const SPlatformAccess& access : RecordAccesses(debugger.GetLibraries(), launch, watch.bytes))
    {
        const bool bGroup = !watch.nGroup || debugger.GetExtent().GroupOf(access.nWorkItem) == *watch.nGroup;
        if (!watch.Wants(access.nKind) || !bGroup || (watch.nItem && *watch.nItem != access.nWorkItem))
        {
            continue;
        }
        const unsigned int nLine = debugger.GetListing().GetLineOfInstruction(access.nInstruction);
        if (FindAddressOperands(debugger.GetListing(), nLine).empty())
        {
            throw CCommandError("line " + std::to_string(nLine) + " accesses it in a form that can't be watched: " +
                                debugger.GetListing().GetLine(nLine));
        }
        SWatch::SLine& line = watch.mapLines[nLine];
        line.nKind = access.nKind;
        line.nBytes = access.nBytes;
        line.items.insert(access.nWorkItem);
    }
    if (watch.mapLines.empty())
    {
        throw CCommandError(std::string("nothing in the launch ") +
                            (!watch.bWrites  ? "reads"
                             : !watch.bReads ? "writes"
                                             : "accesses") +
                            " that");
    }
}

} // namespace KestrelTool
