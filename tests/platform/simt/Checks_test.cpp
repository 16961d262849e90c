#include <tuple>

#include "tests/platform/simt/RecordedLaunch.h"

/// Findings of a launch whose groups take several blocks, in every order.
namespace KestrelPlatformTest
{
namespace
{

typedef std::tuple<uint32_t, uint32_t, uint64_t, uint64_t, uint64_t, int32_t, uint64_t> Found;

std::vector<Found> FindAll(const std::string& strText, uint32_t nGlobal, uint32_t nLocal, uint32_t nThreads,
                           uint64_t nSchedule)
{
    CKernelRun run(
        std::string(IndexLines()) + "ishl r1.x, r100.x, l1.x\niadd r1.x, r1.x, cb1[0].x\n" + strText,
        std::string(IndexLiterals()) +
            "dcl_literal l1, 2, 4, 1, 0\ndcl_literal l2, 511, 512, 60, 0\ndcl_lds_id(1) 4096\ndcl_raw_uav_id(11)\n");
    run.SetSize(nGlobal, nLocal);
    run.vOutput.assign(1024, 0);
    run.launch.nChecks = PLATFORM_CHECK_MEMORY | PLATFORM_CHECK_RACE | PLATFORM_CHECK_BARRIER;
    run.launch.nMaxThreads = nThreads;
    run.launch.nSchedule = nSchedule;
    const KestrelPlatform::SLaunchResult result = run.Run();
    std::vector<Found> vFound;
    for (const SPlatformFinding& finding : result.vFindings)
    {
        vFound.emplace_back(finding.nKind, finding.nMemory, finding.nWorkItem, finding.nOtherItem, finding.nCount,
                            finding.bUnequal, finding.nAddress);
    }
    return vFound;
}

struct SCheckCase
{
    const char* pszName;
    const char* pszText; ///< r1.x is the work-item's word of the output, l1.y 4, l1.z 1
    uint32_t nGlobal;
    uint32_t nLocal;
    std::vector<uint32_t> vKinds;
};

const SCheckCase s_CheckCases[] = {
    {"own words", "uav_raw_store_id(11) mem0.x, r1.x, r100.x\n", 1024, 256, {}},
    {"the next one's word, in several blocks",
     "uav_raw_store_id(11) mem0.x, r1.x, r100.x\niadd r1.x, r1.x, l1.y\nuav_raw_load_id(11) r2.x, r1.x\n",
     900,
     900,
     {PLATFORM_FINDING_RACE}},
    {"after a barrier, in several blocks",
     "uav_raw_store_id(11) mem0.x, r1.x, r100.x\nfence_threads_memory\niadd r1.x, r1.x, l1.y\nuav_raw_load_id(11) "
     "r2.x, "
     "r1.x\n",
     900,
     900,
     {}},
    {"after a barrier, but in different groups",
     "uav_raw_store_id(11) mem0.x, r1.x, r100.x\nfence_threads_memory\niadd r1.x, r1.x, l1.y\nuav_raw_load_id(11) "
     "r2.x, "
     "r1.x\n",
     900,
     30,
     {PLATFORM_FINDING_RACE}},
    {"one word for all", "uav_raw_store_id(11) mem0.x, cb1[0].x, r100.x\n", 960, 64, {PLATFORM_FINDING_RACE}},
    {"an atomic for all", "uav_add_id(11) cb1[0].x, l1.z\n", 960, 64, {}},
    {"local memory of their own", "mov r3.x, l1.w\nlds_store_id(1) r3.x, r100.x\n", 64, 1, {}},
    {"a word of local memory", "lds_store_id(1) l1.w, r100.x\n", 960, 480, {PLATFORM_FINDING_RACE}},
    {"own words, downwards and with gaps",
     "inegate r2.x, r100.x\niadd r2.x, r2.x, l2.x\nishl r2.x, r2.x, l1.z\nishl r2.x, r2.x, l1.x\n"
     "iadd r2.x, r2.x, cb1[0].x\nuav_raw_store_id(11) mem0.x, r2.x, r100.x\nuav_raw_load_id(11) r3.x, r2.x\n",
     512,
     256,
     {}},
    {"some on the words of the others, in one group",
     "iand r2.x, r100.x, l1.z\nif_logicalnz r2.x\nuav_raw_store_id(11) mem0.x, r1.x, r100.x\nelse\n"
     "iadd r1.x, r1.x, l1.y\nuav_raw_load_id(11) r2.x, r1.x\nendif\n",
     256,
     256,
     {PLATFORM_FINDING_RACE}},
    {"two barriers, each with whole blocks of a group",
     "ult r2.x, r100.x, l2.y\nif_logicalnz r2.x\nfence_threads\nelse\nfence_threads_memory\nendif\n",
     900,
     900,
     {PLATFORM_FINDING_BARRIER}},
    {"a barrier for some, and one for some of the others",
     "ult r2.x, r100.x, l1.y\nif_logicalnz r2.x\nfence_threads\nendif\n"
     "ult r2.x, l1.x, r100.x\nif_logicalnz r2.x\nult r2.x, r100.x, l2.z\nif_logicalnz r2.x\n"
     "fence_threads_memory\nendif\nendif\n",
     64,
     64,
     {PLATFORM_FINDING_BARRIER, PLATFORM_FINDING_BARRIER}},
    {"far outside",
     "iadd r1.x, r1.x, l0.w\nimul r1.x, r1.x, r1.x\nuav_raw_store_id(11) mem0.x, r1.x, r100.x\n",
     640,
     64,
     {PLATFORM_FINDING_OUTSIDE}},
};

TEST(Checks, FindTheSameInEveryOrder)
{
    for (const SCheckCase& check : s_CheckCases)
    {
        SCOPED_TRACE(check.pszName);
        const std::vector<Found> vFirst = FindAll(check.pszText, check.nGlobal, check.nLocal, 1, 0);
        std::vector<uint32_t> vKinds;
        for (const Found& found : vFirst)
        {
            vKinds.push_back(std::get<0>(found));
        }
        EXPECT_EQ(vKinds, check.vKinds);
        for (const uint64_t nSchedule : {7, 8, 9})
        {
            EXPECT_EQ(FindAll(check.pszText, check.nGlobal, check.nLocal, 4, nSchedule), vFirst) << nSchedule;
        }
    }
}

TEST(Checks, SayWhereTheyDontLookForRaces)
{
    for (const uint32_t nAccesses : {65534u, 65535u})
    {
        std::string strText = std::string(IndexLines());
        for (uint32_t n = 0; n < nAccesses; ++n)
        {
            strText += "uav_raw_store_id(11) mem0.x, cb1[0].x, r100.x\n";
        }
        CKernelRun run(strText, std::string(IndexLiterals()) + "dcl_raw_uav_id(11)\n");
        run.SetSize(4, 2);
        run.vOutput.assign(4, 0);
        run.launch.nChecks = PLATFORM_CHECK_RACE;
        const KestrelPlatform::SLaunchResult result = run.Run();
        const bool bLooked = nAccesses < 65535;
        EXPECT_EQ(result.checkLimits.nSkipped, bLooked ? 0u : uint32_t{PLATFORM_CHECK_RACE});
        EXPECT_EQ(result.checkLimits.bMore, bLooked ? 1 : 0);
        EXPECT_EQ(result.vFindings.size(), bLooked ? 4096u : 0u);
    }
}

} // namespace
} // namespace KestrelPlatformTest
