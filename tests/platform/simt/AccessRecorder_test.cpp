#include "tests/platform/simt/RecordedLaunch.h"

#include <cstring>

/// Records accesses to watched bytes, one by one.
namespace KestrelPlatformTest
{
namespace
{

struct SWanted
{
    uint32_t nKind;
    uint64_t nWorkItem;
    uint64_t nPass;
    uint32_t nWord;
    uint32_t nBefore;
    uint32_t nAfter;
};

void Expect(const std::string& strText, const std::string& strDeclarations, const SPlatformWatch& watch,
            const std::vector<SWanted>& vWanted)
{
    SCOPED_TRACE(strText);
    CKernelRun run(std::string(IndexLines()) + strText,
                   std::string(IndexLiterals()) + "dcl_literal l1, 7, 1, 3, 0\ndcl_raw_uav_id(11)\n" + strDeclarations);
    run.SetSize(300, 100);
    run.vOutput.assign(2048, 5);
    run.launch.watch = watch;
    const std::vector<SPlatformAccess> vAccesses = run.Run().vAccesses;
    ASSERT_EQ(vAccesses.size(), vWanted.size());
    for (size_t n = 0; n < vWanted.size(); ++n)
    {
        const SPlatformAccess& access = vAccesses[n];
        uint32_t nBefore = 0;
        uint32_t nAfter = 0;
        std::memcpy(&nBefore, access.before, 4);
        std::memcpy(&nAfter, access.after, 4);
        EXPECT_EQ(access.nKind, vWanted[n].nKind) << n;
        EXPECT_EQ(access.nWorkItem, vWanted[n].nWorkItem) << n;
        EXPECT_EQ(access.nPass, vWanted[n].nPass) << n;
        EXPECT_EQ(access.words[0], vWanted[n].nWord) << n;
        EXPECT_EQ(nBefore, vWanted[n].nBefore) << n;
        EXPECT_EQ(nAfter, vWanted[n].nAfter) << n;
    }
}

TEST(AccessRecorder, TellsWhoTouchesWatchedBytes)
{
    const SPlatformWatch word = {PLATFORM_MEMORY_GLOBAL, 0, CKernelRun::s_nOutput + 120 * 16, 4};
    // One work-item's own word; the load overwrites the register with the address.
    Expect("uav_raw_store_id(11) mem0.x, r100.y, r100.x\nuav_raw_load_id(11) r100.y, r100.y\n", "", word,
           {{PLATFORM_ACCESS_STORE, 120, 0, 120, 5, 120}, {PLATFORM_ACCESS_LOAD, 120, 0, 120, 120, 120}});
    // Work-items 118 and 119 in three passes, one word further each time; the store of four words reaches the watched
    // one too.
    Expect("mov r2.x, l1.w\nwhileloop\nige r2.y, r2.x, l1.z\nbreak_logicalnz r2.y\n"
           "ieq r2.z, r100.x, l3.x\nif_logicalnz r2.z\nuav_raw_store_id(11) mem0.xyzw, r100.y, r2.xxxx\nendif\n"
           "iadd r100.y, r100.y, l3.y\niadd r2.x, r2.x, l1.y\nendloop\n",
           "dcl_literal l3, 119, 4, 0, 0\n", word,
           {{PLATFORM_ACCESS_STORE, 119, 1, 1, 5, 1}, {PLATFORM_ACCESS_STORE, 119, 2, 2, 1, 2}});
    // Additions that are usually held back are in memory after each instruction; three groups, one after the other.
    Expect("ilt r3.x, vTidInGrp.x, l1.y\nif_logicalnz r3.x\niadd r3.y, cb1[0].x, l3.x\n"
           "uav_add_id(11) r3.y, l1.x\nendif\n",
           "dcl_literal l3, 1920, 0, 0, 0\n", word,
           {{PLATFORM_ACCESS_ATOMIC, 0, 0, 7, 5, 12},
            {PLATFORM_ACCESS_ATOMIC, 100, 0, 7, 12, 19},
            {PLATFORM_ACCESS_ATOMIC, 200, 0, 7, 19, 26}});
    // Local memory: the same address of each group.
    Expect("ishl r1.x, vTidInGrp.x, l100.y\nlds_store_id(1) r1.x, r100.x\n", "dcl_lds_id(1) 400\n",
           {PLATFORM_MEMORY_LOCAL, ~0u, 40, 4},
           {{PLATFORM_ACCESS_STORE, 10, 0, 10, 0, 0},
            {PLATFORM_ACCESS_STORE, 110, 0, 110, 0, 0},
            {PLATFORM_ACCESS_STORE, 210, 0, 210, 0, 0}});
}

} // namespace
} // namespace KestrelPlatformTest
