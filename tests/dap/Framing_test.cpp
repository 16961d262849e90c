#include "tools/dap/Framing.h"

#include <gtest/gtest.h>

#include <vector>

using namespace KestrelTool;

namespace
{

/// The messages of a stream that arrives in pieces of a size; "!" is last if it ends with an error.
std::vector<std::string> ReadFrames(const std::string& strBytes, size_t nPiece)
{
    CFrameReader reader;
    std::vector<std::string> vFrames;
    for (size_t n = 0; n < strBytes.size(); n += nPiece)
    {
        const std::string strPiece = strBytes.substr(n, nPiece);
        reader.Add(strPiece.data(), strPiece.size());
        try
        {
            while (const std::optional<std::string> frame = reader.Take())
            {
                vFrames.push_back(*frame);
            }
        }
        catch (const CFramingError&)
        {
            vFrames.emplace_back("!");
            return vFrames;
        }
    }
    return vFrames;
}

} // namespace

TEST(Framing, MessagesAreFoundHoweverTheyArrive)
{
    struct SCase
    {
        const char* pszBytes;
        std::vector<std::string> vExpected;
    };
    const SCase cases[] = {
        {"Content-Length: 2\r\n\r\n{}", {"{}"}},
        {"content-length:2\r\nContent-Type: x\r\n\r\n{}Content-Length: 0\r\n\r\n", {"{}", ""}},
        {"Content-Type: x\r\nContent-Length:  4 \r\n\r\n\r\n\r\n", {"\r\n\r\n"}},
        {"Content-Length: 5\r\n\r\n{}", {}},
        {"Content-Length: 2\r\n", {}},
        {"\r\n\r\n", {"!"}},
        {"Content-Length: -1\r\n\r\n", {"!"}},
        {"Content-Length: 2x\r\n\r\n{}", {"!"}},
        {"Content-Length: \r\n\r\n{}", {"!"}},
        {"Content-Length: 16777217\r\n\r\n", {"!"}},
        {"Content-Length: 99999999999999999999\r\n\r\n", {"!"}},
        {"Length: 2\r\n\r\n{}", {"!"}},
    };
    for (const SCase& one : cases)
    {
        for (const size_t nPiece : {1, 3, 1000})
        {
            EXPECT_EQ(ReadFrames(one.pszBytes, nPiece), one.vExpected) << one.pszBytes << " by " << nPiece;
        }
    }
    EXPECT_EQ(ReadFrames(std::string(CFrameReader::MaxHeader + 1, 'a'), 100), std::vector<std::string>{"!"});
    EXPECT_EQ(ReadFrames(MakeFrame("{\"a\": 1}"), 7), std::vector<std::string>{"{\"a\": 1}"});
}
