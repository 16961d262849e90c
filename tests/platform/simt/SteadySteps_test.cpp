#include <algorithm>

#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

/// The ids of a work-item that the kernels use.
struct SPlace
{
    uint32_t nGroup[3];
    uint32_t nLocal[3];
};

/// Lines that leave a result in r0.x, and its value. Each uses something that is the same for neighbouring groups.
struct SSteadyCase
{
    const char* pszName;
    const char* pszBody;
    uint32_t (*pfExpected)(const SPlace& place);
};

const SSteadyCase s_Cases[] = {
    {"one register, again and again",
     "imad r0, vThreadGrpId, l1.y, vTidInGrp\niadd r0, r0, l1.z\ninegate r1, r0\n"
     "iadd r0.x, r0.x, r1.y\niadd r0.x, r0.x, r0.z\n",
     [](const SPlace& p)
     {
         const auto id = [&p](int n) { return p.nGroup[n] * 100 + p.nLocal[n] + 7; };
         return id(0) - id(1) + id(2);
     }},
    {"a value that is read after a branch",
     "iadd r0.x, vThreadGrpId.y, l1.z\niadd r0.x, r0.x, vThreadGrpId.z\nieq r1.x, vTidInGrp.x, l1.x\n"
     "if_logicalnz r1.x\nmov r0.x, l1.x\niadd r0.x, r0.x, vThreadGrpId.y\nendif\n",
     [](const SPlace& p) { return p.nLocal[0] == 1 ? 1 + p.nGroup[1] : p.nGroup[1] + 7 + p.nGroup[2]; }},
    {"a value that a loop reads before it writes it anew",
     "mov r0.x, l1.w\nmov r1.x, l1.w\nmov r2.x, l1.w\nwhileloop\nige r3.x, r1.x, l1.z\nbreak_logicalnz r3.x\n"
     "iadd r0.x, r0.x, r2.x\niadd r2.x, vThreadGrpId.y, l1.x\niadd r1.x, r1.x, l1.x\nendloop\n",
     [](const SPlace& p) { return 6 * (p.nGroup[1] + 1); }},
    {"a function called for some, whose argument is steady",
     "iadd r2.x, vThreadGrpId.z, l1.x\ncall 7\nmov r0.x, r1.x\niadd r2.x, vThreadGrpId.y, l1.x\n"
     "ilt r3.x, vTidInGrp.x, l1.x\ncall_logicalnz r3.x, 7\niadd r0.x, r0.x, r1.x\n---\n"
     "func 7\nimul r1.x, r2.x, l1.z\niadd r2.x, r2.x, r2.x\nret\nendfunc\n",
     [](const SPlace& p) { return 7 * (p.nGroup[2] + 1) + 7 * (p.nLocal[0] < 1 ? p.nGroup[1] + 1 : p.nGroup[2] + 1); }},
    {"both words of a sum",
     "mov r1, l1.wwww\ninegate r1.x, l1.x\nmov r2, l1.wwww\niadd r2.x, vThreadGrpId.y, l1.z\n"
     "i64add r1.xy, r1.xy, r2.xy\niadd r0.x, r1.x, r1.y\n",
     [](const SPlace& p) { return p.nGroup[1] + 6 + 1; }},
    {"elements of an array, by number and by index",
     "iadd r1.x, vThreadGrpId.y, l1.x\nmov x1[1].x, r1.x\nand r2.x, vTidInGrp.x, l1.x\nmov r0.x, x1[r2.x].x\n"
     "iadd r3.x, vThreadGrpId.z, l1.z\nmov x1[r2.x].x, r3.x\nmov r3.x, l1.w\niadd r0.x, r0.x, x1[r2.x].x\n"
     "iadd r0.x, r0.x, r3.x\n",
     [](const SPlace& p) { return p.nLocal[0] % 2 * (p.nGroup[1] + 1) + p.nGroup[2] + 7; }},
};

const size_t s_Shapes[][6] = {{256, 1, 1, 64, 1, 1}, {24, 20, 1, 4, 2, 1}, {6, 10, 9, 3, 5, 3}, {64, 64, 2, 32, 16, 1}};

SPlace Locate(const KestrelPlatform::SLaunch& launch, size_t nItem)
{
    SPlace place = {};
    const size_t* pLocal = launch.nLocalSize;
    const size_t nGroupSize = pLocal[0] * pLocal[1] * pLocal[2];
    size_t nGroup = nItem / nGroupSize;
    size_t nInGroup = nItem % nGroupSize;
    for (int n = 0; n < 3; ++n)
    {
        const size_t nGroups = launch.nGlobalSize[n] / pLocal[n];
        place.nGroup[n] = static_cast<uint32_t>(nGroup % nGroups);
        place.nLocal[n] = static_cast<uint32_t>(nInGroup % pLocal[n]);
        nGroup /= nGroups;
        nInGroup /= pLocal[n];
    }
    return place;
}

TEST(SteadySteps, GiveWhatEachWorkItemWouldCompute)
{
    for (const SSteadyCase& test : s_Cases)
    {
        const std::string strBody = test.pszBody;
        const size_t nCut = std::min(strBody.find("---\n"), strBody.size());
        CKernelRun run(strBody.substr(0, nCut) + IndexLines() + "uav_raw_store_id(11) mem0.x, r100.y, r0.x\n" +
                           strBody.substr(nCut),
                       std::string(IndexLiterals()) +
                           "dcl_literal l1, 1, 100, 7, 0\ndcl_raw_uav_id(11)\ndcl_indexed_temp_array x1[2]\n");
        for (const auto& shape : s_Shapes)
        {
            std::copy_n(shape, 3, run.launch.nGlobalSize);
            std::copy_n(shape + 3, 3, run.launch.nLocalSize);
            run.launch.nDimensions = 3;
            run.vOutput.assign(shape[0] * shape[1] * shape[2] * 4, 0);
            ASSERT_EQ(run.Run().eStatus, KestrelPlatform::SLaunchResult::Complete);
            for (size_t n = 0; n < run.vOutput.size() / 4; ++n)
            {
                ASSERT_EQ(run.vOutput[n * 4], test.pfExpected(Locate(run.launch, n)))
                    << test.pszName << ", work-item " << n << " of " << shape[0] << " x " << shape[1] << " x "
                    << shape[2];
            }
        }
    }
}

} // namespace
} // namespace KestrelPlatformTest
