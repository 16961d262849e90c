#ifndef KESTREL_PLATFORM_SIMT_CHECKS_WRITTENPAGES_H
#define KESTREL_PLATFORM_SIMT_CHECKS_WRITTENPAGES_H

#include "platform/simt/WideLaunch.h"

#include <atomic>
#include <vector>

namespace KestrelPlatform
{

/// Whether all of these bytes are 0.
bool IsZero(const unsigned char* pBytes, size_t nBytes);

/// Which pages of a launch's memory are known to be written as a whole, so that most accesses needn't look at each
/// byte's shadow. Any thread.
class CWrittenPages
{
public:
    explicit CWrittenPages(const std::vector<SMemoryRange>& vMemory);

    /// Whether all bytes from nBegin to nEnd of a memory object are written; false also if they are too many to find
    /// out.
    bool Are(size_t nRange, uint64_t nBegin, uint64_t nEnd);
    /// To be called before something unwritten is stored in the bytes from nBegin to nEnd.
    void Spoil(size_t nRange, uint64_t nBegin, uint64_t nEnd);

private:
    enum EPage : unsigned char
    {
        Unknown,
        Written,
        Mixed
    };

    bool IsPageWritten(const SMemoryRange& range, std::atomic<unsigned char>& page, uint64_t nPage) const;

    const std::vector<SMemoryRange>& m_vMemory;
    std::vector<std::vector<std::atomic<unsigned char>>> m_vPages; ///< by memory object
};

} // namespace KestrelPlatform

#endif
