#include "tools/session/launch/Listing.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace KestrelTool
{

namespace
{

bool StartsWith(const std::string& strText, const char* pszPrefix)
{
    return strText.compare(0, std::strlen(pszPrefix), pszPrefix) == 0;
}

bool HoldsInstruction(const std::string& strLine)
{
    if (strLine.empty() || strLine[0] == ';' || StartsWith(strLine, "comment"))
    {
        return false;
    }
    // Two words look like declarations, but are instructions to the debugger.
    if (StartsWith(strLine, "dcl"))
    {
        return StartsWith(strLine, "dcl_wavesize") || StartsWith(strLine, "dcl_user_data");
    }
    return !StartsWith(strLine, "il_") && !StartsWith(strLine, "il(") && !StartsWith(strLine, "mdef") &&
           !StartsWith(strLine, "mend");
}

/// The first word of a line.
std::string FirstWord(const std::string& strLine)
{
    return strLine.substr(0, strLine.find_first_of(" \t"));
}

/// Instructions without a destination, whose first operand is a source.
bool HasNoDestination(const std::string& strMnemonic)
{
    static const char* const s_Prefixes[] = {"if",        "break",   "continue",    "switch",    "case",
                                             "call",      "ret",     "func",        "lds_store", "fence",
                                             "uav_store", "discard", "dcl_wavesize"};
    return std::any_of(std::begin(s_Prefixes), std::end(s_Prefixes),
                       [&](const char* pszPrefix) { return StartsWith(strMnemonic, pszPrefix); });
}

bool IsNumber(const std::string& strText)
{
    return !strText.empty() &&
           std::all_of(strText.begin(), strText.end(), [](unsigned char c) { return std::isdigit(c); });
}

} // namespace

CListing::CListing(std::vector<std::string> vLines, std::vector<std::string> vPlaces)
    : m_vLines(std::move(vLines)), m_vPlaces(std::move(vPlaces))
{
    for (unsigned int nLine = 0; nLine < m_vLines.size(); ++nLine)
    {
        if (HoldsInstruction(m_vLines[nLine]))
        {
            m_mapNumbers[nLine] = static_cast<unsigned int>(m_vInstructionLines.size());
            m_vInstructionLines.push_back(nLine);
        }
    }
}

const std::string& CListing::GetLine(unsigned int nLine) const
{
    static const std::string s_strNone;
    return nLine < m_vLines.size() ? m_vLines[nLine] : s_strNone;
}

const std::string& CListing::GetPlace(unsigned int nLine) const
{
    static const std::string s_strNone;
    return nLine < m_vPlaces.size() && IsInstruction(nLine) ? m_vPlaces[nLine] : s_strNone;
}

bool CListing::IsInstruction(unsigned int nLine) const
{
    return m_mapNumbers.count(nLine) != 0;
}

std::string CListing::GetMnemonic(unsigned int nLine) const
{
    return FirstWord(GetLine(nLine));
}

std::string CListing::GetWrittenRegister(unsigned int nLine) const
{
    const std::string& strLine = GetLine(nLine);
    const std::string strMnemonic = FirstWord(strLine);
    if (!IsInstruction(nLine) || HasNoDestination(strMnemonic) || strMnemonic.size() >= strLine.size())
    {
        return std::string();
    }
    std::string strOperand = strLine.substr(strMnemonic.size() + 1);
    strOperand = strOperand.substr(0, strOperand.find(','));
    strOperand = strOperand.substr(
        0, strOperand.find('.', strOperand.rfind(']') == std::string::npos ? 0 : strOperand.rfind(']')));
    if (strOperand.size() > 1 && strOperand[0] == 'r' && IsNumber(strOperand.substr(1)))
    {
        return strOperand;
    }
    const size_t nOpen = strOperand.find('[');
    if (strOperand[0] == 'x' && nOpen != std::string::npos && strOperand.back() == ']' &&
        IsNumber(strOperand.substr(nOpen + 1, strOperand.size() - nOpen - 2)))
    {
        return strOperand;
    }
    return std::string();
}

unsigned int CListing::GetNextInstruction(unsigned int nLine) const
{
    const auto it = m_mapNumbers.upper_bound(nLine);
    return it != m_mapNumbers.end() ? it->first : NoLine;
}

unsigned int CListing::FollowCall(unsigned int nLine) const
{
    if (nLine == NoLine || GetMnemonic(nLine) != "call")
    {
        return nLine;
    }
    return GetFunction(static_cast<unsigned int>(std::strtoul(GetLine(nLine).c_str() + 5, nullptr, 0)));
}

unsigned int CListing::GetEntry() const
{
    return m_vInstructionLines.empty() ? NoLine : FollowCall(m_vInstructionLines.front());
}

unsigned int CListing::GetFirstStop() const
{
    return FollowCall(GetNextInstruction(GetEntry()));
}

unsigned int CListing::GetInstructionNumber(unsigned int nLine) const
{
    const auto it = m_mapNumbers.find(nLine);
    return it != m_mapNumbers.end() ? it->second : NoLine;
}

unsigned int CListing::GetLineOfInstruction(unsigned int nInstruction) const
{
    return nInstruction < m_vInstructionLines.size() ? m_vInstructionLines[nInstruction] : NoLine;
}

unsigned int CListing::GetFunction(unsigned int nLabel) const
{
    for (const unsigned int nLine : m_vInstructionLines)
    {
        if (GetMnemonic(nLine) == "func" && std::strtoul(GetLine(nLine).c_str() + 5, nullptr, 0) == nLabel)
        {
            return nLine;
        }
    }
    return NoLine;
}

} // namespace KestrelTool
