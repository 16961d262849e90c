#include "engine/ResultRestorer.h"

#include "core/ShaderDebuggerBuffer.h"
#include "support/FakeHost.h"

#include <gtest/gtest.h>

#include <cstring>

namespace OVK_ShaderDebugger
{

namespace
{

typedef std::vector<uint32_t> Words;

class Restorer : public testing::Test
{
protected:
    CShaderDebuggerBuffer Make(const Words& vWords, ShaderUtils::BufferFormat format)
    {
        BufferDesc desc;
        desc.m_Type = ShaderUtils::BT_Buffer;
        desc.m_Format = format;
        desc.m_nWidth = static_cast<unsigned int>(vWords.size() / (format == ShaderUtils::BF_R_32 ? 1 : 4));
        desc.m_nHeight = desc.m_nDepth = desc.m_nArraySize = 1;
        CShaderDebuggerBuffer buffer(&m_Host);
        buffer.Create(desc, nullptr);
        std::memcpy(buffer.GetData(), vWords.data(), vWords.size() * sizeof(uint32_t));
        return buffer;
    }
    CShaderDebuggerBuffer Values(const Words& vWords) { return Make(vWords, ShaderUtils::BF_RGBA_32F); }
    CShaderDebuggerBuffer Mask(const Words& vWords) { return Make(vWords, ShaderUtils::BF_R_32); }

    static Words Read(const CShaderDebuggerBuffer& buffer)
    {
        Words vWords(buffer.GetSize() / sizeof(uint32_t));
        std::memcpy(vWords.data(), buffer.GetData(), buffer.GetSize());
        return vWords;
    }

    CFakeHost m_Host;
    const Register m_Temp{RT_Temp, 1, COMP_All};
};

TEST_F(Restorer, TakesEachElementFromTheLatestRunThatHadItActive)
{
    CShaderDebuggerBuffer result = Values({1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3});
    const CShaderDebuggerBuffer changed = Mask({1, 0, 1});
    CResultRestorer restorer(result, &changed);
    EXPECT_FALSE(restorer.IsComplete());
    const CShaderDebuggerBuffer latest = Values({10, 11, 12, 13, 20, 21, 22, 23, 30, 31, 32, 33});
    EXPECT_TRUE(restorer.Take(latest, Mask({1, 1, 0}), m_Temp, false));
    EXPECT_EQ(Read(result), (Words{10, 11, 12, 13, 2, 2, 2, 2, 3, 3, 3, 3}));
    EXPECT_FALSE(restorer.IsComplete());
    EXPECT_TRUE(restorer.Take(Values(Words(12, 7)), Mask({0, 0, 0}), m_Temp, true)) << "the oldest gives to all";
    EXPECT_EQ(Read(result), (Words{10, 11, 12, 13, 2, 2, 2, 2, 7, 7, 7, 7}));
    EXPECT_TRUE(restorer.IsComplete());
}

TEST_F(Restorer, TakesAnAccessToPrivateMemoryForItsComponentsOnly)
{
    CShaderDebuggerBuffer result = Values({1, 1, 1, 1});
    CResultRestorer restorer(result, nullptr);
    // Two words from byte 8 of a slot on.
    EXPECT_TRUE(
        restorer.Take(Values({10, 11, 12, 13}), Mask({1}), Register(RT_PrivateUAVAccess, 8, COMP_xy, 24), false));
    EXPECT_EQ(Read(result), (Words{1, 1, 10, 11}));
    EXPECT_FALSE(restorer.IsComplete());
    EXPECT_TRUE(
        restorer.Take(Values({20, 21, 22, 23}), Mask({1}), Register(RT_PrivateUAVAccess, 8, COMP_All, 16), false));
    EXPECT_EQ(Read(result), (Words{20, 21, 10, 11}));
    EXPECT_TRUE(restorer.IsComplete());
}

TEST_F(Restorer, RefusesBuffersOfAnotherSize)
{
    CShaderDebuggerBuffer result = Values(Words(8, 1));
    const CShaderDebuggerBuffer other = Mask({0, 0, 0});
    CResultRestorer restorer(result, &other);
    EXPECT_FALSE(restorer.Take(Values(Words(4, 2)), Mask({1, 1}), m_Temp, true));
    EXPECT_FALSE(restorer.Take(Values(Words(8, 2)), Mask({1}), m_Temp, true));
    EXPECT_EQ(Read(result), Words(8, 1));
    EXPECT_TRUE(restorer.Take(Values(Words(8, 2)), Mask({1, 1}), m_Temp, false)) << "all, since the changes don't fit";
    EXPECT_EQ(Read(result), Words(8, 2));
}

} // namespace

} // namespace OVK_ShaderDebugger
