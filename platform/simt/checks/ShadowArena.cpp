#include "platform/simt/checks/ShadowArena.h"

#include <sys/mman.h>

#include <cstdlib>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

namespace KestrelPlatform
{

namespace
{

const size_t s_nLine = 64;
const size_t s_nFirstPiece = size_t(32) << 10;
const size_t s_nLargePage = size_t(2) << 20;

/// Large pages of earlier launches, with the contents that these left.
class CKeptPages
{
public:
    /// Null if none is kept.
    unsigned char* Take()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_nKept != 0 ? m_Kept[--m_nKept] : nullptr;
    }

    /// \return false if there are enough
    bool Keep(unsigned char* p)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_nKept == std::size(m_Kept))
        {
            return false;
        }
        m_Kept[m_nKept++] = p;
        return true;
    }

    static CKeptPages& Get()
    {
        static auto& s_pages = *new CKeptPages;
        return s_pages;
    }

private:
    std::mutex m_Mutex;
    unsigned char* m_Kept[16] = {};
    size_t m_nKept = 0;
};

} // namespace

void CShadowArena::SFree::operator()(unsigned char* p) const
{
    if (nBytes != s_nLargePage || !CKeptPages::Get().Keep(p))
    {
        std::free(p);
    }
}

void CShadowArena::AddPiece(size_t nBytes)
{
    const bool bLarge = !m_vPieces.empty() || nBytes > s_nFirstPiece;
    const size_t nUnit = bLarge ? s_nLargePage : s_nFirstPiece;
    const size_t nPiece = (nBytes + nUnit - 1) / nUnit * nUnit;
    std::unique_ptr<unsigned char, SFree> pPiece(nPiece == s_nLargePage ? CKeptPages::Get().Take() : nullptr,
                                                 SFree{nPiece});
    if (!pPiece)
    {
        pPiece.reset(static_cast<unsigned char*>(std::aligned_alloc(bLarge ? s_nLargePage : s_nLine, nPiece)));
        if (!pPiece)
        {
            throw std::bad_alloc();
        }
        if (bLarge)
        { // only a hint: without large pages the system gives small ones
            madvise(pPiece.get(), nPiece, MADV_HUGEPAGE);
        }
    }
    m_pNext = pPiece.get();
    m_nLeft = nPiece;
    m_vPieces.push_back(std::move(pPiece));
}

void* CShadowArena::Take(size_t nBytes)
{
    nBytes = (nBytes + s_nLine - 1) / s_nLine * s_nLine;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (nBytes > m_nLeft)
    {
        AddPiece(nBytes);
    }
    m_nLeft -= nBytes;
    m_nTaken += nBytes;
    return std::exchange(m_pNext, m_pNext + nBytes);
}

} // namespace KestrelPlatform
