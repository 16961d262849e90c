#include "platform/simt/LaneOps.h"
#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

using KestrelPlatform::EInstructionSet;

const uint32_t s_nNotWritten = 0xAAAAAAAA;
const uint32_t s_nData = 512; ///< first word of the input after the flags

/// The active work-items of a group: whole runs of lanes, parts of them, single ones.
struct SActive
{
    const char* pszName;
    bool (*pfIsActive)(uint32_t nLocal);
};

const SActive s_Active[] = {
    {"all", [](uint32_t) { return true; }},
    {"none", [](uint32_t) { return false; }},
    {"lower half", [](uint32_t n) { return n < 128; }},
    {"whole cache lines inside", [](uint32_t n) { return n >= 32 && n < 80; }},
    {"upper end", [](uint32_t n) { return n >= 48; }},
    {"ends inside a cache line", [](uint32_t n) { return n < 20; }},
    {"begins inside a cache line", [](uint32_t n) { return n >= 70 && n < 96; }},
    {"every other one", [](uint32_t n) { return n % 2 == 1; }},
    {"one", [](uint32_t n) { return n == 5; }},
};

/// Lines for the active work-items, with r1.x the id in the group, r1.y four times that, r1.z the address of the
/// input's data and r1.w the linear id; lines that all run after them; and the expected r0.x.
struct SOperation
{
    const char* pszName;
    const char* pszInside;
    const char* pszAfter;
    uint32_t (*pfExpected)(uint32_t nLocal, uint32_t nGlobal);
};

const SOperation s_Operations[] = {
    {"consecutive words", "iadd r2.x, r1.z, r1.y\nuav_raw_load_id(11) r0.x, r2.x\n", "",
     [](uint32_t n, uint32_t) { return 1000 + n; }},
    {"one word", "uav_raw_load_id(11) r0.x, r1.z\n", "", [](uint32_t, uint32_t) { return 1000u; }},
    {"scattered words",
     "imul r2.x, r1.x, l5.x\nand r2.x, r2.x, l5.y\nishl r2.x, r2.x, l5.z\niadd r2.x, r2.x, r1.z\n"
     "uav_raw_load_id(11) r0.x, r2.x\n",
     "", [](uint32_t n, uint32_t) { return 1000 + (n * 5 & 63); }},
    {"global store and sum", "uav_raw_store_id(11) mem0.x, r100.y, r1.w\nuav_add_id(11) r100.y, r1.x\n",
     "uav_raw_load_id(11) r0.x, r100.y\n", [](uint32_t n, uint32_t nGlobal) { return n + nGlobal; }},
    {"local words", "lds_store_id(1) r1.y, r1.w\nlds_load_id(1) r0.x, r1.y\n", "",
     [](uint32_t, uint32_t nGlobal) { return nGlobal; }},
    {"scattered private words",
     "and r2.x, r1.y, l5.w\nuav_raw_store_id(8) mem0.x, r2.x, r1.w\nuav_raw_load_id(8) r0.x, r2.x\n", "",
     [](uint32_t, uint32_t nGlobal) { return nGlobal; }},
    {"one private word", "uav_raw_store_id(8) mem0.x, l5.w, r1.w\nuav_raw_load_id(8) r0.x, l5.w\n", "",
     [](uint32_t, uint32_t nGlobal) { return nGlobal; }},
    {"private words at the end",
     "and r2.x, r1.y, l5.z\niadd r2.x, r2.x, l5.w\nuav_raw_store_id(8) mem0.x, r2.x, r1.w\n"
     "uav_raw_load_id(8) r0.x, r2.x\n",
     "", [](uint32_t, uint32_t nGlobal) { return nGlobal; }},
    {"elements of an array", "and r2.x, r1.x, l6.x\nmov x1[r2.x].y, r1.w\nmov r0.x, x1[r2.x].y\n", "",
     [](uint32_t, uint32_t nGlobal) { return nGlobal; }},
    {"64-bit sums", "i64add r2.xy, l6.zw, r1.x000\nmov r0.x, r2.y\n", "",
     [](uint32_t n, uint32_t) { return n >= 2 ? 8u : 7u; }},
    {"64-bit comparisons", "i64lt r2.xy, r1.xx, l8.xy\niadd r0.x, r2.x, r1.x\n", "",
     [](uint32_t n, uint32_t) { return n < 40 ? n - 1 : n; }},
};

const char* const s_pszDeclarations = "dcl_literal l5, 5, 63, 2, 12\ndcl_literal l6, 3, 0xAAAAAAAA, 0xFFFFFFFE, 7\n"
                                      "dcl_literal l8, 2, 40, 0, 0\ndcl_lds_id(1) 1200\ndcl_indexed_temp_array x1[4]\n"
                                      "dcl_typeless_uav_id(8)_stride(4)_length(20)_access(private)\n";

std::string Body(const SOperation& operation)
{
    return std::string(IndexLines()) +
           "mov r1.x, vTidInGrpFlat.x\nishl r1.y, r1.x, l5.z\nmov r1.w, r100.x\n"
           "iadd r9.x, r1.y, cb1[1].x\nuav_raw_load_id(11) r9.x, r9.x\niadd r1.z, cb1[1].x, cb1[2].x\n"
           "mov r0.x, l6.y\nif_logicalnz r9.x\n" +
           operation.pszInside + "endif\n" + operation.pszAfter + "uav_raw_store_id(11) mem0.x, r100.y, r0.x\n";
}

void Check(const SOperation& operation, CKernelRun& run, const SActive& active, size_t nGroup)
{
    const size_t nItems = nGroup * 3;
    run.SetSize(nItems, nGroup);
    run.vOutput.assign(nItems * 4, s_nNotWritten);
    run.vInput.assign(s_nData * 2, 0);
    for (uint32_t n = 0; n < s_nData; ++n)
    {
        run.vInput[n] = active.pfIsActive(n) ? n + 1 : 0;
        run.vInput[s_nData + n] = 1000 + n;
    }
    run.launch.vConstantBuffer1.assign(32, 0);
    run.launch.vConstantBuffer1[8] = s_nData * 4;
    EXPECT_EQ(run.Run().nBadAccesses, 0u);
    for (uint32_t n = 0; n < nItems; ++n)
    {
        const uint32_t nLocal = static_cast<uint32_t>(n % nGroup);
        const uint32_t nExpected = active.pfIsActive(nLocal) ? operation.pfExpected(nLocal, n) : s_nNotWritten;
        ASSERT_EQ(run.vOutput[n * 4], nExpected)
            << operation.pszName << ", " << active.pszName << ", groups of " << nGroup << ", work-item " << n;
    }
}

TEST(Masks, AccessesOfSomeWorkItems)
{
    for (const SOperation& operation : s_Operations)
    {
        CKernelRun run(Body(operation), IndexLiterals() + std::string(s_pszDeclarations));
        for (const EInstructionSet eSet : {EInstructionSet::Baseline, EInstructionSet::Avx2, EInstructionSet::Avx512})
        {
            if (!KestrelPlatform::ChooseInstructionSet(eSet))
            {
                continue;
            }
            for (const SActive& active : s_Active)
            {
                for (const size_t nGroup : {256, 64, 100, 300, 7})
                {
                    Check(operation, run, active, nGroup);
                }
            }
        }
    }
}

/// Each work-item increments the bin of its low three bits; each group has its own bins, even if small groups share a
/// block.
TEST(Masks, LocalSumsOfSomeWorkItems)
{
    const SOperation operation = {"local sums", "and r2.x, r1.y, l7.x\nlds_add_id(1) r2.x, l7.y\n",
                                  "fence_threads_lds\nand r2.x, r1.y, l7.x\nlds_load_id(1) r0.x, r2.x\n", nullptr};
    CKernelRun run(Body(operation), IndexLiterals() + std::string(s_pszDeclarations) + "dcl_literal l7, 28, 3, 0, 0\n");
    for (const SActive& active : s_Active)
    {
        for (const uint32_t nGroup : {256u, 64u, 300u})
        {
            const auto count = [&](uint32_t nLocal)
            {
                uint32_t nCount = 0;
                for (uint32_t n = nLocal & 7; n < nGroup; n += 8)
                {
                    nCount += active.pfIsActive(n) ? 3 : 0;
                }
                return nCount;
            };
            run.SetSize(nGroup * 5, nGroup);
            run.vOutput.assign(nGroup * 20, 0);
            run.vInput.assign(s_nData, 0);
            for (uint32_t n = 0; n < s_nData; ++n)
            {
                run.vInput[n] = active.pfIsActive(n) ? 1 : 0;
            }
            run.Run();
            for (uint32_t n = 0; n < nGroup * 5; ++n)
            {
                ASSERT_EQ(run.vOutput[n * 4], count(n % nGroup)) << active.pszName << ", groups of " << nGroup;
            }
        }
    }
}

/// A step with an unread result is dropped, unless it could access an invalid address.
TEST(Masks, UnreadResultsOfBadAccessesAreCounted)
{
    CKernelRun run("uav_raw_load_id(11) r7.x, l5.x\nmov r8.x, x1[r1.x+4].x\niadd r9.xyz, r9, l5\n",
                   "dcl_literal l5, 4, 0, 0, 0\ndcl_indexed_temp_array x1[4]\n");
    run.SetSize(10, 10);
    run.vOutput.assign(1, 0);
    EXPECT_EQ(run.Run().nBadAccesses, 20u);
}

} // namespace
} // namespace KestrelPlatformTest
