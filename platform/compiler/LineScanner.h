#ifndef KESTREL_PLATFORM_COMPILER_LINESCANNER_H
#define KESTREL_PLATFORM_COMPILER_LINESCANNER_H

#include "platform/compiler/CharClass.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace KestrelPlatform
{

/// Reads the words, numbers and marks of one line. Keeps the first fault with its column.
class CLineScanner
{
public:
    /// \param line the line without its end; must outlive the scanner
    explicit CLineScanner(std::string_view line)
        : m_pBegin(line.data()), m_p(line.data()), m_pEnd(line.data() + line.size())
    {
    }

    bool AtEnd() const { return m_p == m_pEnd; }
    const char* Position() const { return m_p; }
    void SetPosition(const char* p) { m_p = p; }

    /// \return the next character, 0 at the end
    char Peek() const { return m_p == m_pEnd ? '\0' : *m_p; }
    std::string_view Rest() const { return {m_p, static_cast<size_t>(m_pEnd - m_p)}; }

    void SkipBlanks()
    {
        const char* p = m_p;
        while (p != m_pEnd && (*p == ' ' || *p == '\t'))
        {
            ++p;
        }
        m_p = p;
    }

    /// Takes the character if it is the next one.
    bool Accept(char c)
    {
        if (m_p == m_pEnd || *m_p != c)
        {
            return false;
        }
        ++m_p;
        return true;
    }

    /// Takes blanks, the character, blanks; a fault if it isn't there.
    bool Expect(char c)
    {
        if (!Accept(c))
        {
            SkipBlanks();
            if (!Accept(c))
            {
                return FailExpected(c);
            }
        }
        SkipBlanks();
        return true;
    }

    /// Takes letters, digits and, with bUnderscores, underscores; may be empty.
    std::string_view TakeWord(bool bUnderscores)
    {
        return Take(CharLetter | CharDigit | (bUnderscores ? CharUnderscore : 0));
    }

    /// Takes letters only; may be empty.
    std::string_view TakeLetters() { return Take(CharLetter); }

    /// Takes a number in any of the accepted forms as a 32-bit word; a fault otherwise.
    bool TakeNumber(uint32_t& nValue);

    /// Takes a number that is at most nMaximum; a fault otherwise.
    bool TakeNumber(uint32_t& nValue, uint32_t nMaximum, std::string_view what);

    /// Takes decimal digits only, so that a '.' may follow; a fault for none, or for a value above nMaximum.
    bool TakeDigits(uint32_t& nValue, uint32_t nMaximum, std::string_view what)
    {
        const std::string_view digits = Take(CharDigit);
        uint64_t nRead = 0;
        for (const char c : digits)
        {
            nRead = nRead * 10 + static_cast<uint64_t>(c - '0');
            if (nRead > nMaximum)
            {
                return RefuseDigits(digits, nMaximum, what);
            }
        }
        if (digits.empty())
        {
            return Fail(what);
        }
        nValue = static_cast<uint32_t>(nRead);
        return true;
    }

    /// Notes a fault at the current position, or at p: "expected ..., got ...". Always false.
    bool Fail(std::string_view expected) { return FailAt(m_p, expected); }
    bool FailAt(const char* p, std::string_view expected);

    /// Notes a fault that isn't about the next character. Always false.
    bool Refuse(const char* p, std::string_view message);

    const std::string& FaultMessage() const { return m_strFault; }
    unsigned int FaultColumn() const { return m_nFaultColumn; }

private:
    /// Takes the characters of these classes; may be empty.
    std::string_view Take(unsigned int nClasses)
    {
        const char* pStart = m_p;
        const char* p = pStart;
        while (p != m_pEnd && IsOfClass(*p, nClasses))
        {
            ++p;
        }
        m_p = p;
        return {pStart, static_cast<size_t>(p - pStart)};
    }

    bool FailExpected(char c);
    bool RefuseDigits(std::string_view digits, uint32_t nMaximum, std::string_view what);
    bool TakeDecimal(const char* pStart, uint32_t& nValue);
    bool TakeHexadecimal(const char* pStart, uint32_t& nValue);
    bool TakeFloat(const char* pStart, const char* pNumberEnd, uint32_t& nValue);

    const char* m_pBegin;
    const char* m_p;
    const char* m_pEnd;
    std::string m_strFault;
    unsigned int m_nFaultColumn = 0;
};

} // namespace KestrelPlatform

#endif
