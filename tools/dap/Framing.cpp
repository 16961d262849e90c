#include "tools/dap/Framing.h"

#include <algorithm>
#include <cctype>

namespace KestrelTool
{

namespace
{

const std::string s_strLineEnd = "\r\n";
const std::string s_strHeaderEnd = "\r\n\r\n";
const std::string s_strLength = "content-length:";

std::string ToLower(std::string strText)
{
    std::transform(strText.begin(), strText.end(), strText.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return strText;
}

size_t ReadLength(const std::string& strDigits)
{
    const size_t nMaxDigits = 9;
    const size_t nFirst = std::min(strDigits.find_first_not_of(" \t"), strDigits.size());
    const std::string strNumber = strDigits.substr(nFirst, strDigits.find_last_not_of(" \t") + 1 - nFirst);
    if (strNumber.empty() || strNumber.size() > nMaxDigits ||
        strNumber.find_first_not_of("0123456789") != std::string::npos ||
        std::stoul(strNumber) > CFrameReader::MaxContent)
    {
        throw CFramingError("a message's Content-Length is no number up to " +
                            std::to_string(CFrameReader::MaxContent));
    }
    return std::stoul(strNumber);
}

/// The length that a header gives.
size_t FindLength(const std::string& strHeader)
{
    std::optional<size_t> length;
    for (size_t nStart = 0; nStart < strHeader.size();)
    {
        const size_t nEnd = std::min(strHeader.find(s_strLineEnd, nStart), strHeader.size());
        const std::string strLine = ToLower(strHeader.substr(nStart, nEnd - nStart));
        if (strLine.compare(0, s_strLength.size(), s_strLength) == 0)
        {
            length = ReadLength(strLine.substr(s_strLength.size()));
        }
        nStart = nEnd + s_strLineEnd.size();
    }
    if (!length)
    {
        throw CFramingError("a message has no Content-Length");
    }
    return *length;
}

} // namespace

std::optional<std::string> CFrameReader::Take()
{
    const size_t nHeader = m_strBytes.find(s_strHeaderEnd);
    if (std::min(nHeader, m_strBytes.size()) > MaxHeader)
    {
        throw CFramingError("a message's header is too long");
    }
    if (nHeader == std::string::npos)
    {
        return std::nullopt;
    }
    const size_t nContent = nHeader + s_strHeaderEnd.size();
    const size_t nLength = FindLength(m_strBytes.substr(0, nHeader));
    if (m_strBytes.size() - nContent < nLength)
    {
        return std::nullopt;
    }
    std::string strContent = m_strBytes.substr(nContent, nLength);
    m_strBytes.erase(0, nContent + nLength);
    return strContent;
}

std::string MakeFrame(const std::string& strContent)
{
    return "Content-Length: " + std::to_string(strContent.size()) + s_strHeaderEnd + strContent;
}

} // namespace KestrelTool
