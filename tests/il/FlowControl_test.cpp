#include "il/FlowControl.h"

#include <gtest/gtest.h>

using namespace OVK_ShaderDebugger;

namespace
{

TEST(FlowControl, IfPartsLieStrictlyBetweenTheirBounds)
{
    CIL_IfElseEndif construct(nullptr, 10);
    EXPECT_FALSE(construct.HasElse());
    EXPECT_TRUE(construct.IsInIf(11)) << "the endif isn't met yet";

    construct.SetEndIf(20);
    EXPECT_EQ(20u, construct.GetElse());
    EXPECT_FALSE(construct.HasElse());

    for (InstructionNumber n = 9; n <= 21; ++n)
    {
        EXPECT_EQ(n > 10 && n < 20, construct.IsInIf(n)) << n;
        EXPECT_FALSE(construct.IsInElse(n)) << n;
    }

    construct.SetElse(15);
    EXPECT_EQ(15u, construct.GetElse());

    for (InstructionNumber n = 9; n <= 21; ++n)
    {
        EXPECT_EQ(n > 10 && n < 15, construct.IsInIf(n)) << n;
        EXPECT_EQ(n > 15 && n < 20, construct.IsInElse(n)) << n;
    }
}

TEST(FlowControl, ALoopHoldsItsStartButNotItsEnd)
{
    CIL_Loop loop(nullptr, 5);
    loop.SetEnd(9);

    for (InstructionNumber n = 4; n <= 10; ++n)
    {
        EXPECT_EQ(n >= 5 && n < 9, loop.IsInsideLoop(n)) << n;
        EXPECT_EQ(n >= 5 && n < 9, loop.IsInsideLoop(ProgramCounter(n))) << n;
    }

    EXPECT_EQ(0u, loop.GetCountRegister());
}

TEST(FlowControl, ASwitchFindsItsCasesAndBreaks)
{
    CIL_Switch construct(nullptr, 10);
    construct.AddCase(11);
    construct.AddBreak(13);
    construct.AddCase(14);
    construct.AddBreak(16);
    construct.SetEnd(17);

    struct SRow
    {
        InstructionNumber nInst, nNextCase, nCaseBefore;
        bool bBreak;
    };

    for (const SRow& row : {SRow{10, 11, 10, false},
                            {11, 14, 10, false},
                            {13, 14, 11, true},
                            {14, 17, 11, false},
                            {16, 17, 14, true},
                            {17, 17, 14, false}})
    {
        EXPECT_EQ(row.nNextCase, construct.GetNextCase(row.nInst)) << row.nInst;
        EXPECT_EQ(row.nCaseBefore, construct.GetCaseFromBreak(row.nInst)) << row.nInst;
        EXPECT_EQ(row.bBreak, construct.IsSwitchBreak(row.nInst)) << row.nInst;
    }

    CIL_Switch empty(nullptr, 1);
    empty.SetEnd(2);
    EXPECT_EQ(2u, empty.GetNextCase(1));
    EXPECT_EQ(1u, empty.GetCaseFromBreak(2));
}

TEST(FlowControl, RegisterListsMergeMasksInOrderOfFirstAppearance)
{
    const Register index(RT_Temp, 9, COMP_x);
    CIL_Loop loop(nullptr, 0);
    loop.AddRegister(Register(RT_Temp, 1, COMP_x));
    loop.AddRegister(Register(RT_Temp, 0, COMP_w));
    loop.AddRegister(Register(RT_IndexableTemp, 0, COMP_x, 3));
    loop.AddRegister(Register(RegisterID(RT_IndexableTemp, 0, 3, &index), COMP_y));
    loop.AddRegister(Register(RT_Temp, 1, COMP_y));
    loop.AddRegister(Register(RegisterID(RT_IndexableTemp, 0, 3, &index), COMP_z));

    const std::vector<Register> expected = {Register(RT_Temp, 1, COMP_xy), Register(RT_Temp, 0, COMP_w),
                                            Register(RT_IndexableTemp, 0, COMP_x, 3),
                                            Register(RegisterID(RT_IndexableTemp, 0, 3, &index), COMP_y | COMP_z)};
    EXPECT_EQ(expected, loop.GetRegisters());

    CIL_IfElseEndif construct(nullptr, 0);
    construct.AddRegisterInIf(Register(RT_Temp, 1, COMP_x));
    construct.AddRegisterInElse(Register(RT_Temp, 2, COMP_x));
    EXPECT_EQ(std::vector<Register>{Register(RT_Temp, 1, COMP_x)}, construct.GetRegistersInIf());
    EXPECT_EQ(std::vector<Register>{Register(RT_Temp, 2, COMP_x)}, construct.GetRegistersInElse());
}

TEST(FlowControl, TheTreeIsAskedOutward)
{
    CIL_Loop outer(nullptr, 0);
    CIL_Switch middle(&outer, 1);
    CIL_Loop inner(&middle, 2);
    CIL_IfElseEndif innermost(&inner, 3);
    CIL_IfElseEndif sibling(&outer, 9);

    EXPECT_EQ(1u, outer.GetLoopDepth());
    EXPECT_EQ(1u, middle.GetLoopDepth());
    EXPECT_EQ(2u, inner.GetLoopDepth());
    EXPECT_EQ(2u, innermost.GetLoopDepth());
    EXPECT_EQ(&inner, innermost.GetParent());

    inner.SetGlobalStoreFlag();
    EXPECT_TRUE(outer.GetGlobalStoreFlag());
    EXPECT_TRUE(middle.GetGlobalStoreFlag());
    EXPECT_TRUE(inner.GetGlobalStoreFlag());
    EXPECT_FALSE(innermost.GetGlobalStoreFlag());
    EXPECT_FALSE(sibling.GetGlobalStoreFlag());
}

TEST(FlowControl, DowncastsAreChecked)
{
    CIL_Loop loop(nullptr, 0);
    CIL_Switch switchConstruct(nullptr, 0);
    CIL_IfElseEndif ifConstruct(nullptr, 0);
    CIL_FCConstruct* all[] = {&loop, &switchConstruct, &ifConstruct, nullptr};

    for (CIL_FCConstruct* pConstruct : all)
    {
        EXPECT_EQ(pConstruct == &loop ? &loop : nullptr, CIL_FCConstruct::AsLoop(pConstruct));
        EXPECT_EQ(pConstruct == &switchConstruct ? &switchConstruct : nullptr, CIL_FCConstruct::AsSwitch(pConstruct));
        EXPECT_EQ(pConstruct == &ifConstruct ? &ifConstruct : nullptr, CIL_FCConstruct::AsIfElseEndif(pConstruct));
    }

    const CIL_FCConstruct& constLoop = loop;
    EXPECT_EQ(&loop, constLoop.AsLoop());
    EXPECT_EQ(nullptr, constLoop.AsSwitch());
}

} // namespace
