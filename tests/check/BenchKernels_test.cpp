// The benchmarks' kernels have no faults, and must have no findings.

#include "bench/BenchKernels.h"

#include <gtest/gtest.h>

namespace KestrelTest
{
namespace
{

TEST(BenchKernels, GiveTheSameWithoutAFinding)
{
    for (const auto& pKernel : KestrelBench::MakeBenchKernels())
    {
        SCOPED_TRACE(pKernel->strName);
        pKernel->launch.nChecks = ~uint32_t{PLATFORM_CHECK_NAN};
        EXPECT_NO_THROW(pKernel->Check());
        EXPECT_EQ(KestrelPlatform::RunLaunch(pKernel->launch).vFindings.size(), 0U);
    }
}

} // namespace
} // namespace KestrelTest
