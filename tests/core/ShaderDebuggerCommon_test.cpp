#include "core/ShaderDebuggerCommon.h"

#include <gtest/gtest.h>

#include <utility>

using namespace OVK_ShaderDebugger;

namespace
{

ProgramCounter At(InstructionNumber nPos, std::vector<LoopState> loops = {})
{
    ProgramCounter pc(nPos);
    pc.m_LoopStack = std::move(loops);
    return pc;
}

} // namespace

TEST(ProgramCounter, NullIsNotTheFirstInstruction)
{
    EXPECT_EQ(g_PC_NULL, ProgramCounter(g_Inst_NULL));
    EXPECT_NE(g_PC_NULL, ProgramCounter());
}

TEST(ProgramCounter, OnlyTheInnermostLoopCountsAsEntered)
{
    ProgramCounter pc;
    pc.AddLoop(1, 9);
    pc.m_LoopStack.back().nLoopIteration = 3;
    pc.AddLoop(1, 9);
    ASSERT_EQ(pc.m_LoopStack.size(), 1u);
    EXPECT_EQ(pc.m_LoopStack[0].nLoopIteration, 3u);
    pc.AddLoop(2, 8);
    pc.AddLoop(1, 9);
    EXPECT_EQ(pc.m_LoopStack.size(), 3u);

    LoopState state = {7, 7, 7};
    ASSERT_TRUE(pc.GetLoopState(1, state));
    EXPECT_EQ(state.nLoopIteration, 3u) << "the outermost entry is found first";
    EXPECT_FALSE(pc.GetLoopState(5, state));
    EXPECT_EQ(state.nLoopStart, 1u) << "a miss changes nothing";
}

struct OrderCase
{
    const char* pszWhat;
    ProgramCounter lhs;
    ProgramCounter rhs;
    int nOrder;
};

TEST(ProgramCounter, Order)
{
    const OrderCase cases[] = {
        {"positions decide without loops", At(1), At(2), -1},
        {"a later pass is later, whatever the position", At(9, {{1, 10, 0}}), At(2, {{1, 10, 1}}), -1},
        {"the start decides before the pass", At(5, {{1, 10, 7}}), At(5, {{2, 10, 0}}), -1},
        {"the length of the stack never decides", At(3, {{1, 9, 0}}), At(4, {{1, 9, 0}, {2, 8, 5}}), -1},
        {"inside against outside rests on the position", At(3, {{1, 9, 5}}), At(2), 1},
        {"the end of a loop takes no part", At(3, {{1, 9, 0}}), At(3, {{1, 8, 0}}), 0},
    };
    for (const OrderCase& c : cases)
    {
        EXPECT_EQ(c.lhs < c.rhs, c.nOrder < 0) << c.pszWhat;
        EXPECT_EQ(c.lhs > c.rhs, c.nOrder > 0) << c.pszWhat;
        EXPECT_EQ(c.rhs<c.lhs, c.nOrder> 0) << c.pszWhat;
    }
    EXPECT_NE(cases[5].lhs, cases[5].rhs) << "yet the two are unequal";
}

TEST(Register, IndexRegistersAreCopiedDeeply)
{
    const Register index(RT_Temp, 2, COMP_x);
    const RegisterID array(RT_IndexableTemp, 1, 0, &index);
    RegisterID copy(array);
    ASSERT_NE(copy.pIndexRegister, array.pIndexRegister);
    EXPECT_EQ(copy, array);

    RegisterID& alias = copy;
    copy = alias;
    EXPECT_EQ(copy, array) << "assignment to itself leaves it intact";

    RegisterID moved(std::move(copy));
    EXPECT_EQ(moved, array);
    moved = g_RegID_NULL;
    EXPECT_EQ(moved, g_RegID_NULL);
}

TEST(Register, OrderAgreesWithEquality)
{
    const Register index(RT_Temp, 2, COMP_x);
    const Register other(RT_Temp, 3, COMP_x);
    // Ascending.
    const Register registers[] = {
        Register(RT_Temp, 4, COMP_All),
        Register(RT_IndexableTemp, 1, COMP_x),
        Register(RT_IndexableTemp, 1, COMP_y),
        Register(RegisterID(RT_IndexableTemp, 1, 0, &index), COMP_x),
        Register(RegisterID(RT_IndexableTemp, 1, 0, &other), COMP_x),
        Register(RT_IndexableTemp, 1, COMP_x, 5),
        Register(RT_IndexableTemp, 2, COMP_x),
    };
    const size_t nCount = sizeof(registers) / sizeof(registers[0]);
    for (size_t i = 0; i < nCount; ++i)
    {
        for (size_t j = 0; j < nCount; ++j)
        {
            EXPECT_EQ(registers[i] < registers[j], i < j) << i << " " << j;
            EXPECT_EQ(registers[i] == registers[j], i == j) << i << " " << j;
        }
    }
}

TEST(Component, IndexOutOfRangeIsNone)
{
    EXPECT_EQ(GetComponent(3), COMP_w);
    EXPECT_EQ(GetComponent(4), COMP_None);
}
