#include "engine/KeptMask.h"

#include "core/ShaderDebuggerBuffer.h"
#include "support/FakeHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace OVK_ShaderDebugger
{

namespace
{

typedef std::vector<unsigned char> Bytes;

/// A mask of words, restored from what was kept.
std::vector<uint32_t> Restored(const CKeptMask& mask, size_t nItems)
{
    CFakeHost host;
    CShaderDebuggerBuffer buffer(&host);
    BufferDesc desc;
    desc.m_Type = ShaderUtils::BT_Buffer;
    desc.m_Format = ShaderUtils::BF_R_32;
    desc.m_nWidth = static_cast<unsigned int>(nItems);
    desc.m_nHeight = desc.m_nDepth = desc.m_nArraySize = 1;
    buffer.Create(desc, nullptr);
    std::vector<uint32_t> vWords(nItems, 77);
    EXPECT_TRUE(mask.Restore(buffer));
    std::memcpy(vWords.data(), buffer.GetData(), nItems * sizeof(uint32_t));
    return vWords;
}

TEST(KeptMask, HasTheBitsOfBytesAndWordsAtEverySizeWithoutTheHidden)
{
    const unsigned char nHidden = 2;
    for (size_t nItems = 1; nItems < 40; ++nItems)
    {
        // All active, none, single ones at each place, and a mixture with every bit of a byte in use.
        std::vector<Bytes> vMasks = {Bytes(nItems, 1), Bytes(nItems, 0), Bytes(nItems, nHidden)};
        for (size_t n = 0; n < nItems; ++n)
        {
            vMasks.push_back(Bytes(nItems, 0));
            vMasks.back()[n] = static_cast<unsigned char>(1u << n % 8);
            vMasks.push_back(Bytes(nItems, 1));
            vMasks.back()[n] = n % 2 == 0 ? 0 : nHidden;
        }
        for (const Bytes& vMask : vMasks)
        {
            const std::vector<uint32_t> vWords(vMask.begin(), vMask.end());
            for (const unsigned char* pHidden : {static_cast<const unsigned char*>(nullptr), &nHidden})
            {
                std::vector<uint32_t> vExpected;
                for (const unsigned char nByte : vMask)
                {
                    vExpected.push_back(nByte != 0 && (pHidden == nullptr || nByte != nHidden) ? 1 : 0);
                }
                CKeptMask bytes;
                bytes.KeepBytes(vMask.data(), nItems, pHidden);
                CKeptMask words;
                words.KeepWords(reinterpret_cast<const unsigned char*>(vWords.data()), nItems, pHidden);
                EXPECT_EQ(Restored(bytes, nItems), vExpected);
                EXPECT_EQ(Restored(words, nItems), vExpected);
                const size_t nActive = static_cast<size_t>(std::count(vExpected.begin(), vExpected.end(), 1u));
                EXPECT_EQ(bytes.GetActiveCount(), nActive);
                EXPECT_EQ(words.GetActiveCount(), nActive);
            }
        }
    }
}

} // namespace

} // namespace OVK_ShaderDebugger
