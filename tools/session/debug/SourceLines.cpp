#include "tools/session/debug/SourceLines.h"

#include <algorithm>
#include <cstdlib>

namespace KestrelTool
{

namespace
{

const size_t s_nMaxDigits = 9;

/// The source line of an instruction if it is in this file; otherwise 0.
unsigned int FindLineIn(const CListing& listing, unsigned int nLine, const std::string& strFile)
{
    const std::optional<SSourceLine> place = ReadSourceLine(listing.GetPlace(nLine));
    return place && IsFile(place->strFile, strFile) ? place->nLine : 0;
}

} // namespace

std::optional<SSourceLine> ReadSourceLine(const std::string& strText)
{
    const size_t nColon = strText.rfind(':');
    const size_t nDigits = nColon == std::string::npos ? 0 : strText.size() - nColon - 1;
    if (nColon == 0 || nDigits == 0 || nDigits > s_nMaxDigits ||
        strText.find_first_not_of("0123456789", nColon + 1) != std::string::npos)
    {
        return std::nullopt;
    }
    return SSourceLine{strText.substr(0, nColon),
                       static_cast<unsigned int>(std::strtoul(strText.c_str() + nColon + 1, nullptr, 10))};
}

bool IsFile(const std::string& strOne, const std::string& strOther)
{
    const std::string& strLong = strOne.size() >= strOther.size() ? strOne : strOther;
    const std::string& strShort = strOne.size() >= strOther.size() ? strOther : strOne;
    const size_t nFirst = strLong.size() - strShort.size();
    return strLong.compare(nFirst, std::string::npos, strShort) == 0 && (nFirst == 0 || strLong[nFirst - 1] == '/');
}

bool HasLines(const CListing& listing, const CCodeMap::SFunction* pFunction)
{
    for (unsigned int nLine = pFunction != nullptr ? pFunction->nHead : 0;
         pFunction != nullptr && nLine <= pFunction->nEnd; ++nLine)
    {
        if (!listing.GetPlace(nLine).empty())
        {
            return true;
        }
    }
    return false;
}

bool BeginsLine(const CListing& listing, const CCodeMap& code, unsigned int nLine)
{
    const std::string& strPlace = listing.GetPlace(nLine);
    if (strPlace.empty() || !listing.IsInstruction(nLine))
    {
        return false;
    }
    unsigned int nBefore = nLine;
    while (nBefore != 0 && !listing.IsInstruction(--nBefore))
    {
    }
    return listing.GetPlace(nBefore) != strPlace || code.FindFunction(nBefore) != code.FindFunction(nLine);
}

std::set<unsigned int> ListSourceLines(const CListing& listing, const CCodeMap::SFunction* pFunction,
                                       const std::string& strFile)
{
    std::set<unsigned int> lines;
    const unsigned int nEnd =
        pFunction != nullptr ? pFunction->nEnd : static_cast<unsigned int>(listing.GetLineCount());
    for (unsigned int nLine = pFunction != nullptr ? pFunction->nHead : 0; nLine <= nEnd; ++nLine)
    {
        lines.insert(FindLineIn(listing, nLine, strFile));
    }
    lines.erase(0);
    return lines;
}

} // namespace KestrelTool
