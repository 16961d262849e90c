#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

using KestrelPlatform::SLaunchResult;

constexpr uint32_t s_nNowhere = ~0u;
constexpr uint64_t s_nUnknown = ~uint64_t(0);

struct SExpectedPlace
{
    uint32_t nWhere;
    uint32_t nLine; ///< of the body, from 0
    uint64_t nItems;
    uint64_t nWorkItem;
    uint64_t nPasses; ///< give or take 5
};

/// A kernel that some work-items never leave. r0.x is the linear index.
struct SPlacesCase
{
    const char* pszName;
    const char* pszBody;
    size_t nGlobal;
    size_t nLocal;
    std::vector<SExpectedPlace> vPlaces;
};

constexpr uint64_t s_nLimit = 30000;

const SPlacesCase s_placesCases[] = {
    {"some in a loop, the others after the if",
     "ilt r1.x, r0.x, l0.x\nif_logicalz r1.x\nwhileloop\nendloop\nendif\n",
     64,
     64,
     {{PLATFORM_WHERE_AT, 3, 48, 16, s_nLimit / 2}, {PLATFORM_WHERE_BESIDE, s_nNowhere, 16, 0, 0}}},
    {"some have returned",
     "ilt r1.x, r0.x, l0.x\nif_logicalnz r1.x\nret_dyn\nendif\nwhileloop\nendloop\n",
     64,
     64,
     {{PLATFORM_WHERE_AT, 5, 48, 16, s_nLimit / 2}, {PLATFORM_WHERE_BESIDE, s_nNowhere, 16, 0, 0}}},
    {"two barriers and a loop in one group",
     "ilt r1.x, r0.x, l0.y\nif_logicalnz r1.x\nfence_threads\nelse\nilt r1.x, r0.x, l0.z\nif_logicalnz r1.x\n"
     "fence_threads\nelse\nwhileloop\nendloop\nendif\nendif\n",
     768,
     768,
     {{PLATFORM_WHERE_AT, 9, 256, 512, s_nLimit / 2},
      {PLATFORM_WHERE_BARRIER, 2, 256, 0, 0},
      {PLATFORM_WHERE_BARRIER, 6, 256, 256, 0}}},
    {"the third of four groups",
     "ilt r1.x, r0.x, l0.z\nif_logicalz r1.x\nwhileloop\nendloop\nendif\n",
     1024,
     256,
     {{PLATFORM_WHERE_AT, 3, 256, 512, s_nLimit / 2},
      {PLATFORM_WHERE_ENDED, s_nNowhere, 512, s_nUnknown, 0},
      {PLATFORM_WHERE_NOT_BEGUN, s_nNowhere, 256, s_nUnknown, 0}}},
    // The inner loop makes 1,000 passes in the first pass of the outer one, and never ends in the second.
    {"an inner loop entered again",
     "whileloop\nmov r1.x, l0.w\nwhileloop\niadd r1.x, r1.x, l1.x\nieq r1.y, r1.x, l1.y\nior r1.y, r1.y, r2.x\n"
     "break_logicalz r1.y\nendloop\nmov r2.x, l1.x\nendloop\n",
     16,
     16,
     {{PLATFORM_WHERE_AT, 7, 16, 0, s_nLimit / 5 - 1000}}},
    {"a called function",
     "ilt r1.x, r0.x, l0.x\ncall_logicalnz r1.x, 7\n---\nfunc 7\nmov r2.x, l0.x\nwhileloop\nendloop\nret\nendfunc\n",
     64,
     64,
     {{PLATFORM_WHERE_AT, 6, 16, 0, s_nLimit / 2}, {PLATFORM_WHERE_BESIDE, s_nNowhere, 48, 16, 0}}},
};

TEST(Places, OfAllWorkItemsOfAStoppedRun)
{
    for (const SPlacesCase& entry : s_placesCases)
    {
        SCOPED_TRACE(entry.pszName);
        const std::string strDeclarations =
            "dcl_literal l0, 16, 256, 512, 0\ndcl_literal l1, 1, 1000, 0, 0\ndcl_max_thread_per_group 1024";
        CKernelRun run("mov r0.x, vAbsTidFlat.x\n" + std::string(entry.pszBody), strDeclarations);
        run.SetSize(entry.nGlobal, entry.nLocal);
        run.launch.nInstructionLimit = s_nLimit;
        run.launch.nMaxThreads = 1;
        const SLaunchResult result = run.Run();
        EXPECT_EQ(result.eStatus, SLaunchResult::InstructionLimit);
        ASSERT_EQ(result.vPlaces.size(), entry.vPlaces.size());
        for (size_t n = 0; n < entry.vPlaces.size(); ++n)
        {
            const SExpectedPlace& expected = entry.vPlaces[n];
            const SPlatformPlace& place = result.vPlaces[n];
            const uint32_t nBefore = 1; // the instruction before the body; declarations don't count
            EXPECT_EQ(place.nWhere, expected.nWhere);
            EXPECT_EQ(place.nInstruction, expected.nLine == s_nNowhere ? s_nNowhere : nBefore + expected.nLine);
            EXPECT_EQ(place.nItems, expected.nItems);
            EXPECT_EQ(place.nWorkItem, expected.nWorkItem);
            EXPECT_EQ(place.nLeast, place.nMost);
            EXPECT_NEAR(static_cast<double>(place.nMost), static_cast<double>(expected.nPasses), 5);
        }
    }
}

} // namespace
} // namespace KestrelPlatformTest
