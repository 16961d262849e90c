#include <thread>

#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

/// A kernel that leaves its result in r0.x, which work-item n writes, and the expected value.
struct SFlowCase
{
    const char* pszName;
    const char* pszBody;
    uint32_t (*pfExpected)(uint32_t nItem);
};

const char* const s_pszLiterals = "dcl_literal l0, 0, 1, 2, 3\n"
                                  "dcl_literal l1, 4, 5, 6, 7\n"
                                  "dcl_literal l2, 10, 100, 1000, -1\n";

const SFlowCase s_Cases[] = {
    {"Ids", "mov r0.x, r100.x\n", [](uint32_t n) { return n; }},
    {"IfElse", "and r1.x, r100.x, l0.y\nif_logicalnz r1.x\nmov r0.x, l2.x\nelse\nmov r0.x, l2.y\nendif\n",
     [](uint32_t n) { return n & 1 ? 10u : 100u; }},
    {"NestedIf",
     "and r1.x, r100.x, l0.y\nand r1.y, r100.x, l0.z\nif_logicalnz r1.x\nif_logicalz r1.y\niadd r0.x, r0.x, "
     "l0.y\nelse\n"
     "iadd r0.x, r0.x, l0.z\nendif\niadd r0.x, r0.x, l2.x\nendif\niadd r0.x, r0.x, l2.y\n",
     [](uint32_t n) { return (n & 1 ? ((n & 2) ? 2u : 1u) + 10u : 0u) + 100u; }},
    {"EmptyElse", "if_logicalz l0.x\nmov r0.x, l0.y\nelse\nmov r0.x, l0.z\nendif\n", [](uint32_t) { return 1u; }},
    {"LoopTripCount",
     "whileloop\nige r1.x, r2.x, r100.x\nbreak_logicalnz r1.x\niadd r0.x, r0.x, l0.w\niadd r2.x, r2.x, l0.y\nendloop\n",
     [](uint32_t n) { return 3 * n; }},
    {"BreakInIf",
     "whileloop\nige r1.x, r2.x, r100.x\nif_logicalnz r1.x\niadd r0.x, r0.x, l2.y\nbreak\nendif\niadd r2.x, r2.x, "
     "l0.y\n"
     "iadd r0.x, r0.x, l0.y\nendloop\n",
     [](uint32_t n) { return n + 100; }},
    {"Continue",
     "whileloop\nige r1.x, r2.x, l2.x\nbreak_logicalnz r1.x\niadd r2.x, r2.x, l0.y\niadd r1.y, r2.x, r100.x\nand r1.y, "
     "r1.y, l0.y\n"
     "continue_logicalnz r1.y\niadd r0.x, r0.x, r2.x\nendloop\n",
     [](uint32_t n)
     {
         uint32_t nSum = 0;
         for (uint32_t i = 1; i <= 10; ++i)
         {
             nSum += (i + n) & 1 ? 0 : i;
         }
         return nSum;
     }},
    {"NestedLoops",
     "whileloop\nige r1.x, r2.x, r100.x\nbreak_logicalnz r1.x\nmov r3.x, l0.x\nwhileloop\nige r1.x, r3.x, "
     "r2.x\nbreak_logicalnz r1.x\n"
     "iadd r0.x, r0.x, l0.y\niadd r3.x, r3.x, l0.y\nendloop\niadd r2.x, r2.x, l0.y\nendloop\n",
     [](uint32_t n) { return n < 2 ? 0 : n * (n - 1) / 2; }},
    {"SwitchFallThrough",
     "and r1.x, r100.x, l1.w\nswitch r1.x\ncase 1\ncase 2\nmov r0.x, l2.x\nbreak\ncase 3\nmov r0.x, "
     "l2.y\nbreak\ndefault\nmov r0.x, l2.z\nbreak\n"
     "endswitch\niadd r0.x, r0.x, l0.y\n",
     [](uint32_t n)
     {
         const uint32_t k = n & 7;
         return (k == 1 || k == 2 ? 10u : k == 3 ? 100u : 1000u) + 1;
     }},
    {"SwitchDefaultFirst",
     "and r1.x, r100.x, l0.w\nswitch r1.x\ndefault\niadd r0.x, r0.x, l0.y\ncase 1\niadd r0.x, r0.x, l2.x\nbreak\ncase "
     "2\niadd r0.x, r0.x, l2.y\n"
     "break\nendswitch\n",
     [](uint32_t n)
     {
         const uint32_t k = n & 3;
         return k == 1 ? 10u : k == 2 ? 100u : 11u;
     }},
    {"SwitchChangesSelector",
     "and r0.x, r100.x, l0.w\nswitch r0.x\ncase 0\nmov r0.x, l0.z\nbreak\ncase 2\nmov r0.x, l2.x\nbreak\nendswitch\n",
     [](uint32_t n)
     {
         const uint32_t k = n & 3;
         return k == 0 ? 2u : k == 2 ? 10u : k;
     }},
    {"SwitchInLoopContinue",
     "whileloop\nige r1.x, r2.x, l1.x\nbreak_logicalnz r1.x\niadd r2.x, r2.x, l0.y\nswitch r2.x\ncase "
     "2\ncontinue\ncase 3\nif_logicalnz r100.x\n"
     "break\nendif\niadd r0.x, r0.x, l2.x\nbreak\ndefault\niadd r0.x, r0.x, l0.y\nbreak\nendswitch\niadd r0.x, r0.x, "
     "l2.y\nendloop\n",
     [](uint32_t n) { return 101u + 100u + (n == 0 ? 10u : 0u) + 101u; }},
    {"ElementReadByIndexBeforeItIsOverwritten",
     "dcl_indexed_temp_array x1[4]\nmov r5.x, l0.y\nmov x1[1].x, r100.x\nmov r0.x, x1[r5.x].x\nmov x1[1].x, l2.x\n",
     [](uint32_t n) { return n; }},
    {"ElementCopiedBeforeAnIndexedStore",
     "dcl_indexed_temp_array x1[4]\nmov r5.x, l0.y\nmov x1[1].x, r100.x\nmov r2.x, x1[1].x\nmov x1[r5.x].x, l2.x\n"
     "iadd r0.x, r2.x, l0.x\n",
     [](uint32_t n) { return n; }},
    {"ElementThatIsACopyBeforeAnIndexedStore",
     "dcl_indexed_temp_array x1[4]\nmov r5.x, l0.y\nmov x1[1].x, r100.x\nmov x1[r5.x].x, l2.x\n"
     "iadd r0.x, x1[1].x, l0.x\n",
     [](uint32_t) { return 10u; }},
    {"OneWordOfAPairOverwritten",
     "mov r1.x, l0.w\nmov r1.y, r100.x\ni64add r2.xy, r1.xy, r1.xy\nmov r2.x, l0.y\niadd r0.x, r2.x, r2.y\n",
     [](uint32_t n) { return 1 + 2 * n; }},
    {"Call",
     "mov r1.x, r100.x\ncall 5\niadd r0.x, r0.x, l2.y\n---\nfunc 5\niadd r0.x, r1.x, l0.y\ncall 6\nret\nendfunc\nfunc "
     "6\niadd r0.x, r0.x, r0.x\nret\n"
     "endfunc\n",
     [](uint32_t n) { return 2 * (n + 1) + 100; }},
    {"DivergentReturn",
     "call 5\niadd r0.x, r0.x, l2.y\n---\nfunc 5\nand r1.x, r100.x, l0.y\nif_logicalnz r1.x\nmov r0.x, "
     "l0.y\nret_dyn\nelse\nmov r0.x, l0.z\nendif\n"
     "iadd r0.x, r0.x, l2.x\nret\nendfunc\n",
     [](uint32_t n) { return (n & 1 ? 1u : 12u) + 100u; }},
    {"ReturnInLoop",
     "call 5\niadd r0.x, r0.x, l2.y\n---\nfunc 5\nwhileloop\nieq r1.x, r2.x, r100.x\nret_logicalnz r1.x\nige r1.y, "
     "r2.x, l1.y\nbreak_logicalnz r1.y\n"
     "iadd r2.x, r2.x, l0.y\nendloop\nmov r0.x, l2.z\nret\nendfunc\n",
     [](uint32_t n) { return n <= 5 ? 100u : 1100u; }},
    {"ConditionalCall",
     "and r1.x, r100.x, l0.y\ncall_logicalz r1.x, 5\niadd r0.x, r0.x, l2.x\n---\nfunc 5\niadd r0.x, r0.x, "
     "l0.y\nret\nendfunc\n",
     [](uint32_t n) { return (n & 1 ? 0u : 1u) + 10u; }},
    {"MacroWithArguments",
     "mov r2, r100.x\nmcall(3)_out(1)_in(2) r0.x, r2.x, l2.x\nmcall(3)_out(1)_in(2) r0.x, r0.x, "
     "l0.w\n---\nmdef(3)_mod(0x10002)\nimul r9.x, in0.x, in1.x\n"
     "iadd out0, r9.x, l0.y\nmend\n",
     [](uint32_t n) { return (n * 10 + 1) * 3 + 1; }},
    {"MainReturn",
     "mov r0.x, l0.y\nand r1.x, r100.x, l0.y\nif_logicalnz r1.x\nmov r9.xy, r100.xy\nuav_raw_store_id(11) mem0.x, "
     "r100.y, l2.x\nret_dyn\nendif\n",
     [](uint32_t n) { return n & 1 ? 10u : 1u; }},
    {"IfcRelation", "utof r1.x, r100.x\nifc_relop(lt) r1.x, l50.x\nmov r0.x, l0.y\nendif\n",
     [](uint32_t n) { return n < 20 ? 1u : 0u; }},
    {"IfnzAndConditionalReturns",
     "and r1.x, r100.x, l0.w\ncall 5\niadd r0.x, r0.x, l2.y\n---\nfunc 5\nifnz r1.x\nmov r0.x, l0.y\nendif\n"
     "ret_logicalz r1.x\nieq r1.y, r1.x, l0.w\nret_logicalnz r1.y\niadd r0.x, r0.x, l2.x\nret\nendfunc\n",
     [](uint32_t n) { return 100u + (n % 4 == 0 ? 0u : (n % 4 == 3 ? 1u : 11u)); }},
    {"ConditionalCalls",
     "and r1.x, r100.x, l0.y\ncall_logicalnz r1.x, 5\ncallnz r100.x, 6\n---\nfunc 5\niadd r0.x, r0.x, l2.x\nret\n"
     "endfunc\nfunc 6\niadd r0.x, r0.x, l2.y\nret\nendfunc\n",
     [](uint32_t n) { return (n & 1 ? 10u : 0u) + (n ? 100u : 0u); }},
    {"ConditionalBreaksAndContinues",
     "utof r2.x, r100.x\nwhileloop\nadd r3.x, r3.x, l50.y\niadd r4.x, r4.x, l0.y\nbreakc_relop(gt) r3.x, r2.x\n"
     "continuec_relop(eq) r3.x, l50.z\nand r1.x, r4.x, l0.y\ncontinue_logicalz r1.x\niadd r0.x, r0.x, r4.x\n"
     "ilt r1.y, r4.x, l2.x\nbreak_logicalz r1.y\nendloop\n",
     [](uint32_t n)
     {
         uint32_t nSum = 0;
         for (uint32_t k = 1; k <= n; ++k)
         {
             nSum += k == 3 || k % 2 == 0 ? 0 : k;
             if (k != 3 && k % 2 == 1 && k >= 10)
             {
                 break;
             }
         }
         return nSum;
     }},
    {"Relations",
     "utof r1.x, r100.x\nifc_relop(eq) r1.x, l50.z\niadd r0.x, r0.x, l0.y\nendif\nifc_relop(ne) r1.x, l50.z\n"
     "iadd r0.x, r0.x, l0.z\nendif\nifc_relop(gt) r1.x, l50.z\niadd r0.x, r0.x, l1.x\nendif\nifc_relop(ge) r1.x, "
     "l50.z\n"
     "iadd r0.x, r0.x, l2.x\nendif\nifc_relop(le) r1.x, l50.z\niadd r0.x, r0.x, l2.y\nendif\n",
     [](uint32_t n) { return (n == 3 ? 1u : 2u) + (n > 3 ? 4u : 0u) + (n >= 3 ? 10u : 0u) + (n <= 3 ? 100u : 0u); }},
};

class FlowTest : public ::testing::TestWithParam<std::tuple<SFlowCase, size_t>>
{
};

TEST_P(FlowTest, EachWorkItemTakesItsPath)
{
    const SFlowCase& test = std::get<0>(GetParam());
    const size_t nLocal = std::get<1>(GetParam());
    const size_t nItems = nLocal * 3;
    std::string strBody = test.pszBody;
    const std::string strStore = "uav_raw_store_id(11) mem0.x, r100.y, r0.x\n";
    const size_t nCut = strBody.find("---\n");
    strBody.insert(nCut == std::string::npos ? strBody.size() : nCut, strStore);
    CKernelRun run(IndexLines() + strBody,
                   std::string(s_pszLiterals) + IndexLiterals() + "dcl_literal l50, 20.0, 1.0, 3.0, 0\n");
    run.SetSize(nItems, nLocal);
    run.vOutput.assign(nItems * 4, 0xDEAD);
    const KestrelPlatform::SLaunchResult result = run.Run();
    EXPECT_EQ(result.eStatus, KestrelPlatform::SLaunchResult::Complete);
    EXPECT_EQ(result.nBadAccesses, 0u);
    for (uint32_t n = 0; n < nItems; ++n)
    {
        ASSERT_EQ(run.vOutput[n * 4], test.pfExpected(n)) << "work-item " << n;
    }
}

std::string FlowName(const ::testing::TestParamInfo<FlowTest::ParamType>& info)
{
    return std::string(std::get<0>(info.param).pszName) + "_" + std::to_string(std::get<1>(info.param));
}

// Group sizes: several groups in a block, exactly one, with a rest, and several blocks in a group.
INSTANTIATE_TEST_SUITE_P(Simt, FlowTest,
                         ::testing::Combine(::testing::ValuesIn(s_Cases), ::testing::Values(1, 7, 64, 100, 256, 600)),
                         FlowName);

TEST(Flow, MacroBeforeTheHeaderAndMainClosedByEnd)
{
    // Code after a stop is removed, even the end of the main body; literals may be declared after their use.
    CKernelRun run(
        Assemble("mdef(3)_outline\nimul r0.x, vAbsTidFlat.x, l0.w\nmend\n"
                 "il_cs_2_0\ndcl_cb cb1[8]\ndcl_literal l0, 0, 1, 2, 3\nmcall(3)_in(0)\n"
                 "ishl r1.x, vAbsTidFlat.x, l0.z\niadd r1.x, r1.x, cb1[0].x\nuav_raw_store_id(11) mem0.x, r1.x, r0.x\n"
                 "ret_dyn\nend\n"));
    run.SetSize(9, 3);
    run.vOutput.assign(9, 77);
    run.Run();
    EXPECT_EQ(run.vOutput, (std::vector<uint32_t>{0, 3, 6, 9, 12, 15, 18, 21, 24}));
}

TEST(Flow, LiteralsBelongToTheTextAfterThem)
{
    CKernelRun run(
        Assemble("il_cs_2_0\ndcl_cb cb1[8]\ndcl_literal l0, 5, 0, 0, 0\nmov r0.x, l0.x\ndcl_literal l0, 6, 0, 0, 0\n"
                 "mov r0.y, l0.x\nmov r0.z, l1.x\ndcl_literal l1, 7, 0, 0, 0\nmov r0.w, l2.x\n"
                 "uav_raw_store_id(11) mem0, cb1[0].x, r0\nendmain\nend\n"));
    run.vOutput.assign(4, 77);
    run.Run();
    EXPECT_EQ(run.vOutput, (std::vector<uint32_t>{5, 6, 7, 0}));
}

TEST(Flow, OtherKernelsDeclarationsDontCount)
{
    CKernelRun run(
        Assemble("il_cs_2_0\ndcl_cb cb1[8]\ndcl_literal l0, 0, 1, 20, 3\ncall 1\nendmain\nfunc 1\ndcl_lds_id(1) 16\n"
                 "lds_store_id(1) l0.z, l0.w\nlds_load_id(1) r0.x, l0.z\nuav_raw_store_id(11) mem0.x, cb1[0].x, r0.x\n"
                 "ret\nendfunc\nfunc 2\ndcl_lds_id(1) 1024\nret\nendfunc\nend\n"));
    run.vOutput.assign(1, 77);
    EXPECT_EQ(run.Run().nBadAccesses, 2u);
    EXPECT_EQ(run.vOutput[0], 0u);
}

TEST(Flow, SeveralLaunchesAtOnce)
{
    const auto work = []
    {
        for (uint32_t n = 1; n <= 20; ++n)
        {
            CKernelRun run(std::string(IndexLines()) +
                               "uav_raw_store_id(11) mem0.x, r100.y, r100.x\nuav_add_id(11) l1.x, l1.y\n",
                           std::string(IndexLiterals()) + "dcl_literal l1, 4100, 1, 0, 0\n");
            const uint32_t nItems = n * 100;
            run.SetSize(nItems, 50);
            run.vOutput.assign(nItems * 4, 0);
            EXPECT_EQ(run.Run().eStatus, KestrelPlatform::SLaunchResult::Complete);
            EXPECT_EQ(run.vOutput[1], nItems);
            for (uint32_t i = 0; i < nItems; ++i)
            {
                ASSERT_EQ(run.vOutput[i * 4], i);
            }
        }
    };
    std::vector<std::thread> vThreads;
    for (int n = 0; n < 4; ++n)
    {
        vThreads.emplace_back(work);
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
}

} // namespace
} // namespace KestrelPlatformTest
