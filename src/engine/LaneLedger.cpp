#include "engine/LaneLedger.h"

#include <algorithm>
#include <utility>

namespace OVK_ShaderDebugger
{

struct CLaneLedger::SOuter
{
    SCall call;
    std::shared_ptr<SOuter> pOuter;
};

CLaneLedger& CLaneLedger::operator=(CLaneLedger other) noexcept
{
    m_Call = std::move(other.m_Call);
    m_pOuter.swap(other.m_pOuter);
    return *this;
}

/// Deletes the outer calls in a loop. If each call deleted the next one, a deep chain of calls could exhaust the stack.
CLaneLedger::~CLaneLedger()
{
    while (m_pOuter != nullptr && m_pOuter.use_count() == 1)
    {
        m_pOuter = std::exchange(m_pOuter->pOuter, nullptr);
    }
}

void CLaneLedger::SetActive(uint64_t nActive)
{
    SCall& call = m_Call;
    if (call.nBeforeDoubt.has_value())
    {
        // The missing work-items have gone to the doubtful places.
        const uint64_t nGone = *call.nBeforeDoubt > nActive ? *call.nBeforeDoubt - nActive : 0;
        for (SBlock& block : call.vBlocks)
        {
            for (SWaiting& waiting : block.vWaiting)
            {
                if (waiting.bDoubt && (nGone == 0 || call.nDoubtful == 1))
                {
                    waiting.count = {waiting.count.nSure + nGone, false};
                }
            }
        }
    }
    Replace({nActive, false});
}

void CLaneLedger::Replace(const SLaneCount& active)
{
    SCall& call = m_Call;
    Forget(call);
    call.active = active;
}

/// From now on no count can settle the places in doubt.
void CLaneLedger::Forget(SCall& call)
{
    call.nBeforeDoubt.reset();
    call.nDoubtful = 0;
    for (SBlock& block : call.vBlocks)
    {
        for (SWaiting& waiting : block.vWaiting)
        {
            waiting.bDoubt = false;
        }
    }
}

void CLaneLedger::EnterCall()
{
    SCall call;
    call.active = GetActive();
    m_pOuter = std::make_shared<SOuter>(SOuter{std::exchange(m_Call, std::move(call)), std::move(m_pOuter)});
}

void CLaneLedger::LeaveCall()
{
    if (m_pOuter != nullptr)
    {
        m_Call = m_pOuter->call;
        std::shared_ptr<SOuter> pOuter = m_pOuter->pOuter;
        m_pOuter = std::move(pOuter);
    }
}

void CLaneLedger::Open(InstructionNumber nBlock, bool bLoop)
{
    if (IsOpen(nBlock))
    {
        return;
    }
    SBlock block;
    block.nStart = nBlock;
    block.bLoop = bLoop;
    m_Call.vBlocks.push_back(std::move(block));
}

void CLaneLedger::Close(InstructionNumber nBlock)
{
    std::vector<SBlock>& vBlocks = m_Call.vBlocks;
    const auto it =
        std::find_if(vBlocks.begin(), vBlocks.end(), [&](const SBlock& block) { return block.nStart >= nBlock; });
    vBlocks.erase(it, vBlocks.end());
}

bool CLaneLedger::IsOpen(InstructionNumber nBlock) const
{
    const std::vector<SBlock>& vBlocks = m_Call.vBlocks;
    return std::any_of(vBlocks.begin(), vBlocks.end(), [&](const SBlock& block) { return block.nStart == nBlock; });
}

CLaneLedger::SBlock* CLaneLedger::Find(InstructionNumber nBlock)
{
    for (SBlock& block : m_Call.vBlocks)
    {
        if (block.nStart == nBlock)
        {
            return &block;
        }
    }
    return nullptr;
}

CLaneLedger::SWaiting& CLaneLedger::At(SBlock& block, InstructionNumber nInst)
{
    const auto it = std::find_if(block.vWaiting.begin(), block.vWaiting.end(),
                                 [&](const SWaiting& waiting) { return waiting.nInst >= nInst; });
    if (it != block.vWaiting.end() && it->nInst == nInst)
    {
        return *it;
    }
    SWaiting waiting;
    waiting.nInst = nInst;
    return *block.vWaiting.insert(it, waiting);
}

void CLaneLedger::Wait(InstructionNumber nBlock, InstructionNumber nInst, const SLaneCount& count)
{
    SBlock* pBlock = Find(nBlock);
    if (pBlock != nullptr && !count.IsNobody())
    {
        SWaiting& waiting = At(*pBlock, nInst);
        waiting.count = waiting.count + count;
    }
}

SLaneCount CLaneLedger::Take(InstructionNumber nBlock, InstructionNumber nInst)
{
    SBlock* pBlock = Find(nBlock);
    if (pBlock == nullptr)
    {
        return {};
    }
    const auto it = std::find_if(pBlock->vWaiting.begin(), pBlock->vWaiting.end(),
                                 [&](const SWaiting& waiting) { return waiting.nInst == nInst; });
    if (it == pBlock->vWaiting.end())
    {
        return {};
    }
    const SLaneCount count = it->count;
    pBlock->vWaiting.erase(it);
    return count;
}

void CLaneLedger::Gather(InstructionNumber nBlock)
{
    SLaneCount active = GetActive();
    for (const SBlock& block : m_Call.vBlocks)
    {
        for (const SWaiting& waiting : block.vWaiting)
        {
            active = block.nStart >= nBlock ? active + waiting.count : active;
        }
    }
    if (!(active == GetActive()))
    {
        // Work-items that waited are active now, so a count no longer tells how many are missing.
        Replace(active);
    }
    Close(nBlock);
}

void CLaneLedger::MayLeave(const std::vector<SPlace>& vPlaces)
{
    if (vPlaces.empty())
    {
        return;
    }
    SCall& call = m_Call;
    if (!call.active.bMore)
    {
        call.nBeforeDoubt = call.active.nSure;
        call.nDoubtful = 0;
    }
    call.active = {0, true};
    for (const SPlace& place : vPlaces)
    {
        SBlock* pBlock = Find(place.nBlock);
        if (pBlock == nullptr)
        {
            ++call.nDoubtful;
            continue;
        }
        SWaiting& waiting = At(*pBlock, place.nInst);
        call.nDoubtful += waiting.bDoubt ? 0 : 1;
        // A place that was open before can't be settled by the next count.
        waiting.bDoubt = waiting.bDoubt || !waiting.count.bMore;
        waiting.count.bMore = true;
    }
}

std::optional<CLaneLedger::SPlace> CLaneLedger::FindNext(InstructionNumber nPos) const
{
    const std::vector<SBlock>& vBlocks = m_Call.vBlocks;
    for (auto itBlock = vBlocks.rbegin(); itBlock != vBlocks.rend(); ++itBlock)
    {
        for (const SWaiting& waiting : itBlock->vWaiting)
        {
            if (!waiting.count.IsNobody() && (waiting.nInst > nPos || itBlock->bLoop))
            {
                return SPlace{itBlock->nStart, waiting.nInst, itBlock->bLoop, waiting.count};
            }
        }
    }
    return std::nullopt;
}

} // namespace OVK_ShaderDebugger
