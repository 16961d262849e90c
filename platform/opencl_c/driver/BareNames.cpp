#include "platform/opencl_c/driver/BareNames.h"

#include <cctype>

namespace KestrelOpenCL
{
namespace
{

/// Reads a source character by character after the language's first two phases: a backslash at the end of a line joins
/// it with the next, and `??/` is a backslash.
class CSourceReader
{
public:
    explicit CSourceReader(std::string_view source) : m_Source(source) { Skip(); }

    /// The character at the place, 0 at the end.
    char Peek() const { return m_nAt >= m_Source.size() ? '\0' : IsTrigraph(m_nAt) ? '\\' : m_Source[m_nAt]; }

    bool IsAtEnd() const { return m_nAt >= m_Source.size(); }
    size_t GetOffset() const { return m_nAt; }

    void Advance()
    {
        m_nAt += IsTrigraph(m_nAt) ? 3 : 1;
        Skip();
    }

private:
    std::string_view m_Source;
    size_t m_nAt = 0;

    bool IsTrigraph(size_t nAt) const { return m_Source.substr(nAt, 3) == "?\?/"; }

    /// Skips joined line ends.
    void Skip()
    {
        while (m_nAt < m_Source.size())
        {
            size_t nEnd = m_nAt + (IsTrigraph(m_nAt) ? 3 : m_Source[m_nAt] == '\\' ? 1 : 0);
            if (nEnd == m_nAt)
            {
                return;
            }
            while (nEnd < m_Source.size() && (m_Source[nEnd] == ' ' || m_Source[nEnd] == '\t'))
            {
                ++nEnd;
            }
            nEnd += nEnd < m_Source.size() && m_Source[nEnd] == '\r' ? 1 : 0;
            if (nEnd >= m_Source.size() || m_Source[nEnd] != '\n')
            {
                return;
            }
            m_nAt = nEnd + 1;
        }
    }
};

/// Skips a comment if one begins here. \return whether one did
bool SkipComment(CSourceReader& reader)
{
    CSourceReader ahead = reader;
    ahead.Advance();
    const char cKind = ahead.Peek();
    if (reader.Peek() != '/' || (cKind != '/' && cKind != '*'))
    {
        return false;
    }
    char cBefore = '\0';
    for (ahead.Advance(); !ahead.IsAtEnd(); ahead.Advance())
    {
        const char cHere = ahead.Peek();
        if (cKind == '/' ? cHere == '\n' : cBefore == '*' && cHere == '/')
        {
            break;
        }
        cBefore = cHere;
    }
    reader = ahead;
    return true;
}

/// \return whether no name follows `\N`, given the character after it
bool IsBareBefore(char cNext, char cQuote)
{
    return cQuote != '\0' ? cNext == cQuote
                          : cNext != '{' && cNext != '_' && std::isalnum(static_cast<unsigned char>(cNext)) == 0;
}

} // namespace

size_t FindBareName(std::string_view source)
{
    if (source.find('N') == std::string_view::npos)
    {
        return std::string_view::npos;
    }
    char cQuote = '\0'; // of the string or character constant that the reader is in
    for (CSourceReader reader(source); !reader.IsAtEnd(); reader.Advance())
    {
        if (cQuote == '\0' && SkipComment(reader))
        {
            continue;
        }
        const char cHere = reader.Peek();
        if (cHere == '\\')
        {
            const size_t nStart = reader.GetOffset();
            CSourceReader ahead = reader;
            ahead.Advance();
            const bool bName = ahead.Peek() == 'N';
            if (cQuote == '\0' && !bName)
            {
                continue;
            }
            // Skips the escaped character.
            reader = ahead;
            ahead.Advance();
            if (bName && IsBareBefore(ahead.Peek(), cQuote))
            {
                return nStart;
            }
        }
        else if (cHere == '\n')
        {
            cQuote = '\0'; // a string ends at the end of its line at the latest
        }
        else if (cQuote == '\0' && (cHere == '"' || cHere == '\''))
        {
            cQuote = cHere;
        }
        else if (cHere == cQuote)
        {
            cQuote = '\0';
        }
    }
    return std::string_view::npos;
}

} // namespace KestrelOpenCL
