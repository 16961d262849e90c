#include "platform/simt/checks/Findings.h"

#include <gtest/gtest.h>

#include <barrier>
#include <thread>

using namespace KestrelPlatform;

/// One thread reports accesses one by one while another passes on all its findings.
TEST(ThreadsFindings, ComeFromAnyThread)
{
    const uint32_t nRounds = 5000;
    const uint32_t nPlaces = 64;
    CFindings findings;
    const auto find = [](CFindings& where, uint64_t nWorkItem)
    {
        for (uint32_t n = 0; n < nPlaces; ++n)
        {
            where.Add(MakeFinding(PLATFORM_FINDING_OUTSIDE, n, nWorkItem));
        }
    };
    std::barrier start(2);
    std::thread other(
        [&]
        {
            start.arrive_and_wait();
            for (uint32_t nRound = 0; nRound < nRounds; ++nRound)
            {
                CFindings own;
                find(own, nRound);
                findings.AddAll(own);
            }
        });
    start.arrive_and_wait();
    for (uint32_t nRound = 0; nRound < nRounds; ++nRound)
    {
        find(findings, nRounds + nRound);
    }
    other.join();
    const std::vector<SPlatformFinding> vFindings = findings.List();
    ASSERT_EQ(vFindings.size(), nPlaces);
    for (const SPlatformFinding& finding : vFindings)
    {
        EXPECT_EQ(finding.nCount, 2 * nRounds);
        EXPECT_EQ(finding.nWorkItem, 0u);
    }
}
