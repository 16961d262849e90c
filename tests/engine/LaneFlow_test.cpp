#include "engine/LaneFlow.h"

#include "CourseKernel.h"

#include "core/ShaderDebuggerBuffer.h"

namespace OVK_ShaderDebugger
{

namespace
{

CShaderDebuggerBuffer MakeWords(CFakeHost& host, ShaderUtils::BufferFormat format, const std::vector<uint32_t>& vWords)
{
    BufferDesc desc;
    desc.m_Type = ShaderUtils::BT_Buffer;
    desc.m_Format = format;
    desc.m_nWidth = static_cast<unsigned int>(vWords.size() / (format == ShaderUtils::BF_R_32 ? 1 : 4));
    desc.m_nHeight = desc.m_nDepth = desc.m_nArraySize = 1;
    CShaderDebuggerBuffer buffer(&host);
    buffer.Create(desc, nullptr);
    std::memcpy(buffer.GetData(), vWords.data(), vWords.size() * sizeof(uint32_t));
    return buffer;
}

/// The flow of one kernel, tracked line by line.
class CFlow
{
public:
    CFlow(const std::string& strBody, uint64_t nItems) : m_Kernel(strBody), m_Lanes(m_Kernel.Course())
    {
        m_Lanes.Ledger().SetActive(nItems);
    }

    CLaneFlow& Lanes() { return m_Lanes; }
    CCourseKernel& Kernel() { return m_Kernel; }
    InstructionNumber At(const std::string& strLine) const { return m_Kernel.Find(strLine); }

    bool Execute(const std::string& strLine, uint64_t nActive)
    {
        return m_Lanes.TakeEffect(m_Kernel.Place(strLine), nActive);
    }

    /// Checks where the other work-items are when none is active at a line, and how many.
    void ExpectNext(const std::string& strLine, const std::string& strNext, uint64_t nCount)
    {
        const auto next = m_Lanes.Ledger().FindNext(At(strLine));
        ASSERT_TRUE(next.has_value()) << strLine;
        EXPECT_EQ(next->nInst, At(strNext)) << strLine;
        EXPECT_EQ(next->count, (SLaneCount{nCount, false})) << strLine;
    }

private:
    CCourseKernel m_Kernel;
    CLaneFlow m_Lanes;
};

TEST(LaneFlow, FollowsWhoTakesWhichPartOfAnIf)
{
    CFlow flow("if_logicalnz r0.x\nmov r1, l20\nelse\nmov r2, l20\nendif\nmov r3, l20\n", 8);
    EXPECT_TRUE(flow.Execute("if_logicalnz r0.x", 3));
    EXPECT_TRUE(flow.Execute("mov r1, l20", 3));
    flow.ExpectNext("mov r1, l20", "else", 5);
    EXPECT_TRUE(flow.Execute("else", 5));
    flow.ExpectNext("mov r2, l20", "endif", 3);
    EXPECT_FALSE(flow.Execute("mov r2, l20", 4)) << "nobody leaves at a move";
    EXPECT_TRUE(flow.Execute("endif", 8));
    EXPECT_FALSE(flow.Lanes().Ledger().FindNext(flow.At("endif")).has_value());
}

TEST(LaneFlow, FollowsJumpsOutOfALoop)
{
    CFlow flow("whileloop\nbreak_logicalnz r0.x\ncontinue_logicalnz r1.x\nmov r2, l20\nret_dyn\nendloop\nmov r3, l20\n",
               8);
    EXPECT_TRUE(flow.Execute("whileloop", 8));
    EXPECT_TRUE(flow.Execute("break_logicalnz r0.x", 6));
    EXPECT_TRUE(flow.Execute("continue_logicalnz r1.x", 1));
    flow.ExpectNext("mov r2, l20", "whileloop", 5);
    EXPECT_TRUE(flow.Execute("ret_dyn", 0));
    EXPECT_TRUE(flow.Lanes().Ledger().GetActive().IsNobody());
    EXPECT_TRUE(flow.Execute("whileloop", 5)) << "in the next pass";
    EXPECT_TRUE(flow.Execute("break_logicalnz r0.x", 0));
    flow.ExpectNext("break_logicalnz r0.x", "endloop", 7);
    // The results as positions: the next pass, and none.
    ProgramCounter inLoop = flow.Kernel().At(flow.At("mov r2, l20"), {4});
    const CLaneLedger::SPlace head = {flow.At("whileloop"), flow.At("whileloop"), true, {}};
    EXPECT_EQ(CLaneFlow::PositionOf(head, inLoop), flow.Kernel().At(flow.At("whileloop"), {5}));
    const CLaneLedger::SPlace end = {flow.At("whileloop"), flow.At("endloop"), true, {}};
    EXPECT_EQ(CLaneFlow::PositionOf(end, inLoop), ProgramCounter(flow.At("endloop")));
}

TEST(LaneFlow, CountsWhoGoesToWhichLabelOfASwitch)
{
    const std::string strBody =
        "switch r0.x\ncase 4\nmov r1, l20\nbreak\ncase 9\nmov r2, l20\nbreak\ndefault\nmov r3, l20\nbreak\nendswitch\n";
    CFlow flow(strBody, 6);
    // One of seven work-items with a selector doesn't come here.
    std::vector<uint32_t> vSelectors;
    for (const uint32_t n : {4u, 9u, 4u, 77u, 9u, 4u, 5u})
    {
        vSelectors.insert(vSelectors.end(), {n, 4u, 4u, 4u});
    }
    CFakeHost& host = flow.Kernel().Host();
    const CShaderDebuggerBuffer selectors = MakeWords(host, ShaderUtils::BF_RGBA_32F, vSelectors);
    const CShaderDebuggerBuffer mask = MakeWords(host, ShaderUtils::BF_R_32, {1, 1, 0, 1, 1, 1, 1});
    flow.Lanes().NoteSwitchEntries(flow.Kernel().Place("switch r0.x"), selectors, mask);
    EXPECT_TRUE(flow.Execute("switch r0.x", 6));
    flow.ExpectNext("switch r0.x", "case 4", 2);
    flow.ExpectNext("case 4", "case 9", 2);
    flow.ExpectNext("case 9", "default", 2);
    // Without the selectors, each work-item may be at any of the cases.
    CFlow unknown(strBody, 6);
    EXPECT_TRUE(unknown.Execute("switch r0.x", 6));
    for (const char* pszLabel : {"case 4", "case 9", "default", "endswitch"})
    {
        EXPECT_TRUE(unknown.Lanes().Ledger().Take(unknown.At("switch r0.x"), unknown.At(pszLabel)).IsOpen())
            << pszLabel;
    }
}

struct SPassCase
{
    const char* pszFirst;
    const char* pszLast;
    std::set<const char*> jumps;
    SLaneCount active; ///< after it, of eight
};

TEST(LaneFlow, LeavesOpenWhereJumpsOutOfAPassedOverBlockHaveLed)
{
    const std::string strBody =
        "whileloop\nif_logicalnz r0.x\nbreak\nelse\ncontinue\nendif\nswitch r1.x\ncase 0\nbreak\n"
        "endswitch\nendloop\n";
    const SPassCase cases[] = {{"if_logicalnz r0.x", "endif", {"break", "continue"}, {0, true}},
                               {"switch r1.x", "endswitch", {}, {8, false}},
                               {"if_logicalnz r0.x", "break", {"break"}, {0, true}}};
    for (const SPassCase& test : cases)
    {
        CFlow flow(strBody, 8);
        flow.Execute("whileloop", 8);
        std::set<InstructionNumber> jumps;
        for (const char* pszJump : test.jumps)
        {
            jumps.insert(flow.At(pszJump));
        }
        EXPECT_EQ(flow.Lanes().PassOver(flow.At(test.pszFirst), flow.At(test.pszLast)), jumps) << test.pszLast;
        EXPECT_EQ(flow.Lanes().Ledger().GetActive(), test.active) << test.pszLast;
    }
}

} // namespace

} // namespace OVK_ShaderDebugger
