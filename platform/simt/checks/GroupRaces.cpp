#include "platform/simt/checks/GroupRaces.h"

#include "platform/simt/Block.h"
#include "platform/simt/checks/Findings.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

const uint64_t s_nPageBytes = 4096;
const size_t s_nMostParts = 32;
const uint64_t s_nNobody = ~uint64_t(0);

uint64_t MakeEntry(const SRaceAccess& access)
{
    return access.nGroup << 32 | static_cast<uint64_t>(access.nItem) << 16 | access.nNumber;
}

uint64_t GroupOf(uint64_t nEntry)
{
    return nEntry >> 32;
}

} // namespace

std::vector<uint32_t> FindAccessInstructions(const SCode& code)
{
    std::vector<uint32_t> vInstructions(code.vAccesses.size(), 0);
    for (const SMicroOp& step : code.vSteps)
    {
        if (step.eKind == MICRO_ACCESS)
        {
            vInstructions[step.nAux] = step.nInstruction;
        }
    }
    return vInstructions;
}

void CGroupRaces::STwo::Add(uint64_t nEntry)
{
    if (GroupOf(nEntry) == GroupOf(nFirst))
    {
        nFirst = std::min(nFirst, nEntry);
    }
    else if (nEntry < nFirst)
    {
        nOther = nFirst;
        nFirst = nEntry;
    }
    else
    {
        nOther = std::min(nOther, nEntry);
    }
}

CGroupRaces::CGroupRaces(const SLaunchContext& context)
    : m_Context(context), m_vInstructions(FindAccessInstructions(context.code))
{
    for (const SMemoryRange& range : context.launch.vMemory)
    {
        m_vPages.emplace_back(range.bReadOnly ? 0 : (range.nSize + s_nPageBytes - 1) / s_nPageBytes);
    }
}

CGroupRaces::~CGroupRaces() = default;

CGroupRaces::SPage& CGroupRaces::Page(uint32_t nRange, uint64_t nPage)
{
    std::unique_ptr<SPage>& pPage = m_vPages[nRange][nPage];
    if (!pPage)
    {
        pPage = std::make_unique<SPage>();
    }
    return *pPage;
}

void CGroupRaces::Split(SPage& page) const
{
    if (page.nUnit == 1)
    {
        return;
    }
    for (std::vector<STwo>& vKind : page.vKinds)
    {
        std::vector<STwo> vBytes;
        vBytes.reserve(vKind.size() * 4);
        for (const STwo& two : vKind)
        {
            vBytes.insert(vBytes.end(), 4, two);
        }
        vKind.swap(vBytes);
    }
    std::vector<SValue> vBytes;
    for (const SValue& value : page.vValues)
    {
        for (uint32_t n = 0; n < 4; ++n)
        {
            vBytes.push_back({value.nFirst >> (8 * n) & 0xFF, value.bDiffer, value.bWritten});
        }
    }
    page.vValues.swap(vBytes);
    page.nUnit = 1;
}

/// The part of an access that is in a page.
void CGroupRaces::TouchPage(SPage& page, const SRaceAccess& access) const
{
    const uint64_t nBegin = access.nAddress % s_nPageBytes;
    const uint64_t nEnd = std::min(nBegin + access.nBytes, s_nPageBytes);
    if ((nBegin | nEnd) % 4 != 0)
    {
        Split(page);
    }
    std::vector<STwo>& vKind = page.vKinds[access.eKind];
    if (vKind.empty())
    {
        vKind.resize(s_nPageBytes / page.nUnit);
    }
    const uint64_t nEntry = MakeEntry(access);
    if (access.eKind == RACE_WRITE)
    {
        NoteValues(page, nBegin, nEnd, access.bytes);
    }
    for (uint64_t n = nBegin; n < nEnd; n += page.nUnit)
    {
        vKind[n / page.nUnit].Add(nEntry);
    }
}

void CGroupRaces::NoteValues(SPage& page, uint64_t nBegin, uint64_t nEnd, const unsigned char* pBytes)
{
    if (page.vValues.empty())
    {
        page.vValues.resize(s_nPageBytes / page.nUnit);
    }
    for (uint64_t n = nBegin; n < nEnd; n += page.nUnit)
    {
        SValue& value = page.vValues[n / page.nUnit];
        uint32_t nValue = 0;
        std::memcpy(&nValue, pBytes + (n - nBegin), page.nUnit);
        value.bDiffer = value.bDiffer || (value.bWritten && value.nFirst != nValue);
        value.nFirst = value.bWritten ? value.nFirst : nValue;
        value.bWritten = true;
    }
}

/// Of rows that differ in their group alone those of the two lowest groups count. \return false if there is none yet
bool CGroupRaces::Merge(SPage& page, const SPart& part)
{
    for (SPart& other : page.vParts)
    {
        if (other.nBegin != part.nBegin || other.nEnd != part.nEnd || other.nFirst != part.nFirst ||
            other.nBytes != part.nBytes || other.eKind != part.eKind || other.nItem != part.nItem ||
            other.nNumber != part.nNumber)
        {
            continue;
        }
        if (part.nGroup < other.nGroup)
        {
            other.nOther = other.nGroup;
            other.nGroup = part.nGroup;
        }
        else if (part.nGroup > other.nGroup)
        {
            other.nOther = std::min(other.nOther, part.nGroup);
        }
        return true;
    }
    return false;
}

/// Takes a part over to the words of its kind.
void CGroupRaces::Spread(SPage& page, const SPart& part)
{
    std::vector<STwo>& vKind = page.vKinds[part.eKind];
    if (vKind.empty())
    {
        vKind.resize(s_nPageBytes / page.nUnit);
    }
    SRaceAccess access;
    access.nNumber = part.nNumber;
    for (uint64_t n = part.nBegin; n < part.nEnd; n += page.nUnit)
    {
        access.nItem = static_cast<uint16_t>(part.nItem + (static_cast<int64_t>(n) - part.nFirst) / part.nBytes);
        access.nGroup = part.nGroup;
        vKind[n / page.nUnit].Add(MakeEntry(access));
        access.nGroup = part.nOther;
        if (part.nOther != s_nNobody)
        {
            vKind[n / page.nUnit].Add(MakeEntry(access));
        }
    }
}

void CGroupRaces::TouchRow(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues)
{
    for (uint64_t nPage = row.nLow / s_nPageBytes; nPage * s_nPageBytes < row.nEnd; ++nPage)
    {
        const uint64_t nStart = nPage * s_nPageBytes;
        SPart part;
        part.nBegin = static_cast<uint32_t>(std::max(row.nLow, nStart) - nStart);
        part.nEnd = static_cast<uint32_t>(std::min(row.nEnd - nStart, s_nPageBytes));
        part.nFirst = static_cast<int64_t>(row.nFirst - nStart);
        part.nBytes = row.nBytes;
        part.eKind = row.eKind;
        part.nItem = row.nItem;
        part.nNumber = row.nNumber;
        part.nGroup = nGroup;
        const std::lock_guard<std::mutex> lock(m_Mutexes[nPage % m_Mutexes.size()]);
        SPage& page = Page(nRange, nPage);
        if (row.eKind == RACE_WRITE)
        {
            NoteValues(page, part.nBegin, part.nEnd, pValues + (nStart + part.nBegin - row.nLow));
        }
        if (Merge(page, part))
        {
            continue;
        }
        if (page.vParts.size() < s_nMostParts)
        {
            page.vParts.push_back(part);
        }
        else
        {
            Spread(page, part);
        }
    }
}

void CGroupRaces::Touch(uint32_t nRange, const SRaceAccess* pAccesses, uint32_t nCount)
{
    for (uint32_t n = 0; n < nCount;)
    {
        const uint64_t nPage = pAccesses[n].nAddress / s_nPageBytes;
        const std::lock_guard<std::mutex> lock(m_Mutexes[nPage % m_Mutexes.size()]);
        SPage& page = Page(nRange, nPage);
        for (; n < nCount && pAccesses[n].nAddress / s_nPageBytes == nPage; ++n)
        {
            TouchPage(page, pAccesses[n]);
        }
    }
    for (uint32_t n = 0; n < nCount; ++n)
    {
        SRaceAccess rest = pAccesses[n];
        const uint64_t nHere = s_nPageBytes - rest.nAddress % s_nPageBytes;
        if (nHere >= rest.nBytes)
        {
            continue;
        }
        rest.nAddress += nHere;
        rest.nBytes -= static_cast<uint32_t>(nHere);
        std::memmove(rest.bytes, rest.bytes + nHere, rest.nBytes);
        Touch(nRange, &rest, 1);
    }
}

void CGroupRaces::ReportPair(uint64_t nOne, uint64_t nTwo, const SPlatformFinding& like, CFindings& findings) const
{
    const auto item = [this](uint64_t nEntry)
    { return m_Context.FindWorkItem(GroupOf(nEntry), static_cast<uint32_t>(nEntry >> 16 & 0xFFFF)); };
    SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_RACE, m_vInstructions[nOne & 0xFFFF], item(nOne));
    finding.nOther = m_vInstructions[nTwo & 0xFFFF];
    finding.nOtherItem = item(nTwo);
    finding.bWrite = 1;
    finding.bOtherWrite = like.bOtherWrite;
    finding.bUnequal = like.bUnequal;
    finding.bGroups = 1;
    finding.nBytes = like.nBytes;
    finding.nAddress = like.nAddress;
    findings.Add(finding);
}

void CGroupRaces::ReportUnit(const SPage& page, size_t nUnit, uint64_t nAddress, CFindings& findings) const
{
    const auto get = [&page, nUnit](ERaceKind eKind)
    { return page.vKinds[eKind].empty() ? STwo() : page.vKinds[eKind][nUnit]; };
    const STwo writes = get(RACE_WRITE);
    const STwo reads = get(RACE_READ);
    const STwo atomics = get(RACE_ATOMIC);
    SPlatformFinding like = {};
    like.nAddress = nAddress;
    like.nBytes = page.nUnit;
    const auto other = [](const STwo& two, uint64_t nEntry)
    { return GroupOf(two.nFirst) != GroupOf(nEntry) ? two.nFirst : two.nOther; };
    like.bUnequal = 1;
    if (writes.nFirst != s_nNobody && other(reads, writes.nFirst) != s_nNobody)
    {
        ReportPair(writes.nFirst, other(reads, writes.nFirst), like, findings);
    }
    if (atomics.nFirst != s_nNobody && other(reads, atomics.nFirst) != s_nNobody)
    {
        ReportPair(atomics.nFirst, other(reads, atomics.nFirst), like, findings);
    }
    like.bOtherWrite = 1;
    if (writes.nFirst != s_nNobody && other(atomics, writes.nFirst) != s_nNobody)
    {
        ReportPair(writes.nFirst, other(atomics, writes.nFirst), like, findings);
    }
    like.bUnequal = !page.vValues.empty() && page.vValues[nUnit].bDiffer;
    if (writes.nOther != s_nNobody)
    {
        ReportPair(writes.nFirst, writes.nOther, like, findings);
    }
}

/// Whether groups may have met in a page with a write or an atomic among them.
bool CGroupRaces::MayRace(const SPage& page)
{
    const auto isChange = [](const SPart& part) { return part.eKind != RACE_READ; };
    const bool bWords = !page.vKinds[RACE_WRITE].empty() || !page.vKinds[RACE_ATOMIC].empty();
    if (bWords || !page.vKinds[RACE_READ].empty())
    {
        return bWords || std::any_of(page.vParts.begin(), page.vParts.end(), isChange);
    }
    for (const SPart& one : page.vParts)
    {
        if (one.eKind == RACE_WRITE && one.nOther != s_nNobody)
        {
            return true;
        }
        for (const SPart& other : page.vParts)
        {
            const bool bOneGroup = one.nGroup == other.nGroup && one.nOther == s_nNobody && other.nOther == s_nNobody;
            if (isChange(one) && &one != &other && !bOneGroup && one.nBegin < other.nEnd && other.nBegin < one.nEnd)
            {
                return true;
            }
        }
    }
    return false;
}

void CGroupRaces::Report(CFindings& findings)
{
    for (size_t nRange = 0; nRange < m_vPages.size(); ++nRange)
    {
        for (size_t nPage = 0; nPage < m_vPages[nRange].size(); ++nPage)
        {
            SPage* const pPage = m_vPages[nRange][nPage].get();
            if (!pPage || !MayRace(*pPage))
            {
                continue;
            }
            for (size_t n = 0; n < pPage->vParts.size(); ++n)
            {
                Spread(*pPage, pPage->vParts[n]);
            }
            const uint64_t nAddress = m_Context.launch.vMemory[nRange].nAddress + nPage * s_nPageBytes;
            for (size_t n = 0; n < s_nPageBytes / pPage->nUnit; ++n)
            {
                ReportUnit(*pPage, n, nAddress + n * pPage->nUnit, findings);
            }
        }
    }
}

} // namespace KestrelPlatform
