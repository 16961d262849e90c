#include "core/SUBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

using namespace ShaderUtils;

namespace
{

BufferDesc Describe(BufferFormat format, unsigned int nWidth, unsigned int nHeight, unsigned int nDepth = 1,
                    unsigned int nArraySize = 1)
{
    BufferDesc desc;
    desc.m_Type = BT_Buffer;
    desc.m_Format = format;
    desc.m_nWidth = nWidth;
    desc.m_nHeight = nHeight;
    desc.m_nDepth = nDepth;
    desc.m_nArraySize = nArraySize;
    return desc;
}

/// A buffer whose bytes count up from nFirst.
void Fill(SUBuffer& buffer, const BufferDesc& desc, unsigned char nFirst)
{
    ASSERT_TRUE(buffer.Create(desc, nullptr));
    std::iota(buffer.GetData(), buffer.GetData() + buffer.GetSize(), nFirst);
}

void MakeMask(SUBuffer& mask, const BufferDesc& extent, const std::vector<unsigned int>& vValues)
{
    BufferDesc desc = extent;
    desc.m_Format = BF_R_32;
    ASSERT_TRUE(mask.Create(desc, nullptr));
    ASSERT_EQ(mask.GetSubResourceSize(), vValues.size() * 4);
    std::memcpy(mask.GetData(), vValues.data(), vValues.size() * 4);
}

} // namespace

struct LayoutCase
{
    BufferDesc desc;
    size_t nRawSize;
    bool bMade;
    size_t nPitch;
    size_t nSubResourceSize;
    unsigned int nSubResources;
    size_t nItems;
};

TEST(SUBuffer, Layout)
{
    const LayoutCase cases[] = {
        {Describe(BF_RGBA_32F, 4, 2), 0, true, 64, 128, 1, 8},
        {Describe(BF_RGB_8, 5, 1), 0, true, 15, 15, 1, 5},
        {Describe(BF_RAW, 0, 0), 100, true, 0, 100, 1, 0},
        {Describe(BF_R_16, 3, 2, 4), 0, true, 6, 12, 4, 6},
        {Describe(BF_R_32, 2, 1, 1, 3), 0, true, 8, 8, 3, 2},
        {Describe(BF_Unknown, 4, 4), 0, false, 0, 0, 0, 0},
        {Describe(static_cast<BufferFormat>(15), 4, 4), 0, false, 0, 0, 0, 0},
        {Describe(BF_RGBA_32F, 0xFFFFFFFF, 0xFFFFFFFF), 0, false, 0, 0, 0, 0},
    };
    for (const LayoutCase& c : cases)
    {
        BufferDesc desc = c.desc;
        desc.m_nSize = c.nRawSize;
        SUBuffer buffer;
        ASSERT_EQ(buffer.Create(desc, nullptr), c.bMade) << desc.m_Format;
        if (!c.bMade)
        {
            EXPECT_EQ(buffer.GetSize(), 0u);
            continue;
        }
        EXPECT_EQ(buffer.GetDesc().m_nPitch, c.nPitch) << desc.m_Format;
        EXPECT_EQ(buffer.GetSubResourceSize(), c.nSubResourceSize) << desc.m_Format;
        EXPECT_EQ(buffer.GetSubResourceCount(), c.nSubResources) << desc.m_Format;
        EXPECT_EQ(buffer.GetItemCount(), c.nItems) << desc.m_Format;
        EXPECT_TRUE(buffer.IsBlank(0));
        EXPECT_EQ(buffer.GetSubResource(c.nSubResources), nullptr);
        EXPECT_FALSE(buffer.Create(desc, nullptr)) << "it has memory already";
    }
}

TEST(SUBuffer, RowsAreCopiedByTheirPitches)
{
    unsigned char source[64];
    std::iota(source, source + sizeof(source), 0);

    SUBuffer buffer;
    ASSERT_TRUE(buffer.Create(Describe(BF_R_32, 4, 2), nullptr));
    ASSERT_TRUE(buffer.UpdateData(source, 32, 0, -1));
    EXPECT_EQ(std::memcmp(buffer.GetData(), source, 16), 0);
    EXPECT_EQ(std::memcmp(buffer.GetData() + 16, source + 32, 16), 0);

    EXPECT_FALSE(buffer.UpdateData(source, 0, 1, -1)) << "no such sub-resource";
    EXPECT_FALSE(buffer.UpdateData(source, 0, 0, 0)) << "nothing to copy";
    EXPECT_FALSE(buffer.UpdateData(source, 0, 0, 2)) << "more than there are";
    EXPECT_FALSE(buffer.UpdateData(nullptr, 0, 0, 1));

    // If the source's pitch is smaller than the buffer's, its rows are no longer than that.
    SUBuffer wide;
    BufferDesc desc = Describe(BF_R_8, 8, 2);
    desc.m_nPitch = 16;
    ASSERT_TRUE(wide.Create(desc, nullptr));
    ASSERT_TRUE(wide.UpdateData(source, 8, 0, 1));
    EXPECT_EQ(wide.GetData()[16 + 7], 15);
    EXPECT_EQ(wide.GetData()[8], 0);
}

struct MergeCase
{
    BufferFormat format;
    size_t nDestOffset;
    size_t nSrcOffset;
    size_t nComponents;
    bool bMerged;
    size_t nComponentSize;
};

TEST(SUBuffer, MergeCopiesWhatTheMaskNames)
{
    const MergeCase cases[] = {
        {BF_RGBA_32F, 0, 0, 0, true, 4},  {BF_RGBA_32F, 2, 0, 2, true, 4}, {BF_XYZW_32F, 1, 3, 1, true, 4},
        {BF_RGBA_32F, 3, 0, 2, false, 4}, {BF_RGBA_8, 1, 2, 2, true, 1},   {BF_RG_16, 1, 0, 1, true, 2},
        {BF_R_32, 0, 0, 0, true, 4},      {BF_R_32, 1, 0, 1, false, 4},    {BF_RG_8, 0, 1, 1, true, 1},
        {BF_R_8, 0, 0, 1, true, 1},       {BF_RGB_32, 0, 0, 0, false, 4},  {BF_RAW, 0, 0, 0, false, 1},
    };
    for (const MergeCase& c : cases)
    {
        for (const bool bInvert : {false, true})
        {
            const BufferDesc desc = Describe(c.format, 2, 2);
            SUBuffer target;
            SUBuffer other;
            SUBuffer mask;
            Fill(target, desc, 0);
            Fill(other, desc, 100);
            MakeMask(mask, desc, {1, 0, 0, 7});
            std::vector<unsigned char> vExpected(target.GetData(), target.GetData() + target.GetSize());

            ASSERT_EQ(target.Merge(other, mask, bInvert, c.nDestOffset, c.nSrcOffset, c.nComponents), c.bMerged)
                << c.format;
            if (c.bMerged)
            {
                const size_t nPoint = target.GetPointSize();
                const size_t nBytes = c.nComponents == 0 ? nPoint : c.nComponents * c.nComponentSize;
                for (const size_t i : bInvert ? std::vector<size_t>{1, 2} : std::vector<size_t>{0, 3})
                {
                    std::memcpy(&vExpected[i * nPoint + c.nDestOffset * c.nComponentSize],
                                other.GetData() + i * nPoint + c.nSrcOffset * c.nComponentSize, nBytes);
                }
            }
            EXPECT_TRUE(std::equal(vExpected.begin(), vExpected.end(), target.GetData())) << c.format << bInvert;
        }
    }
}

TEST(SUBuffer, MergeAppliesTheFirstSliceOfTheMaskToAll)
{
    const BufferDesc desc = Describe(BF_R_32, 2, 1, 2);
    SUBuffer target;
    SUBuffer other;
    SUBuffer mask;
    Fill(target, desc, 0);
    Fill(other, desc, 100);
    MakeMask(mask, desc, {0, 1});
    ASSERT_TRUE(target.Merge(other, mask, false, 0, 0, 0));
    const unsigned char expected[] = {0, 1, 2, 3, 104, 105, 106, 107, 8, 9, 10, 11, 112, 113, 114, 115};
    EXPECT_EQ(std::memcmp(target.GetData(), expected, sizeof(expected)), 0);

    SUBuffer flat;
    Fill(flat, Describe(BF_R_32, 2, 1), 0);
    EXPECT_FALSE(target.Merge(flat, mask, false, 0, 0, 0)) << "another extent";
}

TEST(SUBuffer, ActiveItems)
{
    SUBuffer mask;
    const BufferDesc desc = Describe(BF_R_32, 4, 1);
    MakeMask(mask, desc, {1, 0, 0, 7});
    EXPECT_EQ(mask.GetActiveItemCount(0), 2u);
    EXPECT_EQ(mask.GetActiveItemCount(1), 0u);

    SUBuffer quads;
    ASSERT_TRUE(quads.Create(Describe(BF_RGBA_32F, 3, 1), nullptr));
    quads.GetData()[16 + 13] = 1;
    EXPECT_EQ(quads.GetActiveItemCount(0), 1u);
    EXPECT_EQ(SUBuffer().GetActiveItemCount(0), 0u);
}

TEST(SUBuffer, WorkItems)
{
    SUBuffer buffer;
    ASSERT_TRUE(buffer.Create(Describe(BF_RGBA_32F, 4, 2), nullptr));
    float* pValues = reinterpret_cast<float*>(buffer.GetData());
    std::iota(pValues, pValues + 32, 1.0f);

    float fValue[4] = {};
    ASSERT_TRUE(buffer.GetThreadValue(fValue, ThreadID(TID_2D, 1, 1, 0, 0)));
    EXPECT_EQ(fValue[0], 21.0f);
    EXPECT_FALSE(buffer.GetThreadValue(fValue, ThreadID(TID_1D, 1, 0, 0, 0))) << "a 2D buffer";
    EXPECT_FALSE(buffer.GetThreadValue(fValue, ThreadID(TID_2D, 4, 0, 0, 0)));
    unsigned char cValue = 0;
    EXPECT_FALSE(buffer.GetThreadValue(cValue, ThreadID(TID_2D, 0, 0, 0, 0))) << "another format";

    float fSought[4] = {21, 22, 23, 24};
    const ThreadID found = buffer.FindThread(fSought, -1);
    EXPECT_EQ(found.x, 1);
    EXPECT_EQ(found.y, 1);
    EXPECT_FALSE(IsValid(buffer.FindThread(static_cast<unsigned char>(1), 0)));

    SUBuffer row;
    ASSERT_TRUE(row.Create(Describe(BF_RGBA_32F, 4, 1), nullptr));
    float fZero[4] = {};
    EXPECT_FALSE(IsValid(row.FindThread(fZero, 0))) << "it searches 2D work-items in a 1D buffer";
}

TEST(SUBuffer, CopiesOwnTheirBytes)
{
    SUBuffer first;
    Fill(first, Describe(BF_R_8, 4, 1), 1);
    SUBuffer second(first);
    second.GetData()[0] = 99;
    EXPECT_EQ(first.GetData()[0], 1);
    first = second;
    EXPECT_EQ(first.GetData()[0], 99);
}
