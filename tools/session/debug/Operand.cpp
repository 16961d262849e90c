// Parses register names.

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/ExpressionNode.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace KestrelTool
{

bool IsSpelledAsRegister(const std::string& strName)
{
    static const char* const s_Prefixes[] = {"r", "x", "l", "cb", "icb", "mem"};
    const size_t nDigit = std::min(strName.find_first_of("0123456789"), strName.size());
    const bool bNumbered =
        nDigit < strName.size() && strName.find_first_not_of("0123456789", nDigit) == std::string::npos;
    return bNumbered && std::any_of(std::begin(s_Prefixes), std::end(s_Prefixes),
                                    [&](const char* pszPrefix) { return strName.substr(0, nDigit) == pszPrefix; });
}

namespace
{

/// The debugger has 16 bits for a register's number and 32 for an index, and would take larger ones for other
/// registers.
void RequireNumbers(const std::string& strRegister, const std::string& strText)
{
    for (size_t n = strRegister.find_first_of("0123456789"); n < strRegister.size();)
    {
        const size_t nEnd = std::min(strRegister.find_first_not_of("0123456789", n), strRegister.size());
        errno = 0;
        const unsigned long long nValue = std::strtoull(strRegister.c_str() + n, nullptr, 10);
        const bool bIndex = n != 0 && strRegister[n - 1] == '[';
        if (errno == ERANGE || nValue > (bIndex ? 0xFFFFFFFFULL : 0xFFFFULL))
        {
            throw CCommandError("\"" + strText + "\" is no register: its number is too large");
        }
        n = strRegister.find_first_of("0123456789", nEnd);
    }
}

} // namespace

SOperand ReadOperand(const std::string& strText)
{
    SOperand operand;
    const size_t nClose = strText.rfind(']');
    const size_t nDot = strText.find('.', nClose == std::string::npos ? 0 : nClose);
    operand.strRegister = strText.substr(0, nDot);
    const size_t nDigit = operand.strRegister.find_first_of("0123456789");
    const bool bStartsWell = !operand.strRegister.empty() && std::isalpha(operand.strRegister[0]) != 0;
    if (!bStartsWell)
    {
        throw CCommandError("\"" + strText + "\" is no register");
    }
    RequireNumbers(operand.strRegister, strText);
    if (nDigit == std::string::npos)
    {
        operand.strRegister += '0'; // id registers are written without their number
    }
    if (nDot == std::string::npos)
    {
        operand.vComponents = {0, 1, 2, 3};
        return operand;
    }
    for (const char c : strText.substr(nDot + 1))
    {
        const size_t nComponent = std::string("xyzw").find(c);
        if (nComponent == std::string::npos)
        {
            throw CCommandError("\"" + strText + "\": components are x, y, z and w");
        }
        operand.vComponents.push_back(static_cast<unsigned int>(nComponent));
    }
    if (operand.vComponents.empty() || operand.vComponents.size() > 4)
    {
        throw CCommandError("\"" + strText + "\": one to four components");
    }
    return operand;
}

} // namespace KestrelTool
