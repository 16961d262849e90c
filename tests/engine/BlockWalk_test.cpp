#include "engine/BlockWalk.h"

#include "CourseKernel.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// Breakpoints by instruction number, without a debugger.
class CBreakpointHost : public CFakeHost
{
public:
    bool HasBreakPointAtInstructionNumber(InstructionNumber n) const override { return points.count(n) != 0; }
    bool HasBreakPointInInstructionRange(InstructionNumber nStart, InstructionNumber nEnd) const override
    {
        const auto it = points.upper_bound(nStart);
        return it != points.end() && *it < nEnd;
    }

    std::set<InstructionNumber> points;
};

const std::string s_Blocks = "if_logicalnz r0.x\nmov r1, l20\nelse\ncall 1025\nmov r2, l20\nendif\n"
                             "whileloop\nmov r3, l20\nbreak_logicalnz r0.x\nendloop\n"
                             "switch r0.x\ncase 0\nmov r4, l20\nbreak\nendswitch\n";
const std::string s_Called = "func 1025\nmov r5, l20\nret\nendfunc\n";

struct SSkipCase
{
    const char* pszAt;
    const char* pszBreakpoint; ///< null for none
    const char* pszLast;       ///< the last skipped instruction; null for a block with a breakpoint
    const char* pszWritten;    ///< the temps written on the way
    bool bReadBefore;
};

TEST(BlockWalk, PassesOverBlocksWithoutABreakpointInTheWay)
{
    const CCourseKernel kernel(s_Blocks, s_Called);
    const SSkipCase cases[] = {
        {"if_logicalnz r0.x", nullptr, "endif", "1 2 5", false},
        {"if_logicalnz r0.x", "mov r1, l20", nullptr, "", false},
        {"if_logicalnz r0.x", "mov r2, l20", "mov r1, l20", "1", true},
        {"if_logicalnz r0.x", "mov r5, l20", "mov r1, l20", "1", true},
        {"if_logicalnz r0.x", "else", "mov r1, l20", "1", true},
        {"if_logicalnz r0.x", "endif", "mov r1, l20", "1", true},
        {"else", nullptr, "mov r2, l20", "2 5", true},
        {"else", "mov r5, l20", nullptr, "", false},
        {"endif", "mov r1, l20", "endif", "", false},
        {"whileloop", nullptr, "endloop", "3", false},
        {"whileloop", "endloop", "endloop", "3", false},
        {"whileloop", "whileloop", nullptr, "", false},
        {"whileloop", "break_logicalnz r0.x", nullptr, "", false},
        {"switch r0.x", nullptr, "endswitch", "4", false},
        {"switch r0.x", "endswitch", nullptr, "", false},
        {"switch r0.x", "case 0", nullptr, "", false},
    };
    for (const SSkipCase& test : cases)
    {
        SCOPED_TRACE(std::string(test.pszAt) + ", breakpoint " + (test.pszBreakpoint ? test.pszBreakpoint : "nowhere"));
        CBreakpointHost host;
        if (test.pszBreakpoint != nullptr)
        {
            host.points.insert(kernel.Find(test.pszBreakpoint));
        }
        const CBlockWalk walk(kernel.Course(), host);
        const InstructionNumber nAt = kernel.Find(test.pszAt);
        const CIL_FCConstruct* pBlock = kernel.Course().GetKernel().ConstructOf(nAt);
        ASSERT_EQ(walk.HasBreakpointInFlowControlBlock(pBlock, nAt), test.pszLast == nullptr);
        if (test.pszLast == nullptr)
        {
            continue;
        }
        const std::optional<CBlockWalk::SSkip> skip = walk.DescribeSkip(nAt);
        ASSERT_TRUE(skip.has_value());
        EXPECT_EQ(skip->nFirst, nAt);
        EXPECT_EQ(skip->nLast, kernel.Find(test.pszLast));
        EXPECT_EQ(skip->bReadBefore, test.bReadBefore);
        EXPECT_EQ(skip->bLeavesLoop, nAt == kernel.Find("whileloop"));
        std::set<unsigned int> numbers;
        for (const Register& reg : skip->vRegisters)
        {
            numbers.insert(reg.reg.number);
        }
        std::string strWritten;
        for (const unsigned int n : numbers)
        {
            strWritten += (strWritten.empty() ? "" : " ") + std::to_string(n);
        }
        EXPECT_EQ(strWritten, test.pszWritten);
    }
}

TEST(BlockWalk, RefusesAnInstructionInNoBlock)
{
    const CCourseKernel kernel(s_Blocks, s_Called);
    CBreakpointHost host;
    const CBlockWalk walk(kernel.Course(), host);
    EXPECT_TRUE(walk.HasBreakpointInFlowControlBlock(nullptr, 0)) << "has to be stepped";
    EXPECT_FALSE(walk.DescribeSkip(kernel.Find("func 1025")).has_value());
    EXPECT_EQ(host.CountLog(logASSERT, "pIfElseEndif"), 1u);
}

TEST(BlockWalk, FindsTheCallsOfFunctionsThatHoldABreakpoint)
{
    const CCourseKernel kernel(s_Blocks, s_Called);
    CBreakpointHost host;
    host.points = {kernel.Find("mov r5, l20"), kernel.Find("mov r3, l20")};
    const CBlockWalk walk(kernel.Course(), host);
    EXPECT_EQ(walk.FindBreakpointsIn(kernel.Find("func 1024")),
              (std::set<InstructionNumber>{kernel.Find("call 1025"), kernel.Find("mov r3, l20")}));
}

} // namespace

} // namespace OVK_ShaderDebugger
