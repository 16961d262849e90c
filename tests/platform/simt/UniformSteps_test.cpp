#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

const uint32_t s_nUniformItems = 1200;
const uint32_t s_nCount = 9;

/// A kernel's lines leave their result in r0.x. l1.x to l1.w are 0 to 3, l2.x to l2.w are 4, 7, 16 and 100; r1.x is the
/// work-item's number, r1.y that modulo 8; cb1[2].x is s_nCount, cb1[2].y the number of words at cb1[3].xy and
/// cb1[1].x, which hold 1000 and up.
struct SKernel
{
    const char* pszName;
    const char* pszLines;
    uint32_t (*pfResult)(uint32_t nItem);
};

uint32_t SumBelow(uint32_t n)
{
    return n * (n - 1) / 2;
}

const SKernel s_Kernels[] = {
    {"counter",
     "mov r2.x, l1.x\nwhileloop\nieq r3.x, r2.x, cb1[2].x\nbreak_logicalnz r3.x\niadd r0.x, r0.x, r2.x\n"
     "iadd r0.x, r0.x, r1.x\niadd r2.x, r2.x, l1.y\nendloop\n",
     [](uint32_t n) { return SumBelow(s_nCount) + s_nCount * n; }},
    {"counter of those who leave one by one",
     "mov r2.x, l1.x\nwhileloop\nieq r3.x, r2.x, r1.y\nbreak_logicalnz r3.x\niadd r2.x, r2.x, l1.y\nendloop\n"
     "mov r0.x, r2.x\n",
     [](uint32_t n) { return n % 8; }},
    {"two counters, of which one is asked for after the loop",
     "mov r2.xy, l1.x\nwhileloop\niadd r2.x, r2.x, l1.z\niadd r2.y, r2.y, l1.y\niadd r0.x, r0.x, r2.x\n"
     "ult r3.x, r1.y, r2.y\nbreak_logicalnz r3.x\nendloop\niadd r0.x, r0.x, r2.y\n",
     [](uint32_t n) { return (n % 8 + 1) * (n % 8 + 2) + n % 8 + 1; }},
    {"value of before, within and after a branch of some",
     "whileloop\nmov r2.x, l2.x\nult r3.x, r1.y, l1.w\nif_logicalnz r3.x\nmov r2.x, l2.y\niadd r0.x, r0.x, r2.x\n"
     "else\niadd r0.x, r0.x, r2.x\nendif\niadd r0.x, r0.x, r2.x\nbreak\nendloop\n",
     [](uint32_t n) { return n % 8 < 3 ? 14u : 8u; }},
    {"branch of all, with a break",
     "mov r2.x, l1.x\nwhileloop\niadd r2.x, r2.x, l1.y\nieq r3.x, r2.x, cb1[2].x\nif_logicalnz r3.x\n"
     "mov r4.x, r2.x\nbreak\nendif\nmov r5.x, r2.x\niadd r0.x, r0.x, r5.x\nendloop\niadd r0.x, r0.x, r4.x\n",
     [](uint32_t) { return SumBelow(s_nCount + 1); }},
    {"both parts of a branch of all, within one of some",
     "mov r2.x, l1.x\nwhileloop\nuge r3.x, r2.x, cb1[2].x\nbreak_logicalnz r3.x\nif_logicalnz r1.y\n"
     "and r3.y, r2.x, l1.y\nif_logicalnz r3.y\niadd r0.x, r0.x, r2.x\nelse\niadd r0.x, r0.x, l2.w\nendif\n"
     "iadd r0.x, r0.x, l1.y\nendif\niadd r2.x, r2.x, l1.y\nendloop\n",
     [](uint32_t n) { return n % 8 ? 1 + 3 + 5 + 7 + 5 * 100 + s_nCount : 0u; }},
    {"continue of some",
     "mov r2.x, l1.x\nmov r2.y, l1.x\nwhileloop\nuge r3.x, r2.x, cb1[2].x\nbreak_logicalnz r3.x\n"
     "iadd r2.x, r2.x, l1.y\nult r3.x, r2.x, r1.y\ncontinue_logicalnz r3.x\niadd r2.y, r2.y, l1.y\n"
     "iadd r0.x, r0.x, r2.y\nendloop\niadd r0.x, r0.x, r2.x\n",
     [](uint32_t n)
     {
         uint32_t nSum = 0, nSecond = 0;
         for (uint32_t i = 1; i <= s_nCount; ++i)
         {
             nSum += i < n % 8 ? 0 : ++nSecond;
         }
         return nSum + s_nCount;
     }},
    {"continue of all in every other pass",
     "mov r2.x, l1.x\nwhileloop\nuge r3.x, r2.x, cb1[2].x\nbreak_logicalnz r3.x\niadd r2.x, r2.x, l1.y\n"
     "and r3.x, r2.x, l1.y\ncontinue_logicalnz r3.x\niadd r0.x, r0.x, r2.x\niadd r2.x, r2.x, l1.z\nendloop\n",
     [](uint32_t)
     {
         uint32_t nSum = 0;
         for (uint32_t i = 0; i < s_nCount;)
         {
             if (++i & 1)
             {
                 continue;
             }
             nSum += i;
             i += 2;
         }
         return nSum;
     }},
    {"break of all that are left when others have gone on",
     "mov r2.x, l1.x\nwhileloop\niadd r2.x, r2.x, l1.y\nult r3.x, r2.x, r1.y\ncontinue_logicalnz r3.x\n"
     "uge r3.x, r2.x, l1.z\nbreak_logicalnz r3.x\nendloop\nmov r0.x, r2.x\n",
     [](uint32_t n) { return std::max(n % 8, 2u); }},
    {"loops in each other",
     "mov r2.x, l1.x\nwhileloop\nmov r2.y, l1.x\nwhileloop\nuge r3.x, r2.y, r2.x\nbreak_logicalnz r3.x\n"
     "iadd r0.x, r0.x, l1.y\niadd r2.y, r2.y, l1.y\nendloop\nuge r3.x, r2.x, r1.y\nbreak_logicalnz r3.x\n"
     "iadd r2.x, r2.x, l1.y\nendloop\niadd r0.x, r0.x, r2.y\n",
     [](uint32_t n) { return SumBelow(n % 8 + 1) + n % 8; }},
    {"values that change places",
     "mov r2.x, l1.y\nmov r2.y, l2.y\nmov r2.z, l1.x\nwhileloop\nmov r2.w, r2.x\nmov r2.x, r2.y\nmov r2.y, r2.w\n"
     "iadd r2.z, r2.z, l1.y\nieq r3.x, r2.z, cb1[2].x\nbreak_logicalnz r3.x\nendloop\n"
     "imad r0.x, r2.x, l2.w, r2.y\n",
     [](uint32_t) { return 701u; }},
    {"return of some within the loop",
     "mov r2.x, l1.x\ncall 1\niadd r0.x, r0.x, r2.x\n---\nfunc 1\nwhileloop\niadd r2.x, r2.x, l1.y\n"
     "ieq r3.x, r2.x, r1.y\nret_logicalnz r3.x\nieq r3.x, r2.x, l2.y\nbreak_logicalnz r3.x\nendloop\n"
     "iadd r2.x, r2.x, l2.w\nret\nendfunc\n",
     [](uint32_t n) { return n % 8 ? n % 8 : 107u; }},
    {"switch of all",
     "mov r2.x, l1.x\nwhileloop\nswitch r2.x\ncase 0\nmov r2.y, l2.w\ncase 1\niadd r2.y, r2.y, l1.y\nbreak\n"
     "default\nmov r2.y, l2.x\nendswitch\niadd r0.x, r0.x, r2.y\niadd r2.x, r2.x, l1.y\nieq r3.x, r2.x, l1.w\n"
     "break_logicalnz r3.x\nendloop\n",
     [](uint32_t) { return 101u + 102u + 4u; }},
    {"switch of some",
     "mov r2.x, l1.x\nwhileloop\nmov r2.y, l2.z\nswitch r1.y\ncase 0\nmov r2.y, l2.w\ncase 1\niadd r2.y, r2.y, l1.y\n"
     "break\ncase 5\nmov r2.y, l2.x\nendswitch\niadd r0.x, r0.x, r2.y\niadd r2.x, r2.x, l1.y\nieq r3.x, r2.x, l1.w\n"
     "break_logicalnz r3.x\nendloop\n",
     [](uint32_t n) {
         return 3 * (n % 8 == 0 ? 101u : n % 8 == 1 ? 17u : n % 8 == 5 ? 4u : 16u);
     }},
    {"loads by a pointer that moves",
     "mov r2.xy, cb1[3].xy\nmov r4.x, l1.x\nwhileloop\nuav_raw_load_id(11)_addr64 r3.xy, r2.xy\n"
     "iadd r0.x, r0.x, r3.x\niadd r0.x, r0.x, r3.y\ni64add r2.xy, r2.xy, l2.x000\niadd r4.x, r4.x, l1.y\n"
     "ieq r3.x, r4.x, cb1[2].x\nbreak_logicalnz r3.x\nendloop\n",
     [](uint32_t) { return s_nCount * 2001 + 2 * SumBelow(s_nCount); }},
    {"loads at a base that moves and an index of each",
     "mov r2.xy, cb1[3].xy\nmov r4.x, l1.x\nwhileloop\nvmad_u64_u32 r3.xy, r1.y, l2.x, r2.xyxy\n"
     "uav_raw_load_id(11)_addr64 r3.x, r3.xy\niadd r0.x, r0.x, r3.x\ni64add r2.xy, r2.xy, l2.x000\n"
     "iadd r4.x, r4.x, l1.y\nieq r3.x, r4.x, cb1[2].x\nbreak_logicalnz r3.x\nendloop\n",
     [](uint32_t n) { return s_nCount * (1000 + n % 8) + SumBelow(s_nCount); }},
    {"loads at one index and at another",
     "vmad_u64_u32 r2.xy, r1.y, l2.x, cb1[3].xyxy\nuav_raw_load_id(11)_addr64 r3.x, r2.xy\n"
     "vmad_u64_u32 r2.zw, r1.y, l1.y, cb1[3].xyxy\nuav_ubyte_load_id(11)_addr64 r3.y, r2.zw\n"
     "vmad_u64_u32 r2.xy, r1.y, l2.x, cb1[3].xyxy\nuav_raw_load_id(11)_addr64 r3.z, r2.xy\n"
     "iadd r1.y, r1.y, l1.y\nvmad_u64_u32 r2.xy, r1.y, l2.x, cb1[3].xyxy\nuav_raw_load_id(11)_addr64 r3.w, r2.xy\n"
     "iadd r3.xy, r3.xy, r3.zw\niadd r0.x, r3.x, r3.y\n",
     [](uint32_t n)
     {
         const uint8_t bytes[] = {0xE8, 3, 0, 0, 0xE9, 3, 0, 0};
         return 3 * (1000 + n % 8) + 1 + bytes[n % 8];
     }},
    {"a load of some into what others keep",
     "mov r0.x, l1.w\nwhileloop\nif_logicalnz r1.y\nuav_raw_load_id(11) r0.x, cb1[1].x\nendif\nbreak\nendloop\n",
     [](uint32_t n) { return n % 8 ? 1000u : 3u; }},
    {"a byte for all",
     "whileloop\niadd r2.x, cb1[1].x, l1.y\nuav_ubyte_load_id(11) r2.x, r2.x\niadd r0.x, r1.x, r2.x\nbreak\nendloop\n",
     [](uint32_t n) { return n + 3; }},
    {"a loop that none enters",
     "mov r2.x, l1.z\nmov r2.y, l2.x\nif_logicalnz cb1[2].z\nwhileloop\nmov r2.y, l1.x\niadd r2.x, r2.x, l1.y\nieq "
     "r3.x, r2.x, l2.w\n"
     "break_logicalnz r3.x\nendloop\nelse\niadd r2.y, r2.y, r2.x\nendif\niadd r0.x, r2.x, r2.y\n",
     [](uint32_t) { return 8u; }},
    {"functions of the libraries in one granule",
     "mov r2.x, l1.x\nwhileloop\nexp_vec r2.y, r2.x\nitof r2.z, r2.x\nround_nearest r2.y, r2.y\nftoi r2.y, r2.y\n"
     "iadd r0.x, r0.x, r2.y\niadd r2.x, r2.x, l1.y\nieq r3.x, r2.x, l1.z\nbreak_logicalnz r3.x\nendloop\n",
     [](uint32_t) { return 2u; }},
};

struct SSizes
{
    size_t nItems;
    size_t nLocal;
};

class CCounter : public KestrelPlatform::ITraceSink
{
public:
    void OnRecord(const SPlatformTraceRecord& record) override { nSum = nSum * 31 + record.nInstruction; }
    uint64_t nSum = 0;
};

CKernelRun MakeRun(const std::string& strLines)
{
    const size_t nCut = strLines.find("---\n");
    const std::string strEnd = "uav_raw_store_id(11) mem0.x, r100.y, r0.x\n";
    CKernelRun run(
        std::string(IndexLines()) + "mov r1.x, r100.x\nand r1.y, r1.x, l2.y\nmov r0, l1.x\n" +
            (nCut == std::string::npos ? strLines + strEnd : strLines.substr(0, nCut) + strEnd + strLines.substr(nCut)),
        std::string(IndexLiterals()) + "dcl_literal l1, 0, 1, 2, 3\ndcl_literal l2, 4, 7, 16, 100\n");
    run.vOutput.assign(s_nUniformItems * 4, 0);
    for (uint32_t n = 0; n < 32; ++n)
    {
        run.vInput.push_back(1000 + n);
    }
    run.launch.vConstantBuffer1.assign(32, 0);
    run.launch.vConstantBuffer1[8] = s_nCount;
    run.launch.vConstantBuffer1[9] = 32;
    run.launch.vConstantBuffer1[12] = CKernelRun::s_nInput;
    return run;
}

TEST(UniformSteps, GiveEachWorkItemItsOwn)
{
    for (const SKernel& kernel : s_Kernels)
    {
        for (const SSizes& sizes : {SSizes{5, 5}, SSizes{1200, 8}, SSizes{1200, 100}, SSizes{1200, 600}})
        {
            for (const bool bTrace : {false, true})
            {
                CKernelRun run = MakeRun(kernel.pszLines);
                CCounter counter;
                run.launch.pTrace = bTrace ? &counter : nullptr;
                run.SetSize(sizes.nItems, sizes.nLocal);
                EXPECT_EQ(run.Run().nBadAccesses, 0u) << kernel.pszName;
                for (uint32_t n = 0; n < sizes.nItems; ++n)
                {
                    ASSERT_EQ(run.vOutput[n * 4], kernel.pfResult(n))
                        << kernel.pszName << ", work-item " << n << ", groups of " << sizes.nLocal
                        << (bTrace ? ", traced" : "");
                }
            }
        }
    }
}

/// With so many branches and registers no analysis is made, but the kernel runs.
TEST(UniformSteps, LongKernelsStayAsTheyAre)
{
    const uint32_t nBranches = 1000;
    std::string strBranches, strSums;
    for (uint32_t n = 0; n < nBranches; ++n)
    {
        const std::string strRegister = "r" + std::to_string(200 + n) + ".x";
        strBranches.append("if_logicalnz r1.y\niadd ").append(strRegister).append(", ");
        strBranches.append(strRegister).append(", l1.y\nendif\n");
        strSums += "iadd r0.x, r0.x, " + strRegister + "\n";
    }
    CKernelRun run =
        MakeRun("mov r2.x, l1.x\nwhileloop\n" + strBranches + "iadd r2.x, r2.x, l1.y\nieq r3.x, r2.x, l1.z\n" +
                "break_logicalnz r3.x\nendloop\n" + strSums);
    run.SetSize(16, 16);
    EXPECT_EQ(run.Run().nBadAccesses, 0u);
    for (uint32_t n = 0; n < 16; ++n)
    {
        EXPECT_EQ(run.vOutput[n * 4], n % 8 ? 2 * nBranches : 0);
    }
}

/// Each work-item that loads from the same invalid place has its own fault, and continues with 0.
TEST(UniformSteps, FaultsAreThoseOfTheActive)
{
    CKernelRun run =
        MakeRun("whileloop\nmov r0.x, l1.w\nif_logicalnz r1.y\niadd r2.x, cb1[1].x, l2.w\niadd r2.x, r2.x, l2.z\n"
                "iadd r2.x, r2.x, l2.y\niadd r2.x, r2.x, l1.y\nuav_raw_load_id(11) r0.xy, r2.x\n"
                "iadd r0.x, r0.x, r0.y\nendif\nbreak\nendloop\n");
    run.SetSize(20, 20);
    const KestrelPlatform::SLaunchResult result = run.Run();
    ASSERT_EQ(result.vFaults.size(), 17u);
    ASSERT_EQ(result.nBadAccesses, 17u);
    for (uint32_t n = 0, nFault = 0; n < 20; ++n)
    {
        EXPECT_EQ(run.vOutput[n * 4], n % 8 ? 1031u : 3u);
        if (n % 8 == 0)
        {
            continue;
        }
        EXPECT_EQ(result.vFaults[nFault].access.nWorkItem, n);
        EXPECT_EQ(result.vFaults[nFault].access.nInstruction, 13u);
        EXPECT_EQ(result.vFaults[nFault++].access.nAddress, CKernelRun::s_nInput + 128u);
    }
}

} // namespace
} // namespace KestrelPlatformTest
