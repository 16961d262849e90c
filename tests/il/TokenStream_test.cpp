#include "il/TokenStream.h"

#include "LoggingHost.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

using namespace OVK_ShaderDebugger;

namespace
{

using InputStream = CInputTokenStream<unsigned int>;
using OutputStream = COutputTokenStream<unsigned int>;

std::vector<unsigned int> Written(const OutputStream& stream)
{
    return {stream.GetStream(), stream.GetStreamPos()};
}

TEST(InputTokenStream, PeeksWithoutMovingAndReadsUpToTheEnd)
{
    const unsigned int tokens[] = {10, 11, 12};
    InputStream stream(nullptr, tokens, 3);
    unsigned int token = 0;
    unsigned int buffer[4] = {};

    EXPECT_TRUE(stream.PeekToken(token));
    EXPECT_EQ(10u, token);
    EXPECT_TRUE(stream.ReadToken(token));
    EXPECT_EQ(10u, token);

    EXPECT_FALSE(stream.PeekTokens(buffer, 3));
    EXPECT_FALSE(stream.PeekTokens(nullptr, 1));
    EXPECT_TRUE(stream.PeekTokens(buffer, 2));
    EXPECT_EQ(12u, buffer[1]);
    EXPECT_EQ(tokens + 1, stream.GetStreamPos());

    EXPECT_FALSE(stream.SkipTokens(std::numeric_limits<std::size_t>::max()));
    EXPECT_TRUE(stream.SkipTokens(1));
    EXPECT_TRUE(stream.ReadToken(token));
    EXPECT_EQ(12u, token);
    EXPECT_FALSE(stream.ReadToken(token));
    EXPECT_FALSE(stream.PeekToken(token));
    EXPECT_EQ(3u, stream.GetTokensRead());
    EXPECT_EQ(tokens + 3, stream.GetStreamPos());
}

TEST(InputTokenStream, WithoutTokensHasEndedAndSaysSo)
{
    CLoggingHost host;
    unsigned int token = 7;
    const unsigned int tokens[] = {1};

    InputStream empty(&host, tokens, 0);
    EXPECT_NE(std::string::npos, host.TakeLog().find("nTokenCount > 0"));
    EXPECT_FALSE(empty.ReadToken(token));

    InputStream null(&host, nullptr, 5);
    EXPECT_FALSE(null.ReadToken(token));
    EXPECT_EQ(7u, token);
}

TEST(OutputTokenStream, SingleTokensDoubleTheCapacity)
{
    OutputStream stream(nullptr, 0);
    std::vector<unsigned int> expected;

    for (unsigned int n = 0; n < 101; ++n)
    {
        ASSERT_TRUE(stream.WriteToken(n));
        expected.push_back(n);
        EXPECT_EQ(n < 100 ? 100u : 200u, stream.GetTokenCount()) << n;
    }

    EXPECT_EQ(expected, Written(stream));
    EXPECT_EQ(101u, stream.GetTokensWritten());
}

struct SGrowthCase
{
    std::size_t nCapacity;
    std::size_t nWrite;
    std::size_t nCapacityAfter;
};

TEST(OutputTokenStream, SeveralTokensGrowToAPowerOfTwo)
{
    const std::vector<unsigned int> tokens(64, 5);

    for (const SGrowthCase& test :
         {SGrowthCase{10, 10, 16}, {11, 10, 11}, {0, 1, 1}, {0, 16, 16}, {16, 16, 16}, {16, 17, 32}, {3, 64, 64}})
    {
        OutputStream stream(nullptr, test.nCapacity);
        ASSERT_TRUE(stream.WriteTokens(tokens.data(), test.nWrite));
        EXPECT_EQ(test.nCapacityAfter, stream.GetTokenCount()) << test.nCapacity << " and " << test.nWrite;
        EXPECT_EQ(test.nWrite, stream.GetTokensWritten());
    }
}

TEST(OutputTokenStream, KeepsWhatIsWrittenThroughEveryKindOfGrowth)
{
    OutputStream stream(nullptr, 1);
    const unsigned int tokens[] = {2, 3, 4};
    const char bytes[] = "x\x05\0\0\0\x06\0\0"; // tokens at an odd address

    EXPECT_TRUE(stream.WriteToken(1));
    EXPECT_TRUE(stream.WriteTokens(tokens, 3));
    EXPECT_TRUE(stream.WriteData(bytes + 1, 8));
    EXPECT_TRUE(stream.Resize(6));
    EXPECT_TRUE(stream.WriteToken(7));
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3, 4, 5, 6, 7}), Written(stream));
}

TEST(OutputTokenStream, RefusedWritesChangeNothing)
{
    CLoggingHost host;
    OutputStream stream(&host, 4);
    const unsigned int tokens[] = {1, 2};
    ASSERT_TRUE(stream.WriteTokens(tokens, 2));

    EXPECT_FALSE(stream.WriteTokens(tokens, 0));
    EXPECT_FALSE(stream.WriteTokens(nullptr, 2));
    volatile std::size_t nAbsurd = std::numeric_limits<std::size_t>::max(); // or the compiler refuses the call
    EXPECT_FALSE(stream.WriteTokens(tokens, nAbsurd));
    EXPECT_FALSE(stream.WriteData(tokens, 6));
    EXPECT_FALSE(stream.Resize(1));
    EXPECT_FALSE(stream.Resize(std::numeric_limits<std::size_t>::max() / 2));
    EXPECT_EQ(4u, stream.GetTokenCount());
    EXPECT_EQ((std::vector<unsigned int>{1, 2}), Written(stream));
    EXPECT_EQ("", host.TakeLog());

    OutputStream tooLarge(&host, std::numeric_limits<std::size_t>::max() / 2);
    EXPECT_EQ(0u, tooLarge.GetTokenCount());
    EXPECT_NE(std::string::npos, host.TakeLog().find("Resize(nInitialTokenCount)"));
    EXPECT_TRUE(tooLarge.WriteToken(1));
}

TEST(OutputTokenStream, RoundsUpToPowersOfTwo)
{
    const std::size_t table[][2] = {
        {0, 1}, {1, 1}, {2, 2}, {3, 4}, {1024, 1024}, {1025, 2048}, {(1u << 31) + 1u, std::size_t(1) << 32}};

    for (const auto& row : table)
    {
        EXPECT_EQ(row[1], OutputStream::NextPowerOfTwo(row[0])) << row[0];
    }
}

} // namespace
