#ifndef KESTREL_PLATFORM_SIMT_PENDINGADDS_H
#define KESTREL_PLATFORM_SIMT_PENDINGADDS_H

#include <cstdint>

namespace KestrelPlatform
{

/// Atomic additions to global memory that one thread holds back: those whose old value nobody asks for, to words that
/// lie close together, as the bins of a histogram do. Their sums are added when something could tell the difference,
/// so that threads don't take the same cache lines from each other for every single one. One thread's.
class CPendingAdds
{
public:
    /// \param nOrdinal tells threads of one launch apart
    explicit CPendingAdds(uint32_t nOrdinal) : m_nOrdinal(nOrdinal) {}

    /// Makes room for additions to the words from pLow to pHigh, both aligned.
    /// \return where pLow's own sum stands, those of the others as far after it as they are; null if they are too
    ///         far apart, and then nothing is held
    unsigned char* Hold(unsigned char* pLow, unsigned char* pHigh);

    /// True if something may be held for one of these bytes.
    bool Meets(const unsigned char* pData, uint64_t nBytes) const
    {
        return m_pFirst && pData < m_pFirst + sizeof m_nSums && m_pFirst < pData + nBytes;
    }

    /// Adds what is held to memory.
    void Flush()
    {
        if (m_pFirst)
        {
            Add();
        }
    }

    /// To be called in each pass of a loop: nothing is held for longer than some thousand of them, since what is held
    /// may be what another thread's loop waits for.
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
    unsigned char* m_pFirst = nullptr; ///< the first sum's word in memory; null while nothing is held
    unsigned char* m_pEnd = nullptr;   ///< after the last word that may have a sum
    uint32_t m_nSums[s_nWords] = {};
};

} // namespace KestrelPlatform

#endif
