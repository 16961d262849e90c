#include "binary/Elf.h"
#include "binary/ElfUtils.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"
#include "platform/compiler/ElfReader.h"
#include "platform/compiler/ProgramBuilder.h"
#include "tests/platform/compiler/Modules.h"

#include <gtest/gtest.h>

#include <random>

using namespace KestrelPlatform;

namespace
{

SBuildResult Build(const std::string& strSource, const std::string& strOptions = "-g",
                   const SDeviceTarget& target = Modules::Newer())
{
    SBuildOptions options;
    std::string strUnknown;
    EXPECT_TRUE(ParseBuildOptions(strOptions, options, strUnknown)) << strUnknown;
    return BuildFromSource(strSource, options, target);
}

SBuildResult Rebuild(const std::vector<char>& vImage, const std::string& strOptions,
                     const SDeviceTarget& target = Modules::Newer())
{
    SBuildOptions options;
    std::string strUnknown;
    EXPECT_TRUE(ParseBuildOptions(strOptions, options, strUnknown)) << strUnknown;
    return BuildFromBinary(vImage.data(), vImage.size(), options, target);
}

std::string SectionText(const std::vector<char>& vImage, const char* pName)
{
    CElfReader elf;
    std::string strError;
    std::string_view data = "no such section";
    elf.Read(vImage.data(), vImage.size(), strError);
    elf.FindSection(pName, data);
    return std::string(data);
}

TEST(ProgramBuilder, KernelsOfAModule)
{
    const SBuildResult result = Build(Modules::TwoKernels());
    ASSERT_TRUE(result.bOk) << result.strLog;
    EXPECT_EQ(result.strLog, "");
    ASSERT_EQ(result.vKernels.size(), 2u);

    const SCompiledKernel& first = result.vKernels[0];
    EXPECT_EQ(first.strName, "first");
    EXPECT_TRUE(first.b64BitAddresses);
    EXPECT_EQ(first.nStaticLocalBytes, 256u);
    EXPECT_EQ(first.nPrivateBytes, 32u);
    EXPECT_EQ(first.nMaxGroupSize, 64u);
    EXPECT_EQ(first.nConstantBuffer1Elements, 0u);
    // The call replaces the placeholder, and each instruction knows its line of the debug text.
    EXPECT_EQ(std::vector<uint32_t>(first.vTokens.begin(), first.vTokens.begin() + 5),
              (std::vector<uint32_t>{0, 0x00030200, 8, 1024, 43}));
    EXPECT_EQ(first.vLines, (std::vector<uint32_t>{2, 3, 4, 7, 8, 9, 10, 12, 13, 14, 15, 16, 17, 18}));

    const SCompiledKernel& second = result.vKernels[1];
    EXPECT_FALSE(second.b64BitAddresses);
    EXPECT_EQ(second.nMaxGroupSize, 32u);
    EXPECT_EQ(second.nRequiredGroupSize[1], 4u);
    EXPECT_EQ(second.nConstantBuffer1Elements, 5u);
    EXPECT_EQ(second.vTokens[3], 1025u);
    ASSERT_EQ(second.vArguments.size(), 5u);
    EXPECT_EQ(second.vArguments[0].nSize, 12u);
    EXPECT_EQ(second.vArguments[0].nSlotSize, 16u);
    EXPECT_EQ(second.vArguments[1].eKind, SKernelArgument::GlobalPointer);
    EXPECT_EQ(second.vArguments[1].eAccess, SKernelArgument::ReadOnly);
    EXPECT_TRUE(second.vArguments[1].bVolatile);
    EXPECT_EQ(second.vArguments[1].nResource, 12u);
    EXPECT_EQ(second.vArguments[2].eKind, SKernelArgument::LocalPointer);
    EXPECT_EQ(second.vArguments[3].eKind, SKernelArgument::Image);
    EXPECT_EQ(second.vArguments[3].eAccess, SKernelArgument::WriteOnly);
    EXPECT_EQ(second.vArguments[3].nSlotSize, 32u);
    EXPECT_EQ(second.vArguments[4].eKind, SKernelArgument::Sampler);
    ASSERT_EQ(second.vSamplers.size(), 1u);
    EXPECT_EQ(second.vSamplers[0].nValue, 21u);
}

TEST(ProgramBuilder, ConstantsBeginAnElementAtEachWord)
{
    std::string strSource = Modules::TwoKernels();
    const std::string strLine = ";function:1:1030\n";
    strSource.insert(strSource.find(strLine), ";constants:2:0100000002000000ff0000ff\n");
    const SBuildResult result = Build(strSource);
    ASSERT_TRUE(result.bOk) << result.strLog;
    const std::vector<uint32_t> vExpected = {1, 2, 0xFF0000FF, 0, 2, 0xFF0000FF, 0, 0, 0xFF0000FF, 0, 0, 0};
    EXPECT_EQ(result.vKernels[0].vConstants, vExpected);
    EXPECT_TRUE(result.vKernels[1].vConstants.empty());
    EXPECT_EQ(Rebuild(result.GetImage(), "-use-debugil").vKernels[0].vConstants, vExpected);
}

TEST(ProgramBuilder, ImagesAreWholeElfFilesForOtherReaders)
{
    for (const char* pOptions : {"", "-g", "-g -just-kernel=second"})
    {
        const SBuildResult result = Build(Modules::TwoKernels(), pOptions);
        ASSERT_TRUE(result.bOk) << result.strLog;
        EXPECT_EQ(Modules::ReadElfComplaints(result.GetImage()), "") << pOptions;
        std::vector<std::string> vNames;
        EXPECT_TRUE(OVK_ElfUtils::ListAvailableMetadata(result.GetImage(), vNames));
        EXPECT_EQ(vNames.size(), std::string(pOptions).find("just") == std::string::npos ? 2u : 1u);
        CElf elf(result.GetImage());
        ASSERT_TRUE(elf.good());
        for (const char* pSection : {".ovkil", ".llvmir", ".text", ".rodata", ".symtab", ".strtab", ".shstrtab"})
        {
            EXPECT_NE(elf.GetSection(pSection), nullptr) << pSection;
        }
        EXPECT_EQ(elf.GetSection(".debugil") != nullptr, std::string(pOptions).find("-g") != std::string::npos);
    }
}

TEST(ProgramBuilder, LineNOfTheDebugTextIsItemN)
{
    const std::string strText = SectionText(Build(Modules::TwoKernels()).GetImage(), ".debugil");
    EXPECT_EQ(strText, "il_cs_2_0\n;$$$$$$$$$$\nendmain\nfunc 1024\n; first\ndcl_max_thread_per_group 64\nmov r0, r1\n"
                       "ret\nendfunc\nfunc 1025\ndcl_num_thread_per_group 8, 4, 1\ncall 7\nret\nendfunc\nfunc 7\nret\n"
                       "endfunc\nend\n");
}

TEST(ProgramBuilder, ReadsItsOwnImagesBack)
{
    const SBuildResult built = Build(Modules::TwoKernels());
    for (const char* pOptions : {"", "-use-debugil", "-ignore-env -use-debugil -just-kernel=second"})
    {
        const SBuildResult again = Rebuild(built.GetImage(), pOptions);
        ASSERT_TRUE(again.bOk) << pOptions << again.strLog;
        const size_t nFirst = again.vKernels.size() == 1 ? 1 : 0;
        for (size_t i = 0; i < again.vKernels.size(); ++i)
        {
            EXPECT_EQ(again.vKernels[i].vTokens, built.vKernels[i + nFirst].vTokens);
            EXPECT_EQ(again.vKernels[i].vLines, built.vKernels[i + nFirst].vLines);
            EXPECT_EQ(again.vKernels[i].vArguments.size(), built.vKernels[i + nFirst].vArguments.size());
            EXPECT_EQ(again.vKernels[i].nMaxGroupSize, built.vKernels[i + nFirst].nMaxGroupSize);
        }
        EXPECT_EQ(Modules::ReadElfComplaints(again.GetImage()), "");
    }
}

/// An image as a debugger changes it: without code, but with text that calls the kernel or has the placeholder, and
/// with changed metadata.
std::vector<char> Patched(bool bCall)
{
    std::vector<char> vImage = Build(Modules::TwoKernels()).GetImage();
    for (const char* pSection : {".ovkil", ".llvmir", ".text"})
    {
        EXPECT_TRUE(OVK_ElfUtils::RemoveElfSection(&vImage, pSection));
    }
    if (bCall)
    {
        EXPECT_TRUE(OVK_ElfUtils::PatchKernelEntry("second", &vImage));
    }
    std::string strMetadata;
    EXPECT_TRUE(OVK_ElfUtils::ExtractMetadataFromElf(vImage, "second", &strMetadata));
    strMetadata.replace(strMetadata.find(";function:1:1030"), 16, ";value:sel:i32:1:1:80\n;function:2:1030:5");
    EXPECT_TRUE(OVK_ElfUtils::InsertMetadataIntoElf(&vImage, "second", strMetadata));
    EXPECT_EQ(Modules::ReadElfComplaints(vImage), "");
    return vImage;
}

TEST(ProgramBuilder, TakesPatchedImages)
{
    for (const bool bCall : {false, true})
    {
        const std::vector<char> vImage = Patched(bCall);
        const SBuildResult result = Rebuild(vImage, "-ignore-env -use-debugil -just-kernel=second");
        ASSERT_TRUE(result.bOk) << result.strLog;
        ASSERT_EQ(result.vKernels.size(), 1u);
        EXPECT_EQ(result.vKernels[0].vTokens[3], 1025u);
        EXPECT_EQ(result.vKernels[0].vArguments.size(), 6u);
        EXPECT_EQ(result.vKernels[0].nConstantBuffer1Elements, 6u);

        const SBuildResult all = Rebuild(vImage, "-use-debugil");
        EXPECT_EQ(all.vKernels.size(), bCall ? 1u : 2u) << all.strLog;
        EXPECT_EQ(Rebuild(vImage, "").strLog,
                  "error: the binary has no .text section; its IL text can be compiled with -use-debugil\n");
    }
    EXPECT_EQ(Rebuild(Patched(true), "-use-debugil -just-kernel=first").strLog,
              "error: .debugil: kernel first: the main body has neither the line ';$$$$$$$$$$' nor a call of function "
              "1024\n");
}

TEST(ProgramBuilder, TextSurvivesTheWhitespaceFilterOfAConversion)
{
    std::string strText = SectionText(Build(Modules::TwoKernels()).GetImage(), ".debugil");
    strText += ";holds func\n;and follows it\n;mend\n;mdef\n;x\n";
    std::vector<uint32_t> vTokens;
    std::vector<uint32_t> vFiltered;
    SDiagnostic diag;
    ASSERT_TRUE(AssembleIL(strText.data(), strText.size(), vTokens, diag)) << diag.ToString();
    std::string strPrinted;
    std::string strError;
    ASSERT_TRUE(DisassembleIL(vTokens.data(), vTokens.size(), strPrinted, strError));
    OVK_ElfUtils::ProcessILText(strPrinted, true, false);
    EXPECT_NE(strPrinted.find("func 1024 ; first\n"), std::string::npos) << "the filter joins comments to functions";
    ASSERT_TRUE(AssembleIL(strPrinted.data(), strPrinted.size(), vFiltered, diag)) << diag.ToString();
    EXPECT_EQ(vFiltered, vTokens) << strPrinted;
}

struct SRefusal
{
    const char* pWhat;
    std::string strSource;
    const char* pLog;
};

std::string Replaced(std::string str, const std::string& strFind, const std::string& strWith)
{
    return str.replace(str.find(strFind), strFind.size(), strWith);
}

TEST(ProgramBuilder, LogsSayWhichLineAndWhy)
{
    const std::string strOne = Modules::Metadata("first", "1024") + Modules::TwoKernelText();
    const std::string strValue = Modules::Metadata("first", "1024", ";value:n:i32:1:1:0\n") + Modules::TwoKernelText();
    const SRefusal refusals[] = {
        {"instruction", Replaced(strOne, "  dcl_max", "  dcl_mux"),
         "error: line 12, column 3: expected an instruction, got 'dcl_mux_thread_per_group'\n"},
        {"comment column", Replaced(strOne, "func 1024 ; first", " func x ; first"),
         "error: line 10, column 7: expected a number, got 'x'\n"},
        {"call", Replaced(strOne, "call 7", "call 8"),
         "error: line 18, column 1: call of function 8, which isn't there\n"},
        {"opening line", Replaced(strOne, "il_cs_2_0\n", ""),
         "error: line 8, column 1: expected the opening line 'il_cs_2_0', got 'endmain'\n"},
        {"no text", Modules::Metadata("first", "1024"),
         "error: line 1, column 1: expected the opening line 'il_cs_2_0', got the end of the text\n"},
        {"placeholder", Replaced(strOne, ";$$$$$$$$$$\n", ""),
         "error: kernel first: the main body has neither the line ';$$$$$$$$$$' nor a call of function 1024\n"},
        {"placeholders", Replaced(strOne, ";$$$$$$$$$$\n", ";$$$$$$$$$$\n;$$$$$$$$$$\n"),
         "error: line 9, column 1: a second line ';$$$$$$$$$$', and a kernel is called in one place\n"},
        {"function", Modules::Metadata("first", "1026") + Modules::TwoKernelText(),
         "error: kernel first is function 1026, which isn't there\n"},
        {"group size", Replaced(strOne, "group 64", "group 640"),
         "error: kernel first declares groups of 640 work-items, the device has 256\n"},
        {"names", Modules::Metadata("first", "1024") + strOne, "error: two kernels are named first\n"},
        {"ids", Modules::Metadata("second", "1024") + strOne,
         "error: kernel first has the unique id of another kernel\n"},
        {"no metadata", Modules::TwoKernelText(),
         "error: line 1, column 1: the module has no kernel: expected a metadata block that starts with "
         "';ARGSTART:'\n"},
        {"number", Replaced(strValue, ":1:1:0", ":1:1:x"),
         "error: line 5, column 1: metadata: expected a number, got 'x'\n"},
        {"offset", Replaced(strValue, ":1:1:0", ":1:1:8"),
         "error: line 5, column 1: metadata: the constant buffer offset 8 is no multiple of 16, or too large\n"},
        {"type", Replaced(strValue, "i32", "event"), "error: line 5, column 1: metadata: unknown data type 'event'\n"},
        {"fields", Replaced(strValue, ":1:1:0", ":1"),
         "error: line 5, column 1: metadata: a value line with 4 fields\n"},
        {"pointer fields", Replaced(strValue, ";value:n:i32:1:1:0", ";pointer:p:i32:1:1:0:uav:1:4"),
         "error: line 5, column 1: metadata: a pointer line of this revision has 12 fields, not 9\n"},
        {"constants of another buffer", Replaced(strValue, ";value:n:i32:1:1:0", ";constants:3:00000000"),
         "error: line 5, column 1: metadata: expected constants:2:WORDS with at most 65536 bytes\n"},
        {"part of a word", Replaced(strValue, ";value:n:i32:1:1:0", ";constants:2:001122"),
         "error: line 5, column 1: metadata: expected constants:2:WORDS with at most 65536 bytes\n"},
        {"digits", Replaced(strValue, ";value:n:i32:1:1:0", ";constants:2:001122xx"),
         "error: line 5, column 1: metadata: expected hexadecimal digits in the constants\n"},
        {"version", Replaced(strOne, ";version:3:1:104\n", ""),
         "error: line 2, column 1: metadata: expected the version line after ARGSTART\n"},
        {"end", Replaced(strOne, ";ARGEND:__OpenCL_first", ";ARGEND:__OpenCL_other"),
         "error: line 6, column 1: metadata: ARGEND names '__OpenCL_other_kernel', ARGSTART '__OpenCL_first_kernel'\n"},
        {"name", Replaced(strOne, "ARGSTART:__OpenCL_first_kernel", "ARGSTART:first"),
         "error: line 1, column 1: metadata: expected __OpenCL_NAME_kernel, got 'first'\n"},
    };
    for (const SRefusal& refusal : refusals)
    {
        const SBuildResult result = Build(refusal.strSource);
        EXPECT_FALSE(result.bOk) << refusal.pWhat;
        EXPECT_TRUE(result.GetImage().empty() && result.vKernels.empty()) << refusal.pWhat;
        EXPECT_EQ(result.strLog, refusal.pLog) << refusal.pWhat;
    }
    EXPECT_EQ(Build(Modules::TwoKernels(), "-just-kernel=third").strLog,
              "error: the source has no kernel named third\n");
    EXPECT_EQ(Build(Modules::TwoKernels(), "", Modules::Older()).strLog,
              "error: kernel first has 64-bit addresses, the device has 32-bit ones\n");
}

TEST(ProgramBuilder, DamagedImagesAreRefusedNotTrusted)
{
    const std::vector<char> vImage = Build(Modules::TwoKernels()).GetImage();
    for (size_t n = 0; n < vImage.size(); n += 7)
    {
        EXPECT_FALSE(Rebuild(std::vector<char>(vImage.begin(), vImage.begin() + static_cast<long>(n)), "").bOk) << n;
    }
    std::mt19937 random(3);
    for (int i = 0; i < 3000; ++i)
    {
        std::vector<char> vDamaged = vImage;
        for (int n = 0; n < 4; ++n)
        {
            vDamaged[random() % vDamaged.size()] = static_cast<char>(random());
        }
        const SBuildResult result = Rebuild(vDamaged, i % 2 == 0 ? "" : "-use-debugil");
        EXPECT_EQ(result.bOk, result.strLog.empty());
    }
    // The checksum detects a changed token.
    std::vector<char> vChanged = vImage;
    const std::string strCode = SectionText(vImage, ".text");
    const auto place = std::search(vChanged.begin(), vChanged.end(), strCode.begin() + 40, strCode.begin() + 80);
    *place ^= 1;
    EXPECT_EQ(Rebuild(vChanged, "").strLog, "error: kernel first: its device code is missing or damaged\n");
}

TEST(ProgramBuilder, Options)
{
    SBuildOptions options;
    std::string strUnknown;
    EXPECT_TRUE(
        ParseBuildOptions("  -g -ignore-env -cl-mad-enable -D A=1 -DB -I dir -just-kernel=k ", options, strUnknown));
    EXPECT_TRUE(options.bDebug);
    EXPECT_FALSE(options.bUseDebugIL);
    EXPECT_EQ(options.strJustKernel, "k");
    for (const char* pBad : {"-q", "-just-kernel=", "-D", "g", "-cl-fastest"})
    {
        EXPECT_FALSE(ParseBuildOptions(std::string("-g ") + pBad, options, strUnknown)) << pBad;
        EXPECT_EQ(strUnknown, pBad);
    }
}

} // namespace
