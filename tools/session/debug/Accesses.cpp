#include "tools/session/debug/Accesses.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Faults.h"
#include "tools/session/debug/ReadListing.h"
#include "tools/session/launch/PlatformDoor.h"
#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const char* const s_Kinds[] = {"read", "write", "atomic"};

/// Records accesses while it exists.
class CWatchSwitch
{
public:
    CWatchSwitch(const SPlatformControl& control, const SPlatformWatch& watch) : m_Control(control)
    {
        m_Control.WatchAccesses(&watch);
    }
    ~CWatchSwitch() { m_Control.WatchAccesses(nullptr); }
    CWatchSwitch(const CWatchSwitch&) = delete;
    CWatchSwitch& operator=(const CWatchSwitch&) = delete;

    std::vector<SPlatformAccess> Take() const
    {
        std::vector<SPlatformAccess> vAccesses(m_Control.GetAccesses(nullptr, 0));
        m_Control.GetAccesses(vAccesses.data(), static_cast<uint32_t>(vAccesses.size()));
        return vAccesses;
    }

private:
    const SPlatformControl& m_Control;
};

/// The element's value in an access, or a note that the access covers only part of it.
std::string FormatAccess(const SPlatformAccess& access, const SElementType& type)
{
    unsigned char bytes[sizeof(access.words)];
    std::memcpy(bytes, access.words, sizeof(bytes));
    const int64_t nFirst = -access.nOffset;
    const bool bWhole = nFirst >= 0 && nFirst + static_cast<int64_t>(type.nSize) <= int64_t{access.nBytes};
    return bWhole ? FormatElement(type, bytes + nFirst) : "part of it";
}

json DescribeAccess(const SPlatformAccess& access, const SElementType& type, const CListing& listing)
{
    const unsigned int nLine = listing.GetLineOfInstruction(access.nInstruction);
    return {{"kind", s_Kinds[access.nKind]},
            {"item", access.nWorkItem},
            {"line", nLine},
            {"text", listing.GetLine(nLine)},
            {"source", listing.GetPlace(nLine)},
            {"pass", access.nPass},
            {"value", FormatAccess(access, type)},
            {"before", FormatElement(type, access.before)},
            {"after", FormatElement(type, access.after)}};
}

std::string Field(const json& value)
{
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string RenderAccess(const json& access)
{
    const std::string strSource = ShortenPlace(access["source"]);
    const std::string strKind = access["kind"];
    std::string strText = "work-item " + Field(access["item"]);
    if (strKind == "read")
    {
        strText += " read " + Field(access["value"]);
    }
    else if (strKind == "write")
    {
        strText += " wrote " + Field(access["value"]) + " over " + Field(access["before"]);
    }
    else
    {
        strText += " made " + Field(access["after"]) + " of " + Field(access["before"]) + ", by an atomic with " +
                   Field(access["value"]);
    }
    strText += strSource.empty() ? " at line " : " at " + strSource + ", line ";
    strText += Field(access["line"]);
    if (access["pass"] != 0)
    {
        strText += ", its pass " + std::to_string(access["pass"].get<uint64_t>() + 1);
    }
    return strText + ": " + Field(access["text"]) + "\n";
}

} // namespace

SWatchedElement ReadWatchedElement(const std::string& strText, const std::vector<SKernelArgument>& vArguments,
                                   const SLaunchFile& file)
{
    const size_t nOpen = strText.find('[');
    const std::string strName = strText.substr(0, nOpen);
    const std::string strIndex = nOpen != std::string::npos && strText.back() == ']'
                                     ? strText.substr(nOpen + 1, strText.size() - nOpen - 2)
                                     : "";
    char* pEnd = nullptr;
    const unsigned long long nIndex = std::strtoull(strIndex.c_str(), &pEnd, 0);
    if (strIndex.empty() || *pEnd != '\0' || std::isdigit(static_cast<unsigned char>(strIndex[0])) == 0)
    {
        throw CCommandError("an element of a buffer is needed, as in out[5]");
    }
    for (size_t n = 0; n < vArguments.size() && n < file.vArguments.size(); ++n)
    {
        if (vArguments[n].strName != strName && "arg" + std::to_string(n) != strName)
        {
            continue;
        }
        const SArgument& own = file.vArguments[n];
        const SArgument& given = own.eKind == SArgument::Same ? file.vArguments[own.nSame] : own;
        const bool bKnown = vArguments[n].IsGlobal() && !given.vContents.empty();
        SWatchedElement element;
        element.strText = strText;
        element.pType = given.pType != nullptr ? given.pType : FindElementType(vArguments[n].strType);
        element.pType = element.pType != nullptr ? element.pType : FindElementType("i32");
        const size_t nSize = element.pType->nSize;
        if (!bKnown)
        {
            throw CCommandError(strName + " is no buffer");
        }
        if (nIndex >= given.vContents.size() / nSize)
        {
            throw CCommandError(strName + " has only " + std::to_string(given.vContents.size() / nSize) + " elements");
        }
        element.watch = {PLATFORM_MEMORY_GLOBAL, static_cast<uint32_t>(n), nIndex * nSize, nSize};
        return element;
    }
    throw CCommandError("the kernel has no argument " + strName);
}

std::vector<SPlatformAccess> RecordAccesses(const CLibraries& libraries, CLaunch& launch, const SPlatformWatch& watch)
{
    const SPlatformControl* const pControl = FindPlatformControl(libraries);
    if (pControl == nullptr)
    {
        throw CCommandError("this platform doesn't tell of accesses; the software platform does");
    }
    const CWatchSwitch watching(*pControl, watch);
    launch.Run();
    return watching.Take();
}

json DescribeAccesses(const CLibraries& libraries, const SLaunchFile& file, const std::string& strElement, size_t nMost)
{
    CLaunch launch(libraries, file);
    const std::vector<char> vBinary = launch.ReadBinary();
    const std::vector<std::string> vMetadata = ReadMetadata(vBinary, file.strKernel);
    const SWatchedElement element = ReadWatchedElement(strElement, ReadArguments(vMetadata), file);
    const CListing listing = ReadListing(vBinary, ReadLabel(vMetadata));
    const std::vector<SPlatformAccess> vAccesses = RecordAccesses(libraries, launch, element.watch);
    json accesses = json::array();
    std::string strText;
    for (size_t n = 0; n < std::min(nMost, vAccesses.size()); ++n)
    {
        accesses.push_back(DescribeAccess(vAccesses[n], *element.pType, listing));
        strText += RenderAccess(accesses.back());
    }
    if (vAccesses.size() > nMost)
    {
        strText += "and " + std::to_string(vAccesses.size() - nMost) + " more\n";
    }
    strText = strText.empty() ? "nobody wrote or read " + strElement + "\n" : strText;
    strText.pop_back();
    return {{"view", "text"},
            {"element", strElement},
            {"accesses", accesses},
            {"count", vAccesses.size()},
            {"text", strText}};
}

} // namespace KestrelTool
