#include "tests/e2e/KernelGenerator.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/ReferenceRun.h"
#include "tests/e2e/Seeds.h"
#include "tools/session/launch/Launch.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

const uint32_t s_nWave = 64;
const SSeeds s_ProfileSeeds = {150, 20, 5};

/// The reference machine's counts for an instruction.
struct SCounted
{
    uint64_t nItems = 0;
    uint64_t nWaves = 0;
    uint64_t nGoOn = 0;
    uint64_t nEntries = 0;
    uint64_t nLeast = ~uint64_t(0);
    uint64_t nMost = 0;
};

class CCounter
{
public:
    explicit CCounter(const SLaunchFile& file) : m_File(file) {}

    void Add(const SMoment& moment)
    {
        const bool bJoins = moment.strName == "else" || moment.strName == "case" || moment.strName == "default";
        const Mask& here = bJoins ? moment.vAfter : moment.vBefore;
        SCounted& counted = m_mapCounted[moment.position.nInstruction];
        counted.nItems += Count(here);
        counted.nGoOn += Count(moment.vAfter);
        std::set<uint64_t> waves;
        for (size_t n = 0; n < here.size(); ++n)
        {
            if (here[n])
            {
                waves.insert(WaveOf(n));
            }
        }
        counted.nWaves += waves.size();
        if (moment.strName == "whileloop")
        {
            AddPass(moment, counted);
        }
    }

    const std::map<uint32_t, SCounted>& Finish()
    {
        for (const auto& [position, vPasses] : m_mapPasses)
        {
            SCounted& counted = m_mapCounted[position.nInstruction];
            for (const uint64_t nPasses : vPasses)
            {
                counted.nLeast = nPasses != 0 ? std::min(counted.nLeast, nPasses) : counted.nLeast;
                counted.nMost = std::max(counted.nMost, nPasses);
            }
        }
        return m_mapCounted;
    }

private:
    static uint64_t Count(const Mask& mask)
    {
        return static_cast<uint64_t>(std::count(mask.begin(), mask.end(), true));
    }

    uint64_t WaveOf(size_t nItem) const
    {
        uint64_t nGroup = 0;
        uint64_t nLocal = 0;
        uint64_t nGroups = 1;
        uint64_t nLocals = 1;
        for (unsigned int d = 0; d < m_File.nDimensions; ++d)
        {
            const uint64_t nId = nItem % m_File.nGlobalSize[d];
            nItem /= m_File.nGlobalSize[d];
            nGroup += nId / m_File.nLocalSize[d] * nGroups;
            nLocal += nId % m_File.nLocalSize[d] * nLocals;
            nGroups *= m_File.nGlobalSize[d] / m_File.nLocalSize[d];
            nLocals *= m_File.nLocalSize[d];
        }
        return nGroup * (nLocals / s_nWave + 1) + nLocal / s_nWave;
    }

    void AddPass(const SMoment& moment, SCounted& counted)
    {
        SPosition loop = moment.position;
        const uint32_t nPass = loop.vLoops.back().second;
        loop.vLoops.pop_back();
        std::vector<uint64_t>& vPasses = m_mapPasses[loop];
        vPasses.resize(moment.vBefore.size(), 0);
        for (size_t n = 0; n < moment.vBefore.size(); ++n)
        {
            counted.nEntries += moment.vBefore[n] && nPass == 0 ? 1 : 0;
            vPasses[n] = moment.vBefore[n] ? nPass + 1 : vPasses[n];
        }
    }

    const SLaunchFile& m_File;
    std::map<uint32_t, SCounted> m_mapCounted;
    std::map<SPosition, std::vector<uint64_t>> m_mapPasses; ///< by entry of a loop: the passes of each work-item
};

std::vector<SPlatformProfile> TakeProfile(const SPlatformControl& control)
{
    std::vector<SPlatformProfile> vRows(control.GetProfile(nullptr, 0));
    control.GetProfile(vRows.data(), static_cast<uint32_t>(vRows.size()));
    return vRows;
}

void Compare(const std::vector<SPlatformProfile>& vRows, const std::map<uint32_t, SCounted>& wanted)
{
    for (uint32_t n = 0; n < vRows.size(); ++n)
    {
        const SPlatformProfile& row = vRows[n];
        const auto it = wanted.find(n);
        const SCounted counted = it != wanted.end() ? it->second : SCounted();
        EXPECT_EQ(row.nItems, counted.nItems) << "work-items at " << n;
        EXPECT_EQ(row.nWaves, counted.nWaves) << "waves at " << n;
        EXPECT_EQ(row.nBranch ? row.nGoOn : 0, row.nBranch ? counted.nGoOn : 0) << "goes on at " << n;
        EXPECT_EQ(row.nEntries, counted.nEntries) << "into the loop at " << n;
        EXPECT_EQ(row.nLeast, counted.nMost != 0 ? counted.nLeast : 0) << "fewest passes at " << n;
        EXPECT_EQ(row.nMost, counted.nMost) << "most passes at " << n;
    }
}

void CheckSeed(uint32_t nSeed)
{
    SKernelFeatures features;
    features.bMore = nSeed % 2 != 0;
    features.bReturns = features.bReturnsIf = nSeed % 3 != 0;
    features.bLeaves = nSeed % 4 != 0;
    features.bMemory = features.bLocal = features.bPrivateInMain = nSeed % 5 == 0;
    features.bMacros = features.bCallsIf = nSeed % 7 < 3;
    const SLaunchFile file = CKernelGenerator(nSeed, features).Generate().launch;
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    CLaunch launch(GetLibraries(), file);
    CTraceModel trace(launch.GetWorkItems());
    trace.StartRecording(control);
    launch.Run();
    trace.StopRecording(control);
    const std::vector<unsigned char> vPlain = launch.ReadContents(0);
    launch.ResetContents();
    control.KeepProfile(1);
    launch.Run();
    const std::vector<SPlatformProfile> vRows = TakeProfile(control);
    control.KeepProfile(0);
    EXPECT_EQ(launch.ReadContents(0), vPlain);
    EXPECT_TRUE(TakeProfile(control).empty());
    CCounter counter(file);
    const CReferenceRun run(file, FindBufferAddress(trace, file.strDevice == "Quench", 64));
    for (const CReferenceRun::SMomentState& moment : run.GetMoments())
    {
        counter.Add(moment.moment);
    }
    ASSERT_FALSE(vRows.empty());
    Compare(vRows, counter.Finish());
    EXPECT_FALSE(testing::Test::HasFailure())
        << "KESTREL_SEED=" << nSeed << " KESTREL_SEEDS=1 " << ReplayCommand() << "\n"
        << file.strSource;
}

} // namespace

/// The reference machine counts work-items, waves, branches and loop passes independently.
TEST(ReferenceProfile, CountsAgree)
{
    const uint32_t nFirst = FromEnvironment("KESTREL_SEED", 1);
    const uint32_t nSeeds = CountSeeds(s_ProfileSeeds);
    for (uint32_t nSeed = nFirst; nSeed < nFirst + nSeeds && !HasFailure(); ++nSeed)
    {
        CheckSeed(nSeed);
    }
}
