#include "core/ShaderDebuggerResult.h"

#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerVariables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace OVK_ShaderDebugger;
using namespace ShaderUtils;

namespace
{

CShaderDebuggerBuffer* MakeBuffer(BufferFormat format, const std::vector<unsigned int>& vWords)
{
    BufferDesc desc;
    desc.m_Type = BT_Buffer;
    desc.m_Format = format;
    desc.m_nWidth = static_cast<unsigned int>(vWords.size() * 4 / GetPointSize(format));
    desc.m_nHeight = desc.m_nDepth = desc.m_nArraySize = 1;
    CShaderDebuggerBuffer* pBuffer = new CShaderDebuggerBuffer(nullptr);
    EXPECT_TRUE(pBuffer->Create(desc, const_cast<unsigned int*>(vWords.data())));
    return pBuffer;
}

std::vector<unsigned int> Words(const CShaderDebuggerResult& result)
{
    const unsigned int* pWords = reinterpret_cast<const unsigned int*>(result.GetResult()->GetData());
    return std::vector<unsigned int>(pWords, pWords + result.GetResult()->GetSize() / 4);
}

const std::vector<unsigned int> s_vOnes(8, 1);
const std::vector<unsigned int> s_vTwos(8, 2);

} // namespace

TEST(Result, StepsAreStackedOnce)
{
    CShaderDebuggerResult result(nullptr, "r0");
    EXPECT_EQ(result.GetLastStep(), g_PC_NULL);
    EXPECT_EQ(result.GetChangedMask(), 0);

    ProgramCounter pass0(4);
    pass0.AddLoop(1, 9);
    ProgramCounter pass1 = pass0;
    pass1.m_LoopStack[0].nLoopIteration = 1;
    result.SetProgramCounter(pass0, COMP_x);
    result.SetProgramCounter(pass0, COMP_y);
    EXPECT_EQ(result.GetChangedMask(), COMP_x) << "the first mask stays";
    result.SetProgramCounter(pass1, COMP_y);
    EXPECT_EQ(result.PopLastStep(), pass0);
    EXPECT_EQ(result.PopLastStep(), g_PC_NULL);
}

TEST(Result, PartialMasksKeepInactiveValues)
{
    CShaderDebuggerBuffer* pPartial = MakeBuffer(BF_R_32, {0, 1});
    CShaderDebuggerBuffer* pFull = MakeBuffer(BF_R_32, {1, 1});
    CShaderDebuggerResult result(nullptr, "r0");

    result.UpdateResult(MakeBuffer(BF_RGBA_32F, s_vOnes), pPartial, 0, 0, 0);
    EXPECT_EQ(Words(result), s_vOnes) << "a first write stands as it is";

    CShaderDebuggerBuffer* pSecond = MakeBuffer(BF_RGBA_32F, s_vTwos);
    result.UpdateResult(pSecond, pPartial, 0, 0, 0);
    EXPECT_EQ(result.GetResult(), pSecond);
    EXPECT_EQ(Words(result), (std::vector<unsigned int>{1, 1, 1, 1, 2, 2, 2, 2}));

    result.UpdateResult(MakeBuffer(BF_RGBA_32F, s_vTwos), pFull, 0, 0, 0);
    EXPECT_EQ(Words(result), s_vTwos);
    delete pPartial;
    delete pFull;
}

TEST(Result, SingleComponentsGoIntoAZeroedBuffer)
{
    CShaderDebuggerBuffer* pMask = MakeBuffer(BF_R_32, {1, 0});
    CShaderDebuggerResult result(nullptr, "PrivateUAVAccess8[0]");
    result.UpdateResult(MakeBuffer(BF_RGBA_32F, s_vTwos), pMask, 2, 0, 1);
    EXPECT_EQ(Words(result), (std::vector<unsigned int>{0, 0, 2, 0, 0, 0, 0, 0}));
    result.UpdateExecMask(pMask);
    result.UpdateExecMask(pMask);
    EXPECT_EQ(result.GetExecMask(), pMask);
}

TEST(Result, TheMoreSpecificIntegerTypeWins)
{
    CShaderDebuggerResult result(nullptr, "r0");
    result.UpdateDataType(DT_UInt32, COMP_xy);
    result.UpdateDataType(DT_Int32, COMP_All);
    const DataType afterInt[] = {DT_UInt32, DT_UInt32, DT_Int32, DT_Int32};
    EXPECT_TRUE(std::equal(afterInt, afterInt + 4, result.GetDataType()));

    CShaderDebuggerResult copy(nullptr, "r1");
    copy.UpdateDataType(DT_SInt32, COMP_w);
    copy.UpdateDataType(&result, COMP_All);
    const DataType afterCopy[] = {DT_UInt32, DT_UInt32, DT_Int32, DT_SInt32};
    EXPECT_TRUE(std::equal(afterCopy, afterCopy + 4, copy.GetDataType()));
    copy.UpdateDataType(DT_Float32, COMP_All);
    EXPECT_EQ(copy.GetDataType()[3], DT_Float32);
}

TEST(Variables, SortWithoutRegardToCaseOrNumbers)
{
    CShaderDebuggerVariables variables;
    float fValues[] = {1.5f, 2.5f};
    for (const char* pszName : {"R2", "r10", "a1"})
    {
        variables.AddVariable(pszName, COMP_x, 2, fValues, DT_Float32);
    }
    variables.Sort();
    ASSERT_EQ(variables.GetVariables().size(), 3u);
    EXPECT_EQ(variables.GetVariables()[0].m_strName, "a1");
    EXPECT_EQ(variables.GetVariables()[1].m_strName, "r10");
    EXPECT_EQ(variables.GetVariables()[2].m_strName, "R2");
    EXPECT_EQ(variables.GetVariables()[0].m_data[1].fValue, 2.5f);
    EXPECT_EQ(variables.GetVariables()[0].m_nDataType[2], DT_Unknown);
}
