#ifndef KESTREL_PLATFORM_SIMT_SHARES_H
#define KESTREL_PLATFORM_SIMT_SHARES_H

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

namespace KestrelPlatform
{

/// Deals the pieces of a launch out to its threads. Each has a share of neighbouring pieces and begins with it, so
/// that launches one after the other find the same memory in the caches of the same threads; who is done helps the
/// others from the end of theirs. Any thread.
class CShares
{
public:
    /// The most pieces that can be dealt out.
    static constexpr uint64_t s_nMostPieces = 0xFFFFFFFF;

    CShares(uint32_t nPieces, uint32_t nThreads);

    /// The next piece for the thread of a share, which is below the number of threads; none if all are taken.
    std::optional<uint32_t> Take(uint32_t nShare);
    bool IsAnyLeft() const;

private:
    /// On a cache line of its own: its thread takes from it all the time.
    struct alignas(64) SShare
    {
        std::atomic<uint64_t> nPieces{0}; ///< the first that is left, and in the upper half the one behind the last
    };

    std::vector<SShare> m_vShares;
};

} // namespace KestrelPlatform

#endif
