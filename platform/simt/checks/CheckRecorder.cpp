#include "platform/simt/checks/CheckRecorder.h"

#include <algorithm>
#include <cstring>

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

namespace KestrelPlatform
{

namespace
{

/// Groups of a block have 256 numbers at most.
const uint32_t s_nLocalSpace = 1024;

ERaceKind RaceKindOf(const SAccess& access)
{
    if (access.eOperation == SAccess::Atomic)
        return RACE_ATOMIC;
    return access.eOperation == SAccess::Load ? RACE_READ : RACE_WRITE;
}

void CopyStored(const CBlock& block, const SAccess& access, uint32_t nLane, unsigned char* pBytes)
{
    for (uint32_t n = 0; n < access.nWords; ++n)
        std::memcpy(pBytes + n * access.nElementBytes, &block.Row(access.nRows[n])[nLane], access.nElementBytes);
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

CCheckRecorder::CCheckRecorder(SThreadChecks& checks, bool bFirst) : m_Checks(checks), m_bFirst(bFirst)
{
    if (checks.totals.context.launch.nChecks & PLATFORM_CHECK_INIT)
        m_pInit = std::make_unique<CInitRecorder>(checks.totals.context, checks.findings, checks.totals.written,
                                                  checks.vLocalShadow, bFirst);
    if (checks.totals.context.launch.nChecks & PLATFORM_CHECK_NAN)
        m_pNumbers = std::make_unique<CNumberRecorder>(checks.totals.context, checks.findings);
}

void CCheckRecorder::Stepping(const CBlock& block, const SMicroOp& step)
{
    if (m_pInit)
        m_pInit->Stepping(block, step);
    if (m_pNumbers)
        m_pNumbers->Stepping(block, step);
}

void CCheckRecorder::Stepped(const CBlock& block, const SMicroOp& step)
{
    if (m_pNumbers)
        m_pNumbers->Stepped(block, step);
}

void CCheckRecorder::Accessed(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    if (m_pNumbers)
        m_pNumbers->Accessed(block, step, access);
}

void CCheckRecorder::Start(const CBlock& block)
{
    if (m_pInit)
        m_pInit->Start(block);
    if (m_pNumbers)
        m_pNumbers->Start();
    m_nInterval = 0;
    if (m_bFirst)
        m_Checks.races.Begin();
}

void CCheckRecorder::Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const uint32_t nAddressChecks = PLATFORM_CHECK_MEMORY | PLATFORM_CHECK_ALIGNMENT | PLATFORM_CHECK_RACE;
    if (m_pInit)
        m_pInit->Accessing(block, step, access);
    if (m_pNumbers)
        m_pNumbers->Accessing(block, step, access);
    if (access.eSpace == SAccess::Private || !(m_Checks.totals.context.launch.nChecks & nAddressChecks))
        return;
    const uint32_t nCheck = access.eOperation == SAccess::Atomic ? PLATFORM_CHECK_MEMORY : PLATFORM_CHECK_ALIGNMENT;
    const bool bAlignment = (m_Checks.totals.context.launch.nChecks & nCheck) != 0;
    if (!bAlignment && !m_Checks.totals.pGroups)
        return;
    m_vAddresses.resize(s_nLanes);
    block.FillAddresses(access, block.GetFirstLane(), block.GetEndLane(), m_vAddresses.data());
    if (bAlignment)
        CheckAlignment(block, step, access);
    if (m_Checks.totals.pGroups)
        CheckRaces(block, step, access);
}

void CCheckRecorder::CheckAlignment(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const uint64_t nLow = access.nElementBytes - 1u;
    const uint32_t nFirst = block.GetFirstLane();
    uint64_t nAny = 0;
    for (uint32_t n = nFirst; n < block.GetEndLane(); ++n)
        nAny |= m_vAddresses[n - nFirst];
    if ((nAny & nLow) == 0)
        return;
    for (uint32_t n = nFirst; n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n) || (m_vAddresses[n - nFirst] & nLow) == 0)
            continue;
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
            return false;
        nRange = static_cast<uint32_t>(it - 1 - vMemory.begin());
    }
    if (nRange != m_nRange)
        TouchGroups();
    m_nRange = nRange;
    race.nAddress = nAddress - vMemory[nRange].nAddress;
    return !vMemory[nRange].bReadOnly;
}

void CCheckRecorder::TouchGroups()
{
    if (!m_vGlobal.empty())
        m_Checks.totals.pGroups->Touch(m_nRange, m_vGlobal.data(), static_cast<uint32_t>(m_vGlobal.size()));
    m_vGlobal.clear();
}

void CCheckRecorder::CheckRaces(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const SLaunchContext& context = m_Checks.totals.context;
    SRaceAccess race;
    race.nBytes = LaneBytes(access);
    race.eKind = RaceKindOf(access);
    race.nNumber = static_cast<uint16_t>(step.nAux);
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n) || !FindPlace(block, access, n, race))
            continue;
        const bool bGlobal = access.eSpace == SAccess::Global;
        race.nItem = static_cast<uint16_t>(block.LocalIndexOfLane(n));
        race.nGroup = block.GetGroup(n);
        if (race.eKind == RACE_WRITE)
            CopyStored(block, access, n, race.bytes);
        // Memory objects and the groups of a block have their own addresses.
        const uint32_t nSlot = context.nGroupsPerBlock > 1 ? n / context.nGroupSize : 0;
        const uint32_t nSpace = nSlot + (bGlobal ? (m_nRange + 1) * s_nLocalSpace : 0);
        m_Checks.races.Touch(race, nSpace, m_nInterval, m_vRaces);
        if (!m_vRaces.empty())
            Report(block, step, access, n, race);
        if (bGlobal && context.nGroupCount > 1)
            m_vGlobal.push_back(race);
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
