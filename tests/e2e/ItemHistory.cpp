#include "tests/e2e/ItemHistory.h"

#include "tests/e2e/RegisterTypes.h"

#include <algorithm>

namespace KestrelTest
{

namespace
{

// Register types, as numbered in tokens.

std::string RegisterName(const SPlatformTraceRecord& record, uint32_t nInBlock)
{
    if (record.pValues == nullptr)
    {
        return std::string();
    }
    if (record.nRegisterType == s_nTemp)
    {
        return "r" + std::to_string(record.nRegisterNumber);
    }
    if (record.nRegisterType == s_nIndexedTemp && record.pIndices != nullptr)
    {
        return "x" + std::to_string(record.nRegisterNumber) + "[" + std::to_string(record.pIndices[nInBlock]) + "]";
    }
    return std::string();
}

} // namespace

void CItemHistory::OnRecord(const SPlatformTraceRecord* pRecord, void* pUser)
{
    static_cast<CItemHistory*>(pUser)->Add(*pRecord);
}

void CItemHistory::Add(const SPlatformTraceRecord& record)
{
    const SPosition position = PositionOf(record);
    for (uint32_t i = 0; i < record.nItems; ++i)
    {
        if (record.pActive[i] == 0 || record.pItems[i] >= m_vItems.size())
        {
            continue;
        }
        m_mapPositions[record.nInstruction].insert(position);
        SItem& item = m_vItems[record.pItems[i]];
        const size_t nOrder = item.nExecuted++;
        item.mapOrder[position] = nOrder;
        const std::string strName = RegisterName(record, i);
        if (!strName.empty())
        {
            SWrite write = {nOrder, {}};
            std::copy_n(record.pValues + 4 * i, 4, write.vWords.begin());
            item.mapWrites[strName].push_back(write);
        }
    }
}

ptrdiff_t CItemHistory::FindProgress(size_t nItem, const SPosition& position) const
{
    const auto it = m_vItems[nItem].mapOrder.find(position);
    return it != m_vItems[nItem].mapOrder.end() ? static_cast<ptrdiff_t>(it->second) : -1;
}

const Words* CItemHistory::FindValue(size_t nItem, const std::string& strName, size_t nProgress) const
{
    const auto itWrites = m_vItems[nItem].mapWrites.find(strName);
    if (itWrites == m_vItems[nItem].mapWrites.end())
    {
        return nullptr;
    }
    const std::vector<SWrite>& vWrites = itWrites->second;
    const auto it = std::lower_bound(vWrites.begin(), vWrites.end(), nProgress,
                                     [](const SWrite& write, size_t nWanted) { return write.nOrder < nWanted; });
    return it != vWrites.begin() ? &std::prev(it)->vWords : nullptr;
}

std::set<std::string> CItemHistory::GetWritten(size_t nItem, size_t nProgress) const
{
    std::set<std::string> setNames;
    for (const auto& entry : m_vItems[nItem].mapWrites)
    {
        if (entry.second.front().nOrder < nProgress)
        {
            setNames.insert(entry.first);
        }
    }
    return setNames;
}

std::vector<bool> CItemHistory::GetActive(const SPosition& position) const
{
    std::vector<bool> vActive;
    for (const SItem& item : m_vItems)
    {
        vActive.push_back(item.mapOrder.count(position) != 0);
    }
    return vActive;
}

std::vector<SPosition> CItemHistory::GetPositions(uint32_t nInstruction) const
{
    const auto it = m_mapPositions.find(nInstruction);
    return it != m_mapPositions.end() ? std::vector<SPosition>(it->second.begin(), it->second.end())
                                      : std::vector<SPosition>();
}

} // namespace KestrelTest
