#ifndef KESTREL_PLATFORM_SIMT_SCHEDULE_H
#define KESTREL_PLATFORM_SIMT_SCHEDULE_H

#include <cstdint>

namespace KestrelPlatform
{

/// In which order the pieces of a launch are run, and what the threads wait in between. Kernels may not depend on
/// either; a seed shakes both, so that tests find what does.
class CSchedule
{
public:
    /// \param nSeed  0: one piece after the other, with no pause
    CSchedule(uint64_t nSeed, uint64_t nPieces);

    /// The piece to run as the nTurn-th. Each turn below the number of pieces has a piece of its own.
    uint64_t Piece(uint64_t nTurn) const { return (nTurn * m_nStride + m_nStart) % m_nPieces; }
    /// What the thread does before: nothing, letting others go first, or up to some 50 microseconds of sleep.
    void Pause(uint64_t nTurn) const;

private:
    const uint64_t m_nSeed;
    const uint64_t m_nPieces;
    uint64_t m_nStart = 0;
    uint64_t m_nStride = 1; ///< below m_nPieces and with no common divisor
};

} // namespace KestrelPlatform

#endif
