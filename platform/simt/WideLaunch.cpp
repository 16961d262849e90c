#include "platform/simt/WideLaunch.h"

#include "platform/simt/Block.h"
#include "platform/simt/Schedule.h"
#include "platform/simt/Shares.h"
#include "platform/simt/TraceRecorder.h"
#include "platform/simt/WorkerPool.h"
#include "platform/simt/checks/AccessRecorder.h"
#include "platform/simt/checks/CheckRecorder.h"
#include "platform/simt/checks/Profile.h"
#include "platform/simt/checks/VisitCounts.h"

#include <xmmintrin.h>

#include <algorithm>
#include <new>
#include <tuple>

namespace KestrelPlatform
{

namespace
{

/// Instructions for which work-items are tracked; those at other instructions are only counted.
constexpr size_t s_nWatchedPlaces = 256;
constexpr size_t s_nOtherPlaces = 3;

/// Sets rounding to nearest and IEEE denormals, whatever the calling thread uses.
class CFloatDefaults
{
public:
    CFloatDefaults() : m_nOld(_mm_getcsr()) { _mm_setcsr(_MM_MASK_MASK | _MM_ROUND_NEAREST); }
    ~CFloatDefaults() { _mm_setcsr(m_nOld); }

private:
    const unsigned int m_nOld;
};

/// One thread's part of a launch: its blocks and local memory, which it uses for one group after the other.
class CGroupRunner
{
public:
    /// \param pVisits  receives the counts of visits; null for none
    /// \param pProfile  receives the profile; null for none
    /// \param pAccesses  receives watched accesses; null for none
    /// \param pChecks  receives findings; null for none
    CGroupRunner(SLaunchContext& context, const CProgram& program, uint32_t nThread, CVisitTotals* pVisits,
                 CProfileTotals* pProfile, std::vector<SPlatformAccess>* pAccesses, SCheckTotals* pChecks)
        : m_Context(context), m_Pending(nThread),
          m_vLocal((static_cast<size_t>(context.nLocalBytes) * context.nGroupsPerBlock + 7) / 8 + 1)
    {
        m_vStates.reserve(context.nBlocksPerGroup);
        if (pChecks)
        {
            m_pChecks = std::make_unique<SThreadChecks>(*pChecks);
        }
        unsigned char* const pLocal = reinterpret_cast<unsigned char*>(m_vLocal.data());
        for (uint32_t n = 0; n < context.nBlocksPerGroup; ++n)
        {
            m_vBlocks.push_back(std::make_unique<CBlock>(context, n, pLocal, m_Pending));
            if (context.launch.pTrace)
            {
                m_vRecorders.push_back(std::make_unique<CTraceRecorder>(*context.launch.pTrace, program));
            }
            else if (pAccesses)
            {
                m_vRecorders.push_back(std::make_unique<CAccessRecorder>(context.launch, *pAccesses));
            }
            else if (pProfile)
            {
                m_vRecorders.push_back(std::make_unique<CProfileRecorder>(*pProfile));
            }
            else if (pVisits)
            {
                m_vRecorders.push_back(std::make_unique<CVisitCounts>(*pVisits));
            }
            else if (pChecks)
            {
                m_vRecorders.push_back(std::make_unique<CCheckRecorder>(*m_pChecks, n == 0));
            }
        }
    }

    /// Runs jobs nFirst to nEnd; a job is as many groups as a block holds.
    void RunPiece(uint64_t nFirst, uint64_t nEnd)
    {
        for (uint64_t n = nFirst; n < nEnd && !m_Context.bStop.load(std::memory_order_relaxed); ++n)
        {
            Run(n * m_Context.nGroupsPerBlock);
        }
        for (const std::unique_ptr<IBlockRecorder>& pRecorder : m_vRecorders)
        {
            pRecorder->Finish();
        }
        m_Pending.Flush();
        m_Context.nEnded += m_nEnded;
        m_nEnded = 0;
    }

private:
    void Run(uint64_t nFirstGroup)
    {
        std::fill(m_vLocal.begin(), m_vLocal.end(), 0);
        for (size_t n = 0; n < m_vBlocks.size(); ++n)
        {
            m_vBlocks[n]->Start(nFirstGroup, m_vRecorders.empty() ? nullptr : m_vRecorders[n].get());
        }
        m_vStates.assign(m_vBlocks.size(), CBlock::Running);
        if (m_vBlocks.size() == 1)
        {
            m_vStates[0] = m_vBlocks[0]->Run();
        }
        else
        {
            RunInSteps();
        }
        if (std::find(m_vStates.begin(), m_vStates.end(), CBlock::Stopped) == m_vStates.end())
        {
            for (const std::unique_ptr<CBlock>& pBlock : m_vBlocks)
            {
                m_nEnded += pBlock->GetLive();
            }
            return;
        }
        for (size_t n = 0; n < m_vBlocks.size(); ++n)
        {
            m_vBlocks[n]->TellPlaces(m_vStates[n]);
        }
    }

    /// Runs the blocks of one group, each to its next barrier, until all are done. Blocks that wait at different
    /// barriers continue together, and the work-items missing at the first of them are reported.
    void RunInSteps()
    {
        const auto isDone = [this](size_t n) { return m_vStates[n] == CBlock::Done; };
        for (;;)
        {
            uint32_t nHere = 0;
            bool bWaiting = false;
            uint32_t nBarrier = 0;
            uint32_t nOther = ~0u; ///< a barrier at which others wait
            uint64_t nMissing = ~uint64_t(0);
            for (size_t n = 0; n < m_vBlocks.size(); ++n)
            {
                if (isDone(n))
                {
                    nMissing = std::min(nMissing, m_vBlocks[n]->GetFirstMissing(true));
                    continue;
                }
                m_vStates[n] = m_vBlocks[n]->Run();
                if (m_vStates[n] == CBlock::Stopped)
                {
                    return;
                }
                nBarrier = isDone(n) || bWaiting ? nBarrier : m_vBlocks[n]->GetBarrier();
                bWaiting = bWaiting || !isDone(n);
                nHere += isDone(n) ? 0 : m_vBlocks[n]->GetActive();
                const bool bElsewhere = !isDone(n) && m_vBlocks[n]->GetBarrier() != nBarrier;
                nOther = bElsewhere && nOther == ~0u ? m_vBlocks[n]->GetBarrier() : nOther;
                if (isDone(n) || bElsewhere || m_vBlocks[n]->GetActive() != m_vBlocks[n]->GetLive())
                {
                    nMissing = std::min(nMissing, m_vBlocks[n]->GetFirstMissing(isDone(n) || bElsewhere));
                }
            }
            if (!bWaiting)
            {
                return;
            }
            if (nHere != m_Context.nGroupSize || nOther != ~0u)
            {
                m_Context.CountUnreachedBarrier(nBarrier, nMissing);
                TellBarrier(nBarrier, nHere == m_Context.nGroupSize ? nOther : ~0u, nMissing);
            }
        }
    }

    void TellBarrier(uint32_t nInstruction, uint32_t nOther, uint64_t nWorkItem)
    {
        if (!m_pChecks || !(m_Context.launch.nChecks & PLATFORM_CHECK_BARRIER))
        {
            return;
        }
        SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_BARRIER, nInstruction, nWorkItem);
        finding.nOther = nOther;
        m_pChecks->findings.Add(finding);
    }

    SLaunchContext& m_Context;
    CPendingAdds m_Pending;
    std::vector<uint64_t> m_vLocal;
    std::vector<std::unique_ptr<CBlock>> m_vBlocks;
    std::unique_ptr<SThreadChecks> m_pChecks;
    std::vector<std::unique_ptr<IBlockRecorder>> m_vRecorders; ///< by block, or none
    std::vector<CBlock::EState> m_vStates;                     ///< of the blocks; Running before they have run
    uint64_t m_nEnded = 0;                                     ///< work-items of a piece's finished jobs
};

std::vector<uint32_t> BufferZero(const SLaunch& launch, const uint64_t* pGroups)
{
    std::vector<uint32_t> vWords(40, 0);
    for (uint32_t n = 0; n < 3; ++n)
    {
        vWords[n] = static_cast<uint32_t>(launch.nGlobalSize[n]);
        vWords[4 + n] = static_cast<uint32_t>(launch.nLocalSize[n]);
        vWords[8 + n] = static_cast<uint32_t>(pGroups[n]);
        vWords[12 + n] = launch.nHidden[n];
        vWords[24 + n] = static_cast<uint32_t>(launch.nGlobalOffset[n]);
        vWords[36 + n] = static_cast<uint32_t>(launch.nGlobalOffset[n]);
    }
    vWords[3] = launch.nDimensions;
    return vWords;
}

} // namespace

SLaunchContext::SLaunchContext(const SLaunch& launchIn, const SCode& codeIn)
    : launch(launchIn), code(codeIn), lanes(GetLaneTable())
{
    vFaults.reserve(s_nFaultRecords);
    vPlaces.reserve(s_nWatchedPlaces + s_nOtherPlaces);
    for (uint32_t n = 0; n < 3; ++n)
    {
        nGroups[n] = launch.nLocalSize[n] ? launch.nGlobalSize[n] / launch.nLocalSize[n] : 0;
    }
    nGroupCount = nGroups[0] * nGroups[1] * nGroups[2];
    nGroupSize = static_cast<uint32_t>(launch.nLocalSize[0] * launch.nLocalSize[1] * launch.nLocalSize[2]);
    if (nGroupSize != 0 && nGroupSize <= s_nLanes && !launch.watch)
    { // watched groups run one after the other
        nGroupsPerBlock =
            static_cast<uint32_t>(std::min<uint64_t>(s_nLanes / nGroupSize, std::max<uint64_t>(nGroupCount, 1)));
    }
    nBlocksPerGroup = (nGroupSize + s_nLanes - 1) / s_nLanes;
    for (const SCode::SLocalArea& area : code.vLocalAreas)
    {
        nDynamicStart = std::max(nDynamicStart, area.nOffset + area.nBytes);
    }
    nLocalBytes = (code.nLocalBytes + launch.nDynamicLocalBytes + 15) & ~15u;
    for (const SCode::SBuffer& buffer : code.vBuffers)
    {
        if (buffer.bInline)
        {
            vBuffers.push_back(buffer.vWords);
        }
        else if (buffer.nNumber == 0)
        {
            vBuffers.push_back(BufferZero(launch, nGroups));
        }
        else if (buffer.nNumber == 1)
        {
            vBuffers.push_back(launch.vConstantBuffer1);
        }
        else
        {
            const auto it = launch.mapConstantBuffers.find(buffer.nNumber);
            vBuffers.push_back(it == launch.mapConstantBuffers.end() ? std::vector<uint32_t>() : it->second);
        }
    }
    const auto image = [](const std::map<uint32_t, SImageBinding>& map, uint32_t nNumber)
    {
        const auto it = map.find(nNumber);
        return it == map.end() ? SImageBinding() : it->second;
    };
    for (const uint32_t nNumber : code.vResources)
    {
        vResources.push_back(image(launch.mapResources, nNumber));
    }
    for (const uint32_t nNumber : code.vUavs)
    {
        vUavs.push_back(image(launch.mapUavImages, nNumber));
    }
    for (const uint32_t nNumber : code.vSamplers)
    {
        const auto it = launch.mapSamplers.find(nNumber);
        vSamplers.push_back(it == launch.mapSamplers.end() ? SSamplerBinding() : it->second);
    }
}

uint64_t SLaunchContext::FindWorkItem(uint64_t nGroup, uint32_t nIndex) const
{
    const uint64_t nPlace[3] = {nGroup % nGroups[0], nGroup / nGroups[0] % nGroups[1],
                                nGroup / nGroups[0] / nGroups[1]};
    const size_t* const pSize = launch.nLocalSize;
    const uint64_t nId[3] = {nIndex % pSize[0], nIndex / pSize[0] % pSize[1], nIndex / pSize[0] / pSize[1]};
    uint64_t nItem = 0;
    for (int n = 2; n >= 0; --n)
    {
        nItem = nItem * launch.nGlobalSize[n] + nPlace[n] * pSize[n] + nId[n];
    }
    return nItem;
}

/// Keeps the first access of the lowest work-item, so that every run gives the same record.
void SLaunchContext::CountBadAccess(const SBadAccess& access)
{
    std::lock_guard<std::mutex> lock(faultMutex);
    if (nBadAccesses++ == 0 || access.nWorkItem < firstBadAccess.nWorkItem)
    {
        firstBadAccess = access;
    }
    KeepFault({access, false});
    if (!pFindings || !(launch.nChecks & PLATFORM_CHECK_MEMORY))
    {
        return;
    }
    const EPlatformFinding eKind = access.bReadOnly ? PLATFORM_FINDING_READ_ONLY : PLATFORM_FINDING_OUTSIDE;
    SPlatformFinding finding = MakeFinding(eKind, access.nInstruction, access.nWorkItem);
    finding.nMemory = access.eMemory;
    finding.bWrite = access.bWrite;
    finding.nAddress = access.nAddress;
    finding.nBytes = access.nBytes;
    pFindings->Add(finding);
}

void SLaunchContext::CountUnreachedBarrier(uint32_t nInstruction, uint64_t nWorkItem)
{
    std::lock_guard<std::mutex> lock(faultMutex);
    ++nUnreachedBarriers;
    SFaultRecord fault;
    fault.access.nInstruction = nInstruction;
    fault.access.nWorkItem = nWorkItem;
    fault.bBarrier = true;
    KeepFault(fault);
}

void SLaunchContext::Stop(bool bByBreak, uint32_t nInstruction, uint64_t nWorkItem)
{
    std::lock_guard<std::mutex> lock(faultMutex);
    if (bStop)
    {
        return;
    }
    bBroken = bByBreak;
    nStopInstruction = nInstruction;
    nStopWorkItem = nWorkItem;
    bStop = true;
}

void SLaunchContext::AddPlace(const SPlatformPlace& told)
{
    std::lock_guard<std::mutex> lock(faultMutex);
    SPlatformPlace place = told;
    if (vPlaces.size() >= s_nWatchedPlaces && place.nInstruction != SItem::NoInstruction)
    {
        place = {PLATFORM_WHERE_BESIDE, SItem::NoInstruction, place.nItems, place.nWorkItem, 0, 0};
    }
    const auto it = std::find_if(vPlaces.begin(), vPlaces.end(),
                                 [&](const SPlatformPlace& other)
                                 { return other.nWhere == place.nWhere && other.nInstruction == place.nInstruction; });
    if (it == vPlaces.end())
    {
        vPlaces.push_back(place);
        return;
    }
    it->nItems += place.nItems;
    it->nWorkItem = std::min(it->nWorkItem, place.nWorkItem);
    it->nLeast = std::min(it->nLeast, place.nLeast);
    it->nMost = std::max(it->nMost, place.nMost);
}

/// Keeps the lowest ones, so that every run gives the same records.
void SLaunchContext::KeepFault(const SFaultRecord& fault)
{
    const auto isBefore = [](const SFaultRecord& left, const SFaultRecord& right)
    {
        return std::tie(left.access.nWorkItem, left.access.nInstruction) <
               std::tie(right.access.nWorkItem, right.access.nInstruction);
    };
    const auto it = std::lower_bound(vFaults.begin(), vFaults.end(), fault, isBefore);
    if (it == vFaults.end() ? vFaults.size() == s_nFaultRecords : !isBefore(fault, *it))
    {
        return;
    }
    const auto nPlace = it - vFaults.begin();
    if (vFaults.size() == s_nFaultRecords)
    {
        vFaults.pop_back();
    }
    vFaults.insert(vFaults.begin() + nPlace, fault);
}

namespace
{

/// To be called after the launch.
std::vector<SPlatformFinding> FinishChecks(SCheckTotals& checks)
{
    const SLaunchContext& context = checks.context;
    if (checks.pGroups)
    {
        checks.pGroups->Report(checks.findings);
    }
    if (context.bStop && !context.bBroken && (context.launch.nChecks & PLATFORM_CHECK_BARRIER))
    {
        checks.findings.Add(MakeFinding(PLATFORM_FINDING_HANG, context.nStopInstruction, context.nStopWorkItem));
    }
    return checks.findings.List();
}

/// Where the work-items of a stopped launch are: adds the remaining ones to those that blocks have noted.
std::vector<SPlatformPlace> FinishPlaces(SLaunchContext& context)
{
    const auto add = [&](EPlatformWhere eWhere, uint64_t nItems)
    {
        if (nItems != 0)
        {
            context.AddPlace({eWhere, SItem::NoInstruction, nItems, ~uint64_t(0), 0, 0});
        }
    };
    add(PLATFORM_WHERE_ENDED, context.nEnded);
    uint64_t nTold = 0;
    for (const SPlatformPlace& place : context.vPlaces)
    {
        nTold += place.nItems;
    }
    add(PLATFORM_WHERE_NOT_BEGUN, context.nGroupCount * context.nGroupSize - nTold);
    std::sort(context.vPlaces.begin(), context.vPlaces.end(),
              [](const SPlatformPlace& left, const SPlatformPlace& right)
              { return std::tie(left.nWhere, left.nInstruction) < std::tie(right.nWhere, right.nInstruction); });
    return std::move(context.vPlaces);
}

} // namespace

SLaunchResult RunLaunch(const SLaunch& launch)
{
    SLaunchResult result;
    try
    {
        const CProgram& program = *launch.pProgram;
        const bool bWatch = launch.watch && !launch.pTrace;
        const bool bProfile = launch.bKeepProfile && !launch.pTrace && !bWatch;
        const bool bRecorded = launch.pTrace || (launch.bCountVisits && !bProfile && !bWatch);
        SLaunchContext context(launch, bRecorded ? program.GetTracedCode() : program.GetCode());
        CVisitTotals visits;
        CVisitTotals* const pVisits = bRecorded && launch.bCountVisits && program.IsTraceable() ? &visits : nullptr;
        CProfileTotals profile;
        const bool bChecks = launch.nChecks != 0 && !bRecorded && !bWatch && !bProfile;
        if (context.nGroupCount == 0 || context.nGroupSize == 0)
        {
            return result;
        }
        const uint64_t nJobs = (context.nGroupCount + context.nGroupsPerBlock - 1) / context.nGroupsPerBlock;
        std::unique_ptr<SCheckTotals> pChecks;
        if (bChecks)
        {
            pChecks = std::make_unique<SCheckTotals>(context);
            context.pFindings = &pChecks->findings;
        }
        CWorkerPool& pool = CWorkerPool::Get();
        std::atomic<bool> bNoMemory(false);
        const uint64_t nAllowed =
            launch.nMaxThreads ? std::min(launch.nMaxThreads, pool.GetThreads()) : pool.GetThreads();
        const uint64_t nThreads = launch.pTrace || bWatch ? 1 : std::min<uint64_t>(nAllowed, nJobs);
        // Neighbouring groups usually use neighbouring memory. So a thread takes up to 16 jobs at a time, fewer if
        // there aren't many, so that the threads finish at about the same time.
        const uint64_t nPiece =
            std::max(std::clamp<uint64_t>(nJobs / (nThreads * 32), 1, 16), nJobs / CShares::s_nMostPieces + 1);
        const uint64_t nPieces = (nJobs + nPiece - 1) / nPiece;
        const CSchedule schedule(launch.nSchedule, nPieces);
        CShares shares(static_cast<uint32_t>(nPieces), static_cast<uint32_t>(nThreads));
        const std::function<void()> task = [&]
        {
            const CFloatDefaults floats;
            const uint32_t nThread = context.nThreads++;
            try
            {
                CGroupRunner runner(context, program, nThread, pVisits, bProfile ? &profile : nullptr,
                                    bWatch ? &result.vAccesses : nullptr, pChecks.get());
                for (auto nTurn = shares.Take(nThread); nTurn && !context.bStop; nTurn = shares.Take(nThread))
                {
                    schedule.Pause(*nTurn);
                    const uint64_t nFirst = schedule.Piece(*nTurn) * nPiece;
                    runner.RunPiece(nFirst, std::min(nFirst + nPiece, nJobs));
                }
            }
            catch (const std::bad_alloc&)
            {
                bNoMemory = true;
            }
        };
        pool.Run(static_cast<uint32_t>(nThreads - 1), task, launch.pOwner);
        result.nBadAccesses = context.nBadAccesses;
        result.firstBadAccess = context.firstBadAccess;
        result.nUnreachedBarriers = context.nUnreachedBarriers;
        result.vFaults.swap(context.vFaults);
        result.vVisits = visits.Take();
        if (pChecks)
        {
            result.vFindings = FinishChecks(*pChecks);
            result.checkLimits = pChecks->FindLimits();
        }
        if (bProfile)
        {
            result.vProfile = profile.Spread(program);
        }
        result.nStopInstruction = context.nStopInstruction;
        result.nStopWorkItem = context.nStopWorkItem;
        if (context.bStop)
        {
            result.eStatus = context.bBroken ? SLaunchResult::Broken : SLaunchResult::InstructionLimit;
            result.vPlaces = FinishPlaces(context);
        }
        // If a thread gets no memory, the other threads do its groups; the launch fails only if groups are left. With
        // checks, which allocate while a group runs, a group may have been abandoned, so it fails in any case.
        else if (bNoMemory && (bChecks || shares.IsAnyLeft()))
        {
            result.eStatus = SLaunchResult::OutOfMemory;
        }
    }
    catch (const std::bad_alloc&)
    {
        result.eStatus = SLaunchResult::OutOfMemory;
    }
    return result;
}

} // namespace KestrelPlatform
