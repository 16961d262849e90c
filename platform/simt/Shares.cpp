#include "platform/simt/Shares.h"

namespace KestrelPlatform
{

namespace
{

uint32_t First(uint64_t nPieces)
{
    return static_cast<uint32_t>(nPieces);
}

uint32_t End(uint64_t nPieces)
{
    return static_cast<uint32_t>(nPieces >> 32);
}

uint64_t Pack(uint32_t nFirst, uint32_t nEnd)
{
    return static_cast<uint64_t>(nEnd) << 32 | nFirst;
}

std::optional<uint32_t> TakeFirst(std::atomic<uint64_t>& share)
{
    uint64_t nPieces = share;
    while (First(nPieces) != End(nPieces))
    {
        if (share.compare_exchange_weak(nPieces, Pack(First(nPieces) + 1, End(nPieces))))
            return First(nPieces);
    }
    return std::nullopt;
}

std::optional<uint32_t> TakeLast(std::atomic<uint64_t>& share)
{
    uint64_t nPieces = share;
    while (First(nPieces) != End(nPieces))
    {
        if (share.compare_exchange_weak(nPieces, Pack(First(nPieces), End(nPieces) - 1)))
            return End(nPieces) - 1;
    }
    return std::nullopt;
}

} // namespace

CShares::CShares(uint32_t nPieces, uint32_t nThreads) : m_vShares(nThreads)
{
    for (uint64_t n = 0; n < nThreads; ++n)
        m_vShares[n].nPieces =
            Pack(static_cast<uint32_t>(nPieces * n / nThreads), static_cast<uint32_t>(nPieces * (n + 1) / nThreads));
}

std::optional<uint32_t> CShares::Take(uint32_t nShare)
{
    std::optional<uint32_t> nPiece = TakeFirst(m_vShares[nShare].nPieces);
    for (size_t n = 1; n < m_vShares.size() && !nPiece; ++n)
        nPiece = TakeLast(m_vShares[(nShare + n) % m_vShares.size()].nPieces);
    return nPiece;
}

bool CShares::IsAnyLeft() const
{
    for (const SShare& share : m_vShares)
    {
        const uint64_t nPieces = share.nPieces;
        if (First(nPieces) != End(nPieces))
            return true;
    }
    return false;
}

} // namespace KestrelPlatform
