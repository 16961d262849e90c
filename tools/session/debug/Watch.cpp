#include "tools/session/debug/Watch.h"

#include "tools/session/debug/CommandError.h"

#include <sstream>

namespace KestrelTool
{

namespace
{

bool HasPart(const std::string& strText, const char* pszPart)
{
    return strText.find(pszPart) != std::string::npos;
}

} // namespace

/// The address is the first source, which follows the destination if the instruction names one. Instructions with
/// several words have a second one, which is added.
std::vector<SOperand> FindAddressOperands(const CListing& listing, unsigned int nLine)
{
    const std::string& strLine = listing.GetLine(nLine);
    const std::string strMnemonic = strLine.substr(0, strLine.find(' '));
    if (HasPart(strMnemonic, "uav_load") || HasPart(strMnemonic, "uav_store") || HasPart(strMnemonic, "struct"))
    {
        return {}; // these count in elements
    }
    std::istringstream operands(strLine.substr(strMnemonic.size()));
    std::string strWord;
    operands >> strWord;
    if (HasPart(strMnemonic, "load") || HasPart(strMnemonic, "read") || strWord.compare(0, 3, "mem") == 0)
    {
        operands >> strWord;
    }
    std::vector<SOperand> vAddress;
    try
    {
        for (size_t n = 0; n < (HasPart(strMnemonic, "_vec") ? 2 : 1); ++n, operands >> strWord)
        {
            vAddress.push_back(ReadOperand(strWord.substr(0, strWord.find_last_not_of(',') + 1)));
        }
    }
    catch (const CCommandError&)
    {
        return {};
    }
    return vAddress;
}

} // namespace KestrelTool
