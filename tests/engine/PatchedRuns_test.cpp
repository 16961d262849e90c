#include "engine/PatchedRuns.h"

#include "CourseKernel.h"
#include "TestSession.h"

#include "engine/ArgumentDump.h"
#include "engine/MemoryAtStop.h"
#include "engine/TargetBuffers.h"
#include "instrument/TargetScope.h"

namespace OVK_ShaderDebugger
{

namespace
{

// Stores the work-item's number to the first buffer; the lower four also store 100 more to the second.
const char s_szStores[] = "mov r0, vTidInGrp.xxxx\nishl r8.x, r0.x, l22.x\nmov r8.y, l20.x\n"
                          "i64add r7.xy, cb1[0].xy, r8.xy\nuav_raw_store_id(10)_addr64 mem0.x, r7.xy, r0.x\n"
                          "mov r9, r0\niadd r1, r0, l25\nult r2, r0, l24\nif_logicalnz r2.x\n"
                          "i64add r7.xy, cb1[1].xy, r8.xy\nuav_raw_store_id(10)_addr64 mem0.x, r7.xy, r1.x\nendif\n"
                          "mov r10, r1\n";

/// Everything needed for runs, without a session: an analysed kernel, the buffers, and a device that runs it.
class CRuns
{
public:
    static constexpr unsigned int s_nItems = 8;

    CRuns()
        : pFirst(std::make_shared<CSimtDevice::Bytes>(4 * s_nItems)),
          pSecond(std::make_shared<CSimtDevice::Bytes>(4 * s_nItems)),
          pDevice(new CSimtDevice(s_nItems, {pFirst, pSecond})), host(pDevice),
          vImage(CTestSession::MakeImage(
              Assemble("il_cs_2_0\ndcl_cb cb0[10]\ncall 1024\nendmain\nfunc 1024\n;__OpenCL_k_kernel\n"
                       "dcl_max_thread_per_group 64\ndcl_cb cb1[2]\ndcl_typeless_uav_id(10)_stride(4)_length(4)\n"
                       "dcl_literal l20, 0, 0, 0, 0\ndcl_literal l22, 2, 2, 2, 2\ndcl_literal l24, 4, 4, 4, 4\n"
                       "dcl_literal l25, 100, 100, 100, 100\n" +
                       std::string(s_szStores) + "ret\nendfunc\nend\n"))),
          kernel(&host, vImage.data(), vImage.size()), course(kernel), buffers(&host), runs(kernel, course, buffers),
          memory(kernel, course, runs, buffers)
    {
        CTestSession::OpenCompilerLibrary();
        host.strDeviceName = "Quench";
        host.onExecute = [this] { return pDevice->Launch(); };
        EXPECT_TRUE(kernel.AnalyzeShader());
        kernel.m_DeviceName = "Quench";
        BufferDesc dispatch;
        EXPECT_TRUE(pDevice->GetDeviceBufferDesc(ShaderUtils::ST_Compute, -1, dispatch));
        EXPECT_TRUE(buffers.Create(dispatch, false));
    }

    /// The n-th instruction of the function's body.
    static SPosition At(InstructionNumber n)
    {
        SPosition position = {ProgramCounter(CTestSession::s_nBody + n), {}};
        position.callStack.push_front(ProgramCounter(0));
        return position;
    }

    std::vector<uint32_t> WordsOfCopy(size_t nArgument)
    {
        const std::unique_ptr<CShaderDebuggerBuffer> pRead(buffers.GetWorkingCopy(nArgument)->GetDataBuffer(nullptr));
        return CTestSession::Words(pRead.get());
    }

    std::shared_ptr<CSimtDevice::Bytes> pFirst;
    std::shared_ptr<CSimtDevice::Bytes> pSecond;
    CSimtDevice* pDevice; ///< the host's
    CFakeHost host;
    std::vector<char> vImage;
    CTestShader kernel;
    CKernelCourse course;
    CTargetBuffers buffers;
    CPatchedRuns runs;
    CMemoryAtStop memory;
};

TEST(PatchedRuns, CaptureARegisterAndTheMaskWhereverTheyAreAskedFor)
{
    CRuns test;
    const struct
    {
        InstructionNumber nAt;
        unsigned int nRegister;
        uint32_t nOfLast; ///< of work-item 7
        uint32_t nOfSecond;
        size_t nActive;
    } cases[] = {{0, 0, 7, 1, 8}, {6, 1, 107, 101, 8}, {9, 7, 0, 0x2004, 4}, {12, 10, 107, 101, 8}};
    for (const auto& entry : cases)
    {
        const SPosition at = CRuns::At(entry.nAt);
        std::unique_ptr<CShaderDebuggerBuffer> pResult;
        std::unique_ptr<CShaderDebuggerBuffer> pMask;
        ASSERT_TRUE(test.runs.Capture({at.pc, at.callStack, Register(RT_Temp, entry.nRegister, COMP_All), {}}, false,
                                      pResult, pMask))
            << entry.nAt << test.pDevice->strShaderError;
        EXPECT_EQ(pMask->GetActiveItemCount(0), entry.nActive) << entry.nAt;
        const std::vector<uint32_t> vWords = CTestSession::Words(pResult.get());
        EXPECT_EQ(vWords[4], entry.nOfSecond) << entry.nAt;
        EXPECT_TRUE(entry.nActive < 8 || vWords[28] == entry.nOfLast) << entry.nAt;
    }
    EXPECT_FALSE(test.runs.HasPresentMask()) << "it is that of another place";
    EXPECT_EQ(*test.pFirst, CSimtDevice::Bytes(4 * CRuns::s_nItems)) << "the client's memory isn't touched";
    // The same list at the same place needs no new kernel; a failed run is reported.
    const IL* pKernel = test.kernel.GetPatchedShader();
    const SPosition last = CRuns::At(12);
    const CInstrumentedShaderIL::CTargetScope scope(test.kernel, last.callStack, {});
    EXPECT_TRUE(test.runs.Switch(last.pc, {Register(RT_Temp, 10, COMP_All)}, false) && test.runs.Run(0));
    EXPECT_EQ(test.kernel.GetPatchedShader(), pKernel);
    test.host.onExecute = [] { return false; };
    EXPECT_FALSE(test.runs.Run(0));
    EXPECT_EQ(test.host.CountLog(logERROR, "Failed to execute shader"), 1u);
    EXPECT_FALSE(test.runs.Switch(ProgramCounter(1), {}, false)) << "endmain isn't a stop";
}

TEST(PatchedRuns, LeaveMemoryAsItIsAtAStop)
{
    CRuns test;
    const std::vector<uint32_t> vNothing(8, 0);
    const std::vector<uint32_t> vNumbers = {0, 1, 2, 3, 4, 5, 6, 7};
    const std::vector<uint32_t> vLower = {100, 101, 102, 103, 0, 0, 0, 0};
    const struct
    {
        InstructionNumber nAt;
        const std::vector<uint32_t>& vFirst;
        const std::vector<uint32_t>& vSecond;
    } cases[] = {{3, vNothing, vNothing}, {4, vNumbers, vNothing}, {9, vNumbers, vNothing}, {11, vNumbers, vLower}};
    for (const auto& entry : cases)
    {
        ASSERT_TRUE(test.memory.BringGlobal(CRuns::At(entry.nAt))) << entry.nAt;
        EXPECT_EQ(test.WordsOfCopy(0), entry.vFirst) << entry.nAt;
        EXPECT_EQ(test.WordsOfCopy(1), entry.vSecond) << entry.nAt;
        const size_t nRuns = test.host.nRuns;
        EXPECT_TRUE(test.memory.BringGlobal(CRuns::At(entry.nAt)));
        EXPECT_EQ(test.host.nRuns, nRuns) << "it is there already";
    }
    EXPECT_TRUE(test.runs.HasCopiesOf(CRuns::At(11)));
    test.runs.Forget();
    EXPECT_FALSE(test.runs.HasCopiesOf(CRuns::At(11)));
    // Registers of all work-items, including those that aren't in the block.
    BufferDesc desc = test.buffers.GetValuesDesc();
    desc.m_nHeight = 2;
    const std::unique_ptr<CShaderDebuggerDeviceBuffer> pValues(test.host.CreateDeviceBuffer(desc));
    ASSERT_TRUE(test.memory.ReadValues(CRuns::At(9), {Register(RT_Temp, 9, COMP_All), Register(RT_Temp, 1, COMP_All)},
                                       8 * 16, *pValues));
    const std::unique_ptr<CShaderDebuggerBuffer> pRead(pValues->GetDataBuffer(nullptr));
    const std::vector<uint32_t> vWords = CTestSession::Words(pRead.get());
    EXPECT_EQ(vWords[4 * 7], 7u);
    EXPECT_EQ(vWords[4 * (8 + 7)], 107u);
}

TEST(PatchedRuns, CompleteTheKernelAndGiveItsOutputsToTheClientAtTheEndOnly)
{
    for (const bool bDiffers : {false, true})
    {
        CRuns test;
        ASSERT_TRUE(test.memory.BringGlobal(CRuns::At(11))) << "after the last store";
        if (bDiffers)
        {
            // Data as from a run with another order of groups.
            std::vector<uint32_t> vOther(8, 3);
            ASSERT_TRUE(test.buffers.GetWorkingCopy(1)->UpdateData(vOther.data(), 32));
        }
        const size_t nRuns = test.host.nRuns;
        EXPECT_TRUE(test.runs.Complete(false));
        EXPECT_TRUE(test.runs.Complete(false)) << "it is complete";
        EXPECT_EQ(test.host.nRuns, nRuns + 1);
        EXPECT_EQ(test.host.CountLog(logWARNING, "depend on the order"), bDiffers ? 1u : 0u);
        EXPECT_EQ(test.pSecond->at(0), 0);
        EXPECT_TRUE(test.buffers.WriteBack());
        EXPECT_EQ(test.pFirst->at(4 * 7), 7);
        EXPECT_EQ(test.pSecond->at(4 * 3), 103);
        EXPECT_TRUE(test.buffers.RestoreArguments());
        EXPECT_EQ(*test.pFirst, CSimtDevice::Bytes(32));
    }
}

TEST(ArgumentDump, TellsTheAddressesThatTheArgumentsGot)
{
    CRuns test;
    CArgumentDump dump;
    ASSERT_TRUE(dump.CreateBuffer(test.kernel));
    ASSERT_TRUE(dump.Run(test.kernel, test.buffers, true)) << test.pDevice->strShaderError;
    const std::unique_ptr<CShaderDebuggerBuffer> pRead = dump.Read();
    EXPECT_EQ(CTestSession::Words(pRead.get()), (std::vector<uint32_t>{0x1000, 0, 0, 0, 0x2000, 0, 0, 0}));
    test.host.onExecute = [] { return false; };
    EXPECT_FALSE(dump.Run(test.kernel, test.buffers, true));
    EXPECT_EQ(test.host.CountLog(logERROR, "Failed to execute cb1 dump kernel."), 1u);
}

} // namespace

} // namespace OVK_ShaderDebugger
