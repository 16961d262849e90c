#include "tools/kestrel/convert/Tokens.h"
#include "tools/session/launch/Libraries.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

using namespace KestrelTool;

namespace
{

std::string GetPlatformDir()
{
    return GetLibraryFolder() + "/kestrel-platform";
}

std::string ToBytes(const std::vector<uint32_t>& vWords)
{
    return std::string(reinterpret_cast<const char*>(vWords.data()), vWords.size() * sizeof(uint32_t));
}

} // namespace

TEST(Tokens, AreToldFromTextAndImages)
{
    EXPECT_TRUE(IsTokens(ToBytes({0, 1})));
    EXPECT_FALSE(IsTokens(ToBytes({0, 1}) + '\0'));
    EXPECT_FALSE(IsTokens("il_cs_2_0\nend\n\n\n"));
    EXPECT_FALSE(IsTokens(std::string("\177ELF\0\0\0\0", 8)));
    EXPECT_FALSE(IsTokens(""));
}

TEST(Tokens, GoToTextAndBack)
{
    // The two words of the opening line, then "end".
    const std::string strTokens = ToBytes({0, 0x00030200, 40});
    EXPECT_EQ(
        TextToTokens(GetPlatformDir(), ";ARGSTART:__OpenCL_k_kernel\n;ARGEND:__OpenCL_k_kernel\nil_cs_2_0\nend\n"),
        strTokens);
    EXPECT_EQ(TokensToText(GetPlatformDir(), strTokens), "il_cs_2_0\nend\n");
    EXPECT_THROW(TextToTokens(GetPlatformDir(), "il_cs_2_0\nmuv r0, r1\n"), std::runtime_error);
    // An instruction without its operands.
    EXPECT_THROW(TokensToText(GetPlatformDir(), ToBytes({0, 0x00030200, 225})), std::runtime_error);
}
