#include "platform/simt/checks/GroupRaces.h"

#include "platform/simt/Block.h"
#include "platform/simt/checks/Findings.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

namespace KestrelPlatform
{

namespace
{

const uint64_t s_nPageBytes = s_nRacePageBytes;
const uint16_t s_nFirstParts = 4;
const uint16_t s_nMostParts = 64;
const uint64_t s_nNobody = ~uint64_t(0);

/// Bits that numbers below nCount take.
uint32_t BitsOf(uint64_t nCount)
{
    return static_cast<uint32_t>(std::bit_width(std::max<uint64_t>(nCount, 1) - 1));
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

void CGroupRaces::STwo::Add(uint64_t nEntry, uint32_t nGroupShift)
{
    if (nEntry >> nGroupShift == nFirst >> nGroupShift)
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
    : m_Context(context), m_nItemShift(BitsOf(context.code.vAccesses.size())),
      m_nGroupShift(m_nItemShift + BitsOf(context.nGroupSize)),
      m_bShort(context.nGroupCount <= uint64_t{0xFFFFFFFF} >> m_nGroupShift),
      m_vInstructions(FindAccessInstructions(context.code))
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

/// Packs an access into as few bits as the launch needs. Entries are ordered by group.
uint64_t CGroupRaces::MakeEntry(uint64_t nGroup, uint32_t nItem, uint32_t nNumber) const
{
    return nGroup << m_nGroupShift | static_cast<uint64_t>(nItem) << m_nItemShift | nNumber;
}

CGroupRaces::STwo CGroupRaces::GetTwo(const SPage& page, ERaceKind eKind, size_t nUnit) const
{
    STwo two;
    if (!page.pKinds[eKind])
    {
        return two;
    }
    if (!m_bShort)
    {
        std::memcpy(&two, page.pKinds[eKind] + nUnit * sizeof(STwo), sizeof(STwo));
        return two;
    }
    uint32_t entries[2];
    std::memcpy(entries, page.pKinds[eKind] + nUnit * sizeof entries, sizeof entries);
    two.nFirst = entries[0] == ~0u ? s_nNobody : entries[0];
    two.nOther = entries[1] == ~0u ? s_nNobody : entries[1];
    return two;
}

void CGroupRaces::SetTwo(SPage& page, ERaceKind eKind, size_t nUnit, const STwo& two)
{
    const uint32_t entries[2] = {static_cast<uint32_t>(two.nFirst), static_cast<uint32_t>(two.nOther)};
    const size_t nBytes = m_bShort ? sizeof entries : sizeof(STwo);
    if (!page.pKinds[eKind])
    {
        const size_t nAll = s_nPageBytes / page.nUnit * nBytes;
        page.pKinds[eKind] = static_cast<unsigned char*>(m_Arena.Take(nAll));
        std::memset(page.pKinds[eKind], 0xFF, nAll); // nobody
    }
    std::memcpy(page.pKinds[eKind] + nUnit * nBytes,
                m_bShort ? static_cast<const void*>(entries) : static_cast<const void*>(&two), nBytes);
}

void CGroupRaces::AddEntry(SPage& page, ERaceKind eKind, size_t nUnit, uint64_t nEntry)
{
    STwo two = GetTwo(page, eKind, nUnit);
    two.Add(nEntry, m_nGroupShift);
    SetTwo(page, eKind, nUnit, two);
}

void CGroupRaces::Split(SPage& page)
{
    if (page.nUnit == 1)
    {
        return;
    }
    const SPage words = page;
    page.nUnit = 1;
    for (const ERaceKind eKind : {RACE_READ, RACE_WRITE, RACE_ATOMIC})
    {
        page.pKinds[eKind] = nullptr;
        for (size_t n = 0; words.pKinds[eKind] && n < s_nPageBytes; ++n)
        {
            SetTwo(page, eKind, n, GetTwo(words, eKind, n / 4));
        }
    }
}

/// Takes the part of an access that is in a page.
void CGroupRaces::TouchPage(SPage& page, const SRaceAccess& access)
{
    const uint64_t nBegin = access.nAddress % s_nPageBytes;
    const uint64_t nEnd = std::min(nBegin + access.nBytes, s_nPageBytes);
    if ((nBegin | nEnd) % 4 != 0)
    {
        Split(page);
    }
    const uint64_t nEntry = MakeEntry(access.nGroup, access.nItem, access.nNumber);
    if (access.eKind == RACE_WRITE)
    {
        NoteValues(page, nBegin, nEnd, access.bytes);
    }
    for (uint64_t n = nBegin; n < nEnd; n += page.nUnit)
    {
        AddEntry(page, access.eKind, n / page.nUnit, nEntry);
    }
}

void CGroupRaces::NoteValues(SPage& page, uint64_t nBegin, uint64_t nEnd, const unsigned char* pBytes)
{
    if (!page.pValues)
    {
        page.pValues = new (m_Arena.Take(sizeof(SStoredValues))) SStoredValues();
    }
    page.pValues->Note(nBegin, nEnd, pBytes);
}

/// Other groups repeat the rows in the same order, so the part after the one found last is tried first.
CGroupRaces::SPart* CGroupRaces::FindPart(SPage& page, const SPart& part)
{
    const auto isSame = [&part](const SPart& other)
    {
        return other.nBegin == part.nBegin && other.nEnd == part.nEnd && other.nFirst == part.nFirst &&
               other.nStep == part.nStep && other.nBytes == part.nBytes && other.eKind == part.eKind &&
               other.nItem == part.nItem && other.nNumber == part.nNumber;
    };
    for (uint32_t n = 0; n < page.nParts; ++n)
    {
        const uint32_t nTried = page.nNext + n < page.nParts ? page.nNext + n : page.nNext + n - page.nParts;
        if (isSame(page.pParts[nTried]))
        {
            page.nNext = static_cast<uint16_t>(nTried + 1 < page.nParts ? nTried + 1 : 0);
            return &page.pParts[nTried];
        }
    }
    return nullptr;
}

/// Merges a part with one that differs only in its group, of which the two lowest groups are kept. \return false if
/// there is none
bool CGroupRaces::Merge(SPage& page, const SPart& part)
{
    SPart* const pSame = FindPart(page, part);
    if (pSame && part.nGroup < pSame->nGroup)
    {
        pSame->nOther = pSame->nGroup;
        pSame->nGroup = part.nGroup;
    }
    else if (pSame && part.nGroup > pSame->nGroup)
    {
        pSame->nOther = std::min(pSame->nOther, part.nGroup);
    }
    return pSame != nullptr;
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

/// Adds what one work-item of a part has touched to the units of its kind.
void CGroupRaces::SpreadItem(SPage& page, const SPart& part, uint32_t nItem, uint32_t nBegin, uint32_t nEnd)
{
    const uint64_t nEntry = MakeEntry(part.nGroup, part.nItem + nItem, part.nNumber);
    for (uint32_t n = nBegin; n < nEnd; n += page.nUnit)
    {
        AddEntry(page, part.eKind, n / page.nUnit, nEntry);
        if (part.nOther != ~0u)
        {
            AddEntry(page, part.eKind, n / page.nUnit, MakeEntry(part.nOther, part.nItem + nItem, part.nNumber));
        }
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

/// Notes the values that a row stores in a page that begins at nStart.
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
        const std::lock_guard<CSpinLock> lock(LockOf(nPage));
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
        const std::lock_guard<CSpinLock> lock(LockOf(nPage));
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
    const uint64_t nItemMask = (uint64_t(1) << (m_nGroupShift - m_nItemShift)) - 1;
    const uint64_t nNumberMask = (uint64_t(1) << m_nItemShift) - 1;
    const auto item = [&](uint64_t nEntry) {
        return m_Context.FindWorkItem(nEntry >> m_nGroupShift,
                                      static_cast<uint32_t>(nEntry >> m_nItemShift & nItemMask));
    };
    SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_RACE, m_vInstructions[nOne & nNumberMask], item(nOne));
    finding.nOther = m_vInstructions[nTwo & nNumberMask];
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
    const STwo writes = GetTwo(page, RACE_WRITE, nUnit);
    const STwo reads = GetTwo(page, RACE_READ, nUnit);
    const STwo atomics = GetTwo(page, RACE_ATOMIC, nUnit);
    SPlatformFinding like = {};
    like.nAddress = nAddress;
    like.nBytes = page.nUnit;
    const auto other = [this](const STwo& two, uint64_t nEntry)
    { return two.nFirst >> m_nGroupShift != nEntry >> m_nGroupShift ? two.nFirst : two.nOther; };
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

/// Whether groups may have raced in a page: at least one access must be a write or an atomic.
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
