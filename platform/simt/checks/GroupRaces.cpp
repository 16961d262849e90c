#include "platform/simt/checks/GroupRaces.h"

#include "platform/simt/Block.h"
#include "platform/simt/checks/Findings.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace KestrelPlatform
{

namespace
{

const uint64_t s_nPageBytes = s_nRacePageBytes;
const uint16_t s_nFirstParts = 4;
const uint16_t s_nMostParts = 32;
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

CGroupRaces::SPage& CGroupRaces::Page(uint32_t nRange, uint64_t nPage)
{
    SPage*& pPage = m_vPages[nRange][nPage];
    if (!pPage)
    {
        pPage = new (m_Arena.Take(sizeof(SPage))) SPage();
    }
    return *pPage;
}

/// The units of a page for a kind of access.
CGroupRaces::STwo* CGroupRaces::Kind(SPage& page, ERaceKind eKind)
{
    if (!page.pKinds[eKind])
    {
        const size_t nUnits = s_nPageBytes / page.nUnit;
        page.pKinds[eKind] = static_cast<STwo*>(m_Arena.Take(nUnits * sizeof(STwo)));
        std::uninitialized_fill_n(page.pKinds[eKind], nUnits, STwo());
    }
    return page.pKinds[eKind];
}

void CGroupRaces::Split(SPage& page)
{
    if (page.nUnit == 1)
    {
        return;
    }
    page.nUnit = 1;
    for (const ERaceKind eKind : {RACE_READ, RACE_WRITE, RACE_ATOMIC})
    {
        const STwo* const pWords = std::exchange(page.pKinds[eKind], nullptr);
        for (size_t n = 0; pWords && n < s_nPageBytes; ++n)
        {
            Kind(page, eKind)[n] = pWords[n / 4];
        }
    }
}

/// The part of an access that is in a page.
void CGroupRaces::TouchPage(SPage& page, const SRaceAccess& access)
{
    const uint64_t nBegin = access.nAddress % s_nPageBytes;
    const uint64_t nEnd = std::min(nBegin + access.nBytes, s_nPageBytes);
    if ((nBegin | nEnd) % 4 != 0)
    {
        Split(page);
    }
    STwo* const pKind = Kind(page, access.eKind);
    const uint64_t nEntry = MakeEntry(access);
    if (access.eKind == RACE_WRITE)
    {
        NoteValues(page, nBegin, nEnd, access.bytes);
    }
    for (uint64_t n = nBegin; n < nEnd; n += page.nUnit)
    {
        pKind[n / page.nUnit].Add(nEntry);
    }
}

void CGroupRaces::NoteValues(SPage& page, uint64_t nBegin, uint64_t nEnd, const unsigned char* pBytes)
{
    if (!page.pValues)
    {
        page.pValues = static_cast<SStoredValues*>(m_Arena.Take(sizeof(SStoredValues)));
    }
    page.pValues->Note(nBegin, nEnd, pBytes);
}

/// Of rows that differ in their group alone those of the two lowest groups count. \return false if there is none yet
bool CGroupRaces::Merge(SPage& page, const SPart& part)
{
    for (SPart* pOther = page.pParts; pOther != page.pParts + page.nParts; ++pOther)
    {
        SPart& other = *pOther;
        if (other.nBegin != part.nBegin || other.nEnd != part.nEnd || other.nFirst != part.nFirst ||
            other.nStep != part.nStep || other.nBytes != part.nBytes || other.eKind != part.eKind ||
            other.nItem != part.nItem || other.nNumber != part.nNumber)
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

void CGroupRaces::AddPart(SPage& page, const SPart& part)
{
    if (page.nParts == s_nMostParts)
    {
        return Spread(page, part);
    }
    if (page.nParts == page.nRoom)
    {
        const uint16_t nRoom = static_cast<uint16_t>(page.nRoom == 0 ? s_nFirstParts : 2 * page.nRoom);
        SPart* const pParts = static_cast<SPart*>(m_Arena.Take(nRoom * sizeof(SPart)));
        std::uninitialized_copy_n(page.pParts, page.nParts, pParts);
        page.pParts = pParts;
        page.nRoom = nRoom;
    }
    page.pParts[page.nParts++] = part;
}

/// Takes what one work-item of a part has touched over to the units of its kind.
void CGroupRaces::SpreadItem(SPage& page, const SPart& part, uint32_t nItem, uint32_t nBegin, uint32_t nEnd)
{
    STwo* const pKind = Kind(page, part.eKind);
    SRaceAccess access;
    access.nNumber = part.nNumber;
    access.nItem = static_cast<uint16_t>(part.nItem + nItem);
    access.nGroup = part.nGroup;
    const uint64_t nEntry = MakeEntry(access);
    access.nGroup = part.nOther;
    const uint64_t nOther = part.nOther == ~0u ? nEntry : MakeEntry(access);
    for (uint32_t n = nBegin; n < nEnd; n += page.nUnit)
    {
        pKind[n / page.nUnit].Add(nEntry);
        pKind[n / page.nUnit].Add(nOther);
    }
}

void CGroupRaces::Spread(SPage& page, const SPart& part)
{
    if (!part.HasWords())
    {
        Split(page);
    }
    if (part.nStep == 0)
    {
        return SpreadItem(page, part, 0, part.nBegin, part.nEnd);
    }
    const int32_t nBegin = part.nBegin;
    const int32_t nEnd = part.nEnd;
    for (int32_t n = (nBegin - part.nFirst) / part.nStep; part.nFirst + n * part.nStep < nEnd; ++n)
    {
        const int32_t nFirst = part.nFirst + n * part.nStep;
        SpreadItem(page, part, static_cast<uint32_t>(n), static_cast<uint32_t>(std::max(nFirst, nBegin)),
                   static_cast<uint32_t>(std::max(std::min(nFirst + part.nBytes, nEnd), nBegin)));
    }
}

/// The values of a part of a row, of a page that begins at nStart.
void CGroupRaces::NoteRow(SPage& page, const SPart& part, const SRaceRow& row, uint64_t nStart,
                          const unsigned char* pValues)
{
    if (part.nStep == 0 || part.nStep == part.nBytes)
    {
        return NoteValues(page, part.nBegin, part.nEnd, pValues + (nStart + part.nBegin - row.nLow));
    }
    for (uint32_t n = 0; n < row.nCount; ++n)
    {
        const int32_t nFirst = part.nFirst + static_cast<int32_t>(n) * part.nStep;
        const int32_t nBegin = std::max<int32_t>(nFirst, part.nBegin);
        const int32_t nEnd = std::min<int32_t>(nFirst + part.nBytes, part.nEnd);
        if (nBegin < nEnd)
        {
            NoteValues(page, static_cast<uint64_t>(nBegin), static_cast<uint64_t>(nEnd),
                       pValues + size_t{n} * part.nBytes + (nBegin - nFirst));
        }
    }
}

void CGroupRaces::TouchRow(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues)
{
    SPart part;
    part.nStep = static_cast<uint8_t>(row.plane.nStep);
    part.nBytes = static_cast<uint8_t>(row.nBytes);
    part.eKind = row.eKind;
    part.nItem = row.nItem;
    part.nNumber = row.nNumber;
    part.nGroup = static_cast<uint32_t>(nGroup);
    for (uint64_t nPage = row.nLow / s_nPageBytes; nPage * s_nPageBytes < row.nEnd; ++nPage)
    {
        const uint64_t nStart = nPage * s_nPageBytes;
        part.nBegin = static_cast<uint16_t>(std::max(row.nLow, nStart) - nStart);
        part.nEnd = static_cast<uint16_t>(std::min(row.nEnd - nStart, s_nPageBytes));
        part.nFirst = static_cast<int16_t>(part.nStep == 0 ? 0 : row.plane.nFirst - nStart);
        const std::lock_guard<std::mutex> lock(m_Mutexes[nPage % m_Mutexes.size()]);
        SPage& page = Page(nRange, nPage);
        if (row.eKind == RACE_WRITE)
        {
            NoteRow(page, part, row, nStart, pValues);
        }
        if (!Merge(page, part))
        {
            AddPart(page, part);
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
    { return page.pKinds[eKind] ? page.pKinds[eKind][nUnit] : STwo(); };
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
    like.bUnequal = page.pValues && page.pValues->Differ(nUnit * page.nUnit, page.nUnit);
    if (writes.nOther != s_nNobody)
    {
        ReportPair(writes.nFirst, writes.nOther, like, findings);
    }
}

/// Whether groups may have met in a page with a write or an atomic among them.
bool CGroupRaces::MayRace(const SPage& page)
{
    const auto isChange = [](const SPart& part) { return part.eKind != RACE_READ; };
    const SPart* const pEnd = page.pParts + page.nParts;
    const bool bWords = page.pKinds[RACE_WRITE] || page.pKinds[RACE_ATOMIC];
    if (bWords || page.pKinds[RACE_READ])
    {
        return bWords || std::any_of<const SPart*>(page.pParts, pEnd, isChange);
    }
    for (const SPart* pOne = page.pParts; pOne != pEnd; ++pOne)
    {
        if (pOne->eKind == RACE_WRITE && pOne->nOther != ~0u)
        {
            return true;
        }
        for (const SPart* pOther = page.pParts; pOther != pEnd; ++pOther)
        {
            const bool bOneGroup = pOne->nGroup == pOther->nGroup && pOne->nOther == ~0u && pOther->nOther == ~0u;
            if (isChange(*pOne) && pOne != pOther && !bOneGroup && pOne->nBegin < pOther->nEnd &&
                pOther->nBegin < pOne->nEnd)
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
            SPage* const pPage = m_vPages[nRange][nPage];
            if (!pPage || !MayRace(*pPage))
            {
                continue;
            }
            for (uint16_t n = 0; n < pPage->nParts; ++n)
            {
                Spread(*pPage, pPage->pParts[n]);
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
