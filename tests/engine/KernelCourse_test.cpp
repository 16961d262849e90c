#include "CourseKernel.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// A store of a register's x component.
std::string StoreOf(unsigned int nRegister)
{
    return "uav_raw_store_id(10)_addr64 mem0.x, r8.xy, r" + std::to_string(nRegister) + ".x";
}

struct SPlaceCase
{
    std::string strLine;
    std::vector<std::string> vCalls;
    bool bHasWritten;
    bool bMayStillWrite;
    bool bCut; ///< its patched kernel executes nothing after it
};

// The loop stores in its middle, the function at its end; the main function's last store is on a line of its own.
TEST(KernelCourse, TellsWhatMayHaveWrittenMemoryAndWhatStillMay)
{
    const CCourseKernel kernel("mov r0, l20\nwhileloop\nmov r1, l20\n" + StoreOf(1) +
                                   "\nbreak_logicalnz r1.x\nendloop\ncall 1025\nmov r2, l20\nif_logicalnz r2.x\n" +
                                   StoreOf(2) + "\nendif\nmov r3, l20\n",
                               "func 1025\nmov r5, l20\n" + StoreOf(5) + "\nret\nendfunc\n");
    const SPlaceCase cases[] = {
        {"mov r0, l20", {}, false, true, true}, {"mov r1, l20", {}, true, true, false}, // in an earlier pass
        {"call 1025", {}, true, true, true},    {"mov r5, l20", {"call 1025"}, true, true, true},
        {"mov r2, l20", {}, true, true, true},  {StoreOf(2), {}, true, false, true},
        {"mov r3, l20", {}, true, false, true},
    };
    for (const SPlaceCase& test : cases)
    {
        const SPosition place = kernel.Place(test.strLine, test.vCalls);
        EXPECT_EQ(kernel.Course().MayHaveWritten(place), test.bHasWritten) << test.strLine;
        EXPECT_EQ(kernel.Course().MayStillWrite(place), test.bMayStillWrite) << test.strLine;
        EXPECT_EQ(kernel.Course().IsCutExactly(place), test.bCut) << test.strLine;
    }
}

TEST(KernelCourse, FollowsCallsForWhatAStretchWrites)
{
    const CCourseKernel kernel("mov r0, l20\ncall 1025\nmov r1, l20\n",
                               "func 1025\nmov r5, l20\ncall 1026\nret\nendfunc\nfunc 1026\nmov r6, l20\ncall 1026\n" +
                                   StoreOf(5) + "\nret\nendfunc\n");
    const InstructionNumber nCall = kernel.Find("call 1025");
    std::vector<Register> vWritten = {Register(RT_Temp, 5, COMP_All)};
    kernel.Course().AddWrittenByCalls(nCall - 1, nCall + 1, vWritten);
    std::vector<unsigned int> vTemps;
    for (const Register& reg : vWritten)
    {
        reg.reg.type == RT_Temp ? vTemps.push_back(reg.reg.number) : void();
    }
    EXPECT_EQ(vTemps, (std::vector<unsigned int>{5, 6})) << "each once, and not what stands beside the call";
    EXPECT_TRUE(kernel.Course().Stores(nCall, nCall + 1)) << "two calls away";
    EXPECT_FALSE(kernel.Course().Stores(nCall + 1, kernel.Find("endfunc")));
}

TEST(KernelCourse, LeadsJumpsToTheBlockThatTheyLeave)
{
    const CCourseKernel kernel("whileloop\nswitch r1.x\ncase 0\ncontinue\nbreak\nendswitch\nif_logicalnz r1.x\n"
                               "break_logicalnz r2.x\nret\nendif\nendloop\n");
    const struct
    {
        const char* pszJump;
        const char* pszBlock;
        const char* pszTarget;
    } cases[] = {{"continue", "whileloop", "whileloop"},
                 {"break", "switch r1.x", "endswitch"},
                 {"break_logicalnz r2.x", "whileloop", "endloop"},
                 {"ret", nullptr, nullptr}};
    for (const auto& test : cases)
    {
        const auto target = kernel.Course().FindTarget(kernel.Find(test.pszJump));
        ASSERT_EQ(target.has_value(), test.pszBlock != nullptr) << test.pszJump;
        if (target)
        {
            EXPECT_EQ(target->nBlock, kernel.Find(test.pszBlock)) << test.pszJump;
            EXPECT_EQ(target->nInst, kernel.Find(test.pszTarget)) << test.pszJump;
        }
    }
}

TEST(KernelCourse, KnowsKernelsInWhichAWorkItemCanMissTheStores)
{
    const struct
    {
        const char* pszBody;
        bool bCanMiss;
    } cases[] = {{"mov r0, l20\nif_logicalnz r0.x\nmov r1, l20\nendif\n", false},
                 {"if_logicalnz r0.x\nret\nendif\n", true},
                 {"ret_logicalnz r0.x\n", true},
                 {"call 1025\n", false},
                 {"whileloop\ncall 1025\nbreak_logicalnz r0.x\nendloop\n", true},
                 {"call_logicalnz r0.x, 1025\n", true}};
    for (const auto& test : cases)
    {
        const CCourseKernel kernel(test.pszBody, "func 1025\nmov r5, l20\nret\nendfunc\n");
        EXPECT_EQ(kernel.Course().CanMissStores(), test.bCanMiss) << test.pszBody;
    }
}

} // namespace

} // namespace OVK_ShaderDebugger
