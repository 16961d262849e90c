#include "platform/simt/Shares.h"

#include <gtest/gtest.h>

#include <thread>

namespace KestrelPlatform
{
namespace
{

TEST(Shares, EachPieceIsDealtOnceAndOnesOwnFirst)
{
    for (const uint32_t nPieces : {0u, 1u, 2u, 7u, 100u, 1001u})
    {
        for (const uint32_t nThreads : {1u, 2u, 3u, 8u})
        {
            SCOPED_TRACE(std::to_string(nPieces) + " pieces, " + std::to_string(nThreads) + " threads");
            CShares shares(nPieces, nThreads);
            std::vector<uint32_t> vTaken(nPieces, 0);
            for (uint32_t n = 0; n < nPieces; ++n)
            {
                ASSERT_TRUE(shares.IsAnyLeft());
                // The last thread takes twice as often as the others, and then from their shares.
                const uint32_t nThread = std::min(n % (nThreads + 1), nThreads - 1);
                const std::optional<uint32_t> nPiece = shares.Take(nThread);
                ASSERT_TRUE(nPiece.has_value());
                const bool bOwn = n < nThreads && nPieces >= nThreads * 2;
                EXPECT_TRUE(!bOwn || *nPiece == uint64_t(nPieces) * nThread / nThreads);
                ++vTaken[*nPiece];
            }
            EXPECT_EQ(vTaken, std::vector<uint32_t>(nPieces, 1));
            EXPECT_FALSE(shares.IsAnyLeft());
            EXPECT_FALSE(shares.Take(nThreads - 1).has_value());
        }
    }
}

TEST(Shares, WhoIsDoneTakesFromTheEndOfAnothersShare)
{
    CShares shares(10, 2);
    for (const uint32_t nPiece : {5u, 6u, 7u, 8u, 9u, 4u, 3u})
    {
        EXPECT_EQ(shares.Take(1), nPiece);
    }
    EXPECT_EQ(shares.Take(0), 0u);
}

TEST(Shares, ManyThreadsAtOnceGetEachPieceOnce)
{
    const uint32_t nPieces = 100000;
    const uint32_t nThreads = 4;
    CShares shares(nPieces, nThreads);
    std::vector<std::atomic<uint32_t>> vTaken(nPieces);
    std::vector<std::thread> vThreads;
    for (uint32_t n = 0; n < nThreads; ++n)
    {
        vThreads.emplace_back(
            [&shares, &vTaken, n]
            {
                while (const std::optional<uint32_t> nPiece = shares.Take(n))
                {
                    ++vTaken[*nPiece];
                }
            });
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    for (const std::atomic<uint32_t>& nTaken : vTaken)
    {
        ASSERT_EQ(nTaken, 1u);
    }
}

} // namespace
} // namespace KestrelPlatform
