#include "platform/compiler/CTokens.h"

#include <cctype>

namespace KestrelPlatform
{
namespace
{

const std::string_view s_LongMarks[] = {"<<=", ">>=", "##", "<<", ">>", "+=", "-=", "*=", "/=", "%=", "&=",
                                        "|=",  "^=",  "++", "--", "==", "!=", "<=", ">=", "&&", "||", "->"};

bool IsWordCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool IsDigit(char c)
{
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

class CSplitter
{
public:
    explicit CSplitter(std::string_view text) : m_text(text) {}

    std::vector<SCToken> Run()
    {
        std::vector<SCToken> vTokens;
        do
        {
            SkipBlanks();
            SCToken token;
            token.nLine = m_nLine;
            token.nColumn = static_cast<unsigned int>(m_nPosition - m_nLineStart) + 1;
            token.bLineStart = m_bLineStart;
            token.bBlank = m_bBlank;
            Take(token);
            m_bLineStart = false;
            vTokens.push_back(token);
        } while (vTokens.back().eKind != SCToken::End);
        return vTokens;
    }

private:
    bool AtEnd() const { return m_nPosition >= m_text.size(); }
    bool StartsWith(std::string_view part) const { return m_text.substr(m_nPosition, part.size()) == part; }

    void Step()
    {
        if (m_text[m_nPosition++] == '\n')
        {
            ++m_nLine;
            m_nLineStart = m_nPosition;
        }
    }

    void SkipComment(std::string_view end)
    {
        while (!AtEnd() && !StartsWith(end))
        {
            Step();
        }
        for (size_t n = 0; end != "\n" && n < end.size() && !AtEnd(); ++n)
        {
            Step();
        }
    }

    void SkipBlanks()
    {
        m_bBlank = false;
        while (!AtEnd())
        {
            const size_t nBefore = m_nPosition;
            if (StartsWith("\\\n") || StartsWith("\\\r\n"))
            {
                m_nPosition = m_text.find('\n', m_nPosition);
                Step();
            }
            else if (StartsWith("//"))
            {
                SkipComment("\n");
            }
            else if (StartsWith("/*"))
            {
                m_nPosition += 2;
                SkipComment("*/");
            }
            else if (std::isspace(static_cast<unsigned char>(m_text[m_nPosition])) != 0)
            {
                m_bLineStart = m_bLineStart || m_text[m_nPosition] == '\n';
                Step();
            }
            if (nBefore == m_nPosition)
            {
                return;
            }
            m_bBlank = true;
        }
    }

    void Take(SCToken& token)
    {
        if (AtEnd())
        {
            return;
        }
        const size_t nStart = m_nPosition;
        const char c = m_text[m_nPosition];
        const bool bFraction = c == '.' && nStart + 1 < m_text.size() && IsDigit(m_text[nStart + 1]);
        if (IsDigit(c) || bFraction)
        {
            token.eKind = SCToken::Number;
            TakeNumber();
        }
        else if (IsWordCharacter(c))
        {
            token.eKind = SCToken::Word;
            while (!AtEnd() && IsWordCharacter(m_text[m_nPosition]))
            {
                ++m_nPosition;
            }
        }
        else
        {
            token.eKind = SCToken::Mark;
            TakeMark();
        }
        token.strText = m_text.substr(nStart, m_nPosition - nStart);
    }

    /// Digits, letters and points, and a sign behind an exponent's letter.
    void TakeNumber()
    {
        char cLast = 0;
        while (!AtEnd())
        {
            const char c = m_text[m_nPosition];
            const bool bSign = (c == '+' || c == '-') && (cLast == 'e' || cLast == 'E' || cLast == 'p' || cLast == 'P');
            if (!IsWordCharacter(c) && c != '.' && !bSign)
            {
                return;
            }
            cLast = c;
            ++m_nPosition;
        }
    }

    void TakeMark()
    {
        for (const std::string_view mark : s_LongMarks)
        {
            if (StartsWith(mark))
            {
                m_nPosition += mark.size();
                return;
            }
        }
        ++m_nPosition;
    }

    std::string_view m_text;
    size_t m_nPosition = 0;
    size_t m_nLineStart = 0;
    unsigned int m_nLine = 1;
    bool m_bLineStart = true;
    bool m_bBlank = false;
};

} // namespace

std::vector<SCToken> SplitC(std::string_view text)
{
    return CSplitter(text).Run();
}

bool FailAt(const SCToken& token, const std::string& strMessage, SDiagnostic& diag)
{
    diag.nLine = token.nLine;
    diag.nColumn = token.nColumn;
    diag.strMessage = strMessage;
    return false;
}

} // namespace KestrelPlatform
