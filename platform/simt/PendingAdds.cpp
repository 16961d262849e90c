#include "platform/simt/PendingAdds.h"

#include <algorithm>

namespace KestrelPlatform
{

unsigned char* CPendingAdds::Hold(unsigned char* pLow, unsigned char* pHigh)
{
    if (m_pFirst && (pLow < m_pFirst || pHigh >= m_pFirst + sizeof m_nSums))
    {
        Add();
    }
    if (!m_pFirst)
    {
        if (static_cast<uint64_t>(pHigh - pLow) >= sizeof m_nSums)
        {
            return nullptr;
        }
        m_pFirst = pLow;
        m_pEnd = pLow;
    }
    m_pEnd = std::max(m_pEnd, pHigh + sizeof(uint32_t));
    return reinterpret_cast<unsigned char*>(m_nSums) + (pLow - m_pFirst);
}

/// Threads often flush the same words at the same time, so each begins at a different one.
void CPendingAdds::Add()
{
    const uint32_t nCount = static_cast<uint32_t>((m_pEnd - m_pFirst) / sizeof(uint32_t));
    const uint32_t nStart = nCount * (m_nOrdinal * 5 % 8) / 8;
    uint32_t* const pWords = reinterpret_cast<uint32_t*>(m_pFirst);
    for (uint32_t i = 0; i < nCount; ++i)
    {
        const uint32_t n = nStart + i < nCount ? nStart + i : nStart + i - nCount;
        if (m_nSums[n] == 0)
        {
            continue;
        }
        __atomic_fetch_add(pWords + n, m_nSums[n], __ATOMIC_RELAXED);
        m_nSums[n] = 0;
    }
    m_pFirst = nullptr;
}

} // namespace KestrelPlatform
