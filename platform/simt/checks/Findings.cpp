#include "platform/simt/checks/Findings.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace KestrelPlatform
{

namespace
{

const size_t s_nMostPlaces = 4096;

/// Merges two sorted lists, of which the lowest elements are kept.
template <class T, size_t nMost>
void MergeLists(T (&to)[nMost], uint32_t& nTo, const T (&from)[nMost], uint32_t nFrom)
{
    T all[2 * nMost];
    T* const pEnd = std::set_union(to, to + nTo, from, from + nFrom, all);
    nTo = static_cast<uint32_t>(std::min<size_t>(static_cast<size_t>(pEnd - all), nMost));
    std::copy_n(all, nTo, to);
}

/// Orders a race's two accesses by instruction, so that a pair is the same whichever of them came first.
SPlatformFinding PutInOrder(SPlatformFinding finding)
{
    if (finding.nKind != PLATFORM_FINDING_RACE || finding.nInstruction <= finding.nOther)
    {
        return finding;
    }
    std::swap(finding.nInstruction, finding.nOther);
    std::swap(finding.nWorkItem, finding.nOtherItem);
    std::swap(finding.bWrite, finding.bOtherWrite);
    std::swap(finding.values[0], finding.values[1]);
    finding.items[0] = finding.nWorkItem;
    return finding;
}

void Merge(SPlatformFinding& to, const SPlatformFinding& from)
{
    SPlatformFinding merged = to;
    const auto order = [](const SPlatformFinding& finding)
    { return std::tie(finding.nWorkItem, finding.nOtherItem, finding.nAddress); };
    // A race of different values says more than one whose values happen to be equal.
    if (from.bUnequal != to.bUnequal ? from.bUnequal != 0 : order(from) < order(to))
    {
        merged = from;
    }
    merged.nCount = to.nCount + from.nCount;
    MergeLists(to.items, to.nItems, from.items, from.nItems);
    MergeLists(to.chain, to.nChain, from.chain, from.nChain);
    MergeLists(to.outputs, to.nOutputs, from.outputs, from.nOutputs);
    std::copy(std::begin(to.items), std::end(to.items), merged.items);
    std::copy(std::begin(to.chain), std::end(to.chain), merged.chain);
    std::copy(std::begin(to.outputs), std::end(to.outputs), merged.outputs);
    merged.nItems = to.nItems;
    merged.nChain = to.nChain;
    merged.nOutputs = to.nOutputs;
    to = merged;
}

} // namespace

SPlatformFinding MakeFinding(EPlatformFinding eKind, uint32_t nInstruction, uint64_t nWorkItem)
{
    SPlatformFinding finding = {};
    finding.nKind = eKind;
    finding.nInstruction = nInstruction;
    finding.nOther = ~0u;
    finding.nCount = 1;
    finding.nWorkItem = nWorkItem;
    finding.nItems = 1;
    finding.items[0] = nWorkItem;
    return finding;
}

void CFindings::Add(const SPlatformFinding& finding)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    Put(finding);
}

/// The lock must be held.
void CFindings::Put(const SPlatformFinding& found)
{
    const SPlatformFinding finding = PutInOrder(found);
    const Key key(finding.nInstruction, finding.nKind, finding.nOther, finding.nMemory, finding.bWrite, finding.nFault);
    const auto [it, bNew] = m_mapByPlace.insert({key, finding});
    if (!bNew)
    {
        Merge(it->second, finding);
    }
    else if (m_mapByPlace.size() > s_nMostPlaces)
    {
        m_mapByPlace.erase(std::prev(m_mapByPlace.end())); // the last one, whatever the order
        m_bCut = true;
    }
}

void CFindings::AddAll(const CFindings& other)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (const auto& [key, finding] : other.m_mapByPlace)
    {
        Put(finding);
    }
    m_bCut = m_bCut || other.m_bCut;
}

std::vector<SPlatformFinding> CFindings::List() const
{
    std::vector<SPlatformFinding> vFindings;
    for (const auto& [key, finding] : m_mapByPlace)
    {
        vFindings.push_back(finding);
    }
    return vFindings;
}

} // namespace KestrelPlatform
