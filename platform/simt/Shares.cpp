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

/// Added to a share to take its first piece, or its last one.
const uint64_t s_nTakeFirst = 1;
const uint64_t s_nTakeLast = 0 - (uint64_t(1) << 32);

/// \return the share's state before one piece was taken; none if it was empty
std::optional<uint64_t> TakeOne(std::atomic<uint64_t>& share, uint64_t nChange)
{
    uint64_t nPieces = share;
    while (First(nPieces) != End(nPieces))
    {
        if (share.compare_exchange_weak(nPieces, nPieces + nChange))
        {
            return nPieces;
        }
    }
    return std::nullopt;
}

} // namespace

CShares::CShares(uint32_t nPieces, uint32_t nThreads) : m_vShares(nThreads)
{
    for (uint64_t n = 0; n < nThreads; ++n)
    {
        m_vShares[n].nPieces =
            Pack(static_cast<uint32_t>(nPieces * n / nThreads), static_cast<uint32_t>(nPieces * (n + 1) / nThreads));
    }
}

std::optional<uint32_t> CShares::Take(uint32_t nShare)
{
    if (const auto nOwn = TakeOne(m_vShares[nShare].nPieces, s_nTakeFirst))
    {
        return First(*nOwn);
    }
    for (size_t n = 1; n < m_vShares.size(); ++n)
    {
        if (const auto nOther = TakeOne(m_vShares[(nShare + n) % m_vShares.size()].nPieces, s_nTakeLast))
        {
            return End(*nOther) - 1;
        }
    }
    return std::nullopt;
}

bool CShares::IsAnyLeft() const
{
    for (const SShare& share : m_vShares)
    {
        const uint64_t nPieces = share.nPieces;
        if (First(nPieces) != End(nPieces))
        {
            return true;
        }
    }
    return false;
}

} // namespace KestrelPlatform
