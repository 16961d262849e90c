#include "platform/simt/checks/WrittenPages.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

const uint64_t s_nWrittenPageBytes = 4096;
const uint64_t s_nMostPages = 4096;

} // namespace

/// Other threads may change some of these bytes meanwhile, which does no harm. The bytes that the caller itself
/// accesses are ordered by the kernel, and a thread that stores something unwritten has called Spoil before.
__attribute__((no_sanitize("thread"))) bool IsZero(const unsigned char* pBytes, size_t nBytes)
{
    uint64_t nAny = 0;
    for (; nBytes >= 64 && nAny == 0; pBytes += 64, nBytes -= 64)
    {
        for (size_t n = 0; n < 8; ++n)
        {
            uint64_t nWord;
            std::memcpy(&nWord, pBytes + 8 * n, sizeof(nWord));
            nAny |= nWord;
        }
    }
    for (size_t n = 0; n < nBytes; ++n)
    {
        nAny |= pBytes[n];
    }
    return nAny == 0;
}

CWrittenPages::CWrittenPages(const std::vector<SMemoryRange>& vMemory) : m_vMemory(vMemory)
{
    m_vPages.reserve(vMemory.size());
    for (const SMemoryRange& range : vMemory)
    {
        m_vPages.emplace_back(range.pShadow ? (range.nSize + s_nWrittenPageBytes - 1) / s_nWrittenPageBytes : 0);
    }
}

/// Another thread may spoil the page meanwhile. The exchange then fails, and the page isn't marked as written.
bool CWrittenPages::IsPageWritten(const SMemoryRange& range, std::atomic<unsigned char>& page, uint64_t nPage) const
{
    unsigned char nState = page.load(std::memory_order_relaxed);
    if (nState != Unknown)
    {
        return nState == Written;
    }
    const uint64_t nBegin = nPage * s_nWrittenPageBytes;
    const bool bWritten = IsZero(range.pShadow + nBegin, std::min(s_nWrittenPageBytes, range.nSize - nBegin));
    page.compare_exchange_strong(nState, bWritten ? Written : Mixed);
    return bWritten;
}

bool CWrittenPages::Are(size_t nRange, uint64_t nBegin, uint64_t nEnd)
{
    const SMemoryRange& range = m_vMemory[nRange];
    const uint64_t nFirst = nBegin / s_nWrittenPageBytes;
    const uint64_t nLast = (nEnd - 1) / s_nWrittenPageBytes;
    if (!range.pShadow || nLast - nFirst >= s_nMostPages)
    {
        return !range.pShadow;
    }
    for (uint64_t nPage = nFirst; nPage <= nLast; ++nPage)
    {
        if (IsPageWritten(range, m_vPages[nRange][nPage], nPage))
        {
            continue;
        }
        const uint64_t nFrom = std::max(nBegin, nPage * s_nWrittenPageBytes);
        if (!IsZero(range.pShadow + nFrom, std::min(nEnd, (nPage + 1) * s_nWrittenPageBytes) - nFrom))
        {
            return false;
        }
    }
    return true;
}

void CWrittenPages::Spoil(size_t nRange, uint64_t nBegin, uint64_t nEnd)
{
    for (uint64_t nPage = nBegin / s_nWrittenPageBytes; nPage * s_nWrittenPageBytes < nEnd; ++nPage)
    {
        m_vPages[nRange][nPage] = Mixed;
    }
}

} // namespace KestrelPlatform
