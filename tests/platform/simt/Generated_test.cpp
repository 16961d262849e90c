#include <cstdlib>

#include "platform/simt/LaneOps.h"
#include "platform/simt/checks/ShadowRules.h"
#include "tests/platform/simt/GeneratedKernel.h"
#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

/// How many work-items reached each instruction.
std::vector<uint64_t> SumActive(const std::vector<SRecord>& vRecords, size_t nInstructions)
{
    std::vector<uint64_t> vSums(nInstructions, 0);
    for (const SRecord& record : vRecords)
    {
        if (record.nInstruction >= vSums.size())
        {
            vSums.resize(record.nInstruction + size_t{1}, 0);
        }
        for (const uint32_t nActive : record.vActive)
        {
            vSums[record.nInstruction] += nActive;
        }
    }
    return vSums;
}

/// KESTREL_SIMT_SEED runs a single seed, KESTREL_SIMT_SEEDS sets their number.
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
    std::vector<uint64_t> vVisits;
    const auto execute = [&]
    {
        run.vOutput.assign(pSize[0] * 32, 0xCDCDCDCD);
        const KestrelPlatform::SLaunchResult result = run.Run();
        EXPECT_EQ(result.eStatus, KestrelPlatform::SLaunchResult::Complete);
        EXPECT_EQ(result.vVisits.empty(), !run.launch.bCountVisits);
        for (const SPlatformFinding& finding : result.vFindings)
        {
            EXPECT_NE(finding.nKind, static_cast<uint32_t>(PLATFORM_FINDING_RACE)) << "KESTREL_SIMT_SEED=" << nSeed;
        }
        vVisits = result.vVisits;
        vOutputs.push_back(run.vOutput);
    };
    for (const auto eSet : {KestrelPlatform::EInstructionSet::Baseline, KestrelPlatform::EInstructionSet::Avx2,
                            KestrelPlatform::EInstructionSet::Avx512})
    {
        if (KestrelPlatform::ChooseInstructionSet(eSet))
        {
            execute();
        }
    }
    // A checked run gives the same result, and work-items that only use their own memory don't race.
    run.launch.nChecks = ~0u;
    run.vOutputShadow.assign(pSize[0] * 32 * 4, KestrelPlatform::s_nFirstBuffer);
    execute();
    run.launch.nChecks = 0;
    run.launch.bCountVisits = true;
    execute();
    const std::vector<uint64_t> vCounted = vVisits;
    run.launch.bCountVisits = false;
    CRecords records;
    run.launch.pTrace = &records;
    execute();
    ASSERT_EQ(vCounted, SumActive(records.vRecords, vCounted.size())) << "KESTREL_SIMT_SEED=" << nSeed;
    for (uint32_t n = 0; n < pSize[0]; ++n)
    {
        const CGeneratedKernel::Registers expected = kernel.Execute(n);
        for (uint32_t i = 0; i < 32; ++i)
        {
            for (size_t k = 0; k < vOutputs.size(); ++k)
            {
                ASSERT_EQ(vOutputs[k][n * 32 + i], expected[i / 4][i % 4])
                    << "run " << k << ", work-item " << n << ", r" << i / 4 << " component " << i % 4
                    << "\nreplay: KESTREL_SIMT_SEED=" << nSeed << "\n"
                    << strText;
            }
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
    {
        CheckSeed(nSeed);
    }
}

} // namespace
} // namespace KestrelPlatformTest
