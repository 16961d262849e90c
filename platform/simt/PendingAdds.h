#ifndef KESTREL_PLATFORM_SIMT_PENDINGADDS_H
#define KESTREL_PLATFORM_SIMT_PENDINGADDS_H

#include <cstdint>

namespace KestrelPlatform
{

/// Atomic additions to global memory that one thread holds back, if the old values aren't needed and the words are
/// close together, like the bins of a histogram. Their sums are added before anything could notice the difference. So
/// threads don't compete for the same cache lines with every addition. Not shared between threads.
class CPendingAdds
{
public:
    /// \param nOrdinal number of the thread within the launch
    explicit CPendingAdds(uint32_t nOrdinal) : m_nOrdinal(nOrdinal) {}

    /// Makes room for sums for the words from pLow to pHigh, both aligned.
    /// \return the place of pLow's sum, with the other words' sums at the same distances as in memory; null if the
    ///         words are too far apart, and then nothing is held back
    unsigned char* Hold(unsigned char* pLow, unsigned char* pHigh);

    /// True if a sum may be held back for one of these bytes.
    bool Meets(const unsigned char* pData, uint64_t nBytes) const
    {
        return m_pFirst && pData < m_pFirst + sizeof m_nSums && m_pFirst < pData + nBytes;
    }

    /// Adds the sums to memory.
    void Flush()
    {
        if (m_pFirst)
        {
            Add();
        }
    }

    /// To be called in each pass of a loop. Sums are flushed after some thousand passes, since another thread's loop
    /// may be waiting for them.
    void Pass()
    {
        if (m_pFirst && ++m_nPasses % 4096 == 0)
        {
            Add();
        }
    }

private:
    void Add();

    static const uint32_t s_nWords = 1024;

    const uint32_t m_nOrdinal;
    uint32_t m_nPasses = 0;
    unsigned char* m_pFirst = nullptr; ///< the word of the first sum in memory; null while nothing is held
    unsigned char* m_pEnd = nullptr;   ///< after the last word that may have a sum
    uint32_t m_nSums[s_nWords] = {};
};

} // namespace KestrelPlatform

#endif
