#include "tools/kestrel/check/Suppressions.h"

#include "tools/session/launch/LaunchFile.h"

#include <sstream>

namespace KestrelTool
{

void CSuppressions::Read(const std::string& strText, const std::string& strPath)
{
    std::istringstream text(strText);
    std::string strLine;
    for (size_t nLine = 1; std::getline(text, strLine); ++nLine)
    {
        std::istringstream words(strLine.substr(0, strLine.find('#')));
        SRule rule;
        std::string strMore;
        if (!(words >> rule.strCheck))
        {
            continue;
        }
        if (!(words >> rule.strKernel >> rule.strLine) || words >> strMore)
        {
            throw CLaunchFileError(strPath + ":" + std::to_string(nLine) + ": a check, a kernel and a line are needed");
        }
        m_vRules.push_back(rule);
    }
}

bool CSuppressions::Holds(const std::string& strCheck, const std::string& strKernel, unsigned int nLine) const
{
    const auto fits = [](const std::string& strRule, const std::string& strText)
    { return strRule == "*" || strRule == strText; };
    for (const SRule& rule : m_vRules)
    {
        if (fits(rule.strCheck, strCheck) && fits(rule.strKernel, strKernel) &&
            fits(rule.strLine, std::to_string(nLine)))
        {
            return true;
        }
    }
    return false;
}

bool IsIntended(const std::string& strLine, const std::string& strCheck)
{
    const size_t nComment = strLine.find("//");
    return nComment != std::string::npos &&
           strLine.find("kestrel: " + strCheck + " intended", nComment) != std::string::npos;
}

} // namespace KestrelTool
