// Uses the two shared libraries like a debugger: opened at run time, by the names of their exports.

#include "modules/QRLTypes.h"
#include "modules/ZCCTypes.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/ProgramBuilder.h"
#include "tests/platform/compiler/Modules.h"
#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <cstring>
#include <dlfcn.h>
#include <set>

using namespace KestrelPlatform;

namespace
{

const char* const s_pText = "il_cs_2_0\nmov r0.x, r1.y\ncall 1030\nend\n";

std::set<std::string> ExportsOf(const std::string& strFile)
{
    std::set<std::string> names;
    FILE* pPipe = popen(("nm -D --defined-only -P " + strFile).c_str(), "r");
    char name[256];
    char line[512];
    while (pPipe != nullptr && fgets(line, sizeof(line), pPipe) != nullptr)
    {
        if (sscanf(line, "%255s", name) == 1)
        {
            names.insert(name);
        }
    }
    if (pPipe != nullptr)
    {
        pclose(pPipe);
    }
    return names;
}

std::string s_strLog;

void KeepLog(const char* szMessage, size_t nSize)
{
    s_strLog.assign(szMessage, nSize);
}

class CompilerLibrary : public testing::Test
{
protected:
    void SetUp() override
    {
        m_pLibrary = dlopen(KestrelTest::PlatformFile("libovkocl12cl64.so").c_str(), RTLD_NOW);
        ASSERT_NE(m_pLibrary, nullptr) << dlerror();
#define LOAD(name, result, parameters) name = reinterpret_cast<PFNzcc##name>(dlsym(m_pLibrary, "zcc" #name));
        ZCC_ENTRY_POINTS(LOAD)
#undef LOAD
        m_pCompiler = CompilerInit(nullptr, nullptr);
        s_strLog.clear();
    }

    void TearDown() override
    {
        if (m_pBinary != nullptr)
        {
            EXPECT_EQ(BinaryFini(m_pBinary), ZCC_SUCCESS);
        }
        EXPECT_EQ(CompilerFini(m_pCompiler), ZCC_SUCCESS);
        dlclose(m_pLibrary);
    }

    /// The calls of a client that doesn't know the size of the library's structure.
    void MakeBinary()
    {
        zcc_error eError = ZCC_ERROR;
        const zccTargetInfo target = GetTargetInfo("ovkil", "Quench", &eError);
        ASSERT_EQ(eError, ZCC_SUCCESS);
        for (const size_t nSize : {120, 128, 118, 120, 104})
        {
            m_pBinary = BinaryInit(nSize, &target, nullptr, &eError);
            if (eError != ZCC_OUT_OF_MEM)
            {
                break;
            }
            EXPECT_EQ(m_pBinary, nullptr);
        }
        ASSERT_EQ(eError, ZCC_SUCCESS);
        ASSERT_NE(m_pBinary, nullptr);
    }

    void ReadTwoKernels()
    {
        SBuildOptions options;
        options.bDebug = true;
        m_vImage = BuildFromSource(Modules::TwoKernels(), options, Modules::Newer()).GetImage();
        zcc_error eError = ZCC_ERROR;
        m_pBinary = ReadFromMem(m_vImage.data(), m_vImage.size(), &eError);
        ASSERT_EQ(eError, ZCC_SUCCESS);
    }

    std::string Internal(const char* pName)
    {
        size_t nSize = 0;
        zcc_error eError = ZCC_ERROR;
        const void* pData = ExtractSymbol(m_pCompiler, m_pBinary, &nSize, zccINTERNAL, pName, &eError);
        return eError == ZCC_SUCCESS ? std::string(static_cast<const char*>(pData), nSize) : "";
    }

    void* m_pLibrary = nullptr;
    zccCompiler* m_pCompiler = nullptr;
    zccBinary* m_pBinary = nullptr;
    std::vector<char> m_vImage;
#define MEMBER(name, result, parameters) PFNzcc##name name = nullptr;
    ZCC_ENTRY_POINTS(MEMBER)
#undef MEMBER
};

TEST_F(CompilerLibrary, ExportsItsListAndNothingElse)
{
    std::set<std::string> expected;
#define NAME(name, result, parameters) expected.insert("zcc" #name);
    ZCC_ENTRY_POINTS(NAME)
#undef NAME
    EXPECT_EQ(expected.size(), 19u);
    EXPECT_EQ(ExportsOf(KestrelTest::PlatformFile("libovkocl12cl64.so")), expected);
}

TEST_F(CompilerLibrary, KnowsItsDevices)
{
    const std::pair<const char*, zcc_error> cases[] = {
        {"Quench", ZCC_SUCCESS}, {"quench", ZCC_SUCCESS}, {"Kiln", ZCC_SUCCESS},         {"kiln", ZCC_SUCCESS},
        {"Host", ZCC_SUCCESS},   {"host", ZCC_SUCCESS},   {"Lathe", ZCC_INVALID_TARGET}, {"", ZCC_INVALID_TARGET}};
    for (const auto& [pDevice, eExpected] : cases)
    {
        zcc_error eError = ZCC_ERROR;
        const zccTargetInfo target = GetTargetInfo("ovkil", pDevice, &eError);
        EXPECT_EQ(eError, eExpected) << pDevice;
        EXPECT_EQ(target.device[0] != 0, eExpected == ZCC_SUCCESS);
        zccBinary* pBinary = BinaryInit(104, &target, nullptr, &eError);
        EXPECT_EQ(pBinary != nullptr, eExpected == ZCC_SUCCESS);
        BinaryFini(pBinary);
    }
    zcc_error eError = ZCC_SUCCESS;
    GetTargetInfo("spirv", "Quench", &eError);
    EXPECT_EQ(eError, ZCC_INVALID_TARGET);
}

TEST_F(CompilerLibrary, ConvertsTextToTokensAndBack)
{
    MakeBinary();
    std::vector<uint32_t> vExpected;
    SDiagnostic diag;
    ASSERT_TRUE(AssembleIL(s_pText, std::strlen(s_pText), vExpected, diag));
    EXPECT_EQ(InsertSymbol(m_pCompiler, m_pBinary, s_pText, std::strlen(s_pText), zccINTERNAL, "__debugil_text"),
              ZCC_SUCCESS);
    EXPECT_EQ(Compile(m_pCompiler, m_pBinary, "", ZCC_TYPE_OVKIL_TEXT, ZCC_TYPE_OVKIL_BINARY, nullptr), ZCC_SUCCESS);
    const std::string strTokens = Internal("__debugil_binary");
    ASSERT_EQ(strTokens.size(), vExpected.size() * 4);
    EXPECT_EQ(std::memcmp(strTokens.data(), vExpected.data(), strTokens.size()), 0);

    EXPECT_EQ(RemoveSymbol(m_pCompiler, m_pBinary, zccINTERNAL, "__debugil_text"), ZCC_SUCCESS);
    EXPECT_EQ(RemoveSymbol(m_pCompiler, m_pBinary, zccINTERNAL, "__debugil_text"), ZCC_NO_SYMBOL);
    EXPECT_EQ(Compile(m_pCompiler, m_pBinary, "", ZCC_TYPE_OVKIL_BINARY, ZCC_TYPE_OVKIL_TEXT, nullptr), ZCC_SUCCESS);
    EXPECT_EQ(Internal("__debugil_text"), s_pText);
}

TEST_F(CompilerLibrary, SaysWhyItRefuses)
{
    MakeBinary();
    const auto CompileText = [&]
    { return Compile(m_pCompiler, m_pBinary, "", ZCC_TYPE_OVKIL_TEXT, ZCC_TYPE_OVKIL_BINARY, KeepLog); };
    EXPECT_EQ(CompileText(), ZCC_NO_SYMBOL);
    EXPECT_EQ(InsertSymbol(m_pCompiler, m_pBinary, "il_cs_2_0\nmvo", 13, zccINTERNAL, "__debugil_text"), ZCC_SUCCESS);
    EXPECT_EQ(CompileText(), ZCC_ERROR);
    EXPECT_EQ(s_strLog, "error: line 2, column 1: expected an instruction, got 'mvo'");
    EXPECT_EQ(Internal("__debugil_binary"), "");
    EXPECT_EQ(Compile(m_pCompiler, m_pBinary, "", ZCC_TYPE_OVKIL_TEXT, ZCC_TYPE_OVKIL_TEXT, nullptr), ZCC_UNSUPPORTED);
    EXPECT_EQ(Compile(nullptr, m_pBinary, "", ZCC_TYPE_OVKIL_TEXT, ZCC_TYPE_OVKIL_BINARY, nullptr), ZCC_INVALID_ARG);
    zcc_error eError = ZCC_SUCCESS;
    EXPECT_EQ(ReadFromMem("no image", 8, &eError), nullptr);
    EXPECT_EQ(eError, ZCC_INVALID_FILE);
    EXPECT_EQ(ReadFromFile("/nowhere/at/all", &eError), nullptr);
    EXPECT_EQ(eError, ZCC_INVALID_FILE);
}

TEST_F(CompilerLibrary, ReadsAsksChangesAndWritesAnImage)
{
    ReadTwoKernels();
    EXPECT_EQ(Internal("__debugil_text").substr(0, 10), "il_cs_2_0\n");

    unsigned int nId = 0;
    size_t nSize = 0;
    EXPECT_EQ(QueryInfo(m_pCompiler, m_pBinary, RT_GPU_FUNC_ID, "second", nullptr, &nSize), ZCC_SUCCESS);
    EXPECT_EQ(nSize, sizeof(nId));
    EXPECT_EQ(QueryInfo(m_pCompiler, m_pBinary, RT_GPU_FUNC_ID, "second", &nId, &nSize), ZCC_SUCCESS);
    EXPECT_EQ(nId, 1025u);
    char device[16] = {};
    nSize = sizeof(device);
    EXPECT_EQ(QueryInfo(m_pCompiler, m_pBinary, RT_DEVICE_NAME, "first", device, &nSize), ZCC_SUCCESS);
    EXPECT_STREQ(device, "quench");
    EXPECT_EQ(QueryInfo(m_pCompiler, m_pBinary, RT_GPU_FUNC_ID, "third", nullptr, &nSize), ZCC_NO_SYMBOL);
    EXPECT_EQ(QueryInfo(m_pCompiler, m_pBinary, RT_ARGUMENT_ARRAY, "first", nullptr, &nSize), ZCC_UNSUPPORTED);

    EXPECT_EQ(Disassemble(m_pCompiler, m_pBinary, "second", KeepLog), ZCC_SUCCESS);
    EXPECT_EQ(s_strLog.substr(0, 28), "il_cs_2_0\ncall 1025\nendmain\n");

    EXPECT_EQ(DbgAddArgument(m_pCompiler, m_pBinary, "first", "out", false), ZCC_SUCCESS);
    EXPECT_EQ(DbgAddArgument(m_pCompiler, m_pBinary, "first", "sel", true), ZCC_SUCCESS);
    EXPECT_EQ(DbgAddArgument(m_pCompiler, m_pBinary, "third", "sel", true), ZCC_NO_SYMBOL);
    EXPECT_EQ(RemoveSection(m_pCompiler, m_pBinary, zccLLVMIR), ZCC_SUCCESS);
    EXPECT_EQ(InsertSection(m_pCompiler, m_pBinary, "note", 4, zccCOMMENT), ZCC_SUCCESS);

    void* pMem = nullptr;
    ASSERT_EQ(WriteToMem(m_pBinary, &pMem, &nSize), ZCC_SUCCESS);
    const std::vector<char> vWritten(static_cast<char*>(pMem), static_cast<char*>(pMem) + nSize);
    free(pMem);
    EXPECT_EQ(Modules::ReadElfComplaints(vWritten), "");
    const SBuildResult result = BuildFromBinary(vWritten.data(), vWritten.size(), SBuildOptions(), Modules::Newer());
    ASSERT_TRUE(result.bOk) << result.strLog;
    ASSERT_EQ(result.vKernels[0].vArguments.size(), 2u);
    EXPECT_EQ(result.vKernels[0].vArguments[1].strName, "sel");
    EXPECT_EQ(result.vKernels[0].nConstantBuffer1Elements, 2u);
    EXPECT_EQ(result.vKernels[1].vArguments.size(), 5u) << "the neighbour's block moved and is whole";

    const Modules::CTemporaryFile file({});
    EXPECT_EQ(WriteToFile(m_pBinary, file.Name().c_str()), ZCC_SUCCESS);
    zcc_error eError = ZCC_ERROR;
    zccBinary* pAgain = ReadFromFile(file.Name().c_str(), &eError);
    ASSERT_EQ(eError, ZCC_SUCCESS);
    const void* pNote = ExtractSection(m_pCompiler, pAgain, &nSize, zccCOMMENT, &eError);
    EXPECT_EQ(std::string(static_cast<const char*>(pNote), nSize), "note");
    EXPECT_EQ(ExtractSection(m_pCompiler, pAgain, &nSize, zccLLVMIR, &eError), nullptr);
    EXPECT_EQ(eError, ZCC_NO_SYMBOL);
    EXPECT_EQ(BinaryFini(pAgain), ZCC_SUCCESS);
}

TEST(LowLevelRuntime, ExportsItsNamesAndConverts)
{
    const std::string strFile = KestrelTest::PlatformFile("libovkqrlrt.so");
    std::set<std::string> expected;
#define NAME(name, type) expected.insert("qrl" #name);
    QRL_RT_ENTRY_POINTS(NAME)
#undef NAME
    EXPECT_EQ(expected.size(), 38u);
    EXPECT_EQ(ExportsOf(strFile), expected);

    void* pLibrary = dlopen(strFile.c_str(), RTLD_NOW);
    ASSERT_NE(pLibrary, nullptr) << dlerror();
    const auto Init = reinterpret_cast<PFNqrlInit>(dlsym(pLibrary, "qrlInit"));
    const auto Shutdown = reinterpret_cast<PFNqrlShutdown>(dlsym(pLibrary, "qrlShutdown"));
    const auto Supported = reinterpret_cast<PFNqrlExtSupported>(dlsym(pLibrary, "qrlExtSupported"));
    const auto GetProc = reinterpret_cast<PFNqrlExtGetProc>(dlsym(pLibrary, "qrlExtGetProc"));
    EXPECT_EQ(Supported(QRL_PRIVATE_EXT_COMPILER), QRL_RESULT_NOT_INITIALIZED);
    EXPECT_EQ(Init(), QRL_RESULT_OK);
    EXPECT_EQ(Init(), QRL_RESULT_ALREADY);
    EXPECT_EQ(Supported(QRL_PRIVATE_EXT_COMPILER), QRL_RESULT_OK);
    EXPECT_EQ(Supported(1), QRL_RESULT_NOT_SUPPORTED);
    EXPECT_NE(reinterpret_cast<QRLunusedEntry>(dlsym(pLibrary, "qrlDeviceOpen"))(), QRL_RESULT_OK);

    const auto Proc = [&](const char* pName)
    {
        QRLextproc pfn = nullptr;
        EXPECT_EQ(GetProc(&pfn, QRL_PRIVATE_EXT_COMPILER, pName), QRL_RESULT_OK) << pName;
        return pfn;
    };
    QRLextproc pfnUnknown = nullptr;
    EXPECT_EQ(GetProc(&pfnUnknown, QRL_PRIVATE_EXT_COMPILER, "qrlOther"), QRL_RESULT_NOT_SUPPORTED);
    const auto ToBinary = reinterpret_cast<PFNqrlConvertTextToBinary>(Proc("qrlConvertTextToBinary"));
    const auto ToText = reinterpret_cast<PFNqrlConvertBinaryToText>(Proc("qrlConvertBinaryToText"));
    const auto Free = reinterpret_cast<PFNqrlFreeTextBinary>(Proc("qrlFreeTextBinary"));
    void* pBinary = nullptr;
    QRLuint nSize = 0;
    ASSERT_EQ(ToBinary(&pBinary, &nSize, QRL_LANGUAGE_IL, s_pText), QRL_RESULT_OK);
    char* pText = nullptr;
    ASSERT_EQ(ToText(pBinary, nSize, QRL_LANGUAGE_IL, &pText), QRL_RESULT_OK);
    EXPECT_STREQ(pText, s_pText);
    EXPECT_EQ(Free(pText), QRL_RESULT_OK);
    EXPECT_EQ(ToText(pBinary, nSize - 4, QRL_LANGUAGE_IL, &pText), QRL_RESULT_OK) << "without its end it still decodes";
    EXPECT_EQ(Free(pText), QRL_RESULT_OK);
    EXPECT_EQ(Free(pBinary), QRL_RESULT_OK);
    EXPECT_NE(ToBinary(&pBinary, &nSize, QRL_LANGUAGE_IL, "mov"), QRL_RESULT_OK);
    EXPECT_NE(ToBinary(&pBinary, &nSize, static_cast<QRLlanguage>(2), s_pText), QRL_RESULT_OK);
    EXPECT_EQ(Shutdown(), QRL_RESULT_OK);
    dlclose(pLibrary);
}

} // namespace
