#include "platform/simt/Schedule.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <thread>

namespace KestrelPlatform
{
namespace
{

/// Spreads a number's bits over all 64.
uint64_t Mix(uint64_t nValue)
{
    nValue = (nValue ^ (nValue >> 30)) * 0xBF58476D1CE4E5B9u;
    nValue = (nValue ^ (nValue >> 27)) * 0x94D049BB133111EBu;
    return nValue ^ (nValue >> 31);
}

/// Below this limit the product in Piece can't overflow; launches have a few thousand pieces at most.
const uint64_t s_nMostShuffled = uint64_t(1) << 31;

} // namespace

CSchedule::CSchedule(uint64_t nSeed, uint64_t nPieces) : m_nSeed(nSeed), m_nPieces(std::max<uint64_t>(nPieces, 1))
{
    if (nSeed == 0 || m_nPieces > s_nMostShuffled)
    {
        return;
    }
    m_nStart = Mix(nSeed) % m_nPieces;
    m_nStride = std::max<uint64_t>(Mix(nSeed + 1) % m_nPieces, 1);
    while (std::gcd(m_nStride, m_nPieces) != 1)
    {
        m_nStride = m_nStride % m_nPieces + 1;
    }
}

void CSchedule::Pause(uint64_t nTurn) const
{
    if (m_nSeed == 0)
    {
        return;
    }
    const uint64_t nDice = Mix(m_nSeed + (nTurn + 1) * 0x9E3779B97F4A7C15u);
    if (nDice % 4 == 0)
    {
        std::this_thread::sleep_for(std::chrono::microseconds(nDice / 4 % 50));
    }
    else if (nDice % 4 == 1)
    {
        std::this_thread::yield();
    }
}

} // namespace KestrelPlatform
