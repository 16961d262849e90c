#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

std::vector<uint32_t> ActiveCounts(const std::vector<SRecord>& vRecords)
{
    std::vector<uint32_t> vCounts;
    for (const SRecord& record : vRecords)
    {
        uint32_t nCount = 0;
        for (uint32_t nActive : record.vActive)
        {
            nCount += nActive;
        }
        vCounts.push_back(nCount);
    }
    return vCounts;
}

/// Each record as "instruction(passes)=active".
std::vector<std::string> Stops(const std::vector<SRecord>& vRecords)
{
    const std::vector<uint32_t> vCounts = ActiveCounts(vRecords);
    std::vector<std::string> vStops;
    for (size_t n = 0; n < vRecords.size(); ++n)
    {
        std::string str = std::to_string(vRecords[n].nInstruction);
        for (const SPlatformLoopPass& pass : vRecords[n].vLoops)
        {
            str += "(" + std::to_string(pass.nIteration) + ")";
        }
        for (uint32_t nCall : vRecords[n].vCalls)
        {
            str += "@" + std::to_string(nCall);
        }
        vStops.push_back(str + "=" + std::to_string(vCounts[n]));
    }
    return vStops;
}

typedef std::vector<std::string> Strings;

std::vector<SRecord> Trace(const std::string& strBody, size_t nItems, size_t nLocal)
{
    CKernelRun run(strBody, "dcl_literal l0, 0, 1, 2, 3\ndcl_indexed_temp_array x1[8]\n"
                            "dcl_typeless_uav_id(8)_stride(4)_length(64)_access(private)\ndcl_lds_id(1) 64\n");
    run.SetSize(nItems, nLocal);
    run.vOutput.assign(64, 0);
    CRecords records;
    run.launch.pTrace = &records;
    run.Run();
    return records.vRecords;
}

TEST(Trace, LoopWithDivergentBreaks)
{
    // One work-item leaves in pass 0, one in pass 1, two in pass 2.
    const std::vector<SRecord> vRecords = Trace("mov r0.x, l0.x\n"
                                                "whileloop\n"
                                                "ige r1.x, r0.x, vTidInGrp.x\n"
                                                "if_logicalnz r1.x\n"
                                                "break\n"
                                                "endif\n"
                                                "iadd r0.x, r0.x, l0.y\n"
                                                "endloop\n"
                                                "mov r2.x, l0.x\n",
                                                3, 3);
    EXPECT_EQ(Stops(vRecords), (Strings{"0=3",    "1(0)=3", "2(0)=3", "3(0)=1", "4(0)=0", "5(0)=2", "6(0)=2", //
                                        "1(1)=2", "2(1)=2", "3(1)=1", "4(1)=0", "5(1)=1", "6(1)=1",           //
                                        "1(2)=1", "2(2)=1", "3(2)=1", "4(2)=0", "7=3",    "8=3",    "9=3"}));
    ASSERT_EQ(vRecords[2].vLoops.size(), 1u);
    EXPECT_EQ(vRecords[2].vLoops[0].nStart, 1u);
    EXPECT_EQ(vRecords[2].vLoops[0].nEnd, 7u);
    EXPECT_EQ(vRecords[2].vLoops[0].nCallDepth, 0u);
}

TEST(Trace, IfElseSwitchAndContinue)
{
    EXPECT_EQ(
        Stops(Trace("ilt r0.x, vTidInGrp.x, l0.y\nif_logicalnz r0.x\nmov r1.x, l0.x\nelse\nmov r1.x, l0.y\nendif\n"
                    "if_logicalnz l0.y\nmov r1.y, l0.y\nelse\nmov r1.y, l0.x\nendif\n",
                    4, 4)),
        (Strings{"0=4", "1=1", "2=1", "3=3", "4=3", "5=4", "6=4", "7=4", "8=0", "10=4", "11=4"}));
    EXPECT_EQ(Stops(Trace(
                  "switch vTidInGrp.x\ncase 0\ncase 1\nmov r0.x, l0.x\nbreak\ncase 9\nmov r0.x, l0.z\nbreak\ndefault\n"
                  "mov r0.x, l0.y\nbreak\nendswitch\n",
                  4, 4)),
              (Strings{"0=4", "1=1", "2=2", "3=2", "4=0", "5=0", "8=2", "9=2", "10=0", "11=4", "12=4"}));
    EXPECT_EQ(Stops(Trace("whileloop\nige r1.x, r0.x, l0.z\nbreak_logicalnz r1.x\niadd r0.x, r0.x, l0.y\n"
                          "continue_logicalnz vTidInGrp.x\nmov r2.x, l0.y\nendloop\n",
                          2, 2)),
              (Strings{"0(0)=2", "1(0)=2", "2(0)=2", "3(0)=2", "4(0)=1", "5(0)=1", //
                       "0(1)=2", "1(1)=2", "2(1)=2", "3(1)=2", "4(1)=1", "5(1)=1", //
                       "0(2)=2", "1(2)=2", "2(2)=0", "6=2", "7=2"}));
}

TEST(Trace, CallsKeepTheirSitesAndLoops)
{
    const std::vector<SRecord> vRecords =
        Trace("whileloop\nbreak_logicalnz r0.x\ncall 7\nendloop\n---\n"
              "func 7\nmov r0.x, l0.y\ncall 8\nret\nendfunc\nfunc 8\nwhileloop\nbreak\nendloop\nret\nendfunc\n",
              2, 2);
    EXPECT_EQ(Stops(vRecords), (Strings{"0(0)=2", "1(0)=2",     //
                                        "5(0)@2=2", "6(0)@2=2", //
                                        "10(0)@2@7=2", "11(0)(0)@2@7=2", "12(0)(0)@2@7=0", "13(0)@2@7=2", "14(0)@2@7=2",
                                        "7(0)@2=2", "8(0)@2=2", "2(0)=2", //
                                        "0(1)=2", "1(1)=0", "3=2", "4=2"}));
    EXPECT_EQ(vRecords[5].vLoops[0].nCallDepth, 0u);
    EXPECT_EQ(vRecords[5].vLoops[1].nCallDepth, 2u);
}

TEST(Trace, DivergentReturnRecordsThoseWhoReturn)
{
    EXPECT_EQ(Stops(Trace("call 7\n---\nfunc 7\nif_logicalz vTidInGrp.x\nret_dyn\nendif\nret_logicalnz "
                          "vTidInGrp.y\nmov r0.x, l0.y\nendfunc\n",
                          4, 4)),
              (Strings{"2@0=4", "3@0=1", "4@0=1", "5@0=3", "6@0=3", "7@0=3", "8@0=3", "0=4", "1=4"}));
}

TEST(Trace, WholeRegisterAfterTheWrite)
{
    const std::vector<SRecord> vRecords = Trace("mov r5.yw, vTidInGrp.x\n"
                                                "if_logicalnz vTidInGrp.x\n"
                                                "mov r5.x_1_, l0.w\n"
                                                "endif\n"
                                                "mov x1[vTidInGrp.x+2].y, l0.w\n"
                                                "mov x1[3].z, l0.z\n"
                                                "ishl r6.x, vTidInGrp.x, l0.z\n"
                                                "uav_raw_store_id(8) mem0.xy, r6.x, l0.y\n"
                                                "uav_raw_store_id(11) mem0.x, cb1[0].x, l0.y\n",
                                                3, 3);
    ASSERT_EQ(vRecords.size(), 10u);
    const SRecord& first = vRecords[0];
    EXPECT_EQ(first.nRegisterType, 4u);
    EXPECT_EQ(first.nRegisterNumber, 5u);
    EXPECT_EQ(first.nComponents, 10u);
    EXPECT_TRUE(first.vIndices.empty());
    EXPECT_EQ(first.vValues, (std::vector<uint32_t>{0, 0, 0, 0, 0, 1, 0, 1, 0, 2, 0, 2}));
    EXPECT_EQ(vRecords[1].nRegisterType, 0xFFFFFFFFu);
    EXPECT_TRUE(vRecords[1].vValues.empty());
    const uint32_t nOne = Bits(1.0f);
    EXPECT_EQ(vRecords[2].vValues, (std::vector<uint32_t>{0, 0, 0, 0, 3, 1, nOne, 1, 3, 2, nOne, 2}));
    EXPECT_EQ(vRecords[2].vActive, (std::vector<uint32_t>{0, 1, 1}));
    EXPECT_EQ(vRecords[4].nRegisterType, 30u);
    EXPECT_EQ(vRecords[4].nRegisterNumber, 1u);
    EXPECT_EQ(vRecords[4].vIndices, (std::vector<uint32_t>{2, 3, 4}));
    EXPECT_EQ(vRecords[4].vValues, (std::vector<uint32_t>{0, 3, 0, 0, 0, 3, 0, 0, 0, 3, 0, 0}));
    EXPECT_EQ(vRecords[5].vIndices, (std::vector<uint32_t>{3, 3, 3}));
    EXPECT_EQ(vRecords[5].vValues, (std::vector<uint32_t>{0, 0, 2, 0, 0, 3, 2, 0, 0, 0, 2, 0}));
    EXPECT_EQ(vRecords[7].nRegisterType, 47u);
    EXPECT_EQ(vRecords[7].nRegisterNumber, 8u);
    EXPECT_EQ(vRecords[7].vIndices, (std::vector<uint32_t>{0, 4, 8}));
    EXPECT_EQ(vRecords[7].vValues, (std::vector<uint32_t>{1, 1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0}));
    EXPECT_EQ(vRecords[8].nRegisterType, 47u);
    EXPECT_TRUE(vRecords[8].vValues.empty());
}

TEST(Trace, ItemsOfAllDimensions)
{
    CKernelRun run("mov r0, vTidInGrp\n");
    run.launch.nDimensions = 2;
    run.launch.nGlobalSize[0] = 4;
    run.launch.nGlobalSize[1] = 4;
    run.launch.nLocalSize[0] = 2;
    run.launch.nLocalSize[1] = 2;
    CRecords records;
    run.launch.pTrace = &records;
    run.Run();
    ASSERT_EQ(records.vRecords.size(), 2u);
    EXPECT_EQ(records.vRecords[0].vItems,
              (std::vector<uint32_t>{0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15}));
}

} // namespace
} // namespace KestrelPlatformTest
