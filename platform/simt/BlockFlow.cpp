// How a block moves from step to step: branches, loops, calls and barriers.

#include "platform/simt/Block.h"

#include "platform/simt/BlockRecorder.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

/// If all lanes between two granules are active, the operations run without a mask. This also helps the half of a group
/// that a reduction continues with.
void CBlock::SetMask(const SLaneSpan& span)
{
    m_nActive = span.nActive;
    m_nBegin = span.nBegin;
    m_nEnd = span.nEnd;
    m_nLast = std::min(m_nEnd, m_nLive);
    m_pMask = m_nActive == m_nLast - m_nBegin ? nullptr : Row(s_nMaskRow);
}

void CBlock::GoOn(const SMicroOp& step)
{
    if (m_nActive == 0)
    {
        m_nStep = step.nTarget;
        return;
    }
    m_nExecuted += step.nFollow;
    ++m_nStep;
}

bool CBlock::MustStop() const
{
    return m_nExecuted > m_nLimit || m_Context.IsBreakAsked() || m_Context.bStop.load(std::memory_order_relaxed);
}

/// Stops this block, and all others unless they are stopped already.
CBlock::EState CBlock::StopAt(const SMicroOp& step)
{
    const bool bBreak = m_Context.IsBreakAsked();
    if (m_nExecuted > m_nLimit || bBreak)
    {
        uint32_t nLane = 0;
        while (nLane + 1 < m_nLive && !IsActive(nLane))
        {
            ++nLane;
        }
        m_Context.Stop(bBreak, step.nInstruction, GetWorkItem(nLane));
    }
    m_pStoppedAt = &step;
    return Stopped;
}

void CBlock::OpenBranch(const SMicroOp& step, uint32_t bInvert)
{
    SBranch& branch = m_vBranches[step.rows.d[0]];
    branch.span = Span();
    SetMask(m_Lanes.pfSplit(branch.span, Row(s_nMaskRow), Row(step.rows.d[0]), Row(step.rows.s[0]), bInvert));
    branch.nRest = branch.span.nActive - m_nActive;
}

void CBlock::OtherBranch(const SMicroOp& step)
{
    SBranch& branch = m_vBranches[step.rows.d[0]];
    branch.nRest = m_nActive;
    SetMask(m_Lanes.pfSwap(branch.span, Row(s_nMaskRow), Row(step.rows.d[0])));
}

/// If no work-item has left meanwhile, the mask is the one from before the branch.
void CBlock::CloseBranch(const SMicroOp& step)
{
    const SBranch& branch = m_vBranches[step.rows.d[0]];
    if (branch.nRest == 0)
    {
        return;
    }
    uint32_t* const pMask = Row(s_nMaskRow);
    m_Lanes.pfMerge(branch.span, pMask, Row(step.rows.d[0]));
    const bool bAll = m_nActive + branch.nRest == branch.span.nActive;
    SetMask(bAll ? branch.span : m_Lanes.pfSpan(pMask, branch.span.nBegin, branch.span.nEnd));
}

/// The condition is uniform, so the first work-item's value holds for all.
bool CBlock::HoldsForAll(const SMicroOp& step) const
{
    return (Row(step.rows.s[0])[0] != 0) != ((step.nFlags & s_nFlagInvert) != 0);
}

/// A uniform if takes all work-items or none, so their mask doesn't change. With none left, execution continues at the
/// other part or at the end.
void CBlock::OpenWhole(const SMicroOp& step)
{
    SBranch& branch = m_vBranches[step.rows.d[0]];
    branch.span = Span();
    branch.bTaken = HoldsForAll(step);
    branch.bOther = false;
    m_nActive = branch.bTaken ? m_nActive : 0;
}

/// The work-items that come out of the first part are those that haven't left meanwhile.
void CBlock::OtherWhole(const SMicroOp& step)
{
    SBranch& branch = m_vBranches[step.rows.d[0]];
    if (!branch.bTaken)
    {
        SetMask(branch.span);
    }
    else
    {
        branch.span = Span();
        m_nActive = 0;
    }
    branch.bOther = true;
}

void CBlock::CloseWhole(const SMicroOp& step)
{
    SBranch& branch = m_vBranches[step.rows.d[0]];
    // Neither part has run since the span was saved.
    if (branch.bTaken == branch.bOther)
    {
        SetMask(branch.span);
    }
}

void CBlock::OpenIf(const SMicroOp& step)
{
    if (step.nFlags & s_nFlagUniform)
    {
        OpenWhole(step);
    }
    else
    {
        OpenBranch(step, step.nFlags);
    }
}

void CBlock::OtherIf(const SMicroOp& step)
{
    if (step.nFlags & s_nFlagUniform)
    {
        OtherWhole(step);
    }
    else
    {
        OtherBranch(step);
    }
}

void CBlock::CloseIf(const SMicroOp& step)
{
    if (step.nFlags & s_nFlagUniform)
    {
        CloseWhole(step);
    }
    else
    {
        CloseBranch(step);
    }
}

void CBlock::LeaveAll(const SMicroOp& step)
{
    uint32_t* const pMask = Row(s_nMaskRow);
    m_Lanes.pfJoin(SLaneSpan(), Row(step.rows.d[0]), pMask);
    ClearRow(s_nMaskRow);
    SetMask(SLaneSpan());
}

/// Not inlined for the sake of RunLanes.
[[gnu::noinline]] void CBlock::RunUniform(const SMicroOp& step) const
{
    const PFLaneOp pfOperation = step.nOp < LANE_FIRST_SLOW ? m_Lanes.pFast[step.nOp] : GetSlowLaneOp(step.nOp);
    pfOperation(m_pRows, step.rows, nullptr, 0, s_nGranule);
    if (step.nFlags & s_nFlagSpread)
    {
        Spread(step.rows);
    }
}

/// Copies the results of the first lane to all.
void CBlock::Spread(const SLaneRows& rows) const
{
    for (const uint16_t nRow : rows.d)
    {
        if (nRow != s_nMaskRow)
        {
            m_Lanes.pfFill(m_pRows[nRow].w, m_pRows[nRow].w[0], 0, s_nLanes);
        }
    }
}

void CBlock::Loop(const SMicroOp& step)
{
    m_vPasses[step.rows.d[0]] = 0;
    ClearRow(step.rows.d[0]);
    if (step.nFlags)
    {
        ClearRow(step.rows.d[1]);
    }
    if (m_pTrace)
    {
        m_pTrace->Flow(*this, step.nInstruction);
    }
    GoOn(step);
}

void CBlock::EndLoop(const SMicroOp& step)
{
    m_Pending.Pass();
    ++m_vPasses[step.rows.d[0]];
    uint32_t* const pMask = Row(s_nMaskRow);
    if (step.nFlags)
    {
        SetMask(m_Lanes.pfJoin(Span(), pMask, Row(step.rows.d[1])));
        ClearRow(step.rows.d[1]);
    }
    if (m_nActive != 0)
    {
        const SMicroOp& loop = m_Code.vSteps[step.nAux];
        if (m_pTrace)
        {
            m_pTrace->NextPass();
            m_pTrace->Flow(*this, loop.nInstruction);
        }
        m_nExecuted += loop.nFollow + 1;
        m_nStep = step.nAux + 1;
        return;
    }
    SetMask(m_Lanes.pfJoin(Span(), pMask, Row(step.rows.d[0])));
    if (m_pTrace)
    {
        m_pTrace->CloseLoop();
        if (m_nActive != 0)
        {
            m_pTrace->Flow(*this, step.nInstruction);
        }
    }
    GoOn(step);
}

void CBlock::Switch(const SMicroOp& step)
{
    if (m_pTrace)
    {
        m_pTrace->Flow(*this, step.nInstruction);
    }
    std::memcpy(Row(step.rows.s[1]), Row(step.rows.s[0]), sizeof(SLaneRow));
    std::memcpy(Row(step.rows.d[1]), Row(s_nMaskRow), sizeof(SLaneRow));
    ClearRow(step.rows.d[0]);
    ClearRow(s_nMaskRow);
    SetMask(SLaneSpan());
    m_nStep = step.nTarget;
}

/// Takes the work-items whose selector matches no case, before or after the default.
void CBlock::Default(const SMicroOp& step)
{
    uint32_t* const pMask = Row(s_nMaskRow);
    uint32_t* const pPending = Row(step.rows.d[1]);
    const uint32_t* const pSelector = Row(step.rows.s[1]);
    const uint32_t nLater = m_Code.vCaseValues[step.nAux];
    const uint32_t* const pLater = m_Code.vCaseValues.data() + step.nAux + 1;
    for (uint32_t n = 0; n < s_nLanes; ++n)
    {
        uint32_t nTaken = pPending[n];
        for (uint32_t i = 0; i < nLater && nTaken; ++i)
        {
            nTaken = pSelector[n] == pLater[i] ? 0 : nTaken;
        }
        pPending[n] &= ~nTaken;
        pMask[n] |= nTaken;
    }
    SetMask(m_Lanes.pfSpan(pMask, 0, s_nLanes));
}

void CBlock::EndBody(const SMicroOp& step)
{
    if (m_pTrace && step.nInstruction != SItem::NoInstruction && m_nActive != 0)
    {
        m_pTrace->Flow(*this, step.nInstruction);
    }
    if (step.rows.d[0])
    {
        SetMask(m_Lanes.pfJoin(Span(), Row(s_nMaskRow), Row(step.rows.d[0])));
    }
    if (m_pTrace && step.nAux != 0)
    {
        m_pTrace->CloseCall();
    }
    m_nStep = m_vReturns[step.nAux];
}

void CBlock::Call(const SMicroOp& step)
{
    if (step.nFlags & s_nFlagConditional)
    {
        OpenBranch(step, step.nFlags & s_nFlagInvert);
    }
    m_nExecuted += step.nFollow;
    if (m_nActive == 0)
    {
        m_nStep = step.nTarget;
        return;
    }
    m_vReturns[step.nAux] = m_nStep + 1;
    m_nStep = m_Code.vBodyEntries[step.nAux];
    if (m_pTrace)
    {
        m_pTrace->OpenCall(step.nInstruction);
    }
}

/// If the group is within this block, all its work-items are here and nothing has to wait. Work-items
/// that aren't active don't reach the barrier.
CBlock::EState CBlock::Barrier(const SMicroOp& step)
{
    m_nBarrier = step.nInstruction;
    if (m_pTrace)
    {
        m_pTrace->Barrier(*this, step);
    }
    if (m_Context.nBlocksPerGroup > 1)
    {
        GoOn(step);
        return AtBarrier;
    }
    for (uint32_t nFirst = 0; m_nActive != m_nLive && nFirst < m_nLive; nFirst += m_Context.nGroupSize)
    {
        uint32_t nHere = 0;
        uint32_t nMissing = nFirst;
        for (uint32_t n = nFirst + m_Context.nGroupSize; n-- > nFirst;)
        {
            nHere += Row(s_nMaskRow)[n] & 1;
            nMissing = IsActive(n) ? nMissing : n;
        }
        if (nHere != 0 && nHere != m_Context.nGroupSize)
        {
            m_Context.CountUnreachedBarrier(step.nInstruction, GetWorkItem(nMissing));
        }
    }
    GoOn(step);
    return Running;
}

void CBlock::Outside(const SMicroOp& step)
{
    for (uint32_t n = m_nBegin; n < m_nLast; ++n)
    {
        if (IsActive(n))
        {
            CountBad(step, n, step.nAux, step.nFlags != 0, SBadAccess::Registers);
        }
    }
}

/// Runs the lane operations from a step up to a slow one. Not inlined, since the inner loop needs all registers.
/// \return the step after them
[[gnu::noinline]] uint32_t CBlock::RunLanes(uint32_t nStep) const
{
    const PFLaneOp* const pFast = m_Lanes.pFast;
    const SMicroOp* const pSteps = m_Code.vSteps.data();
    const SMicroOp* pStep = pSteps + nStep;
    SLaneRow* const pRows = m_pRows;
    const uint32_t* const pMask = m_pMask;
    const uint32_t nBegin = m_nBegin;
    const uint32_t nEnd = m_nEnd;
    for (;; ++pStep)
    {
        if (pStep->eKind == MICRO_LANE_FAST) [[likely]]
        {
            pFast[pStep->nOp](pRows, pStep->rows, pMask, nBegin, nEnd);
        }
        else if (pStep->eKind == MICRO_LANE_UNIFORM)
        {
            RunUniform(*pStep);
        }
        else
        {
            return static_cast<uint32_t>(pStep - pSteps);
        }
    }
}

/// The same for a recorder that sees each step.
uint32_t CBlock::RunSeenLanes(uint32_t nStep) const
{
    for (;; ++nStep)
    {
        const SMicroOp& step = m_Code.vSteps[nStep];
        if (step.eKind != MICRO_LANE_FAST && step.eKind != MICRO_LANE_UNIFORM)
        {
            return nStep;
        }
        m_pTrace->Stepping(*this, step);
        if (step.eKind == MICRO_LANE_FAST)
        {
            m_Lanes.pFast[step.nOp](m_pRows, step.rows, m_pMask, m_nBegin, m_nEnd);
        }
        else
        {
            RunUniform(step);
        }
        m_pTrace->Stepped(*this, step);
    }
}

void CBlock::RecordAccess(const SMicroOp& step, const SAccess& access)
{
    m_pTrace->Accessing(*this, step, access);
    Access(step, access);
    if (m_pTrace->SeesMemory())
    {
        m_Pending.Flush();
    }
    m_pTrace->Accessed(*this, step, access);
}

void CBlock::Enter(const SMicroOp& step)
{
    if (step.rows.d[0])
    {
        ClearRow(step.rows.d[0]);
    }
    if (m_pTrace)
    {
        m_pTrace->Entered(*this, step.nAux);
    }
    if (m_pTrace && step.nInstruction != SItem::NoInstruction)
    {
        m_pTrace->Flow(*this, step.nInstruction);
    }
    GoOn(step);
}

void CBlock::EndSwitch(const SMicroOp& step)
{
    uint32_t* const pMask = Row(s_nMaskRow);
    SetMask(m_Lanes.pfJoin(Span(), pMask, Row(step.rows.d[0])));
    SetMask(m_Lanes.pfJoin(Span(), pMask, Row(step.rows.d[1])));
}

/// A step that isn't control flow, and is rare.
void CBlock::RunOther(const SMicroOp& step)
{
    switch (step.eKind)
    {
    case MICRO_FENCE:
        return m_Pending.Flush();
    case MICRO_IMAGE:
        return Image(step, m_Code.vImages[step.nAux]);
    case MICRO_WAVE:
        return Wave(step);
    case MICRO_INDEX_LOAD:
        return IndexLoad(step, m_Code.vIndexed[step.nAux]);
    case MICRO_INDEX_STORE:
        return IndexStore(step, m_Code.vIndexed[step.nAux]);
    case MICRO_OUTSIDE:
        return Outside(step);
    case MICRO_TRACE:
        return m_pTrace->Written(*this, m_Code, step);
    default:
        return;
    }
}

CBlock::EState CBlock::Run()
{
    return m_pTrace ? RunSteps<true>() : RunSteps<false>();
}

/// Most launches have no recorder, so their steps don't look for one.
template <bool bRecorded>
CBlock::EState CBlock::RunSteps()
{
    const bool bSeen = bRecorded && m_bSeen;
    const auto tell = [this](const SMicroOp& step, bool bReached = true)
    {
        if (bRecorded && bReached)
        {
            m_pTrace->Flow(*this, step.nInstruction);
        }
    };
    const SMicroOp* const pSteps = m_Code.vSteps.data();
    for (;;)
    {
        const SMicroOp& step = pSteps[m_nStep];
        if (bSeen && step.eKind != MICRO_ACCESS && step.eKind != MICRO_LANE_FAST && step.eKind != MICRO_LANE_UNIFORM)
        {
            m_pTrace->Stepping(*this, step);
        }
        switch (step.eKind)
        {
        case MICRO_LANE_FAST:
            m_nStep = bSeen ? RunSeenLanes(m_nStep) : RunLanes(m_nStep);
            break;
        case MICRO_LANE_UNIFORM:
            // Often alone: the condition of a loop.
            if (bSeen)
            {
                m_nStep = RunSeenLanes(m_nStep);
            }
            else
            {
                RunUniform(step);
                ++m_nStep;
            }
            break;
        case MICRO_LANE_SLOW:
            GetSlowLaneOp(step.nOp)(m_pRows, step.rows, m_pMask, m_nBegin, m_nEnd);
            if (bSeen)
            {
                m_pTrace->Stepped(*this, step);
            }
            ++m_nStep;
            break;
        case MICRO_ACCESS:
            if (bRecorded)
            {
                RecordAccess(step, m_Code.vAccesses[step.nAux]);
            }
            else
            {
                Access(step, m_Code.vAccesses[step.nAux]);
            }
            ++m_nStep;
            break;
        case MICRO_ENTER:
            Enter(step);
            if (MustStop())
            {
                return StopAt(step);
            }
            break;
        case MICRO_IF:
            OpenIf(step);
            tell(step);
            GoOn(step);
            break;
        case MICRO_ELSE:
        {
            const uint32_t nBefore = m_nActive;
            OtherIf(step);
            tell(step, (nBefore | m_nActive) != 0);
            GoOn(step);
            break;
        }
        case MICRO_END_IF:
            CloseIf(step);
            tell(step, m_nActive != 0);
            GoOn(step);
            break;
        case MICRO_LOOP:
            if (bRecorded)
            {
                m_pTrace->OpenLoop(step.nInstruction, pSteps[step.nTarget].nInstruction);
            }
            Loop(step);
            break;
        case MICRO_LEAVE:
            tell(step, step.nFlags != 0);
            LeaveAll(step);
            tell(step, step.nFlags == 0);
            GoOn(step);
            break;
        case MICRO_LEAVE_IF:
            if (!(step.nFlags & s_nFlagUniform))
            {
                SetMask(
                    m_Lanes.pfLeave(Span(), Row(s_nMaskRow), Row(step.rows.d[0]), Row(step.rows.s[0]), step.nFlags));
            }
            else if (HoldsForAll(step))
            {
                LeaveAll(step);
            }
            tell(step);
            GoOn(step);
            break;
        case MICRO_END_LOOP:
            EndLoop(step);
            if (MustStop())
            {
                return StopAt(step);
            }
            break;
        case MICRO_SWITCH:
            Switch(step);
            break;
        case MICRO_CASE:
            SetMask(m_Lanes.pfCase(Row(s_nMaskRow), Row(step.rows.d[1]), Row(step.rows.s[1]), step.nAux));
            tell(step);
            GoOn(step);
            break;
        case MICRO_DEFAULT:
            Default(step);
            tell(step);
            GoOn(step);
            break;
        case MICRO_END_SWITCH:
            EndSwitch(step);
            tell(step, m_nActive != 0);
            GoOn(step);
            break;
        case MICRO_CALL:
            Call(step);
            break;
        case MICRO_AFTER_CALL:
            CloseBranch(step);
            GoOn(step);
            break;
        case MICRO_END_BODY:
            EndBody(step);
            if (step.nAux == 0)
            {
                return Done;
            }
            break;
        case MICRO_BARRIER:
            if (Barrier(step) == AtBarrier)
            {
                return AtBarrier;
            }
            break;
        default:
            RunOther(step);
            ++m_nStep;
            break;
        }
    }
}

} // namespace KestrelPlatform
