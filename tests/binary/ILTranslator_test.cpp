#include "binary/ILTranslator.h"

#include "binary/BifUtils.h"
#include "modules/CLDispatchTable.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include <dlfcn.h>

namespace
{

using namespace OVK_ShaderDebugger;

/// A variable in one of the fake libraries, which are loaded already.
template <class Type>
Type* FakeVariable(const char* szLibrary, const char* szName)
{
    void* pLibrary = dlopen(szLibrary, RTLD_LAZY);
    return pLibrary == nullptr ? nullptr : static_cast<Type*>(dlsym(pLibrary, szName));
}

int BinariesAlive()
{
    return *FakeVariable<int>("libovkocl12cl64.so", "g_nFakeBinariesAlive");
}

const char* LastDevice()
{
    return FakeVariable<char>("libovkocl12cl64.so", "g_szFakeLastDevice");
}

TEST(ILTranslator, TheLibraryConvertsBothWays)
{
    EXPECT_TRUE(ovkIsAssemblingWithZCC());
    std::vector<unsigned char> vBytes;
    ASSERT_TRUE(ovkAssembleIL("258\n1", &vBytes, "Kiln"));
    EXPECT_EQ(vBytes, (std::vector<unsigned char>{2, 1, 0, 0, 1, 0, 0, 0}));
    EXPECT_STREQ(LastDevice(), "Kiln");

    // An odd size loses its last partial word, and an empty device name means the default device.
    std::string strText;
    vBytes.push_back(9);
    ASSERT_TRUE(ovkDisassembleIL(vBytes, &strText, ""));
    EXPECT_EQ(strText, "258\n1\n");
    EXPECT_STREQ(LastDevice(), "Quench");
    EXPECT_TRUE(ovkDisassembleIL(vBytes.data() + 1, 4, &strText, ""));
    EXPECT_EQ(strText, std::to_string(1 + (1 << 24)) + "\n");
    EXPECT_EQ(BinariesAlive(), 0);

    BifUtils::ReleaseCompiler();
    EXPECT_TRUE(ovkAssembleIL("1", &vBytes, ""));
    BifUtils::ReleaseCompiler();
}

TEST(ILTranslator, AFailureGivesNothingAndLeavesNothingBehind)
{
    std::vector<unsigned char> vBytes = {1};
    std::string strText = "before";
    EXPECT_FALSE(ovkAssembleIL("not numbers", &vBytes, ""));
    EXPECT_FALSE(ovkAssembleIL("", &vBytes, ""));
    EXPECT_FALSE(ovkAssembleIL("1", &vBytes, "a device from nowhere"));
    EXPECT_FALSE(ovkAssembleIL("1", nullptr, ""));
    EXPECT_FALSE(ovkDisassembleIL(nullptr, 0, &strText, ""));
    EXPECT_FALSE(ovkDisassembleIL(nullptr, 4, &strText, ""));
    EXPECT_FALSE(ovkDisassembleIL(vBytes, nullptr, ""));
    EXPECT_EQ(vBytes, std::vector<unsigned char>{1});
    EXPECT_EQ(strText, "before");
    EXPECT_EQ(BinariesAlive(), 0);
    BifUtils::ReleaseCompiler();
}

TEST(ILTranslator, AnyCallOfTheLibraryMayFail)
{
    char* szFailing = FakeVariable<char>("libovkocl12cl64.so", "g_szFakeFailing");
    for (const char* szCall :
         {"CompilerInit", "BinarySize", "BinaryInit", "InsertSymbol", "Compile", "ExtractSymbol", "WholeSymbol"})
    {
        BifUtils::ReleaseCompiler();
        std::strcpy(szFailing, szCall);
        std::vector<unsigned char> vBytes = {1, 0, 0, 0};
        std::string strText = "before";
        EXPECT_FALSE(ovkAssembleIL("2", &vBytes, "")) << szCall;
        EXPECT_FALSE(ovkDisassembleIL(vBytes, &strText, "")) << szCall;
        EXPECT_EQ(vBytes[0], 1) << szCall;
        EXPECT_EQ(strText, "before") << szCall;
        EXPECT_EQ(BinariesAlive(), 0) << szCall;
    }
    *szFailing = 0;
    BifUtils::ReleaseCompiler();
}

#define CHECK_OR_EXIT(condition)                                                                                       \
    if (!(condition))                                                                                                  \
    {                                                                                                                  \
        std::cerr << "not so: " #condition "\n";                                                                       \
        std::exit(1);                                                                                                  \
    }

/// The choice lasts for the process, so it is tested in a separate one.
void ChooseTheLowLevelAssembler()
{
    int* pInitCalls = FakeVariable<int>("libovkqrlrt.so", "g_nFakeInitCalls");
    CHECK_OR_EXIT(pInitCalls != nullptr);
    CHECK_OR_EXIT(!ovkIsAssemblingWithQRL());
    CHECK_OR_EXIT(*pInitCalls == 0);

    ovkSetAssemblingWithQRLAllowed(true);
    CHECK_OR_EXIT(ovkIsAssemblingWithQRL());
    CHECK_OR_EXIT(ovkIsAssemblingWithQRL());
    CHECK_OR_EXIT(*pInitCalls == 1);

    std::vector<unsigned char> vBytes;
    CHECK_OR_EXIT(ovkAssembleIL("abc", &vBytes, ""));
    CHECK_OR_EXIT(vBytes == (std::vector<unsigned char>{'c', 'b', 'a'}));
    std::string strText;
    CHECK_OR_EXIT(ovkDisassembleIL(vBytes, &strText, ""));
    CHECK_OR_EXIT(strText == "abc");
    CHECK_OR_EXIT(!ovkAssembleIL("", &vBytes, ""));
    CHECK_OR_EXIT(*pInitCalls == 2);

    // Once the runtime has answered, the choice doesn't change any more.
    ovkSetAssemblingWithQRLAllowed(false);
    CHECK_OR_EXIT(ovkIsAssemblingWithQRL());
    std::exit(0);
}

TEST(ILTranslator, TheLowLevelAssemblerIsTakenOnceAllowed)
{
    EXPECT_EXIT(ChooseTheLowLevelAssembler(), testing::ExitedWithCode(0), "");
}

/// A failing call of the low-level runtime, and the expected results for "12" and "abcd": nothing if the conversions
/// fail, the other library's result if there is no conversion.
struct SRuntimeFault
{
    const char* szFailing;
    std::string strTokens;
    std::string strText;
};

const std::string s_OtherTokens("\x0C\0\0\0", 4);
const std::string s_OtherText = "1684234849\n";

const SRuntimeFault s_RuntimeFaults[] = {
    {"", "21", "dcba"},
    {"Library", s_OtherTokens, s_OtherText},
    {"Init", s_OtherTokens, s_OtherText},
    {"ExtSupported", s_OtherTokens, s_OtherText},
    {"qrlConvertTextToBinary", s_OtherTokens, s_OtherText},
    {"qrlConvertBinaryToText", s_OtherTokens, s_OtherText},
    {"qrlFreeTextBinary", s_OtherTokens, s_OtherText},
    {"NullProc", s_OtherTokens, s_OtherText},
    {"ConvertTextToBinary", "before", "dcba"},
    {"ConvertBinaryToText", "21", "before"},
    {"FreeTextBinary", "before", "before"},
    {"NullResult", "", ""},
};

void ConvertWithFault(const SRuntimeFault& fault)
{
    std::strcpy(FakeVariable<char>("libovkqrlrt.so", "g_szFakeFailing"), fault.szFailing);
    if (std::string(fault.szFailing) == "Library")
    {
        g_QRLRTDispatchTable.UnloadModule();
    }
    ovkSetAssemblingWithQRLAllowed(true);
    std::vector<unsigned char> vBytes = {'b', 'e', 'f', 'o', 'r', 'e'};
    ovkAssembleIL("12", &vBytes, "");
    CHECK_OR_EXIT(std::string(vBytes.begin(), vBytes.end()) == fault.strTokens);
    std::string strText = "before";
    ovkDisassembleIL({'a', 'b', 'c', 'd'}, &strText, "");
    CHECK_OR_EXIT(strText == fault.strText);

    // Without permission, the runtime's first answer remains.
    const bool bAnswered = std::string(fault.szFailing) != "Library" && std::string(fault.szFailing) != "Init";
    ovkSetAssemblingWithQRLAllowed(false);
    CHECK_OR_EXIT(ovkIsAssemblingWithQRL() == bAnswered);
    BifUtils::ReleaseCompiler();
    std::exit(0);
}

TEST(ILTranslator, AnyCallOfTheLowLevelRuntimeMayFail)
{
    for (const SRuntimeFault& fault : s_RuntimeFaults)
    {
        EXPECT_EXIT(ConvertWithFault(fault), testing::ExitedWithCode(0), "") << fault.szFailing;
    }
}

TEST(BifUtils, SectionsHaveIds)
{
    EXPECT_EQ(BifUtils::ToSectionID(".debugil"), zccILDEBUG);
    EXPECT_EQ(BifUtils::ToSectionID(".ovkil"), zccILTEXT);
    EXPECT_EQ(BifUtils::ToSectionID(".rodata"), zccLAST);
    EXPECT_EQ(BifUtils::ToSectionID(nullptr), zccLAST);
}

} // namespace
