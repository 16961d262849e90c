#include "platform/simt/checks/AccessRecorder.h"

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

const size_t s_nMostAccesses = 65536;

EPlatformAccess KindOf(const SAccess& access)
{
    if (access.eOperation == SAccess::Atomic)
    {
        return PLATFORM_ACCESS_ATOMIC;
    }
    return access.eOperation == SAccess::Load ? PLATFORM_ACCESS_LOAD : PLATFORM_ACCESS_STORE;
}

/// What is stored or loaded, or an atomic's operand.
void FillWords(const CBlock& block, const SAccess& access, uint32_t nLane, uint32_t* pWords)
{
    const bool bAtomic = access.eOperation == SAccess::Atomic;
    const uint32_t* const pRows = bAtomic ? access.nValueRows : access.nRows;
    const uint32_t nWords = bAtomic ? access.nElementBytes / 4u : access.nWords;
    for (uint32_t n = 0; n < nWords; ++n)
    {
        pWords[n] = block.Row(pRows[n])[nLane];
    }
}

} // namespace

CAccessRecorder::CAccessRecorder(const SLaunch& launch, std::vector<SPlatformAccess>& vAccesses)
    : m_Watch(*launch.watch), m_vAccesses(vAccesses)
{
    for (const SMemoryRange& range : launch.vMemory)
    {
        if (m_Watch.nMemory == SBadAccess::Global && m_Watch.nAddress - range.nAddress < range.nSize)
        {
            m_pData = range.pData + (m_Watch.nAddress - range.nAddress);
        }
    }
}

void CAccessRecorder::Start(const CBlock& /*block*/)
{
    m_mapPasses.clear();
}

void CAccessRecorder::CopyWatched(uint8_t* pBytes) const
{
    if (m_pData)
    {
        std::memcpy(pBytes, m_pData, std::min<uint64_t>(m_Watch.nBytes, 8));
    }
}

void CAccessRecorder::Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    m_vTouches.clear();
    if (access.eSpace != static_cast<SAccess::ESpace>(m_Watch.nMemory))
    {
        return;
    }
    // Blocks of local memory have addresses of their own.
    const std::vector<SCode::SLocalArea>& vAreas = block.GetContext().code.vLocalAreas;
    if (access.eSpace == SAccess::Local && m_Watch.nArgument != ~0u && vAreas[access.nArea].nId != m_Watch.nArgument)
    {
        return;
    }
    uint64_t addresses[s_nLanes];
    block.FillAddresses(access, block.GetFirstLane(), block.GetEndLane(), addresses);
    std::vector<uint64_t>& vPasses = m_mapPasses[step.nInstruction];
    vPasses.resize(s_nLanes, 0);
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n))
        {
            continue;
        }
        SPlatformAccess touch = {};
        touch.nPass = vPasses[n]++;
        touch.nOffset = static_cast<int64_t>(addresses[n - block.GetFirstLane()] - m_Watch.nAddress);
        touch.nBytes = LaneBytes(access);
        if (touch.nOffset >= static_cast<int64_t>(m_Watch.nBytes) || touch.nOffset + touch.nBytes <= 0)
        {
            continue;
        }
        touch.nInstruction = step.nInstruction;
        touch.nKind = KindOf(access);
        touch.nWorkItem = block.GetWorkItem(n);
        CopyWatched(touch.before);
        if (access.eOperation != SAccess::Load)
        {
            FillWords(block, access, n, touch.words);
        }
        m_vTouches.push_back({n, touch});
    }
}

void CAccessRecorder::Accessed(const CBlock& block, const SMicroOp& /*step*/, const SAccess& access)
{
    for (STouch& touch : m_vTouches)
    {
        CopyWatched(touch.access.after);
        if (access.eOperation == SAccess::Load)
        {
            FillWords(block, access, touch.nLane, touch.access.words);
        }
        if (m_vAccesses.size() < s_nMostAccesses)
        {
            m_vAccesses.push_back(touch.access);
        }
    }
}

} // namespace KestrelPlatform
