#ifndef KESTREL_IL_TOKENSTREAM_H
#define KESTREL_IL_TOKENSTREAM_H

#include "core/IShaderDebugger.h"
#include "core/Log.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

namespace OVK_ShaderDebugger
{

/// What the two token streams share. A stream belongs to one operation on one thread.
template <typename T>
class CTokenStream
{
    static_assert(std::is_trivially_copyable<T>::value, "tokens are moved as bytes");

public:
    virtual ~CTokenStream() = default;

    CTokenStream(const CTokenStream&) = delete;
    CTokenStream& operator=(const CTokenStream&) = delete;

    /// The first token. Whose array it is, and for how long, the derived class says.
    virtual const T* GetStream() const = 0;
    /// The next token to read or the next free slot.
    virtual const T* GetStreamPos() const = 0;

    /// The capacity in tokens.
    std::size_t GetTokenCount() const { return m_nTokenCount; }

    /// The debugger's host, for logging; null without a debugger.
    CShaderDebuggerHost* GetHost() const { return m_pDebugger != nullptr ? m_pDebugger->GetHost() : nullptr; }

protected:
    /// \param pDebugger not owned, may be null
    CTokenStream(IShaderDebugger* pDebugger, std::size_t nTokenCount)
        : m_pDebugger(pDebugger), m_nTokenCount(nTokenCount)
    {
    }

    IShaderDebugger* m_pDebugger;
    std::size_t m_nTokenCount;
};

/// Walks an array of tokens that someone else owns and that must outlive the stream.
template <typename T>
class CInputTokenStream : public CTokenStream<T>
{
public:
    /// \param ptTokens the array of nTokenCount tokens, above 0. A null array counts as one that has ended.
    CInputTokenStream(IShaderDebugger* pDebugger, const T* ptTokens, std::size_t nTokenCount)
        : CTokenStream<T>(pDebugger, ptTokens != nullptr ? nTokenCount : 0), m_ptStream(ptTokens),
          m_ptStreamPos(ptTokens), m_nTokensRead(0)
    {
        SD_AssertText(this->GetHost(), this->m_nTokenCount > 0, "nTokenCount > 0");
    }

    /// Copies the next token and stays. \return false at the end of the stream
    bool PeekToken(T& token) const { return PeekTokens(&token, 1); }

    /// Copies the next nTokens tokens and stays. \return false when fewer remain or the buffer is null
    bool PeekTokens(T* ptBuffer, std::size_t nTokens) const
    {
        if (ptBuffer == nullptr || nTokens > GetTokensLeft())
        {
            return false;
        }

        std::copy_n(m_ptStreamPos, nTokens, ptBuffer);
        return true;
    }

    /// Copies the next token and moves on. \return false at the end of the stream
    bool ReadToken(T& token) { return PeekToken(token) && SkipTokens(1); }

    /// Moves on. \return false, without moving, when fewer remain
    bool SkipTokens(std::size_t nTokens)
    {
        if (nTokens > GetTokensLeft())
        {
            return false;
        }

        m_ptStreamPos += nTokens;
        m_nTokensRead += nTokens;
        return true;
    }

    const T* GetStream() const override { return m_ptStream; }
    /// The next token to read; after it lie GetTokensLeft() tokens.
    const T* GetStreamPos() const override { return m_ptStreamPos; }
    std::size_t GetTokensRead() const { return m_nTokensRead; }
    std::size_t GetTokensLeft() const { return this->m_nTokenCount - m_nTokensRead; }

private:
    const T* m_ptStream;
    const T* m_ptStreamPos;
    std::size_t m_nTokensRead;
};

/// Grows an array of its own. What GetStream gives is valid until the next growth and until the destructor.
template <typename T>
class COutputTokenStream : public CTokenStream<T>
{
public:
    /// Starts empty, with room for nInitialTokenCount tokens. A failed allocation is logged, and shows as a capacity
    /// of 0.
    COutputTokenStream(IShaderDebugger* pDebugger, std::size_t nInitialTokenCount)
        : CTokenStream<T>(pDebugger, 0), m_nTokensWritten(0), m_bHasLostTokens(false)
    {
        SD_AssertText(this->GetHost(), Resize(nInitialTokenCount), "Resize(nInitialTokenCount)");
    }

    /// Appends one token; a full stream doubles. \return false when growth fails
    bool WriteToken(T token)
    {
        if (m_nTokensWritten == this->m_nTokenCount &&
            !Resize(this->m_nTokenCount != 0 ? 2 * this->m_nTokenCount : 100))
        {
            m_bHasLostTokens = true;
            return false;
        }

        m_ptStream[m_nTokensWritten++] = token;
        return true;
    }

    /// Appends tokens, which must not lie in this stream itself; the stream keeps at least one slot free.
    /// \return false for no tokens, a null array or when growth fails
    bool WriteTokens(const T* ptTokens, std::size_t nTokens) { return Append(ptTokens, nTokens); }

    /// Appends raw bytes, of any alignment, as tokens.
    /// \return false as WriteTokens, and when the bytes are no whole number of tokens
    bool WriteData(const void* pBytes, std::size_t nBytes)
    {
        return nBytes % sizeof(T) == 0 && Append(pBytes, nBytes / sizeof(T));
    }

    /// Sets the capacity. \return false, with nothing changed, when it is below the tokens written or memory is short
    bool Resize(std::size_t nTokens)
    {
        if (nTokens < m_nTokensWritten || nTokens > s_nMaxTokens)
        {
            return false;
        }

        // The compiler warns of a copy into an array of no elements.
        std::unique_ptr<T[]> pResized(new (std::nothrow) T[std::max<std::size_t>(nTokens, 1)]);

        if (pResized == nullptr)
        {
            return false;
        }

        std::copy_n(m_ptStream.get(), m_nTokensWritten, pResized.get());
        m_ptStream = std::move(pResized);
        this->m_nTokenCount = nTokens;
        return true;
    }

    /// The smallest power of two that isn't below n, for n up to 2^32; 1 for 0.
    static std::size_t NextPowerOfTwo(std::size_t n)
    {
        if (n == 0)
        {
            return 1;
        }

        --n;

        for (unsigned int nShift = 1; nShift <= 16; nShift *= 2)
        {
            n |= n >> nShift;
        }

        return n + 1;
    }

    const T* GetStream() const override { return m_ptStream.get(); }
    const T* GetStreamPos() const override { return m_ptStream.get() + m_nTokensWritten; }
    std::size_t GetTokensWritten() const { return m_nTokensWritten; }
    /// Whether tokens are missing because growth failed at some time; what is here must not be run then.
    bool HasLostTokens() const { return m_bHasLostTokens; }

private:
    /// No array can have more.
    static constexpr std::size_t s_nMaxTokens = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T);

    bool Append(const void* pTokens, std::size_t nTokens)
    {
        if (pTokens == nullptr || nTokens == 0 || nTokens > s_nMaxTokens - m_nTokensWritten)
        {
            return false;
        }

        const std::size_t nNeeded = m_nTokensWritten + nTokens;

        if (this->m_nTokenCount <= nNeeded && !Resize(NextPowerOfTwo(nNeeded)))
        {
            m_bHasLostTokens = true;
            return false;
        }

        std::memcpy(&m_ptStream[m_nTokensWritten], pTokens, nTokens * sizeof(T));
        m_nTokensWritten = nNeeded;
        return true;
    }

    std::unique_ptr<T[]> m_ptStream;
    std::size_t m_nTokensWritten;
    bool m_bHasLostTokens;
};

} // namespace OVK_ShaderDebugger

#endif // KESTREL_IL_TOKENSTREAM_H
