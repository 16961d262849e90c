#include "tests/platform/simt/RecordedLaunch.h"

/// How far findings say that a NaN was passed on.
namespace KestrelPlatformTest
{
namespace
{

struct SNumberCase
{
    const char* pszName;
    /// r1.x is the address of the work-item's word. The first work-item's r2.x is NaN, and all have stored it.
    const char* pszText;
    uint32_t nChain; ///< instructions that pass it on, the first of which is that store
};

const SNumberCase s_NumberCases[] = {
    {"it is stored", "", 1},
    {"it is added to", "add r3.x, r2.x, l3.y\nuav_raw_store_id(11) mem0.x, r1.x, r3.x\n", 3},
    {"its register holds another number next",
     "mov r2.x, l3.y\nadd r3.x, r2.x, l3.y\nuav_raw_store_id(11) mem0.x, r1.x, r3.x\n", 1},
    // As a float, -1 is NaN.
    {"its register holds an integer next",
     "iadd r2.x, r100.x, l3.x\nishr r2.x, r2.x, l3.w\nadd r3.x, r2.x, l3.y\nuav_raw_store_id(11) mem0.x, r1.x, r3.x\n",
     1},
    {"one of the work-items has it still",
     "if_logicalz r100.x\nelse\nmov r2.x, l3.y\nendif\nadd r3.x, r2.x, l3.y\nuav_raw_store_id(11) mem0.x, r1.x, r3.x\n",
     3},
};

TEST(NumberChecks, TellWhatPassesANumberOn)
{
    for (const SNumberCase& check : s_NumberCases)
    {
        SCOPED_TRACE(check.pszName);
        CKernelRun run(
            std::string(IndexLines()) +
                "ishl r1.x, r100.x, l1.x\niadd r1.x, r1.x, cb1[0].x\nadd r5.x, l3.z, l3.z\n"
                "if_logicalz r100.x\nmul r2.x, r5.x, l4.x\nendif\nuav_raw_store_id(11) mem0.x, r1.x, r2.x\n" +
                check.pszText,
            std::string(IndexLiterals()) + "dcl_literal l1, 2, 0, 0, 0\ndcl_literal l3, -1, 1.0, 0, 8\n"
                                           "dcl_literal l4, 0x7F800000, 0, 0, 0\ndcl_raw_uav_id(11)\n");
        run.SetSize(64, 64);
        run.vOutput.assign(64, 0);
        run.launch.nChecks = PLATFORM_CHECK_NAN;
        const KestrelPlatform::SLaunchResult result = run.Run();
        ASSERT_EQ(result.vFindings.size(), 1u);
        EXPECT_EQ(result.vFindings[0].nFault, uint32_t{PLATFORM_FAULT_NAN});
        EXPECT_EQ(result.vFindings[0].nChain, check.nChain);
    }
}

} // namespace
} // namespace KestrelPlatformTest
