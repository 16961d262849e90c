#include "Kernels.h"
#include "TestSession.h"

#include "core/ShaderDebuggerVariables.h"

namespace OVK_ShaderDebugger
{

namespace
{

const std::string s_Plain = s_Id + "iadd r1, r0, l22\n" + s_Store;

TEST(Session, ASecondStartLeavesTheFirstAlone)
{
    CTestSession session(s_Plain);
    ASSERT_TRUE(session.Start());
    EXPECT_FALSE(session.Start());
    EXPECT_TRUE(session.Debugger().IsDebugging());
    EXPECT_TRUE(session.Debugger().Step());
}

TEST(Session, AStartThatFailsAtAnyRunLeavesNothingBehind)
{
    for (unsigned int nRun = 1; nRun <= 2; ++nRun)
    {
        CTestSession session(s_Plain);
        session.FailRun(nRun);
        EXPECT_FALSE(session.Start()) << nRun;
        EXPECT_FALSE(session.Debugger().IsDebugging());
        EXPECT_EQ(session.Debugger().GetCurrentShader(), nullptr);
        EXPECT_EQ(session.Device().nEntered, 0);
        session.FailRun(0);
        EXPECT_TRUE(session.Start());
        EXPECT_EQ(session.Host().CountLog(logASSERT, "empty()"), 0u) << "buffers of the failed start";
        session.Debugger().EndDebugging(false);
        session.FailRun(1);
        EXPECT_FALSE(session.Start());
        EXPECT_EQ(session.Device().nEntered, 0) << "left twice";
    }
}

TEST(Session, AFailedRunEndsTheSteppingWithTheOutputsInPlace)
{
    CTestSession session(s_Plain);
    session.Trace();
    ASSERT_TRUE(session.Start());
    session.FailRun(1);
    EXPECT_FALSE(session.Debugger().Step());
    session.Debugger().EndDebugging(true);
    EXPECT_EQ(session.Buffer(), session.Expected());
    session.Debugger().EndDebugging(true);
}

TEST(Session, EndingAfterTheStoreUpdatesTheBuffer)
{
    CTestSession session(s_Plain);
    session.Trace();
    EXPECT_TRUE(session.Debugger().HasDeliveredResults()) << "none are owed";
    ASSERT_TRUE(session.Start());
    while (session.Shader().OpCodeAt(session.Shader().GetNextInstruction().m_nPos) != IL_OP_RET)
    {
        ASSERT_TRUE(session.Debugger().Step());
    }
    session.Second()[0] = 99;
    session.Debugger().EndDebugging(true);
    EXPECT_TRUE(session.Debugger().HasDeliveredResults());
    EXPECT_EQ(session.Buffer(), session.Expected());
    EXPECT_EQ(session.Second()[0], 99) << "what the kernel leaves alone is the client's";
}

TEST(Session, EndingWithoutUpdateLeavesTheBufferAlone)
{
    CTestSession session(s_Plain);
    const CSimtDevice::Bytes before = session.Buffer();
    ASSERT_TRUE(session.Start());
    while (session.Debugger().Step())
    {
    }
    session.Debugger().EndDebugging(false);
    EXPECT_EQ(session.Buffer(), before);
}

/// Accepts every kernel, and runs none.
class CStubDevice : public CSimtDevice
{
public:
    CStubDevice() : CSimtDevice(8, {std::make_shared<Bytes>(64), std::make_shared<Bytes>(64)}) {}
    bool SetShader(ShaderType, const void*, size_t) override { return true; }
};

TEST(Session, EndsAtACallOfWhatIsNotThereWithAReason)
{
    CTestSession::OpenCompilerLibrary();
    const std::string strText =
        "il_cs_2_0\ndcl_cb cb0[10]\ndcl_cb cb1[2]\ncall_logicalnz r0.x, 1099\nendmain\nfunc 1024\n"
        ";__OpenCL_k_kernel\ndcl_max_thread_per_group 64\nret\nendfunc\nend\n";
    std::vector<uint32_t> vTokens;
    KestrelPlatform::SDiagnostic diagnostic;
    ASSERT_TRUE(KestrelPlatform::AssembleIL(strText.data(), strText.size(), vTokens, diagnostic));
    const std::vector<char> vImage = CTestSession::MakeImage(vTokens);
    CFakeHost host(new CStubDevice);
    host.strDeviceName = "Quench";
    IShaderDebugger::CreateShaderDebugger(PLT_OpenCL, &host);
    ThreadID dimensions(ShaderUtils::TID_1D, 8, 1, 1, 0);
    EXPECT_FALSE(host.GetDebugger()->StartDebugging(vImage.data(), vImage.size(), nullptr, &dimensions, DM_Unknown));
    std::string strError;
    EXPECT_TRUE(host.GetDebugger()->GetLastError(strError));
    EXPECT_NE(strError.find("The called function can't be entered: instruction call_logicalnz on line"),
              std::string::npos)
        << strError;
}

// A kernel of another kind, which no device here runs: only the order of the reads at its entry is visible.
TEST(Session, ReadsTheInputRegistersOfAKernelOfAnotherKindOnce)
{
    CTestSession::OpenCompilerLibrary();
    const std::string strText = "il_ps_2_0\ndcl_input v1.xy\ndcl_input v2.z\ndcl_output o0\nmov r1, v2\nmov r2, v1\n"
                                "mov o0, r1\nendmain\nend\n";
    std::vector<uint32_t> vTokens;
    KestrelPlatform::SDiagnostic diagnostic;
    ASSERT_TRUE(KestrelPlatform::AssembleIL(strText.data(), strText.size(), vTokens, diagnostic));
    const std::vector<char> vImage = CTestSession::MakeImage(vTokens);
    for (unsigned int nFail = 0; nFail <= 4; ++nFail)
    {
        CFakeHost host(new CStubDevice);
        host.strDeviceName = "Quench";
        host.onExecute = [&] { return host.nRuns != nFail; };
        IShaderDebugger::CreateShaderDebugger(PLT_OpenCL, &host);
        CShaderDebuggerIL& debugger = static_cast<CShaderDebuggerIL&>(*host.GetDebugger());
        ThreadID dimensions(ShaderUtils::TID_1D, 8, 1, 1, 0);
        const bool bStarted = debugger.StartDebugging(vImage.data(), vImage.size(), nullptr, &dimensions, DM_Unknown);
        EXPECT_EQ(bStarted, nFail == 0) << "run " << nFail;
        EXPECT_EQ(host.nRuns, nFail == 1 ? 1u : 4u) << "the arguments, both inputs and the first instruction";
        if (bStarted)
        {
            VariableID id;
            id.type = VID_ByName;
            id.strName = "v1";
            EXPECT_NE(debugger.GetRegisterResultsBuffer(id), nullptr);
            EXPECT_TRUE(debugger.Step());
            EXPECT_EQ(host.nRuns, 5u);
        }
        debugger.EndDebugging(false);
    }
}

/// The kernel runs of each step of the plain kernel.
TEST(Session, CostsOneRunForARegisterAndNoneForAnUntrackedOne)
{
    CTestSession session(s_Plain);
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(session.TakeRuns(), 2u) << "the argument dump and the first instruction";
    ASSERT_TRUE(session.Debugger().Step());
    EXPECT_EQ(session.TakeRuns(), 1u);
    session.Debugger().SetTrackingVariables({"r9"});
    session.Debugger().SetEnableTrackingVariables(true);
    ASSERT_TRUE(session.Debugger().Step());
    EXPECT_EQ(session.TakeRuns(), 1u) << "r9 is tracked";
    ASSERT_TRUE(session.Debugger().Step());
    EXPECT_EQ(session.TakeRuns(), 0u) << "r1 isn't";
    EXPECT_TRUE(session.Read("r1").empty());
}

/// Going back reads what was written since at the places of the previous writes, and makes the stop's own run.
TEST(Session, AStepBackCostsARunForEachStepThatItsValuesComeFrom)
{
    const struct
    {
        const char* pszBody;
        unsigned int nSteps; ///< to the stop that is gone back from
        unsigned int nRuns;
    } cases[] = {
        {"mov r1, l21\nmov r1, l22\nmov r1, l23\n", 3, 2},
        {"mov r1, l21\nmov r2, l22\n", 2, 1},
        {"mov r1, l21\nmov r1, l22\nult r2, vTidInGrp.xxxx, l23\nif_logicalnz r2.x\nmov r1, l23\nendif\n", 5, 2},
        {"ult r2, vTidInGrp.xxxx, l23\nmov r1, l21\nif_logicalnz r2.x\nmov r1, l22\nendif\nmov r1, l23\n", 6, 3},
    };
    for (const auto& entry : cases)
    {
        CTestSession session(entry.pszBody);
        ASSERT_TRUE(session.Start());
        for (unsigned int n = 0; n < entry.nSteps; ++n)
        {
            ASSERT_TRUE(session.Debugger().Step());
        }
        session.TakeRuns();
        ASSERT_TRUE(session.Debugger().Back());
        EXPECT_EQ(session.TakeRuns(), entry.nRuns) << entry.pszBody;
    }
}

/// The values of one work-item in all registers, for a front end's table.
TEST(Session, ListsTheRegistersOfAWorkItem)
{
    CTestSession session(s_Id + "dcl_indexed_temp_array x1[2]\nfence_memory\nmov x1[1].y, r9\n");
    const auto list = [&](ThreadID& threadID)
    {
        const std::unique_ptr<CShaderDebuggerVariables> pVariables(session.Debugger().GetVariables(threadID));
        std::string strList = std::to_string(pVariables->GetWidth()) + "x" + std::to_string(pVariables->GetHeight());
        for (const CShaderDebuggerVariable& variable : pVariables->GetVariables())
        {
            strList += " " + variable.m_strName + "=" + std::to_string(variable.m_data[0].uiValue) + "," +
                       std::to_string(variable.m_data[1].uiValue) + (variable.m_ChangedMask != 0 ? "*" : "");
        }
        return strList;
    };
    ThreadID third(ShaderUtils::TID_1D, 3, 0, 0, 0);
    EXPECT_EQ(list(third), "0x0") << "no session";
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(list(third), "8x1");
    ASSERT_TRUE(session.Debugger().Step() && session.Debugger().Step());
    EXPECT_EQ(list(third), "8x1 r0=3,3 r9=4,4*");
    ASSERT_TRUE(session.Debugger().Step());
    EXPECT_EQ(list(third), "8x1 r0=3,3 r9=4,4") << "after the fence nothing has changed";
    ASSERT_TRUE(session.Debugger().Step());
    EXPECT_EQ(list(third), "8x1 r0=3,3 r9=4,4 x1[1]=0,4*");
    // Without a choice, it is a work-item that the results contain, or the previously chosen one.
    ThreadID none(ShaderUtils::TID_Unknown, 0, 0, 0, 0);
    list(none);
    EXPECT_TRUE(ShaderUtils::IsValid(none));
    ThreadID fifth(ShaderUtils::TID_1D, 5, 0, 0, 0);
    session.Debugger().SetCurrentThread(fifth);
    none = ThreadID(ShaderUtils::TID_Unknown, 0, 0, 0, 0);
    EXPECT_EQ(list(none), "8x1 r0=5,5 r9=6,6 x1[1]=0,6*");
    EXPECT_EQ(none.x, 5);
}

const std::string s_Array = "dcl_indexed_temp_array x1[4]\nmov r0, vTidInGrp.xxxx\niand r1, r0, l23\nmov x1[r1.x], r0\n"
                            "mov x1[2], l24\nmov r3, x1[2]\n";

TEST(Session, ReadsTheElementsAfterOneThatCantBeRead)
{
    CTestSession session(s_Array);
    ASSERT_TRUE(session.Start() && session.Debugger().Step() && session.Debugger().Step());
    session.FailRun(2);
    EXPECT_FALSE(session.Debugger().Step());
    EXPECT_TRUE(session.Read("x1[1]").empty());
    ASSERT_FALSE(session.Read("x1[3]").empty());
    EXPECT_EQ(session.Read("x1[3]")[4 * 3], 3u);
}

TEST(Session, ReadsEveryElementOfADynamicallyIndexedArray)
{
    CTestSession session(s_Array);
    ASSERT_TRUE(session.Start());
    ASSERT_TRUE(session.Debugger().Step());
    ASSERT_TRUE(session.Debugger().Step());
    session.TakeRuns();
    ASSERT_TRUE(session.Debugger().Step());
    EXPECT_EQ(session.TakeRuns(), 4u);
    for (unsigned int nItem = 0; nItem < CTestSession::s_nItems; ++nItem)
    {
        for (unsigned int nElement = 0; nElement < 4; ++nElement)
        {
            EXPECT_EQ(session.Read("x1[" + std::to_string(nElement) + "]")[4 * nItem],
                      nElement == nItem % 4 ? nItem : 0u);
        }
    }
    const std::vector<uint32_t> vBefore = session.Read("x1[2]");
    ASSERT_TRUE(session.Debugger().Step());
    EXPECT_EQ(session.TakeRuns(), 1u) << "the index is a constant";
    EXPECT_EQ(session.Read("x1[2]"), std::vector<uint32_t>(4 * CTestSession::s_nItems, 4u));
    ASSERT_TRUE(session.Debugger().Back());
    EXPECT_EQ(session.Read("x1[2]"), vBefore);
}

// Stores to a whole slot, to one of its words, by two work-items to its last word and the next slot's first, and to the
// very last word.
TEST(Session, ShowsWhatStoresToPartsOfSlotsLeave)
{
    CTestSession session(
        "dcl_typeless_uav_id(8)_stride(4)_length(32)_access(private)\ndcl_literal l25, 4, 12, 28, 0\n" + s_Id +
        "uav_raw_store_id(8) mem0, l20.x, r9\nuav_raw_store_id(8) mem0.x, l25.x, r0\n"
        "ult r2, r0, l22\nif_logicalnz r2.x\nuav_raw_store_id(8) mem0.xy, l25.y, l24\nendif\nuav_raw_store_id(8) "
        "mem0.x, l25.z, r0\n");
    ASSERT_TRUE(session.Start());
    const auto expect = [&](unsigned int nStores)
    {
        for (uint32_t n = 0; n < CTestSession::s_nItems; ++n)
        {
            const bool bLast = nStores > 2 && n < 2;
            const std::vector<uint32_t> vWanted[] = {{n + 1, nStores > 1 ? n : n + 1, n + 1, bLast ? 4 : n + 1},
                                                     {bLast ? 4u : 0u, 0, 0, nStores == 4 ? n : 0}};
            for (unsigned int nSlot = 0; nSlot < (nStores > 2 ? 2u : 1u); ++nSlot)
            {
                const std::vector<uint32_t> vRead = session.Read(s_strPrivate + std::to_string(nSlot) + "]");
                ASSERT_EQ(vRead.size(), 4 * CTestSession::s_nItems);
                EXPECT_EQ(std::vector<uint32_t>(&vRead[4 * n], &vRead[4 * n] + 4), vWanted[nSlot]) << nStores;
            }
        }
    };
    const unsigned int stores[] = {0, 0, 0, 1, 2, 2, 2, 3, 3, 4}; // made at each stop
    for (size_t n = 1; n < std::size(stores); ++n)
    {
        ASSERT_TRUE(session.Debugger().Step());
        stores[n] != 0 ? expect(stores[n]) : void();
    }
    EXPECT_TRUE(session.Read(s_strPrivate + "2]").empty()) << "there is no third slot";
    for (size_t n = std::size(stores) - 1; stores[--n] != 0;)
    {
        ASSERT_TRUE(session.Debugger().Back());
        expect(stores[n]);
    }
}

TEST(Session, FilesAPartOfASlotOverTheRestOfIt)
{
    CTestSession session(s_Id + "iadd r1, r0, l22\n");
    ASSERT_TRUE(session.Start() && session.Debugger().Step());
    const auto file = [&](RegisterMask mask, unsigned int nAddress)
    {
        EXPECT_TRUE(session.Debugger().Step());
        session.Debugger().UpdateResults(session.Debugger().GetCurrentInstruction(),
                                         Register(RT_PrivateUAVAccess, 8, mask, nAddress));
        const std::vector<uint32_t> vRead = session.Read(s_strPrivate + "0]");
        return std::vector<uint32_t>(vRead.begin() + 4, vRead.begin() + 8);
    };
    EXPECT_EQ(file(COMP_All, 0), (std::vector<uint32_t>{2, 2, 2, 2})) << "r9 of the second work-item";
    EXPECT_EQ(file(COMP_xy, 8), (std::vector<uint32_t>{2, 2, 3, 3}));
    EXPECT_EQ(file(COMP_xy, 12), (std::vector<uint32_t>{2, 2, 3, 3})) << "reaches into another slot";
}

// Two arguments with the same memory: each shows what was stored through the other too.
TEST(Session, BringsTheStoresThroughBothNamesOfABufferTogether)
{
    CTestSession session(s_Id + "iadd r1, r0, l22\niand r2, r0, l21\nif_logicalz r2.x\n" + s_Store +
                             "else\nishl r8.x, r0.x, l22.x\nmov r8.y, l20.x\ni64add r8.xy, cb1[1].xy, r8.xy\n"
                             "uav_raw_store_id(10)_addr64 mem0.x, r8.xy, r9.x\nendif\n",
                         "", CTestSession::s_nItems, true);
    session.Trace();
    ASSERT_TRUE(session.Start());
    while (session.Debugger().Step())
    {
    }
    session.Debugger().EndDebugging(true);
    EXPECT_EQ(session.Buffer(), session.Expected());
}

TEST(Session, KeepsTheSavedArgumentsApartFromWhatAQueryReads)
{
    CTestSession session(s_Plain);
    session.Trace();
    ASSERT_TRUE(session.Start());
    VariableID id;
    id.type = VID_ByName;
    id.strName = "m0";
    const CSimtDevice::Bytes before = session.Buffer();
    const auto read = [&]
    {
        const CShaderDebuggerBuffer* pBuffer = session.Debugger().GetGlobalResultsBuffer(id);
        return CSimtDevice::Bytes(pBuffer->GetData(), pBuffer->GetData() + pBuffer->GetSize());
    };
    EXPECT_EQ(read(), before);
    CSimtDevice::Bytes last;
    while (session.Debugger().Step())
    {
        last = read();
    }
    EXPECT_EQ(last, session.Expected());
    EXPECT_EQ(session.Device().pCalls->nCleared, 0u) << "all come to the stores";
    // The last stop is the call at position 0, from which no run back starts.
    ASSERT_TRUE(session.Debugger().Back());
    ASSERT_TRUE(session.Debugger().RunBack());
    EXPECT_EQ(read(), before);
}

TEST(Session, ShowsWhatAPassedOverBlockHasStored)
{
    const std::pair<std::string, std::string> cases[] = {{s_Store, ""},
                                                         {"call 1025\n", "func 1025\n" + s_Store + "ret\nendfunc\n"}};
    for (const auto& [strBlock, strFunctions] : cases)
    {
        std::string strBody = s_Id;
        strBody.append("iadd r1, r0, l22\nuge r2, r0, l20\nif_logicalnz r2.x\n").append(strBlock);
        strBody.append("endif\nmov r3, l21\nmov r4, l21\n");
        CTestSession session(strBody, strFunctions);
        session.Trace();
        ASSERT_TRUE(session.Start());
        InstructionNumber nEnd = CTestSession::s_nBody;
        while (session.Shader().OpCodeAt(nEnd) != IL_OP_ENDIF)
        {
            ++nEnd;
        }
        ASSERT_TRUE(session.Debugger().AddBreakPointAtInstructionNumber(nEnd + 2));
        ASSERT_TRUE(session.Debugger().Run());
        VariableID id;
        id.type = VID_ByName;
        id.strName = "m0";
        const CShaderDebuggerBuffer* pShown = session.Debugger().GetGlobalResultsBuffer(id);
        EXPECT_EQ(CSimtDevice::Bytes(pShown->GetData(), pShown->GetData() + pShown->GetSize()), session.Expected());
    }
}

TEST(Session, IsMadeForBothPlatformsAndAHost)
{
    CFakeHost host;
    EXPECT_EQ(IShaderDebugger::CreateShaderDebugger(PLT_OpenCL, nullptr), nullptr);
    EXPECT_EQ(IShaderDebugger::CreateShaderDebugger(static_cast<Platform>(99), &host), nullptr);
    EXPECT_EQ(host.GetDebugger(), nullptr);
    for (const Platform ePlatform : {PLT_QRL, PLT_OpenCL})
    {
        CFakeHost good(new CStubDevice);
        EXPECT_NE(IShaderDebugger::CreateShaderDebugger(ePlatform, &good), nullptr);
        EXPECT_NE(good.GetDebugger(), nullptr);
    }
}

TEST(Session, DisassemblesWhatItReadsAndPatchesAtTheVerboseLevelOnly)
{
    for (const LogType level : {logTRACE, logVERBOSE})
    {
        CTestSession session(s_Plain);
        session.Host().level = level;
        session.Debugger().SetLoggingLevel(level);
        session.Host().onDisassemble = [](const void*, size_t, std::string& strText)
        {
            strText = "the tokens";
            return true;
        };
        ASSERT_TRUE(session.Start());
        EXPECT_EQ(session.Host().CountLog(logVERBOSE, "the tokens"), level == logVERBOSE ? 3u : 0u)
            << "the kernel, the dump of its arguments and the first instruction";
        std::string strText;
        EXPECT_TRUE(session.Debugger().GetShaderText(strText, DM_Asm));
        EXPECT_TRUE(session.Debugger().GetShaderText(strText, DM_Current));
        EXPECT_EQ(strText, "the tokens");
        EXPECT_FALSE(session.Debugger().GetShaderText(strText, DM_Source));
    }
}

TEST(Session, HasNothingToShowBeforeItBegins)
{
    CTestSession session(s_Plain);
    CShaderDebuggerIL& debugger = session.Debugger();
    EXPECT_FALSE(debugger.Step() || debugger.Back() || debugger.Run() || debugger.RunBack());
    EXPECT_FALSE(debugger.Execute() || debugger.Draw());
    EXPECT_EQ(debugger.GetCurrentLine() + debugger.GetNextLine() + debugger.GetPreviousLine(), 0u);
    EXPECT_EQ(debugger.GetCurrentInstruction(), ProgramCounter(0));
    EXPECT_EQ(debugger.GetExecutionMaskBuffer(), nullptr);
    size_t nActive = 0;
    EXPECT_FALSE(debugger.CountActive(nActive));
    VariableID id;
    id.type = VID_LastTouched;
    EXPECT_EQ(debugger.GetRegisterResultsBuffer(id), nullptr);
    EXPECT_EQ(debugger.GetGlobalResultsBuffer(id), nullptr);
    LineNumber nOut = 0;
    EXPECT_FALSE(debugger.AddBreakPointAtLineNumber(1, 0, &nOut) || debugger.AddBreakPointAtInstructionNumber(1));
    EXPECT_FALSE(debugger.RemoveBreakPointAtLineNumber(1) || debugger.RemoveBreakPointAtInstructionNumber(1));
    EXPECT_FALSE(debugger.ToggleBreakPointAtLineNumber(1, true) || debugger.ToggleBreakPointAtInstructionNumber(1));
    EXPECT_FALSE(debugger.HasBreakPointAtInstructionNumber(1) || debugger.HasBreakPointInInstructionRange(0, 9));
    std::set<unsigned int> breakpoints;
    EXPECT_EQ(debugger.GetBreakPointsAsInstructionNumbers(&breakpoints), 0u);
    std::string strText;
    KeyWordsList keyWords;
    EXPECT_FALSE(debugger.GetShaderText(strText, DM_Asm) || debugger.GetShaderKeyWords(keyWords, DM_Asm));

    ThreadID dimensions(ShaderUtils::TID_1D, CTestSession::s_nItems, 1, 1, 0);
    EXPECT_FALSE(debugger.StartDebugging("no kernel", 9, nullptr, &dimensions, DM_Unknown));
    ASSERT_TRUE(session.Start());
    EXPECT_FALSE(debugger.GetShaderKeyWords(keyWords, DM_Asm) || debugger.Draw());
    EXPECT_FALSE(debugger.Back() || debugger.RunBack()) << "this is the first stop";
    ASSERT_TRUE(debugger.Step());
    EXPECT_EQ(debugger.GetNextLine(), session.Shader().GetLine(CTestSession::s_nBody + 1));
    EXPECT_EQ(debugger.GetCurrentLine(), session.Shader().GetLine(CTestSession::s_nBody));
    EXPECT_EQ(debugger.GetPreviousLine(), session.Shader().GetLine(CTestSession::s_nBody - 1));
    CShaderDebuggerResult foreign(&session.Host(), "m0");
    EXPECT_FALSE(debugger.UpdateGlobalResult(&foreign));
    EXPECT_NE(debugger.GetRegisterResultsBuffer(id), nullptr);
    EXPECT_EQ(debugger.GetRegisterResultsBuffer(id)->GetSize(), 16u * CTestSession::s_nItems);
    EXPECT_TRUE(debugger.FindLastResult(debugger.GetCurrentInstruction()));
    EXPECT_FALSE(debugger.FindLastResult(ProgramCounter(CTestSession::s_nBody - 1)));
    EXPECT_TRUE(debugger.AddBreakPointAtInstructionNumber(5) && debugger.ToggleBreakPointAtInstructionNumber(6));
    EXPECT_EQ(debugger.GetBreakPointsAsInstructionNumbers(nullptr), 2u);
    EXPECT_EQ(debugger.GetBreakPointsAsInstructionNumbers(&breakpoints), 2u);
    EXPECT_EQ(breakpoints, (std::set<unsigned int>{5, 6}));
    EXPECT_TRUE(debugger.ToggleBreakPointAtInstructionNumber(6));
    EXPECT_FALSE(debugger.HasBreakPointAtInstructionNumber(6));
}

TEST(Session, MapsBreakpointsToLinesThatHoldInstructions)
{
    CTestSession session(s_Plain);
    ASSERT_TRUE(session.Start());
    CShaderDebuggerIL& debugger = session.Debugger();
    // The function's declarations come between its first line and its first instruction.
    const LineNumber nEmpty = session.Shader().GetLine(CTestSession::s_nBody) - 1;
    LineNumber nOut = 0;
    EXPECT_FALSE(debugger.AddBreakPointAtLineNumber(nEmpty, 0, &nOut));
    EXPECT_EQ(nOut, nEmpty + 1);
    EXPECT_TRUE(debugger.AddBreakPointAtLineNumber(nEmpty, 1, &nOut));
    EXPECT_FALSE(debugger.ToggleBreakPointAtLineNumber(nEmpty, true)) << "there, and not asked for by its own line";
    EXPECT_EQ(debugger.GetBreakPointsAsLineNumbers(nullptr), 1u);
    EXPECT_FALSE(debugger.HasBreakPointInInstructionRange(CTestSession::s_nBody, CTestSession::s_nBody + 1));
    EXPECT_TRUE(debugger.HasBreakPointInInstructionRange(CTestSession::s_nBody - 1, CTestSession::s_nBody + 1));
    EXPECT_FALSE(debugger.RemoveBreakPointAtLineNumber(nEmpty));
    EXPECT_TRUE(debugger.RemoveBreakPointAtInstructionNumber(CTestSession::s_nBody));
    EXPECT_FALSE(debugger.AddBreakPointAtLineNumber(100000, 5, &nOut));
    EXPECT_EQ(nOut, g_INVALID_LINE_NUMBER);
}

} // namespace

} // namespace OVK_ShaderDebugger
