#include "tools/session/debug/ReadListing.h"

#include "tools/session/launch/BinarySections.h"
#include "tools/source/SourcePlaces.h"

#include <utility>

namespace KestrelTool
{

std::vector<std::string> ReadLinesWithCall(const std::vector<char>& vBinary, unsigned int nLabel)
{
    std::vector<std::string> vLines = ReadKernelText(vBinary);
    for (std::string& strLine : vLines)
    {
        if (strLine == ";$$$$$$$$$$")
        {
            strLine = "call " + std::to_string(nLabel);
        }
    }
    return vLines;
}

CListing ReadListing(const std::vector<char>& vBinary, unsigned int nLabel)
{
    std::vector<std::string> vLines = ReadLinesWithCall(vBinary, nLabel);
    std::vector<std::string> vPlaces = ReadSourcePlaces(vBinary, vLines.size());
    return CListing(std::move(vLines), std::move(vPlaces));
}

} // namespace KestrelTool
