#include "core/StringUtils.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>

namespace StringUtils
{

size_t SplitStringIntoLines(const std::string& strString, std::vector<std::string>& vLines, bool bTrim)
{
    std::vector<std::string> vNewLines;
    boost::algorithm::split(vNewLines, strString, boost::algorithm::is_any_of("\n"));
    for (std::string& strLine : vNewLines)
    {
        if (bTrim)
        {
            TrimString(strLine);
        }
        vLines.push_back(std::move(strLine));
    }
    return vLines.size();
}

void TrimString(std::string& strString)
{
    boost::algorithm::trim_if(strString, boost::algorithm::is_any_of(" \t\r\n"));
}

} // namespace StringUtils
