#include <cstdlib>

#include "platform/simt/LaneOps.h"
#include "tests/platform/simt/GeneratedKernel.h"
#include "tests/platform/simt/KernelRun.h"

namespace KestrelPlatformTest
{
namespace
{

/// KESTREL_SIMT_SEED runs one seed alone, KESTREL_SIMT_SEEDS that many.
uint32_t Setting(const char* pszName, uint32_t nDefault)
{
    const char* const pszValue = std::getenv(pszName);
    return pszValue ? static_cast<uint32_t>(std::strtoul(pszValue, nullptr, 10)) : nDefault;
}

void CheckSeed(uint32_t nSeed)
{
    static const size_t s_nSizes[][2] = {{40, 20}, {300, 100}, {256, 256}, {600, 300}};
    const CGeneratedKernel kernel(nSeed);
    const std::string strText = kernel.Text();
    CKernelRun run(Assemble(strText));
    const size_t* pSize = s_nSizes[nSeed % 4];
    run.SetSize(pSize[0], pSize[1]);
    run.launch.nInstructionLimit = 10000000;
    std::vector<std::vector<uint32_t>> vOutputs;
    const auto execute = [&]
    {
        run.vOutput.assign(pSize[0] * 32, 0xCDCDCDCD);
        EXPECT_EQ(run.Run().eStatus, KestrelPlatform::SLaunchResult::Complete);
        vOutputs.push_back(run.vOutput);
    };
    for (const auto eSet : {KestrelPlatform::EInstructionSet::Baseline, KestrelPlatform::EInstructionSet::Avx2,
                            KestrelPlatform::EInstructionSet::Avx512})
    {
        if (KestrelPlatform::ChooseInstructionSet(eSet))
            execute();
    }
    CRecords records;
    run.launch.pTrace = &records;
    execute();
    for (uint32_t n = 0; n < pSize[0]; ++n)
    {
        const CGeneratedKernel::Registers expected = kernel.Execute(n);
        for (uint32_t i = 0; i < 32; ++i)
        {
            for (size_t k = 0; k < vOutputs.size(); ++k)
                ASSERT_EQ(vOutputs[k][n * 32 + i], expected[i / 4][i % 4])
                    << "run " << k << ", work-item " << n << ", r" << i / 4 << " component " << i % 4
                    << "\nreplay: KESTREL_SIMT_SEED=" << nSeed << "\n"
                    << strText;
        }
    }
}

TEST(Generated, KernelsGiveWhatOneWorkItemAtATimeGives)
{
    if (std::getenv("KESTREL_SIMT_SEED"))
    {
        CheckSeed(Setting("KESTREL_SIMT_SEED", 0));
        return;
    }
    const uint32_t nSeeds = Setting("KESTREL_SIMT_SEEDS", 300);
    for (uint32_t nSeed = 1; nSeed <= nSeeds && !HasFatalFailure(); ++nSeed)
        CheckSeed(nSeed);
}

} // namespace
} // namespace KestrelPlatformTest
