#include "tools/kestrel/check/CheckWords.h"

#include "tools/session/debug/Format.h"

#include <utility>

namespace KestrelTool
{

namespace
{

const char* const s_pszMemories[] = {"global memory", "local memory", "private memory", "an array of registers",
                                     "an image"};

std::string NameSize(uint32_t nBytes)
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

/// The buffer that an address is in, or the one that it is the least behind; or in front of if there is none.
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
    const SPlatformBuffer* const pBuffer = FindBuffer(finding.nAddress);
    if (pBuffer == nullptr)
    {
        return finding.nAddress < 65536 ? "a null pointer's " + FormatHex(finding.nAddress)
                                        : "address " + FormatHex(finding.nAddress);
    }
    const std::string& strName = m_vArguments[pBuffer->nArgument].strName;
    return finding.nAddress < pBuffer->nAddress ? strName + "-" + FormatHex(pBuffer->nAddress - finding.nAddress)
                                                : strName + "+" + FormatHex(finding.nAddress - pBuffer->nAddress);
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
    case PLATFORM_FINDING_BARRIER:
        return "a barrier that only part of a work-group reaches";
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
           (finding.nItems == std::size(finding.items) ? " and others" : "");
}

} // namespace KestrelTool
