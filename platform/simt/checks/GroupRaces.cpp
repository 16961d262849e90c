#include "platform/simt/checks/GroupRaces.h"

#include <algorithm>
#include <cstring>

#include "platform/simt/Block.h"
#include "platform/simt/checks/Findings.h"

namespace KestrelPlatform
{

namespace
{

const uint64_t s_nPageBytes = 4096;
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
            vInstructions[step.nAux] = step.nInstruction;
    }
    return vInstructions;
}

void CGroupRaces::STwo::Add(uint64_t nEntry)
{
    if (GroupOf(nEntry) == GroupOf(nFirst))
        nFirst = std::min(nFirst, nEntry);
    else if (nEntry < nFirst)
    {
        nOther = nFirst;
        nFirst = nEntry;
    }
    else
        nOther = std::min(nOther, nEntry);
}

CGroupRaces::CGroupRaces(const SLaunchContext& context)
    : m_Context(context), m_vInstructions(FindAccessInstructions(context.code))
{
    for (const SMemoryRange& range : context.launch.vMemory)
        m_vPages.emplace_back(range.bReadOnly ? 0 : (range.nSize + s_nPageBytes - 1) / s_nPageBytes);
}

CGroupRaces::~CGroupRaces() = default;

CGroupRaces::SPage& CGroupRaces::Page(uint32_t nRange, uint64_t nPage)
{
    std::unique_ptr<SPage>& pPage = m_vPages[nRange][nPage];
    if (!pPage)
        pPage = std::make_unique<SPage>();
    return *pPage;
}

void CGroupRaces::Split(SPage& page) const
{
    if (page.nUnit == 1)
        return;
    for (std::vector<STwo>& vKind : page.vKinds)
    {
        std::vector<STwo> vBytes;
        vBytes.reserve(vKind.size() * 4);
        for (const STwo& two : vKind)
            vBytes.insert(vBytes.end(), 4, two);
        vKind.swap(vBytes);
    }
    std::vector<SValue> vBytes;
    for (const SValue& value : page.vValues)
    {
        for (uint32_t n = 0; n < 4; ++n)
            vBytes.push_back({value.nFirst >> (8 * n) & 0xFF, value.bDiffer});
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
        Split(page);
    std::vector<STwo>& vKind = page.vKinds[access.eKind];
    if (vKind.empty())
        vKind.resize(s_nPageBytes / page.nUnit);
    const uint64_t nEntry = MakeEntry(access);
    for (uint64_t n = nBegin; n < nEnd; n += page.nUnit)
    {
        STwo& two = vKind[n / page.nUnit];
        if (access.eKind == RACE_WRITE)
        {
            if (page.vValues.empty())
                page.vValues.resize(s_nPageBytes / page.nUnit);
            SValue& value = page.vValues[n / page.nUnit];
            uint32_t nValue = 0;
            std::memcpy(&nValue, access.bytes + (n - nBegin), page.nUnit);
            value.bDiffer = value.bDiffer || (two.nFirst != s_nNobody && value.nFirst != nValue);
            value.nFirst = two.nFirst == s_nNobody ? nValue : value.nFirst;
        }
        two.Add(nEntry);
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
            TouchPage(page, pAccesses[n]);
    }
    for (uint32_t n = 0; n < nCount; ++n)
    {
        SRaceAccess rest = pAccesses[n];
        const uint64_t nHere = s_nPageBytes - rest.nAddress % s_nPageBytes;
        if (nHere >= rest.nBytes)
            continue;
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
        ReportPair(writes.nFirst, other(reads, writes.nFirst), like, findings);
    if (atomics.nFirst != s_nNobody && other(reads, atomics.nFirst) != s_nNobody)
        ReportPair(atomics.nFirst, other(reads, atomics.nFirst), like, findings);
    like.bOtherWrite = 1;
    if (writes.nFirst != s_nNobody && other(atomics, writes.nFirst) != s_nNobody)
        ReportPair(writes.nFirst, other(atomics, writes.nFirst), like, findings);
    like.bUnequal = !page.vValues.empty() && page.vValues[nUnit].bDiffer;
    if (writes.nOther != s_nNobody)
        ReportPair(writes.nFirst, writes.nOther, like, findings);
}

void CGroupRaces::Report(CFindings& findings) const
{
    for (size_t nRange = 0; nRange < m_vPages.size(); ++nRange)
    {
        for (size_t nPage = 0; nPage < m_vPages[nRange].size(); ++nPage)
        {
            const SPage* const pPage = m_vPages[nRange][nPage].get();
            const uint64_t nAddress = m_Context.launch.vMemory[nRange].nAddress + nPage * s_nPageBytes;
            for (size_t n = 0; pPage && n < s_nPageBytes / pPage->nUnit; ++n)
                ReportUnit(*pPage, n, nAddress + n * pPage->nUnit, findings);
        }
    }
}

} // namespace KestrelPlatform
