#include "core/CopyBytes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

TEST(CopyBytes, CopiesEverySizeWholeAndNothingAfterIt)
{
    constexpr size_t nPiece = size_t(256) * 1024;
    std::vector<uint8_t> vSource(3 * nPiece + 100);
    uint32_t nState = 1;
    for (uint8_t& n : vSource)
    {
        nState = nState * 1664525 + 1013904223;
        n = static_cast<uint8_t>(nState >> 24 | 1);
    }
    for (const size_t nBytes : {size_t(0), size_t(1), nPiece - 1, nPiece, nPiece + 1, 2 * nPiece, 3 * nPiece + 7})
    {
        std::vector<uint8_t> vExpected(vSource.begin(), vSource.begin() + static_cast<ptrdiff_t>(nBytes));
        vExpected.resize(vSource.size(), 0);
        std::vector<uint8_t> vCopy(vSource.size(), 0);
        CopyBytes(vCopy.data(), vSource.data(), nBytes);
        EXPECT_TRUE(vCopy == vExpected) << nBytes;
    }
}
