#include "platform/simt/checks/CheckRecorder.h"

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

/// Numbers of address spaces for each memory object, more than a block has groups.
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

template <class T>
void CopyNarrow(const uint32_t* pFrom, uint32_t nCount, unsigned char* pTo)
{
    for (uint32_t n = 0; n < nCount; ++n)
    {
        const T value = static_cast<T>(pFrom[n]);
        std::memcpy(pTo + n * sizeof(T), &value, sizeof(T));
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
    if (checks.totals.pGroups && checks.totals.context.nGroupCount > 1)
    {
        m_pGroupRows = std::make_unique<CGroupRows>(*checks.totals.pGroups);
    }
    // Barriers of larger groups are checked where their blocks are run.
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
    if (m_pGroupRows)
    {
        m_pGroupRows->Flush();
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
    if (m_Checks.totals.pGroups && !CheckRows(block, step, access))
    {
        CheckRaces(block, step, access);
    }
}

void CCheckRecorder::CheckAlignment(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const uint64_t nLow = access.nElementBytes - 1u;
    if (block.AreAligned(access, access.nElementBytes))
    {
        return;
    }
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

/// Finds a lane's place in a memory object or in local memory. \return false if it isn't in writable memory
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

/// Whether the memory object found last contains these bytes and is read-only.
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

/// Places lanes that are all active and whose addresses are a plane within one memory object. \return false for others
bool CCheckRecorder::PlacePlane(const CBlock& block, const SAccess& access, const SLanes& lanes, SRaceRow& row)
{
    SAddressPlane& plane = row.plane;
    if (block.GetActive() != block.GetEndLane() - block.GetFirstLane() ||
        !block.FindPlane(access, lanes.nBegin, lanes.nEnd, plane) ||
        (row.eKind == RACE_WRITE && !plane.IsApart(row.nCount, row.nBytes)))
    {
        return false;
    }
    const uint64_t nLow = plane.GetLow(row.nCount);
    if (!PlaceWhole(block, access, nLow, plane.GetHigh(row.nCount), row))
    {
        return false;
    }
    plane.nFirst = row.nLow + (plane.nFirst - nLow);
    return row.nLow >= row.nEnd || row.nBytes % 4 != 0 ||
           ((plane.nFirst | static_cast<uint64_t>(plane.nStep) | static_cast<uint64_t>(plane.nPieceStep)) & 3) == 0;
}

/// Places the range from the lowest to the highest address. In read-only memory the place is empty, since nothing can
/// race there. \return false if the range isn't within one memory object
bool CCheckRecorder::PlaceWhole(const CBlock& block, const SAccess& access, uint64_t nLow, uint64_t nHigh,
                                SRaceRow& row)
{
    const uint64_t nBytes = nHigh - nLow + row.nBytes;
    SRaceAccess whole;
    m_vAddresses[0] = nLow;
    whole.nBytes = static_cast<uint32_t>(nBytes);
    row.nLow = row.nEnd = 0;
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
    return true;
}

/// Places accesses within one memory object, each lane in m_vAddresses. \return false for others, and for writes whose
/// addresses don't ascend or whose bytes overlap
bool CCheckRecorder::PlaceListed(const CBlock& block, const SAccess& access, SRaceRow& row)
{
    const uint32_t nBegin = block.GetFirstLane();
    row.bPlane = false;
    uint64_t nLow = 0;
    uint64_t nHigh = 0;
    if (!block.FindRange(access, nLow, nHigh) || !PlaceWhole(block, access, nLow, nHigh, row))
    {
        return PlaceEach(block, access, row);
    }
    if (row.nLow >= row.nEnd)
    {
        return true;
    }
    block.FillAddresses(access, nBegin, block.GetEndLane(), m_vAddresses.data());
    const uint64_t nMoved = row.nLow - nLow;
    const uint32_t* const pMask = block.Mask() + nBegin;
    uint64_t nAny = 0;
    for (uint32_t n = 0; n < row.nCount; ++n)
    {
        const uint64_t nInactive = pMask[n] != 0 ? 0 : CIntervalRows::s_nInactive;
        nAny |= (m_vAddresses[n] + nMoved) & ~nInactive;
        m_vAddresses[n] = (m_vAddresses[n] + nMoved) | nInactive;
    }
    return (nAny % 4 == 0 || row.nBytes % 4 != 0) && (row.eKind != RACE_WRITE || GoUp(row));
}

/// Whether the active work-items' bytes ascend without overlapping.
bool CCheckRecorder::GoUp(const SRaceRow& row) const
{
    uint64_t nEnd = 0;
    for (uint32_t n = 0; n < row.nCount; ++n)
    {
        const bool bActive = m_vAddresses[n] != CIntervalRows::s_nInactive;
        if (bActive && m_vAddresses[n] < nEnd)
        {
            return false;
        }
        nEnd = bActive ? m_vAddresses[n] + row.nBytes : nEnd;
    }
    return true;
}

/// The same, by looking at each lane: some may be outside of memory or in read-only memory.
bool CCheckRecorder::PlaceEach(const CBlock& block, const SAccess& access, SRaceRow& row)
{
    const uint32_t nBegin = block.GetFirstLane();
    block.FillAddresses(access, nBegin, block.GetEndLane(), m_vAddresses.data());
    SRaceAccess race;
    race.nBytes = row.nBytes;
    row.nLow = ~uint64_t(0);
    row.nEnd = 0;
    uint32_t nRange = ~0u;
    for (uint32_t n = nBegin; n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n))
        {
            m_vAddresses[n - nBegin] = CIntervalRows::s_nInactive;
            continue;
        }
        const uint64_t nAddress = m_vAddresses[n - nBegin];
        const bool bPlace = FindPlace(block, access, n, race);
        if (!bPlace && IsReadOnly(access, nAddress, row.nBytes))
        {
            m_vAddresses[n - nBegin] = CIntervalRows::s_nInactive;
            continue;
        }
        if (!bPlace || (race.nAddress % 4 != 0 && row.nBytes % 4 == 0) ||
            (row.eKind == RACE_WRITE && race.nAddress < row.nEnd) ||
            (access.eSpace == SAccess::Global && nRange != ~0u && nRange != m_nRange))
        {
            return false;
        }
        nRange = m_nRange;
        m_vAddresses[n - nBegin] = race.nAddress;
        row.nLow = std::min(row.nLow, race.nAddress);
        row.nEnd = std::max(row.nEnd, race.nAddress + row.nBytes);
    }
    m_nRange = nRange != ~0u ? nRange : m_nRange; // the one found last may be read-only
    return true;
}

/// What lanes store, one work-item after the other.
const unsigned char* CCheckRecorder::StoredOf(const CBlock& block, const SAccess& access, const SLanes& lanes)
{
    if (access.nWords == 1 && access.nElementBytes == 4)
    {
        return reinterpret_cast<const unsigned char*>(block.Row(access.nRows[0]) + lanes.nBegin);
    }
    m_vStored.resize(s_nLanes * 16);
    if (access.nWords == 1)
    {
        const auto copy = access.nElementBytes == 1 ? CopyNarrow<uint8_t> : CopyNarrow<uint16_t>;
        copy(block.Row(access.nRows[0]) + lanes.nBegin, lanes.nEnd - lanes.nBegin, m_vStored.data());
        return m_vStored.data();
    }
    for (uint32_t n = lanes.nBegin; n < lanes.nEnd; ++n)
    {
        CopyStored(block, access, n, &m_vStored[size_t{n - lanes.nBegin} * TotalBytes(access)]);
    }
    return m_vStored.data();
}

/// Checks an access as rows, one for each group. \return false if it has to be checked word by word; rows of it that
/// are kept already do no harm
bool CCheckRecorder::CheckRows(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const SLaunchContext& context = m_Checks.totals.context;
    const uint32_t nEnd = block.GetEndLane();
    if (context.nGroupsPerBlock == 1)
    {
        return CheckRow(block, step, access, {block.GetFirstLane(), nEnd});
    }
    if (context.nGroupSize < s_nGranule || block.GetActive() != nEnd - block.GetFirstLane())
    {
        return false;
    }
    for (uint32_t n = block.GetFirstLane(); n < nEnd;)
    {
        const uint32_t nNext = std::min(nEnd, (n / context.nGroupSize + 1) * context.nGroupSize);
        if (!CheckRow(block, step, access, {n, nNext}))
        {
            return false;
        }
        n = nNext;
    }
    return true;
}

bool CCheckRecorder::CheckRow(const CBlock& block, const SMicroOp& step, const SAccess& access, const SLanes& lanes)
{
    SRaceRow row;
    row.nBytes = LaneBytes(access);
    row.eKind = RaceKindOf(access);
    row.nNumber = static_cast<uint16_t>(step.nAux);
    row.nCount = lanes.nEnd - lanes.nBegin;
    const bool bOneGroup = m_Checks.totals.context.nGroupsPerBlock == 1;
    if (!PlacePlane(block, access, lanes, row) && (!bOneGroup || !PlaceListed(block, access, row)))
    {
        return false;
    }
    if (row.nLow >= row.nEnd)
    { // read-only memory
        return true;
    }
    row.nSpace = SpaceOf(access, lanes.nBegin);
    row.nItem = static_cast<uint16_t>(block.LocalIndexOfLane(lanes.nBegin));
    const unsigned char* const pStored = row.eKind == RACE_WRITE ? StoredOf(block, access, lanes) : nullptr;
    if (!m_Checks.rows.Add(row, m_nInterval, pStored, m_vAddresses.data()))
    {
        return false;
    }
    if (m_pGroupRows && access.eSpace == SAccess::Global)
    {
        m_pGroupRows->Touch(m_nRange, row, block.GetGroup(lanes.nBegin), pStored, m_vAddresses.data());
    }
    return true;
}

/// The number of the access's address space. Each group of a block has one for local memory and one for each memory
/// object.
uint32_t CCheckRecorder::SpaceOf(const SAccess& access, uint32_t nLane) const
{
    const SLaunchContext& context = m_Checks.totals.context;
    const uint32_t nSlot = context.nGroupsPerBlock > 1 ? nLane / context.nGroupSize : 0;
    return nSlot + (access.eSpace == SAccess::Global ? (m_nRange + 1) * s_nLocalSpace : 0);
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
        m_Checks.races.Touch(race, SpaceOf(access, n), m_nInterval, m_vRaces);
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
