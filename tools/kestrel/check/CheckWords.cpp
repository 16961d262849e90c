#include "tools/kestrel/check/CheckWords.h"

#include "tools/kestrel/command/RenderBrokenOff.h"
#include "tools/session/debug/Faults.h"
#include "tools/session/debug/Format.h"

#include <algorithm>
#include <utility>

namespace KestrelTool
{

namespace
{

const char* const s_pszMemories[] = {"global memory", "local memory", "private memory", "an array of registers",
                                     "an image"};

std::string NameSize(uint64_t nBytes)
{
    return nBytes == 1 ? "1 byte" : std::to_string(nBytes) + " bytes";
}

std::string NameAccess(const SPlatformFinding& finding)
{
    const std::string strKind = finding.bWrite != 0 ? "write" : "read";
    return finding.nBytes == 0 ? strKind : strKind + " of " + NameSize(finding.nBytes);
}

std::string NameMemory(uint32_t nMemory)
{
    return nMemory < std::size(s_pszMemories) ? s_pszMemories[nMemory] : "memory";
}

std::string DescribeRace(const SPlatformFinding& finding, const std::string& strPlace)
{
    const bool bBoth = finding.bWrite != 0 && finding.bOtherWrite != 0;
    std::string strText = bBoth                      ? "two work-items write "
                          : finding.bWrite != 0      ? "a work-item writes what another reads, "
                          : finding.bOtherWrite != 0 ? "a work-item reads what another writes, "
                                                     : "two work-items meet at ";
    strText += NameSize(finding.nBytes) + " at " + strPlace;
    strText += finding.bGroups != 0 ? ", in different groups" : ", with no barrier in between";
    if (bBoth && finding.bUnequal == 0)
    {
        strText += "; the values are equal";
    }
    else if (finding.bValues != 0)
    {
        strText += "; the values are " + FormatHex(finding.values[0]) + " and " + FormatHex(finding.values[1]);
    }
    return strText;
}

} // namespace

CCheckWords::CCheckWords(std::vector<SPlatformBuffer> vBuffers, std::vector<SKernelArgument> vArguments)
    : m_vBuffers(std::move(vBuffers)), m_vArguments(std::move(vArguments))
{
}

/// The buffer that contains the address; else the nearest one before it, or after it if none is before.
const SPlatformBuffer* CCheckWords::FindBuffer(uint64_t nAddress) const
{
    const SPlatformBuffer* pFound = nullptr;
    uint64_t nDistance = uint64_t(1) << 32;
    for (const SPlatformBuffer& buffer : m_vBuffers)
    {
        const bool bBefore = nAddress < buffer.nAddress;
        const uint64_t nThis =
            bBefore ? (uint64_t(1) << 31) + (buffer.nAddress - nAddress) : nAddress - buffer.nAddress;
        if (buffer.nArgument < m_vArguments.size() && nThis < nDistance)
        {
            pFound = &buffer;
            nDistance = nThis;
        }
    }
    return pFound;
}

std::string CCheckWords::NamePlace(const SPlatformFinding& finding) const
{
    if (finding.nMemory == PLATFORM_MEMORY_REGISTERS)
    {
        return "element " + std::to_string(static_cast<int64_t>(finding.nAddress)) + " of " +
               NameMemory(finding.nMemory);
    }
    if (finding.nMemory == PLATFORM_MEMORY_IMAGE)
    {
        return "x = " + std::to_string(static_cast<int32_t>(finding.nAddress)) + " of " + NameMemory(finding.nMemory);
    }
    if (finding.nMemory != PLATFORM_MEMORY_GLOBAL)
    {
        return FormatHex(finding.nAddress) + " of " + NameMemory(finding.nMemory);
    }
    return NameAddress(finding.nAddress);
}

/// Names an address in global memory.
std::string CCheckWords::NameAddress(uint64_t nAddress) const
{
    const SPlatformBuffer* const pBuffer = FindBuffer(nAddress);
    if (pBuffer == nullptr)
    {
        return nAddress < 65536 ? "a null pointer's " + FormatHex(nAddress) : "address " + FormatHex(nAddress);
    }
    const std::string& strName = m_vArguments[pBuffer->nArgument].strName;
    return nAddress < pBuffer->nAddress ? strName + "-" + FormatHex(pBuffer->nAddress - nAddress)
                                        : strName + "+" + FormatHex(nAddress - pBuffer->nAddress);
}

std::string CCheckWords::NameOrigin(const SPlatformFinding& finding) const
{
    switch (finding.nOrigin)
    {
    case PLATFORM_ORIGIN_REGISTER:
        return "a variable";
    case PLATFORM_ORIGIN_ARRAY:
    case PLATFORM_ORIGIN_PRIVATE:
        return "private memory";
    case PLATFORM_ORIGIN_LOCAL:
        return "local memory";
    default:
        break;
    }
    for (const SPlatformBuffer& buffer : m_vBuffers)
    {
        const bool bHolds =
            finding.nOriginAddress >= buffer.nAddress && finding.nOriginAddress - buffer.nAddress < buffer.nSize;
        if (bHolds && buffer.nArgument < m_vArguments.size())
        {
            return m_vArguments[buffer.nArgument].strName;
        }
    }
    return finding.nOriginBytes == 0 ? "a buffer" : "a buffer of " + NameSize(finding.nOriginBytes);
}

std::string CCheckWords::DescribeInit(const SPlatformFinding& finding) const
{
    const std::string strOrigin = NameOrigin(finding) + " that nobody wrote";
    switch (finding.nFault)
    {
    case PLATFORM_FAULT_BRANCH:
        return "a branch depends on bytes of " + strOrigin;
    case PLATFORM_FAULT_ADDRESS:
        return "an address depends on bytes of " + strOrigin;
    case PLATFORM_FAULT_ATOMIC:
        return "an atomic works on bytes of " + strOrigin;
    default:
        return "a result" + (finding.nAddress == 0 ? "" : " at " + NameAddress(finding.nAddress)) +
               " depends on bytes of " + strOrigin;
    }
}

std::string CCheckWords::DescribeNumber(const SPlatformFinding& finding) const
{
    static const char* const s_pszFaults[] = {
        "NaN is made of numbers", "infinity is made of finite numbers", "an integer is divided by 0",
        "a shift by the width of its operand, or more", "a number is converted that the integer can't hold"};
    std::string strText = s_pszFaults[std::clamp<uint32_t>(finding.nFault, PLATFORM_FAULT_NAN, PLATFORM_FAULT_RANGE) -
                                      PLATFORM_FAULT_NAN];
    const std::string strOutputs = NameOutputs(finding);
    strText += strOutputs.empty() ? "" : "; it reaches " + strOutputs;
    return strText;
}

std::string CCheckWords::NameOutputs(const SPlatformFinding& finding) const
{
    std::string strOutputs;
    for (uint32_t n = 0; n < finding.nOutputs && n < std::size(finding.outputs); ++n)
    {
        strOutputs += (n == 0 ? "" : ", ") + NameAddress(finding.outputs[n]);
    }
    return strOutputs;
}

std::string CCheckWords::NameExtent(const SPlatformFinding& finding) const
{
    const SPlatformBuffer* const pBuffer =
        finding.nMemory == PLATFORM_MEMORY_GLOBAL ? FindBuffer(finding.nAddress) : nullptr;
    return pBuffer == nullptr ? std::string() : ", which has " + std::to_string(pBuffer->nSize) + " bytes";
}

std::string CCheckWords::Describe(const SPlatformFinding& finding) const
{
    switch (finding.nKind)
    {
    case PLATFORM_FINDING_OUTSIDE:
        return NameAccess(finding) + " outside memory, at " + NamePlace(finding) + NameExtent(finding);
    case PLATFORM_FINDING_READ_ONLY:
        return NameAccess(finding) + " to what may only be read, at " + NamePlace(finding);
    case PLATFORM_FINDING_MISALIGNED:
        return "misaligned " + NameAccess(finding) + " at " + NamePlace(finding);
    case PLATFORM_FINDING_RACE:
        return DescribeRace(finding, NamePlace(finding));
    case PLATFORM_FINDING_INIT:
        return DescribeInit(finding);
    case PLATFORM_FINDING_NAN:
        return DescribeNumber(finding);
    case PLATFORM_FINDING_BARRIER:
        return finding.nOther == ~0u ? "a barrier that only part of a work-group reaches"
                                     : "a barrier that part of a work-group reaches, and another that the rest does";
    default:
        return "the kernel doesn't end: it was stopped here at the limit of instructions";
    }
}

std::string CCheckWords::NameItems(const SPlatformFinding& finding) const
{
    const std::string strFirst = std::to_string(finding.nWorkItem);
    if (finding.nKind == PLATFORM_FINDING_RACE)
    {
        return "work-items " + strFirst + " and " + std::to_string(finding.nOtherItem);
    }
    if (finding.nKind == PLATFORM_FINDING_BARRIER)
    {
        return "work-item " + strFirst + " is the first that doesn't reach it";
    }
    std::string strItems;
    for (uint32_t n = 0; n < finding.nItems; ++n)
    {
        strItems += (n > 0 ? ", " : "") + std::to_string(finding.items[n]);
    }
    return (finding.nItems == 1 ? "work-item " : "work-items ") + strItems +
           (finding.nItems == std::size(finding.items) && finding.nCount > finding.nItems ? " and others" : "");
}

std::string DescribeStanding(const SPlatformPlace& place)
{
    std::string strText = RenderStanding(place.nItems, NameWhere(place.nWhere));
    if (place.nMost != 0)
    {
        strText += ", in pass " + std::to_string(place.nLeast) +
                   (place.nMost != place.nLeast ? " to " + std::to_string(place.nMost) : "");
    }
    return strText;
}

} // namespace KestrelTool
