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

/// Bytes that are compared in one go.
constexpr size_t s_nCompared = 64;

/// How many of the first nBytes are the same.
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

/// How many of the nBytes in front of two places are the same, counted from the places.
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

/// Remembers what a converter was given last and what it made of it, piece by piece. What is converted one after the
/// other often differs in few pieces, as the copies of a kernel do that a debugger makes, and a piece's conversion
/// depends on nothing but the piece and the state in which the converter comes to it. So it converts what is new only:
/// Begin gives the place from which on, Rest the place up to which.
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
        uint32_t nOut = 0;   ///< where what was made of it begins
        uint32_t nState = 0; ///< of the converter in front of it
        bool bMarked = false;
    };

    /// Begins a conversion, whose input must stay until its end.
    /// \return the first piece of the last one that isn't here for sure, all in front of which is as it was; or null
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

    /// Notes the piece that is converted next.
    void Note(size_t nIn, size_t nOut, uint32_t nState)
    {
        m_vNew.push_back({static_cast<uint32_t>(nIn), static_cast<uint32_t>(nOut), nState, false});
    }
    /// Marks the piece that was noted last.
    void Mark() { m_vNew.back().bMarked = true; }

    /// If all from a place on is as it was, and the converter comes to it in the same state, notes the pieces from
    /// there. \return where in Made() that begins, or null if it isn't so
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

    /// The pieces of the conversion that goes on.
    const std::vector<SPiece>& Pieces() const { return m_vNew; }
    /// What the last conversion made.
    const TOut* Made() const { return m_vOut.data(); }
    const TOut* MadeEnd() const { return m_vOut.data() + m_vOut.size(); }

    /// Ends a conversion that has succeeded, and remembers it unless it is too large or there is no memory for it.
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
    /// Elements of a kernel of some 100,000 lines.
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

    // The one that goes on.
    const TIn* m_pIn = nullptr;
    size_t m_nIn = 0;
    size_t m_nSameEnd = 0; ///< elements at the end that are the same in both
    size_t m_nNext = 0;    ///< a piece of the last one, to look for the rest from
    std::vector<SPiece> m_vNew;
};

/// Hands what was converted last to one converter at a time; who comes meanwhile gets nothing to build on. Any thread.
template <class TIn, class TOut>
class CLastConversionKeeper
{
public:
    typedef CLastConversion<TIn, TOut> CLast;

    /// Gives it back, with what has been converted meanwhile.
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
        // Other threads may still convert when the process ends.
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
