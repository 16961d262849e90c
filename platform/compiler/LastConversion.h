#ifndef KESTREL_PLATFORM_COMPILER_LASTCONVERSION_H
#define KESTREL_PLATFORM_COMPILER_LASTCONVERSION_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

namespace KestrelPlatform
{

/// Bytes that are compared at a time.
constexpr size_t s_nCompared = 64;

/// How many of the first nBytes are equal.
inline size_t CountSameBytes(const void* pA, const void* pB, size_t nBytes)
{
    const char* const a = static_cast<const char*>(pA);
    const char* const b = static_cast<const char*>(pB);
    size_t n = 0;
    while (nBytes - n >= s_nCompared && std::memcmp(a + n, b + n, s_nCompared) == 0)
    {
        n += s_nCompared;
    }
    while (n < nBytes && a[n] == b[n])
    {
        ++n;
    }
    return n;
}

/// How many of the nBytes before two places are equal, counted back from the places.
inline size_t CountSameLastBytes(const void* pEndA, const void* pEndB, size_t nBytes)
{
    const char* const a = static_cast<const char*>(pEndA);
    const char* const b = static_cast<const char*>(pEndB);
    size_t n = 0;
    while (nBytes - n >= s_nCompared && std::memcmp(a - n - s_nCompared, b - n - s_nCompared, s_nCompared) == 0)
    {
        n += s_nCompared;
    }
    while (n < nBytes && *(a - n - 1) == *(b - n - 1))
    {
        ++n;
    }
    return n;
}

/// Remembers a converter's last input and output, piece by piece. A debugger converts many copies of a kernel in a row,
/// which differ in few pieces. The output of a piece depends only on the piece and on the converter's state before it,
/// so only the new pieces have to be converted: those from the place that Begin gives up to the place where Rest
/// succeeds.
///
/// TIn, TOut: characters or words.
template <class TIn, class TOut>
class CLastConversion
{
public:
    /// A line of text or an item of a stream.
    struct SPiece
    {
        uint32_t nIn = 0;    ///< where it begins
        uint32_t nOut = 0;   ///< where its output begins
        uint32_t nState = 0; ///< of the converter before it
        bool bMarked = false;
    };

    /// Begins a conversion; the input must stay valid until it ends. Pieces at the start that are unchanged are taken
    /// over. \return the first piece of the last conversion that may have changed, or null
    const SPiece* Begin(const TIn* pIn, size_t nIn)
    {
        m_pIn = pIn;
        m_nIn = nIn;
        m_nSameEnd = FindSameEnd();
        m_nNext = 0;
        m_vNew.clear();
        const auto it = std::upper_bound(m_vPieces.begin(), m_vPieces.end(), FindSame(),
                                         [](size_t n, const SPiece& piece) { return n < piece.nIn; });
        if (it == m_vPieces.begin())
        {
            return nullptr;
        }
        m_vNew.assign(m_vPieces.begin(), it - 1);
        m_nNext = m_vNew.size();
        return &*(it - 1);
    }

    /// Notes the next piece to be converted.
    void Note(size_t nIn, size_t nOut, uint32_t nState)
    {
        m_vNew.push_back({static_cast<uint32_t>(nIn), static_cast<uint32_t>(nOut), nState, false});
    }
    /// Marks the latest piece.
    void Mark() { m_vNew.back().bMarked = true; }

    /// If the input from this place on is unchanged and the converter is in the same state, notes the remaining pieces.
    /// \return where in Made() their output begins, or null
    const TOut* Rest(size_t nIn, size_t nOut, uint32_t nState)
    {
        const size_t nLeft = m_nIn - nIn;
        if (nLeft > m_nSameEnd || m_vPieces.empty())
        {
            return nullptr;
        }
        const size_t nPlace = m_vIn.size() - nLeft;
        while (m_nNext < m_vPieces.size() && m_vPieces[m_nNext].nIn < nPlace)
        {
            ++m_nNext;
        }
        if (m_nNext == m_vPieces.size() || m_vPieces[m_nNext].nIn != nPlace || m_vPieces[m_nNext].nState != nState)
        {
            return nullptr;
        }
        const size_t nFirst = m_vPieces[m_nNext].nOut;
        for (size_t n = m_nNext; n < m_vPieces.size(); ++n)
        {
            Note(m_vPieces[n].nIn - nPlace + nIn, m_vPieces[n].nOut - nFirst + nOut, m_vPieces[n].nState);
            m_vNew.back().bMarked = m_vPieces[n].bMarked;
        }
        return Made() + nFirst;
    }

    /// The pieces of the current conversion.
    const std::vector<SPiece>& Pieces() const { return m_vNew; }
    /// What the last conversion made.
    const TOut* Made() const { return m_vOut.data(); }
    const TOut* MadeEnd() const { return m_vOut.data() + m_vOut.size(); }

    /// Ends a successful conversion, and remembers it unless it is too large or memory runs out.
    void Keep(const TOut* pOut, size_t nOut) noexcept
    {
        if (m_nIn > s_nMost || nOut > s_nMost)
        {
            std::vector<SPiece>().swap(m_vNew);
            return;
        }
        m_vPieces.clear();
        try
        {
            m_vIn.assign(m_pIn, m_pIn + m_nIn);
            m_vOut.assign(pOut, pOut + nOut);
            m_vPieces.swap(m_vNew);
        }
        catch (const std::bad_alloc&)
        {
        }
    }

private:
    /// Enough for a kernel of about 100,000 lines.
    static constexpr size_t s_nMost = size_t(1) << 22;

    size_t FindSame() const
    {
        const size_t nShorter = std::min(m_nIn, m_vIn.size());
        return CountSameBytes(m_pIn, m_vIn.data(), nShorter * sizeof(TIn)) / sizeof(TIn);
    }

    size_t FindSameEnd() const
    {
        const size_t nShorter = std::min(m_nIn, m_vIn.size());
        return CountSameLastBytes(m_pIn + m_nIn, m_vIn.data() + m_vIn.size(), nShorter * sizeof(TIn)) / sizeof(TIn);
    }

    // The last conversion.
    std::vector<TIn> m_vIn;
    std::vector<TOut> m_vOut;
    std::vector<SPiece> m_vPieces; ///< empty if nothing is remembered

    // The current conversion.
    const TIn* m_pIn = nullptr;
    size_t m_nIn = 0;
    size_t m_nSameEnd = 0; ///< how many elements at the end are equal in both
    size_t m_nNext = 0;    ///< the piece of the last one from which Rest searches
    std::vector<SPiece> m_vNew;
};

/// Lends the last conversion to one converter at a time; another one meanwhile gets an empty one. Any thread.
template <class TIn, class TOut>
class CLastConversionKeeper
{
public:
    typedef CLastConversion<TIn, TOut> CLast;

    /// Gives it back, with the new conversion in it.
    struct SGiveBack
    {
        CLastConversionKeeper* pKeeper;
        void operator()(CLast* pLast) const noexcept { pKeeper->PutBack(std::unique_ptr<CLast>(pLast)); }
    };
    typedef std::unique_ptr<CLast, SGiveBack> CLease;

    CLastConversionKeeper() = default;
    CLastConversionKeeper(const CLastConversionKeeper&) = delete;
    CLastConversionKeeper& operator=(const CLastConversionKeeper&) = delete;
    ~CLastConversionKeeper()
    {
        // Other threads may still be converting when the process ends.
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_pLast.reset();
    }

    CLease Take()
    {
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            if (m_pLast)
            {
                return CLease(m_pLast.release(), {this});
            }
        }
        return CLease(new CLast, {this});
    }

private:
    void PutBack(std::unique_ptr<CLast> pLast) noexcept
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_pLast.swap(pLast);
    }

    std::mutex m_Mutex;
    std::unique_ptr<CLast> m_pLast;
};

} // namespace KestrelPlatform

#endif
