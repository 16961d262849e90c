#include "fuzz/Targets.h"

#include "tools/dap/Fields.h"
#include "tools/dap/Framing.h"
#include "tools/dap/LaunchRequest.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <vector>

namespace KestrelFuzz
{

using namespace KestrelTool;

namespace
{

/// The messages of a stream that arrives in pieces; if it breaks, a last empty one with a mark.
std::vector<std::string> TakeFrames(const char* pBytes, size_t nBytes, size_t nPiece)
{
    CFrameReader reader;
    std::vector<std::string> vFrames;
    try
    {
        for (size_t n = 0; n < nBytes; n += nPiece)
        {
            reader.Add(pBytes + n, std::min(nPiece, nBytes - n));
            while (std::optional<std::string> frame = reader.Take())
            {
                vFrames.push_back("frame " + *frame);
            }
        }
    }
    catch (const CFramingError&)
    {
        vFrames.emplace_back("broken");
    }
    return vFrames;
}

} // namespace

void FuzzFrames(const uint8_t* pData, size_t nSize)
{
    const char* const pBytes = reinterpret_cast<const char*>(pData);
    const std::vector<std::string> vWhole = TakeFrames(pBytes, nSize, std::max<size_t>(nSize, 1));
    Require(TakeFrames(pBytes, nSize, 1) == vWhole, "messages don't depend on the pieces that they come in");
    for (const std::string& strFrame : vWhole)
    {
        const nlohmann::json message = nlohmann::json::parse(strFrame.substr(strFrame.find(' ') + 1), nullptr, false);
        if (!message.is_object())
        {
            continue;
        }
        try
        {
            const SDebuggeeOptions options = ReadLaunchRequest(message);
            Require(options.strLaunch.empty() != options.command.vWords.empty(), "a launch is of a file or a program");
        }
        catch (const CRequestError&)
        {
            continue;
        }
    }
}

} // namespace KestrelFuzz
