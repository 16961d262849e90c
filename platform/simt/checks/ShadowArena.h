#ifndef KESTREL_PLATFORM_SIMT_CHECKS_SHADOWARENA_H
#define KESTREL_PLATFORM_SIMT_CHECKS_SHADOWARENA_H

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace KestrelPlatform
{

/// Memory for what is kept about a launch's memory until the launch ends. The first touch of each of its pages can cost
/// more than the kernel that is checked. So all but the first piece are requested as large pages, and some of these are
/// kept for later launches. Any thread.
class CShadowArena
{
public:
    /// The memory isn't cleared, and begins on a cache line of its own. Throws std::bad_alloc.
    void* Take(size_t nBytes);
    size_t GetTaken() const { return m_nTaken; }

private:
    /// Keeps a piece for later, or frees it.
    struct SFree
    {
        size_t nBytes = 0;
        void operator()(unsigned char* p) const;
    };

    void AddPiece(size_t nBytes);

    std::mutex m_Mutex;
    std::vector<std::unique_ptr<unsigned char, SFree>> m_vPieces;
    unsigned char* m_pNext = nullptr;
    size_t m_nLeft = 0;
    size_t m_nTaken = 0;
};

} // namespace KestrelPlatform

#endif
