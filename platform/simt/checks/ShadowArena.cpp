#include "platform/simt/checks/ShadowArena.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace KestrelPlatform
{

namespace
{

const size_t s_nLine = 64;
const size_t s_nFirstPiece = size_t(32) << 10;
const size_t s_nLargePage = size_t(2) << 20;

} // namespace

void CShadowArena::SFree::operator()(unsigned char* p) const
{
    std::free(p);
}

void CShadowArena::AddPiece(size_t nBytes)
{
    const bool bLarge = !m_vPieces.empty() || nBytes > s_nFirstPiece;
    const size_t nUnit = bLarge ? s_nLargePage : s_nFirstPiece;
    const size_t nPiece = (nBytes + nUnit - 1) / nUnit * nUnit;
    std::unique_ptr<unsigned char, SFree> pPiece(
        static_cast<unsigned char*>(std::aligned_alloc(bLarge ? s_nLargePage : s_nLine, nPiece)));
    if (!pPiece)
    {
        throw std::bad_alloc();
    }
    if (bLarge)
    { // where the system has none, small ones do
        madvise(pPiece.get(), nPiece, MADV_HUGEPAGE);
    }
    m_pNext = pPiece.get();
    m_nLeft = nPiece;
    m_vPieces.push_back(std::move(pPiece));
}

void* CShadowArena::Take(size_t nBytes)
{
    nBytes = (nBytes + s_nLine - 1) / s_nLine * s_nLine;
    unsigned char* pTaken = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (nBytes > m_nLeft)
        {
            AddPiece(nBytes);
        }
        pTaken = m_pNext;
        m_pNext += nBytes;
        m_nLeft -= nBytes;
        m_nTaken += nBytes;
    }
    std::memset(pTaken, 0, nBytes);
    return pTaken;
}

} // namespace KestrelPlatform
