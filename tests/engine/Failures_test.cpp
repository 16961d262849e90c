#include "Kernels.h"
#include "TestSession.h"
#include "tests/support/Stride.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// What each movement of a session showed.
struct SShown
{
    ProgramCounter pc;
    std::vector<uint32_t> vMask;
    Registers registers;
};

enum EMove
{
    Step,
    Back,
    Run,
    RunBack
};

bool Move(CShaderDebuggerIL& debugger, EMove eMove)
{
    return eMove == Step   ? debugger.Step()
           : eMove == Back ? debugger.Back()
           : eMove == Run  ? debugger.Run()
                           : debugger.RunBack();
}

// The kernel changes the buffer depending on its contents, and some work-items return early. So runs depend on the
// contents that they start from, and on what is cleared before them.
const std::string s_Body =
    s_Id +
    "ishl r8.x, r0.x, l22.x\nmov r8.y, l20.x\ni64add r8.xy, cb1[0].xy, r8.xy\n"
    "uav_raw_load_id(10)_addr64 r1.x, r8.xy\niadd r1.x, r1.x, l21.x\n"
    "uav_raw_store_id(10)_addr64 mem0.x, r8.xy, r1.x\ncall 1025\n"
    "uav_raw_load_id(10)_addr64 r2.x, r8.xy\niadd r1.x, r1.x, r2.x\n"
    "uav_raw_store_id(10)_addr64 mem0.x, r8.xy, r1.x\n"
    "ishl r8.x, r0.x, l22.x\ni64add r8.xy, cb1[1].xy, r8.x000\nuav_raw_store_id(10)_addr64 mem0.x, r8.xy, r1.x\n";
const std::string s_Function = "func 1025\nult r2, r0, l23\nif_logicalnz r2.x\niadd r1.x, r1.x, l22.x\nret\nendif\n"
                               "iadd r1.x, r1.x, l24.x\nret\nendfunc\n";
const InstructionNumber s_nLine = CTestSession::s_nBody + 9;

/// A session of these movements, in which one call of the device may fail.
class CFailingSession : public CTestSession
{
public:
    CFailingSession() : CTestSession(s_Body, s_Function) { Trace(); }

    /// \return the stops up to the failing movement
    std::vector<SShown> Play(const std::vector<EMove>& vMoves)
    {
        std::vector<SShown> vShown;
        Debugger().AddBreakPointAtInstructionNumber(s_nLine);
        for (const EMove eMove : vMoves)
        {
            if (!Move(Debugger(), eMove))
            {
                break;
            }
            vShown.push_back({Debugger().GetCurrentInstruction(), Mask(), ReadAll()});
        }
        return vShown;
    }
};

void ExpectAsShown(const SShown& now, const SShown& good)
{
    EXPECT_EQ(now.pc, good.pc);
    EXPECT_EQ(now.vMask, good.vMask);
    for (const auto& entry : good.registers)
    {
        // Values that can't be read on the way back are missing.
        const auto it = now.registers.find(entry.first);
        EXPECT_TRUE(it == now.registers.end() || it->second == entry.second) << entry.first;
    }
}

const std::vector<EMove> s_Scripts[] = {
    std::vector<EMove>(28, Step),
    {Step, Step, Step, Step, Step, Step, Step, Step, Step, Back, Back, Back, Back, Step, Step},
    {Run, Step, Step, RunBack, Run},
};

TEST(Failures, OfAnyCallOfTheDeviceShowNothingFalseAndLeaveTheBufferWholeOrAsItWas)
{
    for (const std::vector<EMove>& vMoves : s_Scripts)
    {
        CFailingSession good;
        const CSimtDevice::Bytes before = good.Buffer();
        const CSimtDevice::Bytes beforeInSecond = good.Second();
        ASSERT_TRUE(good.Start());
        const std::vector<SShown> vGood = good.Play(vMoves);
        for (const SSimtCalls::EKind eKind : {SSimtCalls::Read, SSimtCalls::Other})
        {
            bool bHit = true;
            for (unsigned int nCall = 1; bHit && !testing::Test::HasFailure(); nCall += s_bSanitized ? 7 : 1)
            {
                SCOPED_TRACE("call " + std::to_string(nCall) + (eKind == SSimtCalls::Read ? " that reads" : ""));
                CFailingSession session;
                SSimtCalls& calls = *session.Device().pCalls;
                calls.eKind = eKind;
                calls.nFail = nCall;
                if (!session.Start())
                {
                    EXPECT_FALSE(session.Debugger().IsDebugging());
                    EXPECT_EQ(session.Device().nEntered, 0);
                    EXPECT_EQ(session.Buffer(), before);
                    EXPECT_TRUE(session.Start()) << "again";
                    continue;
                }
                const std::vector<SShown> vShown = session.Play(vMoves);
                // If a mask can't be read, the count that decides about the position stays unknown.
                for (size_t n = 0; n < vShown.size() && eKind == SSimtCalls::Other; ++n)
                {
                    ASSERT_LT(n, vGood.size());
                    SCOPED_TRACE("movement " + std::to_string(n));
                    ExpectAsShown(vShown[n], vGood[n]);
                }
                while (session.Debugger().Step())
                {
                }
                session.Debugger().EndDebugging(true);
                const bool bDelivered = session.Debugger().HasDeliveredResults();
                EXPECT_EQ(session.Buffer(), bDelivered ? session.Expected() : before);
                EXPECT_EQ(session.Second(), bDelivered ? session.ExpectedInSecond() : beforeInSecond);
                EXPECT_TRUE(bDelivered || calls.nCalls >= nCall);
                bHit = calls.nCalls >= nCall;
            }
        }
    }
}

} // namespace

} // namespace OVK_ShaderDebugger
