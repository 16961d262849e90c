#ifndef KESTREL_PLATFORM_SIMT_SCHEDULE_H
#define KESTREL_PLATFORM_SIMT_SCHEDULE_H

#include <cstdint>

namespace KestrelPlatform
{

/// The order in which the pieces of a launch run, and the pauses of threads in between. Kernels mustn't depend on
/// either. A seed varies both, so that tests find kernels that do.
class CSchedule
{
public:
    /// \param nSeed  0: in order and without pauses
    CSchedule(uint64_t nSeed, uint64_t nPieces);

    /// The piece to run as number nTurn. Each turn below the number of pieces gets a different piece.
    uint64_t Piece(uint64_t nTurn) const { return (nTurn * m_nStride + m_nStart) % m_nPieces; }
    /// Pauses the thread before a turn: not at all, by yielding to others, or by sleeping up to about 50 microseconds.
    void Pause(uint64_t nTurn) const;

private:
    const uint64_t m_nSeed;
    const uint64_t m_nPieces;
    uint64_t m_nStart = 0;
    uint64_t m_nStride = 1; ///< below m_nPieces and coprime to it
};

} // namespace KestrelPlatform

#endif
