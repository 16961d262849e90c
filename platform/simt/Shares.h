#ifndef KESTREL_PLATFORM_SIMT_SHARES_H
#define KESTREL_PLATFORM_SIMT_SHARES_H

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

namespace KestrelPlatform
{

/// Distributes the pieces of a launch to its threads. Each thread has a share of neighbouring pieces and begins with
/// it, so that in successive launches the threads' caches hold the memory that they need. A thread that is done helps
/// the others, from the end of their shares. Any thread.
class CShares
{
public:
    /// The most pieces that can be dealt out.
    static constexpr uint64_t s_nMostPieces = 0xFFFFFFFF;

    CShares(uint32_t nPieces, uint32_t nThreads);

    /// The next piece for a thread with its own share; none if all pieces are taken.
    std::optional<uint32_t> Take(uint32_t nShare);
    bool IsAnyLeft() const;

private:
    /// On its own cache line, as its thread uses it constantly.
    struct alignas(64) SShare
    {
        std::atomic<uint64_t> nPieces{0}; ///< the first one left, and in the upper half the end
    };

    std::vector<SShare> m_vShares;
};

} // namespace KestrelPlatform

#endif
