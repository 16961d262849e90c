#include "TestKernel.h"

#include "binary/CLMetadata.h"

namespace OVK_ShaderDebugger
{

namespace
{

const std::string s_strTable = "il_cs_2_0\ndcl_cb cb0[10]\ndcl_max_thread_per_group 64\nend\n";

struct SMetadataPatch
{
    const char* pszName;
    SKernelSetup setup;
    std::string strAdded; ///< the lines after the kernel's own arguments
    unsigned int nUavId;
};

class MetadataPatch : public testing::TestWithParam<SMetadataPatch>
{
};

TEST_P(MetadataPatch, AppendsThreeArguments)
{
    CTestKernel kernel(s_strTable, GetParam().setup);
    ASSERT_TRUE(kernel.IsAnalyzed());
    CCLMetadata metadata;
    std::string strPatched;
    ASSERT_TRUE(metadata.FromString(MakeMetadata(GetParam().setup)));
    ASSERT_TRUE(kernel.Shader().PatchMetadata(metadata, &strPatched));

    std::string strExpected = MakeMetadata(GetParam().setup);
    strExpected.insert(strExpected.find(";function"), GetParam().strAdded);
    const size_t nUavId = strExpected.find(";uavid:11");
    strExpected.replace(nUavId, 9, ";uavid:" + std::to_string(GetParam().nUavId));
    EXPECT_EQ(strPatched, strExpected);

    CCLMetadata again;
    std::string strAgain;
    ASSERT_TRUE(again.FromString(MakeMetadata(GetParam().setup)));
    ASSERT_TRUE(kernel.Shader().PatchMetadata(again, &strAgain));
    EXPECT_EQ(strAgain, strPatched);

    CCLMetadata reread;
    EXPECT_TRUE(reread.FromString(strPatched));
}

const std::string s_strValue32 = ";value:n:i32:4:1:32\n"; // ends at 48

const SMetadataPatch s_Patches[] = {
    {"Revision86",
     {"quench", true, s_strValue32, 86},
     ";pointer:__ovk_debug_result:float:1:1:48:uav:12:16\n;pointer:__ovk_debug_execMask:i32:1:1:64:uav:13:4\n"
     ";value:__ovk_debug_outputSelector:i32:1:1:80\n",
     11},
    {"Revision87",
     {"quench", true, s_strValue32, 87},
     ";pointer:__ovk_debug_result:float:1:1:48:uav:12:16:RW\n;pointer:__ovk_debug_execMask:i32:1:1:64:uav:13:4:RW\n"
     ";value:__ovk_debug_outputSelector:i32:1:1:80\n",
     11},
    {"Revision99",
     {"quench", true, "", 99},
     ";pointer:__ovk_debug_result:float:1:1:0:uav:12:16:RW\n;pointer:__ovk_debug_execMask:i32:1:1:16:uav:13:4:RW\n"
     ";value:__ovk_debug_outputSelector:i32:1:1:32\n",
     11},
    {"Revision100",
     {"quench", true, s_strValue32, 100},
     ";pointer:__ovk_debug_result:float:1:1:48:uav:12:16:RW:0:0\n"
     ";pointer:__ovk_debug_execMask:i32:1:1:64:uav:13:4:RW:0:0\n;value:__ovk_debug_outputSelector:i32:1:1:80\n",
     11},
    {"OlderDevice",
     {"kiln", false, s_strValue32, 104},
     ";pointer:__ovk_debug_result:float:1:1:48:uav:11:16:RW:0:0\n"
     ";pointer:__ovk_debug_execMask:i32:1:1:64:uav:11:4:RW:0:0\n;value:__ovk_debug_outputSelector:i32:1:1:80\n",
     11},
};

INSTANTIATE_TEST_SUITE_P(Metadata, MetadataPatch, testing::ValuesIn(s_Patches),
                         [](const auto& test) { return std::string(test.param.pszName); });

TEST(MetadataPatcher, NamesTheRawUavThatTheKernelDeclares)
{
    CTestKernel kernel("il_cs_2_0\ndcl_cb cb0[10]\ndcl_raw_uav_id(9)\ndcl_max_thread_per_group 64\nend\n",
                       OlderDevice());
    CCLMetadata metadata;
    ASSERT_TRUE(metadata.FromString(MakeMetadata(OlderDevice())));
    ASSERT_TRUE(kernel.Shader().PatchMetadata(metadata, nullptr));
    EXPECT_EQ(metadata.GetUavNumber(), 9u);
}

TEST(MetadataPatcher, FailsOnABlockWithoutItsFrame)
{
    CTestKernel kernel(s_strTable);
    CCLMetadata metadata;
    std::string strPatched = "unchanged";
    EXPECT_FALSE(kernel.Shader().PatchMetadata(metadata, &strPatched));
    EXPECT_EQ(strPatched, "unchanged");
}

} // namespace

} // namespace OVK_ShaderDebugger
