#include "platform/compiler/LineScanner.h"

#include <charconv>
#include <cstring>

namespace KestrelPlatform
{
namespace
{

/// The end of the longest run of characters that could be a decimal or a float, without its sign.
const char* FindNumberEnd(const char* p, const char* pEnd, bool& bFloat)
{
    bFloat = false;
    while (p != pEnd)
    {
        const bool bExponent = *p == 'e' || *p == 'E';
        if (bExponent && p + 1 != pEnd && (p[1] == '-' || p[1] == '+'))
        {
            ++p;
        }
        else if (!IsOfClass(*p, CharDigit) && *p != '.' && !bExponent)
        {
            break;
        }
        bFloat = bFloat || bExponent || *p == '.';
        ++p;
    }
    return p;
}

} // namespace

bool CLineScanner::TakeHexadecimal(const char* pStart, uint32_t& nValue)
{
    const auto result = std::from_chars(m_p + 2, m_pEnd, nValue, 16);
    if (result.ec == std::errc::result_out_of_range)
    {
        return Refuse(pStart, "the number doesn't fit in 32 bits");
    }
    if (result.ec != std::errc())
    {
        return FailAt(pStart, "a number");
    }
    m_p = result.ptr;
    return true;
}

bool CLineScanner::TakeDecimal(const char* pStart, uint32_t& nValue)
{
    const bool bNegative = *pStart == '-';
    const auto result = std::from_chars(m_p, m_pEnd, nValue, 10);
    if (result.ec == std::errc::result_out_of_range || (bNegative && result.ec == std::errc() && nValue > 0x80000000u))
    {
        return Refuse(pStart, "the number doesn't fit in 32 bits");
    }
    if (result.ec != std::errc())
    {
        return FailAt(pStart, "a number");
    }
    m_p = result.ptr;
    nValue = bNegative ? 0u - nValue : nValue;
    return true;
}

bool CLineScanner::TakeFloat(const char* pStart, const char* pNumberEnd, uint32_t& nValue)
{
    float fValue = 0;
    const auto result = std::from_chars(m_p, pNumberEnd, fValue);
    if (result.ec == std::errc::result_out_of_range)
    {
        return Refuse(pStart, "the number doesn't fit in a single-precision float");
    }
    if (result.ec != std::errc() || result.ptr != pNumberEnd)
    {
        return FailAt(pStart, "a number");
    }
    m_p = pNumberEnd;
    Accept('f');
    fValue = *pStart == '-' ? -fValue : fValue;
    std::memcpy(&nValue, &fValue, sizeof(nValue));
    return true;
}

bool CLineScanner::TakeNumber(uint32_t& nValue)
{
    const char* pStart = m_p;
    const bool bSign = Accept('-');
    if (!bSign && m_pEnd - m_p > 2 && m_p[0] == '0' && (m_p[1] == 'x' || m_p[1] == 'X'))
    {
        return TakeHexadecimal(pStart, nValue);
    }
    if (!IsOfClass(Peek(), CharDigit) && Peek() != '.')
    {
        return FailAt(pStart, "a number");
    }
    bool bFloat = false;
    const char* pNumberEnd = FindNumberEnd(m_p, m_pEnd, bFloat);
    return bFloat ? TakeFloat(pStart, pNumberEnd, nValue) : TakeDecimal(pStart, nValue);
}

bool CLineScanner::TakeNumber(uint32_t& nValue, uint32_t nMaximum, std::string_view what)
{
    const char* pStart = m_p;
    if (!TakeNumber(nValue))
    {
        return false;
    }
    if (nValue > nMaximum)
    {
        return Refuse(pStart, std::string(what) + " is at most " + std::to_string(nMaximum));
    }
    return true;
}

bool CLineScanner::FailExpected(char c)
{
    return Fail(std::string("'") + c + "'");
}

bool CLineScanner::RefuseDigits(std::string_view digits, uint32_t nMaximum, std::string_view what)
{
    return Refuse(digits.data(), std::string(what) + " is at most " + std::to_string(nMaximum));
}

bool CLineScanner::FailAt(const char* p, std::string_view expected)
{
    const size_t nLongestShown = 24;
    const char* pTokenEnd = p;
    while (pTokenEnd != m_pEnd && std::strchr(" \t,;()[]{}", *pTokenEnd) == nullptr)
    {
        ++pTokenEnd;
    }
    if (pTokenEnd == p && p != m_pEnd)
    {
        ++pTokenEnd;
    }
    const std::string_view token(p, static_cast<size_t>(pTokenEnd - p));
    const std::string strGot =
        p == m_pEnd ? "the end of the line" : "'" + std::string(token.substr(0, nLongestShown)) + "'";
    return Refuse(p, "expected " + std::string(expected) + ", got " + strGot);
}

bool CLineScanner::Refuse(const char* p, std::string_view message)
{
    if (m_strFault.empty())
    {
        m_strFault = message;
        m_nFaultColumn = static_cast<unsigned int>(p - m_pBegin) + 1;
    }
    return false;
}

} // namespace KestrelPlatform
