#include "api/RegisterLocators.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using namespace Kestrel;

struct SPair
{
    const char* szName;
    ovkclDebugRegisterLocator locator;
};

TEST(RegisterLocators, TextAndNumberAreEachOthersReverse)
{
    const SPair pairs[] = {
        {"r3", 3},
        {"r65535", 0xFFFF},
        {"cb1[12]", 0x1100C},
        {"cb0[0]", 0x10000},
        {"cb15[4095]", 0x1FFFF},
        {"x1[7]", 0x800000000700011EULL},
        {"PrivateUAVAccess8[2]", 0x800000000200083FULL},
        {"PrivateUAVAccess8[4294967295]", 0x80FFFFFFFF00083FULL},
        {"vFace0", 0x8000000000000015ULL},
        {"vTidInGrp0", 0x8000000000000029ULL},
        {"l7", 0x8000000000000720ULL},
        {"mem0", 0x800000000000002FULL},
        {"o2", 0x800000000000020BULL},
    };
    for (const SPair& pair : pairs)
    {
        EXPECT_EQ(stringToDebugRegisterLocator(pair.szName), pair.locator) << pair.szName;
        EXPECT_EQ(debugRegisterLocatorToString(pair.locator), pair.szName);
    }
}

TEST(RegisterLocators, EveryTypeComesBackButThoseThatShareTheirText)
{
    for (int i = 0; i < DL_REGTYPE_LAST; ++i)
    {
        const DLRegType type = static_cast<DLRegType>(i);
        const std::string strText = debugRegisterLocatorToString(MakeRegisterLocator(type, 5, 6));
        const std::string strExpected = DLRegTypeToString(type) + (IsRegTypeIndexed(type) ? "5[6]" : "5");
        EXPECT_EQ(strText, strExpected);

        const ovkclDebugRegisterLocator back = stringToDebugRegisterLocator(strText);
        switch (type)
        {
        case DL_REGTYPE_INPUT:
            EXPECT_EQ(back & 0xFF, ovkclDebugRegisterLocator(DL_REGTYPE_VERTEX));
            break;
        case DL_REGTYPE_OUTPUT:
            EXPECT_EQ(back & 0xFF, ovkclDebugRegisterLocator(DL_REGTYPE_VOUTPUT));
            break;
        case DL_REGTYPE_VPRIM:
            EXPECT_EQ(back, s_InvalidLocator);
            break;
        case DL_REGTYPE_TEMP:
            EXPECT_EQ(back, 5u);
            break;
        case DL_REGTYPE_CONST_BUFF:
            EXPECT_EQ(back, 0x15006u);
            break;
        default:
            EXPECT_EQ(back, MakeRegisterLocator(type, 5, IsRegTypeIndexed(type) ? 6 : 0)) << strText;
        }
    }
}

TEST(RegisterLocators, WhatIsNoRegisterIsAllOnesOrEmpty)
{
    for (
        const char* szName :
        {"",       "r",     "vFace", "x1",     "x1[7",   "o0[1]",   "r3[1]",          "R3",          "nothing5", "[1]",
         "3",      "x[7]",  "cb1",   "xx1[2]", "x1[-1]", "cb1[ 7]", "x1[4294967296]", "r4294967296", "r3 ",      "r3-1",
         "x1[7]8", "x1[+7]"})
    {
        EXPECT_EQ(stringToDebugRegisterLocator(szName), s_InvalidLocator) << szName;
    }
    for (const ovkclDebugRegisterLocator locator :
         {0x20000ULL, 0x7FFFFFFFFFFFFFFFULL, 0x8000000000000040ULL, 0x8100000000000004ULL, s_InvalidLocator + 0ULL})
    {
        EXPECT_EQ(debugRegisterLocatorToString(locator), "") << std::hex << locator;
    }
}

TEST(RegisterLocators, NumbersAreCutToTheirFields)
{
    EXPECT_EQ(stringToDebugRegisterLocator("r65537"), 1u);
    EXPECT_EQ(stringToDebugRegisterLocator("cb17[4097]"), 0x11001u);
    EXPECT_EQ(stringToDebugRegisterLocator("x65537[]"), 0x800000000000011EULL) << "no index reads as 0";
}

TEST(RegisterLocators, TheNameNeedsRoomForItsEnd)
{
    cl_char name[8] = "abc";
    size_t nSize = 0;
    EXPECT_EQ(ovkclDebugUtilDebugRegisterLocatorToString(0x1100C, 0, nullptr, &nSize), OVKCLDEBUG_SUCCESS);
    EXPECT_EQ(nSize, 8u);
    EXPECT_EQ(ovkclDebugUtilDebugRegisterLocatorToString(0x1100C, 7, name, nullptr), OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL);
    EXPECT_STREQ(reinterpret_cast<char*>(name), "abc");
    EXPECT_EQ(ovkclDebugUtilDebugRegisterLocatorToString(0x1100C, 8, name, nullptr), OVKCLDEBUG_SUCCESS);
    EXPECT_STREQ(reinterpret_cast<char*>(name), "cb1[12]");
    EXPECT_EQ(ovkclDebugUtilDebugRegisterLocatorToString(3, 8, nullptr, nullptr), OVKCLDEBUG_ERROR_INVALID_ARGUMENT);

    ovkclDebugRegisterLocator locator = 0;
    EXPECT_EQ(ovkclDebugUtilStringToDebugRegisterLocator(nullptr, &locator), OVKCLDEBUG_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(ovkclDebugUtilStringToDebugRegisterLocator(name, nullptr), OVKCLDEBUG_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(ovkclDebugUtilStringToDebugRegisterLocator(name, &locator), OVKCLDEBUG_SUCCESS);
    EXPECT_EQ(locator, 0x1100Cu);
}

} // namespace
