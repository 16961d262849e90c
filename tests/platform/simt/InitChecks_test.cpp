#include <algorithm>

#include "platform/simt/checks/ShadowRules.h"
#include "tests/platform/simt/RecordedLaunch.h"

/// Branches that depend on unwritten bytes, with all patterns of work-items' addresses.
namespace KestrelPlatformTest
{
namespace
{

constexpr uint32_t s_nWords = 4096; ///< of the output, which has four pages
constexpr uint32_t s_nInitItems = 512;

struct SInitCase
{
    const char* pszName;
    /// r1.x is the address of the work-item's word, r1.y that of a word two pages further on, r1.z its index in the
    /// group; the branch at the end depends on r2.x.
    const char* pszText;
    uint32_t nLocal;
    uint32_t nFrom; ///< first unwritten word of the output
    uint32_t nTo;   ///< after the last one
    uint64_t nFound;
};

const SInitCase s_InitCases[] = {
    {"all of it written", "uav_raw_load_id(11) r2.x, r1.x\n", 256, 0, 0, 0},
    {"the end of a page", "uav_raw_load_id(11) r2.x, r1.x\n", 256, 500, 600, 12},
    {"one word for all", "uav_raw_load_id(11) r2.x, cb1[0].x\n", 256, 0, 1, 512},
    {"one word of a page, in another order", "ixor r3.x, r1.x, l3.x\nuav_raw_load_id(11) r2.x, r3.x\n", 256, 7, 8, 1},
    {"small groups", "uav_raw_load_id(11) r2.x, r1.x\n", 16, 33, 35, 2},
    {"stored before", "uav_raw_store_id(11) mem0.x, r1.x, l3.x\nuav_raw_load_id(11) r2.x, r1.x\n", 256, 0, 4096, 0},
    {"stored by some",
     "iand r3.x, r100.x, l3.y\nif_logicalnz r3.x\nuav_raw_store_id(11) mem0.x, r1.x, l3.x\nendif\n"
     "uav_raw_load_id(11) r2.x, r1.x\n",
     256, 0, 4096, 256},
    {"stored with gaps",
     "ishl r3.x, r100.x, l3.z\niadd r3.x, r3.x, cb1[0].x\nuav_raw_store_id(11) mem0.x, r3.x, l3.x\n"
     "fence_threads_memory\niadd r3.x, r3.x, l3.w\nuav_raw_load_id(11) r2.x, r3.x\n",
     256, 0, 4096, 512},
    // The first page was known to be written before something unwritten is copied to it.
    {"copied to a page that was written",
     "uav_raw_load_id(11) r3.x, r1.x\nuav_raw_load_id(11) r3.x, r1.y\nuav_raw_store_id(11) mem0.x, r1.x, r3.x\n"
     "uav_raw_load_id(11) r2.x, r1.x\n",
     256, 2050, 2053, 3},
    {"an atomic on it", "uav_add_id(11) r1.x, l3.y\n", 256, 100, 104, 4},
    {"a register that nothing writes", "iadd r2.x, r9.x, r1.x\n", 256, 0, 0, 512},
    {"an atomic of all on one word of local memory", "lds_add_id(1) l3.w, r100.x\nlds_load_id(1) r2.x, l3.w\n", 256, 0,
     0, 2},
    {"local memory of their own",
     "ishl r3.x, r1.z, l1.x\nlds_store_id(1) r3.x, r100.x\nfence_threads_lds\nlds_load_id(1) r2.x, r3.x\n", 256, 0, 0,
     0},
    {"local memory of the next one, in small groups",
     "ishl r3.x, r1.z, l1.x\nlds_store_id(1) r3.x, r100.x\nfence_threads_lds\niadd r3.x, r3.x, l3.w\n"
     "lds_load_id(1) r2.x, r3.x\n",
     16, 0, 0, 32},
    {"an array, each its own element", "iand r3.x, r100.x, l3.y\nmov x1[0].x, r100.x\nmov r2.x, x1[r3.x].x\n", 256, 0,
     0, 256},
    {"an array, all of it set",
     "iand r3.x, r100.x, l3.y\nmov x1[0].x, r100.x\nmov x1[1].x, r100.x\nmov r2.x, x1[r3.x].x\n", 256, 0, 0, 0},
};

TEST(InitChecks, TellWhoDependsOnWhatNobodyWrote)
{
    for (const SInitCase& check : s_InitCases)
    {
        SCOPED_TRACE(check.pszName);
        CKernelRun run(std::string(IndexLines()) +
                           "ishl r1.x, r100.x, l1.x\niadd r1.x, r1.x, cb1[0].x\niadd r1.y, r1.x, l1.w\n"
                           "mov r1.z, vTidInGrpFlat.x\nmov r2.x, l3.x\n" +
                           check.pszText + "if_logicalnz r2.x\nmov r4.x, l3.x\nendif\n",
                       std::string(IndexLiterals()) +
                           "dcl_literal l1, 2, 4, 1, 8192\ndcl_literal l3, 252, 1, 3, 4\ndcl_lds_id(1) 4096\n"
                           "dcl_indexed_temp_array x1[2]\ndcl_raw_uav_id(11)\n");
        run.SetSize(s_nInitItems, check.nLocal);
        run.vOutput.assign(s_nWords, 0);
        run.vOutputShadow.assign(s_nWords * 4, 0);
        std::fill(run.vOutputShadow.begin() + check.nFrom * 4, run.vOutputShadow.begin() + check.nTo * 4,
                  static_cast<unsigned char>(KestrelPlatform::s_nFirstBuffer));
        run.launch.nChecks = PLATFORM_CHECK_INIT;
        uint64_t nFound = 0;
        for (const SPlatformFinding& finding : run.Run().vFindings)
        {
            nFound += finding.nCount;
        }
        EXPECT_EQ(nFound, check.nFound);
    }
}

} // namespace
} // namespace KestrelPlatformTest
