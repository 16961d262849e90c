#include "platform/simt/checks/CheckRecorder.h"

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

/// Groups of a block have 256 numbers at most.
const uint32_t s_nLocalSpace = 1024;

ERaceKind RaceKindOf(const SAccess& access)
{
    if (access.eOperation == SAccess::Atomic)
    {
        return RACE_ATOMIC;
    }
    return access.eOperation == SAccess::Load ? RACE_READ : RACE_WRITE;
}

void CopyStored(const CBlock& block, const SAccess& access, uint32_t nLane, unsigned char* pBytes)
{
    for (uint32_t n = 0; n < access.nWords; ++n)
    {
        std::memcpy(pBytes + n * access.nElementBytes, &block.Row(access.nRows[n])[nLane], access.nElementBytes);
    }
}

} // namespace

SCheckTotals::SCheckTotals(const SLaunchContext& contextIn) : context(contextIn), written(contextIn.launch.vMemory)
{
    const bool bRaces = (context.launch.nChecks & PLATFORM_CHECK_RACE) != 0;
    if (bRaces && context.nGroupSize < s_nMostRaceNumbers && context.code.vAccesses.size() < s_nMostRaceNumbers &&
        context.nGroupCount < 0xFFFFFFFFu)
    {
        pGroups = std::make_unique<CGroupRaces>(context);
        vInstructions = FindAccessInstructions(context.code);
    }
}

SPlatformCheckLimits SCheckTotals::FindLimits() const
{
    const bool bSkipped = (context.launch.nChecks & PLATFORM_CHECK_RACE) != 0 && !pGroups;
    return {bSkipped ? static_cast<uint32_t>(PLATFORM_CHECK_RACE) : 0, findings.IsCut() ? 1 : 0};
}

CCheckRecorder::CCheckRecorder(SThreadChecks& checks, bool bFirst) : m_Checks(checks), m_bFirst(bFirst)
{
    if (checks.totals.context.launch.nChecks & PLATFORM_CHECK_INIT)
    {
        m_pInit = std::make_unique<CInitRecorder>(checks.totals.context, checks.findings, checks.totals.written,
                                                  checks.vLocalShadow, bFirst);
    }
    if (checks.totals.context.launch.nChecks & PLATFORM_CHECK_NAN)
    {
        m_pNumbers = std::make_unique<CNumberRecorder>(checks.totals.context, checks.findings);
    }
    // Of larger groups the one that runs their blocks knows.
    if (checks.totals.context.nBlocksPerGroup == 1 && (checks.totals.context.launch.nChecks & PLATFORM_CHECK_BARRIER))
    {
        m_pBarriers = std::make_unique<CPartBarriers>(checks.totals.context, checks.findings);
    }
}

void CCheckRecorder::Barrier(const CBlock& block, const SMicroOp& step)
{
    ++m_nInterval;
    if (m_pBarriers)
    {
        m_pBarriers->Reach(block, step);
    }
}

void CCheckRecorder::Finish()
{
    if (m_pBarriers)
    {
        m_pBarriers->Finish();
    }
}

void CCheckRecorder::Stepping(const CBlock& block, const SMicroOp& step)
{
    if (m_pInit)
    {
        m_pInit->Stepping(block, step);
    }
    if (m_pNumbers)
    {
        m_pNumbers->Stepping(block, step);
    }
}

void CCheckRecorder::Stepped(const CBlock& block, const SMicroOp& step)
{
    if (m_pNumbers)
    {
        m_pNumbers->Stepped(block, step);
    }
}

void CCheckRecorder::Accessed(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    if (m_pNumbers)
    {
        m_pNumbers->Accessed(block, step, access);
    }
}

void CCheckRecorder::Start(const CBlock& block)
{
    if (m_pInit)
    {
        m_pInit->Start(block);
    }
    if (m_pNumbers)
    {
        m_pNumbers->Start();
    }
    m_nInterval = 0;
    Finish();
    if (m_bFirst)
    {
        m_Checks.races.Begin();
        m_Checks.rows.Begin();
    }
}

void CCheckRecorder::Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const uint32_t nAddressChecks = PLATFORM_CHECK_MEMORY | PLATFORM_CHECK_ALIGNMENT | PLATFORM_CHECK_RACE;
    if (m_pInit)
    {
        m_pInit->Accessing(block, step, access);
    }
    if (m_pNumbers)
    {
        m_pNumbers->Accessing(block, step, access);
    }
    if (access.eSpace == SAccess::Private || !(m_Checks.totals.context.launch.nChecks & nAddressChecks))
    {
        return;
    }
    const uint32_t nCheck = access.eOperation == SAccess::Atomic ? PLATFORM_CHECK_MEMORY : PLATFORM_CHECK_ALIGNMENT;
    const bool bAlignment = (m_Checks.totals.context.launch.nChecks & nCheck) != 0;
    m_vAddresses.resize(s_nLanes);
    if (bAlignment)
    {
        CheckAlignment(block, step, access);
    }
    if (m_Checks.totals.pGroups && !CheckRow(block, step, access))
    {
        CheckRaces(block, step, access);
    }
}

void CCheckRecorder::CheckAlignment(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const uint64_t nLow = access.nElementBytes - 1u;
    const uint32_t nFirst = block.GetFirstLane();
    block.FillAddresses(access, nFirst, block.GetEndLane(), m_vAddresses.data());
    uint64_t nAny = 0;
    for (uint32_t n = nFirst; n < block.GetEndLane(); ++n)
    {
        nAny |= m_vAddresses[n - nFirst];
    }
    if ((nAny & nLow) == 0)
    {
        return;
    }
    for (uint32_t n = nFirst; n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n) || (m_vAddresses[n - nFirst] & nLow) == 0)
        {
            continue;
        }
        SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_MISALIGNED, step.nInstruction, block.GetWorkItem(n));
        finding.nMemory = access.eSpace;
        finding.bWrite = access.eOperation != SAccess::Load;
        finding.nAddress = m_vAddresses[n - nFirst];
        finding.nBytes = access.nElementBytes;
        m_Checks.findings.Add(finding);
    }
}

/// \return false for what isn't in memory that can be written
bool CCheckRecorder::FindPlace(const CBlock& block, const SAccess& access, uint32_t nLane, SRaceAccess& race)
{
    const SLaunchContext& context = m_Checks.totals.context;
    const uint64_t nAddress = m_vAddresses[nLane - block.GetFirstLane()];
    if (access.eSpace == SAccess::Local)
    {
        const int64_t nOffset = block.LocalOffset(context.code.vLocalAreas[access.nArea], nAddress, race.nBytes);
        race.nAddress = static_cast<uint64_t>(nOffset);
        return nOffset >= 0;
    }
    const std::vector<SMemoryRange>& vMemory = context.launch.vMemory;
    const auto holds = [&](const SMemoryRange& range)
    { return nAddress - range.nAddress < range.nSize && range.nSize - (nAddress - range.nAddress) >= race.nBytes; };
    uint32_t nRange = m_nRange;
    if (nRange >= vMemory.size() || !holds(vMemory[nRange]))
    {
        const auto it = std::upper_bound(vMemory.begin(), vMemory.end(), nAddress,
                                         [](uint64_t n, const SMemoryRange& range) { return n < range.nAddress; });
        if (it == vMemory.begin() || !holds(*(it - 1)))
        {
            return false;
        }
        nRange = static_cast<uint32_t>(it - 1 - vMemory.begin());
    }
    if (nRange != m_nRange)
    {
        TouchGroups();
    }
    m_nRange = nRange;
    race.nAddress = nAddress - vMemory[nRange].nAddress;
    return !vMemory[nRange].bReadOnly;
}

void CCheckRecorder::TouchGroups()
{
    if (!m_vGlobal.empty())
    {
        m_Checks.totals.pGroups->Touch(m_nRange, m_vGlobal.data(), static_cast<uint32_t>(m_vGlobal.size()));
    }
    m_vGlobal.clear();
}

/// Whether bytes lie in the memory object that was found last, which can't be written.
bool CCheckRecorder::IsReadOnly(const SAccess& access, uint64_t nAddress, uint64_t nBytes) const
{
    const std::vector<SMemoryRange>& vMemory = m_Checks.totals.context.launch.vMemory;
    if (access.eSpace != SAccess::Global || m_nRange >= vMemory.size())
    {
        return false;
    }
    const SMemoryRange& range = vMemory[m_nRange];
    return range.bReadOnly && nAddress - range.nAddress < range.nSize &&
           range.nSize - (nAddress - range.nAddress) >= nBytes;
}

/// All lanes are active, and lie evenly within one memory object. \return false if not
bool CCheckRecorder::PlaceEven(const CBlock& block, const SAccess& access, SRaceRow& row)
{
    uint64_t nFirst = 0;
    uint64_t nLast = 0;
    if (block.GetActive() != row.nCount ||
        !block.IsEven(access, block.GetFirstLane(), block.GetEndLane(), nFirst, nLast))
    {
        return false;
    }
    row.nStep = row.nCount > 1 ? static_cast<int64_t>(nLast - nFirst) / int64_t{row.nCount - 1} : 0;
    const uint64_t nLow = std::min(nFirst, nLast);
    const uint64_t nBytes = std::max(nFirst, nLast) - nLow + row.nBytes;
    if (row.eKind == RACE_WRITE && row.nCount > 1 && row.nStep < row.nBytes && -row.nStep < row.nBytes)
    {
        return false;
    }
    SRaceAccess whole;
    m_vAddresses[0] = nLow;
    whole.nBytes = static_cast<uint32_t>(nBytes);
    if (nBytes > 0x7FFFFFFF)
    {
        return false;
    }
    if (!FindPlace(block, access, block.GetFirstLane(), whole))
    {
        return IsReadOnly(access, nLow, nBytes);
    }
    row.nLow = whole.nAddress;
    row.nEnd = whole.nAddress + nBytes;
    row.nFirst = whole.nAddress + (nFirst - nLow);
    return ((row.nFirst | static_cast<uint64_t>(row.nStep)) & 3) == 0;
}

/// Accesses within one memory object, of which writes go up without meeting. Leaves their places in m_vAddresses.
bool CCheckRecorder::PlaceUneven(const CBlock& block, const SAccess& access, SRaceRow& row)
{
    const uint32_t nBegin = block.GetFirstLane();
    block.FillAddresses(access, nBegin, block.GetEndLane(), m_vAddresses.data());
    SRaceAccess race;
    race.nBytes = row.nBytes;
    row.bEven = false;
    row.nLow = ~uint64_t(0);
    row.nEnd = 0;
    uint32_t nRange = ~0u;
    uint64_t nStart = 0;
    uint64_t nPlaces = 0; // from there on, at which an access is inside
    for (uint32_t n = nBegin; n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n))
        {
            m_vAddresses[n - nBegin] = CIntervalRows::s_nInactive;
            continue;
        }
        const uint64_t nAddress = m_vAddresses[n - nBegin];
        race.nAddress = nAddress - nStart;
        const bool bPlace = race.nAddress < nPlaces || FindPlace(block, access, n, race);
        if (!bPlace && IsReadOnly(access, nAddress, row.nBytes))
        {
            m_vAddresses[n - nBegin] = CIntervalRows::s_nInactive;
            continue;
        }
        if (!bPlace || race.nAddress % 4 != 0 || (row.eKind == RACE_WRITE && race.nAddress < row.nEnd) ||
            (access.eSpace == SAccess::Global && nRange != ~0u && race.nAddress != nAddress - nStart))
        {
            return false;
        }
        nRange = nRange != ~0u ? nRange : m_nRange;
        if (access.eSpace == SAccess::Global && nPlaces == 0)
        {
            nStart = m_Checks.totals.context.launch.vMemory[nRange].nAddress;
            nPlaces = m_Checks.totals.context.launch.vMemory[nRange].nSize - row.nBytes + 1;
        }
        m_vAddresses[n - nBegin] = race.nAddress;
        row.nLow = std::min(row.nLow, race.nAddress);
        row.nEnd = std::max(row.nEnd, race.nAddress + row.nBytes);
    }
    m_nRange = nRange != ~0u ? nRange : m_nRange; // what is read only may have been found last
    return true;
}

/// The same accesses as a row. \return false if they have to be looked at word by word
bool CCheckRecorder::CheckRow(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const SLaunchContext& context = m_Checks.totals.context;
    SRaceRow row;
    row.nBytes = LaneBytes(access);
    row.eKind = RaceKindOf(access);
    row.nNumber = static_cast<uint16_t>(step.nAux);
    row.nCount = block.GetEndLane() - block.GetFirstLane();
    if (context.nGroupsPerBlock > 1 || row.nBytes % 4 != 0)
    {
        return false;
    }
    if (!PlaceEven(block, access, row) && !PlaceUneven(block, access, row))
    {
        return false;
    }
    if (row.nLow >= row.nEnd)
    { // what can't be written can't race
        return true;
    }
    row.nSpace = access.eSpace == SAccess::Global ? (m_nRange + 1) * s_nLocalSpace : 0;
    row.nItem = static_cast<uint16_t>(block.LocalIndexOfLane(block.GetFirstLane()));
    m_vStored.resize(s_nLanes * 16);
    for (uint32_t n = 0; row.eKind == RACE_WRITE && n < row.nCount; ++n)
    {
        CopyStored(block, access, block.GetFirstLane() + n, &m_vStored[n * row.nBytes]);
    }
    if (!m_Checks.rows.Add(row, m_nInterval, m_vStored.data(), m_vAddresses.data()))
    {
        return false;
    }
    if (access.eSpace == SAccess::Global && context.nGroupCount > 1)
    {
        TouchGroupsRow(block, row, m_vStored.data());
    }
    return true;
}

/// A part of an uneven row that leaves no gaps. What an earlier part of it has touched is left to that one.
/// \return how many work-items it has; 0 if there is none at a lane
uint32_t CCheckRecorder::TouchGroupsPiece(const SRaceRow& row, uint32_t nLane, uint64_t nGroup,
                                          const unsigned char* pValues)
{
    const uint32_t nEnd = std::min(nLane + s_nGranule, row.nCount);
    const uint64_t nFirst = m_vAddresses[nLane];
    if (nLane % s_nGranule != 0 || nEnd - nLane < 2 || nFirst == CIntervalRows::s_nInactive)
    {
        return 0;
    }
    for (uint32_t n = nLane + 1; n < nEnd; ++n)
    {
        if (m_vAddresses[n] != nFirst + uint64_t{row.nBytes} * (n - nLane))
        {
            return 0;
        }
    }
    if (std::find(m_vPieces.begin(), m_vPieces.end(), nFirst) == m_vPieces.end())
    {
        SRaceRow piece = row;
        piece.nFirst = piece.nLow = nFirst;
        piece.nCount = nEnd - nLane;
        piece.nEnd = nFirst + uint64_t{row.nBytes} * piece.nCount;
        piece.nItem = static_cast<uint16_t>(row.nItem + nLane);
        m_Checks.totals.pGroups->TouchRow(m_nRange, piece, nGroup, pValues + size_t{nLane} * row.nBytes);
        m_vPieces.push_back(nFirst);
    }
    return nEnd - nLane;
}

void CCheckRecorder::TouchGroupsRow(const CBlock& block, const SRaceRow& row, const unsigned char* pValues)
{
    CGroupRaces& groups = *m_Checks.totals.pGroups;
    const uint64_t nGroup = block.GetGroup(block.GetFirstLane());
    if (row.bEven && row.nStep == static_cast<int64_t>(row.nBytes))
    {
        return groups.TouchRow(m_nRange, row, nGroup, pValues);
    }
    SRaceAccess race;
    race.nBytes = row.nBytes;
    race.eKind = row.eKind;
    race.nNumber = row.nNumber;
    race.nGroup = nGroup;
    // Of those that touch the same words the first one is the lowest.
    const uint32_t nCount = row.bEven && row.nStep == 0 ? 1 : row.nCount;
    m_vPieces.clear();
    for (uint32_t n = 0; n < nCount; ++n)
    {
        const uint32_t nPiece = row.bEven ? 0 : TouchGroupsPiece(row, n, nGroup, pValues);
        if (nPiece != 0)
        {
            n += nPiece - 1;
            continue;
        }
        race.nAddress = row.bEven ? row.nFirst + static_cast<uint64_t>(row.nStep * n) : m_vAddresses[n];
        if (!row.bEven && n > 0 && race.nAddress == m_vAddresses[n - 1])
        {
            continue;
        }
        race.nItem = static_cast<uint16_t>(row.nItem + n);
        if (row.eKind == RACE_WRITE)
        {
            std::memcpy(race.bytes, pValues + n * row.nBytes, row.nBytes);
        }
        if (race.nAddress != CIntervalRows::s_nInactive)
        {
            m_vGlobal.push_back(race);
        }
    }
    TouchGroups();
}

void CCheckRecorder::CheckRaces(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const SLaunchContext& context = m_Checks.totals.context;
    m_Checks.rows.GoToWords(m_Checks.races, m_nInterval);
    block.FillAddresses(access, block.GetFirstLane(), block.GetEndLane(), m_vAddresses.data());
    SRaceAccess race;
    race.nBytes = LaneBytes(access);
    race.eKind = RaceKindOf(access);
    race.nNumber = static_cast<uint16_t>(step.nAux);
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n) || !FindPlace(block, access, n, race))
        {
            continue;
        }
        const bool bGlobal = access.eSpace == SAccess::Global;
        race.nItem = static_cast<uint16_t>(block.LocalIndexOfLane(n));
        race.nGroup = block.GetGroup(n);
        if (race.eKind == RACE_WRITE)
        {
            CopyStored(block, access, n, race.bytes);
        }
        // Memory objects and the groups of a block have their own addresses.
        const uint32_t nSlot = context.nGroupsPerBlock > 1 ? n / context.nGroupSize : 0;
        const uint32_t nSpace = nSlot + (bGlobal ? (m_nRange + 1) * s_nLocalSpace : 0);
        m_Checks.races.Touch(race, nSpace, m_nInterval, m_vRaces);
        if (!m_vRaces.empty())
        {
            Report(block, step, access, n, race);
        }
        if (bGlobal && context.nGroupCount > 1)
        {
            m_vGlobal.push_back(race);
        }
    }
    TouchGroups();
}

void CCheckRecorder::Report(const CBlock& block, const SMicroOp& step, const SAccess& access, uint32_t nLane,
                            const SRaceAccess& race)
{
    const SLaunchContext& context = m_Checks.totals.context;
    for (const SIntervalRace& found : m_vRaces)
    {
        SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_RACE, step.nInstruction, block.GetWorkItem(nLane));
        finding.nMemory = access.eSpace;
        finding.bWrite = access.eOperation != SAccess::Load;
        finding.nOther = m_Checks.totals.vInstructions[found.nNumber];
        finding.nOtherItem = context.FindWorkItem(race.nGroup, found.nItem);
        finding.bOtherWrite = found.eKind != RACE_READ;
        finding.bUnequal = found.bUnequal;
        finding.nAddress = m_vAddresses[nLane - block.GetFirstLane()] + found.nOffset;
        finding.nBytes = found.nBytes;
        finding.bValues = race.eKind == RACE_WRITE && found.eKind == RACE_WRITE;
        finding.values[0] = finding.bValues ? found.nValue : 0;
        finding.values[1] = finding.bValues ? found.nOldValue : 0;
        m_Checks.findings.Add(finding);
    }
    m_vRaces.clear();
}

} // namespace KestrelPlatform
