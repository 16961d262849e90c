#include "binary/ElfUtils.h"

#include "binary/BifUtils.h"
#include "binary/Elf.h"

#include "TestImage.h"

#include <gtest/gtest.h>

#include <map>

namespace
{

using namespace OVK_ElfUtils;

std::string Metadata(const std::string& strKernel, unsigned int nNumber)
{
    return ";ARGSTART:__OpenCL_" + strKernel + "_kernel\n;version:3:1:104\n;uniqueid:" + std::to_string(nNumber) +
           "\n;memory:hwlocal:64\n;function:1:1\n;ARGEND:__OpenCL_" + strKernel + "_kernel\n";
}

/// The sections of a kernel binary, after those common to all test images.
enum ESection : uint16_t
{
    DebugIL = CTestImage::s_nFirst,
    OvkIL,
    LLVMIR,
    Text,
    RoData
};

// The fake compiler's IL is decimal numbers, so the call's text is patched into comments and out of them.
const std::string s_DebugIL = "1 2\n  3\n4";

/// Two kernels, "k" (number 12) and "k_2" (number 1), and the metadata of a function.
CTestImage MakeKernels(const std::string& strDebugIL = s_DebugIL)
{
    CTestImage image;
    image.vSections = {{".debugil", SHT_PROGBITS, 1, strDebugIL, 0, 0},
                       {".ovkil", SHT_PROGBITS, 1, "IL of k;IL of k_2;", 0, 0},
                       {".llvmir", SHT_PROGBITS, 1, "BC", 0, 0},
                       {".text", SHT_PROGBITS, 16, "code of k and k_2", 0, 0},
                       {".rodata", SHT_PROGBITS, 4, "", 0, 0}};
    const auto addBlock = [&image](const std::string& strName, const std::string& strData)
    {
        std::string& strRoData = image.vSections[RoData - CTestImage::s_nFirst].strData;
        image.vSymbols.push_back({"__OpenCL_" + strName, RoData, strRoData.size(), strData.size(), STT_OBJECT});
        strRoData += strData;
    };
    addBlock("k_2_metadata", Metadata("k_2", 1) + '\0' + "rest");
    addBlock("k_metadata", Metadata("k", 12));
    addBlock("f_fmetadata", "meta of f");
    addBlock("k_header", "HEAD k");
    addBlock("k_2_header", "HEAD k_2");
    image.vSymbols.push_back({"__OpenCL_k_ovkil", OvkIL, 0, 8, STT_OBJECT});
    image.vSymbols.push_back({"__OpenCL_k_2_ovkil", OvkIL, 8, 10, STT_OBJECT});
    image.vSymbols.push_back({"code", Text, 0, 4, STT_FUNC});
    return image;
}

std::string Section(const std::vector<char>& vImage, const std::string& strName)
{
    std::vector<char> vData;
    return GetDataFromSection(strName, vImage, &vData) ? std::string(vData.begin(), vData.end()) : "none";
}

/// The bytes of each symbol, by name.
std::map<std::string, std::string> Blocks(const std::vector<char>& vImage)
{
    std::map<std::string, std::string> mapBlocks;
    const CElf elf(vImage);
    for (auto symbol = elf.GetSymbolTable()->SymbolsBegin(); symbol != elf.GetSymbolTable()->SymbolsEnd(); ++symbol)
    {
        std::vector<char> vData;
        if (GetDataForSymbol(symbol->symName, &elf, &vData))
        {
            mapBlocks[symbol->symName] = std::string(vData.begin(), vData.end());
        }
    }
    return mapBlocks;
}

class BlockSize : public testing::TestWithParam<int>
{
};

TEST_P(BlockSize, NeighboursStayWhatTheyAre)
{
    for (const char* szName : {"__OpenCL_k_2_metadata", "__OpenCL_k_metadata", "__OpenCL_k_2_header"})
    {
        std::vector<char> vImage = MakeKernels().Make64();
        auto mapExpected = Blocks(vImage);
        const size_t nOldSize = mapExpected[szName].size();
        const std::string strNew(nOldSize + static_cast<size_t>(GetParam()), '#');
        const size_t nOldSection = Section(vImage, ".rodata").size();

        ASSERT_TRUE(SetDataForSymbol(szName, &vImage, strNew.data(), strNew.size()));
        mapExpected[szName] = strNew;
        EXPECT_EQ(Blocks(vImage), mapExpected) << szName;
        EXPECT_EQ(Section(vImage, ".rodata").size(), nOldSection + static_cast<size_t>(GetParam()));
        EXPECT_EQ(ReadElfComplaints(vImage), "");
    }
}

INSTANTIATE_TEST_SUITE_P(ByHowMuch, BlockSize, testing::Values(0, 100, -6));

TEST(ElfUtils, AZeroSizedNeighbourMovesAndAnOverlappingOneStays)
{
    CTestImage image = MakeKernels();
    image.vSymbols = {{"block", RoData, 4, 4, 0},
                      {"inside", RoData, 6, 4, 0},
                      {"at the end", RoData, 8, 0, 0},
                      {"elsewhere", Text, 8, 1, 0}};
    std::vector<char> vImage = image.Make64();
    ASSERT_TRUE(SetDataForSymbol("block", &vImage, "x", 1));
    CElf elf(vImage);
    EXPECT_EQ(elf.GetSymbolTable()->GetSymbol("block")->symEntry.st_value, 4u);
    EXPECT_EQ(elf.GetSymbolTable()->GetSymbol("inside")->symEntry.st_value, 6u);
    EXPECT_EQ(elf.GetSymbolTable()->GetSymbol("at the end")->symEntry.st_value, 5u);
    EXPECT_EQ(elf.GetSymbolTable()->GetSymbol("elsewhere")->symEntry.st_value, 8u);
}

TEST(ElfUtils, ABlockThatIsNotThereIsRefused)
{
    constexpr uint64_t n4GiB = 1ull << 32;
    const struct
    {
        CTestImage::SSymbol symbol;
        bool bOthersMove; ///< false: its place prevents every move
    } s_Bad[] = {{{"beyond", RoData, 1, 0xFFFF, 0}, true},    {{"absolute", SHN_ABS, 0, 1, 0}, true},
                 {{"wraps", RoData, ~0ull - 3, 8, 0}, false}, {{"far", RoData, n4GiB, 1, 0}, false},
                 {{"long", RoData, 0, n4GiB, 0}, false},      {{"over", RoData, n4GiB - 1, 1, 0}, false}};
    for (const auto& bad : s_Bad)
    {
        CTestImage image = MakeKernels();
        image.vSymbols.push_back(bad.symbol);
        std::vector<char> vImage = image.Make64();
        const std::vector<char> vBefore = vImage;
        for (const std::string& strName : {bad.symbol.strName, std::string("nobody")})
        {
            EXPECT_FALSE(SetDataForSymbol(strName, &vImage, "x", 1)) << strName;
            EXPECT_FALSE(GetDataForSymbol(strName, vImage, nullptr)) << strName;
        }
        EXPECT_EQ(vImage, vBefore);
        EXPECT_TRUE(GetDataForSymbol("__OpenCL_k_metadata", vImage, nullptr));
        EXPECT_EQ(SetDataForSymbol("__OpenCL_k_metadata", &vImage, "x", 1), bad.bOthersMove) << bad.symbol.strName;
    }
}

TEST(ElfUtils, ACallWithoutItsObjectIsRefused)
{
    std::vector<char> vImage = MakeKernels().Make64();
    CElf good(vImage), bad(std::vector<char>{});
    ASSERT_TRUE(good.Store(&vImage));
    const std::vector<char> vBefore = vImage;
    CElf* const pNone = nullptr;
    const char* const szBlock = "__OpenCL_k_metadata";
    const std::vector<bool> vResults = {RemoveElfSection(nullptr, ".text"),
                                        PatchKernelEntry("k", nullptr),
                                        UnpatchKernelEntry("k", nullptr),
                                        ExtractKernelFromBinary("k", vImage, nullptr),
                                        ExtractBinaryILFromElf(vImage, nullptr),
                                        ExtractMetadataFromElf(vImage, "k", nullptr),
                                        GetKernelFunctionNumber("k", vImage, nullptr),
                                        GetDataFromSection(".rodata", vImage, nullptr),
                                        GetDataForSymbol(szBlock, pNone, nullptr),
                                        SetDataForSymbol(szBlock, pNone, "x", 1),
                                        SetDataForSymbol(szBlock, &bad, "x", 1),
                                        SetDataForSymbol(szBlock, &good, nullptr, 1),
                                        SetDataForSymbol(szBlock, &vImage, "x", ~size_t(0)),
                                        AddILBinarySection(pNone, "debugil", "debugilbin", false, ""),
                                        AddILBinarySection(&bad, "debugil", "debugilbin", false, ""),
                                        SetDataInSection(ST_DEBUG_IL, pNone, "x", 1, ""),
                                        SetDataInSection(ST_DEBUG_IL, &bad, "x", 1, ""),
                                        SetDataInSection(ST_DEBUG_IL, &good, nullptr, 1, "")};
    for (size_t nResult = 0; nResult < vResults.size(); ++nResult)
    {
        EXPECT_FALSE(vResults[nResult]) << nResult;
    }
    EXPECT_EQ(vImage, vBefore);
    EXPECT_TRUE(good.Store(&vImage));
    EXPECT_EQ(vImage, vBefore);
    EXPECT_TRUE(SetDataForSymbol(szBlock, &good, nullptr, 0));
    EXPECT_TRUE(SetDataInSection(ST_DEBUG_IL, &good, nullptr, 0, ""));
}

TEST(ElfUtils, AnImageWithoutSymbolsHasNoKernels)
{
    CTestImage image = MakeKernels();
    std::vector<char> vImage = image.Make64();
    Elf64_Shdr header;
    char* const pHeader = vImage.data() + image.nSectionHeaders + 3 * sizeof(header);
    std::memcpy(&header, pHeader, sizeof(header));
    header.sh_type = SHT_PROGBITS;
    std::memcpy(pHeader, &header, sizeof(header));

    std::vector<std::string> vNames;
    std::vector<char> vOne;
    EXPECT_TRUE(RemoveElfSymbol(&vImage, "code"));
    EXPECT_TRUE(AddILBinarySection(&vImage, "debugil", "debugilbin", false, ""));
    const std::vector<char> vBefore = vImage;
    EXPECT_FALSE(ListAvailableMetadata(vImage, vNames));
    EXPECT_FALSE(ExtractKernelFromBinary("k", vImage, &vOne));
    EXPECT_FALSE(GetDataForSymbol("code", vImage, nullptr));
    EXPECT_FALSE(SetDataForSymbol("code", &vImage, "x", 1));
    EXPECT_FALSE(AddILBinarySection(&vImage, "debugil", "debugilbin", true, ""));
    EXPECT_FALSE(InsertTextDebugILIntoElf(&vImage, "5"));
    EXPECT_EQ(vImage, vBefore);

    // Nor is one found if the table has another name.
    CElf renamed(image.Make64());
    renamed.GetSymbolTable()->SetName(".symbols");
    EXPECT_FALSE(InsertTextDebugILIntoElf(&renamed, "5"));
}

TEST(ElfUtils, MetadataIsFoundByTheWholeName)
{
    std::vector<char> vImage = MakeKernels().Make64();
    std::vector<std::string> vNames = {"before"};
    EXPECT_TRUE(ListAvailableMetadata(vImage, vNames));
    EXPECT_EQ(vNames, (std::vector<std::string>{"before", "k_2", "k"}));
    EXPECT_FALSE(ListAvailableMetadata({}, vNames));

    std::string strMetadata;
    EXPECT_TRUE(ExtractMetadataFromElf(vImage, "k_2", &strMetadata));
    EXPECT_EQ(strMetadata, Metadata("k_2", 1)); // up to the NUL
    EXPECT_TRUE(InsertMetadataIntoElf(&vImage, "k", "short"));
    EXPECT_TRUE(ExtractMetadataFromElf(vImage, "k", &strMetadata));
    EXPECT_EQ(strMetadata, "short");
    EXPECT_FALSE(ExtractMetadataFromElf(vImage, "f", &strMetadata));
    EXPECT_FALSE(ExtractMetadataFromElf({'x'}, "k", &strMetadata));
    EXPECT_TRUE(InsertTextOvkILIntoElf(&vImage, "k", "new;"));
    EXPECT_EQ(Section(vImage, ".ovkil"), "new;IL of k_2;");
}

struct SEntryCase
{
    const char* szKernel;
    std::string strText;
    std::string strPatched; ///< empty if there is nothing to patch
};

TEST(ElfUtils, TheEntryIsPatchedAndUnpatched)
{
    const SEntryCase s_EntryCases[] = {
        {"k", "a\n;$$$$$$$$$$\nendmain\ncall 12\n;$$$$$$$$$$\n", "a\ncall 12\nendmain\ncall 12\n;$$$$$$$$$$\n"},
        {"k", "; as in ;$$$$$$$$$$ or call 12\n;$$$$$$$$$$", "; as in ;$$$$$$$$$$ or call 12\ncall 12"},
        {"k", "call 12\n", ""},
        {"k", ";$$$$$$$$$", ""},
        {"k", "l1;$$$$$$$$$$\n", ""}, // the call would run into the word
        {"k", "_;$$$$$$$$$$\n", ""},
        {"k", ";$$$$$$$$$$x\na ;$$$$$$$$$$-\n", ";$$$$$$$$$$x\na call 12-\n"},
        {"k", "", ""},
        {"nobody", ";$$$$$$$$$$", ""},
        {"k_2", "mcall 1\ncall 12\ncall 1x\n;$$$$$$$$$$", "mcall 1\ncall 12\ncall 1x\ncall 1"},
    };
    for (const SEntryCase& entryCase : s_EntryCases)
    {
        std::vector<char> vImage = MakeKernels(entryCase.strText).Make64();
        const std::vector<char> vBefore = vImage;
        const bool bPatches = !entryCase.strPatched.empty();
        EXPECT_EQ(PatchKernelEntry(entryCase.szKernel, &vImage), bPatches) << entryCase.strText;
        if (!bPatches)
        {
            EXPECT_EQ(vImage, vBefore);
            continue;
        }
        EXPECT_EQ(Section(vImage, ".debugil"), entryCase.strPatched);
        EXPECT_EQ(ReadElfComplaints(vImage), "");
        unsigned int nNumber = 0;
        std::vector<char> vByNumber = vImage;
        EXPECT_TRUE(UnpatchKernelEntry(entryCase.szKernel, &vImage));
        EXPECT_EQ(Section(vImage, ".debugil"), entryCase.strText);
        EXPECT_TRUE(GetKernelFunctionNumber(entryCase.szKernel, vImage, &nNumber) &&
                    UnpatchKernelEntry(nNumber, &vByNumber));
        EXPECT_EQ(vByNumber, vImage);
    }
}

TEST(ElfUtils, ASecondPatchFails)
{
    std::vector<char> vImage = MakeKernels("x\n;$$$$$$$$$$\n").Make64();
    EXPECT_TRUE(PatchKernelEntry("k", &vImage));
    EXPECT_FALSE(PatchKernelEntry("k", &vImage));
    EXPECT_FALSE(UnpatchKernelEntry("k_2", &vImage));
}

/// Takes a binary from the runtime's image to the patched one. Every image on the way must be readable.
TEST(ElfUtils, ABinaryLivesThroughItsStages)
{
    for (const bool b64 : {true, false})
    {
        CTestImage image = MakeKernels();
        std::vector<char> vImage = b64 ? image.Make64() : image.Make32();
        for (const char* szSection : {".ovkil", ".llvmir", ".text", ".not there"})
        {
            EXPECT_TRUE(RemoveElfSection(&vImage, szSection));
            EXPECT_EQ(ReadElfComplaints(vImage), "") << szSection;
        }
        const std::vector<char> vBefore = vImage;
        EXPECT_FALSE(RemoveElfSection(&vImage, ".symtab")) << "a section that has to stay";
        EXPECT_EQ(vImage, vBefore);
        EXPECT_EQ(Blocks(vImage).count("__OpenCL_k_ovkil") + Blocks(vImage).count("code"), 0u);

        ASSERT_TRUE(AddILBinarySection(&vImage, "debugil", "debugilbin", false, "Quench"));
        EXPECT_EQ(ReadElfComplaints(vImage), "");
        std::vector<unsigned int> vTokens;
        ASSERT_TRUE(ExtractBinaryILFromElf(vImage, &vTokens));
        EXPECT_EQ(vTokens, (std::vector<unsigned int>{1, 2, 3, 4}));
        EXPECT_EQ(Section(vImage, ".debugil"), s_DebugIL);

        vTokens.push_back(0xFFFFFFFF);
        ASSERT_TRUE(InsertBinaryILIntoElf(&vImage, vTokens.data(), vTokens.size() * 4, "Kiln"));
        EXPECT_EQ(ReadElfComplaints(vImage), "");
        EXPECT_EQ(Section(vImage, ".debugil"), "1\n2\n3\n4\n4294967295"); // the filter removes the last line break
        EXPECT_EQ(Section(vImage, ".debugilbin"), "none");
        EXPECT_FALSE(ExtractBinaryILFromElf(vImage, &vTokens));
        EXPECT_FALSE(InsertBinaryILIntoElf(&vImage, vTokens.data(), 4, "Kiln"));
        EXPECT_TRUE(InsertMetadataIntoElf(&vImage, "k", Metadata("k", 12) + ";x:y\n"));
        EXPECT_TRUE(InsertTextDebugILIntoElf(&vImage, "5"));
        EXPECT_EQ(ReadElfComplaints(vImage), "");
        EXPECT_EQ(Section(vImage, ".debugil"), "5");
    }
}

TEST(ElfUtils, AFailedConversionLeavesTheImage)
{
    std::vector<char> vImage = MakeKernels("no numbers").Make64();
    const std::vector<char> vBefore = vImage;
    EXPECT_FALSE(AddILBinarySection(&vImage, "debugil", "debugilbin", false, "Quench"));
    EXPECT_FALSE(AddILBinarySection(&vImage, "nowhere", "debugilbin", false, "Quench"));
    EXPECT_FALSE(AddILBinarySection(&vImage, "debugil", "debugilbin", false, "a device from nowhere"));
    EXPECT_FALSE(AddILBinarySection(&vImage, "strtab", "new", false, "Quench")); // a string table can't be added
    EXPECT_FALSE(SetDataInSection(ST_METADATA, &vImage, "x", 1, ""));
    EXPECT_EQ(vImage, vBefore);

    std::vector<char> vTokens = MakeKernels().Make64();
    ASSERT_TRUE(AddILBinarySection(&vTokens, "debugil", "debugilbin", false, "Quench"));
    const std::vector<char> vWithTokens = vTokens;
    const unsigned int nToken = 7;
    EXPECT_FALSE(InsertBinaryILIntoElf(&vTokens, &nToken, 4, "a device from nowhere"));
    EXPECT_EQ(vTokens, vWithTokens);
}

TEST(ElfUtils, AConversionCanUpdateTheKernelsSymbol)
{
    CTestImage image = MakeKernels();
    image.vSymbols.push_back({"__OpenCL_k_debugil", DebugIL, 0, s_DebugIL.size(), STT_OBJECT});
    std::vector<char> vImage = image.Make64();
    ASSERT_TRUE(AddILBinarySection(&vImage, "debugil", "debugilbin", true, ""));
    EXPECT_EQ(Blocks(vImage)["__OpenCL_k_debugilbin"].size(), 16u);
    const size_t nBlocks = Blocks(vImage).size();
    ASSERT_TRUE(InsertTextDebugILIntoElf(&vImage, "1 2 3 4 5 6"));
    ASSERT_TRUE(AddILBinarySection(&vImage, "debugil", "debugilbin", true, "")); // the symbol is there
    EXPECT_EQ(Blocks(vImage)["__OpenCL_k_debugilbin"].size(), 24u);
    EXPECT_EQ(Blocks(vImage).size(), nBlocks);
    EXPECT_EQ(ReadElfComplaints(vImage), "");
    EXPECT_FALSE(AddILBinarySection(&vImage, "ovkil", "ovkilbin", true, ""));
}

TEST(ElfUtils, OneKernelCanBeTakenOut)
{
    const std::vector<char> vImage = MakeKernels().Make64();
    std::vector<char> vOne;
    ASSERT_TRUE(ExtractKernelFromBinary("k", vImage, &vOne));
    EXPECT_EQ(ReadElfComplaints(vOne), "");
    EXPECT_EQ(Section(vOne, ".rodata"), Metadata("k", 12) + "HEAD k");
    EXPECT_EQ(Section(vOne, ".ovkil"), "IL of k;");
    EXPECT_EQ(Section(vOne, ".text") + Section(vOne, ".llvmir"), "nonenone");
    EXPECT_EQ(Blocks(vOne), (std::map<std::string, std::string>{{"__OpenCL_k_metadata", Metadata("k", 12)},
                                                                {"__OpenCL_k_header", "HEAD k"},
                                                                {"__OpenCL_k_ovkil", "IL of k;"}}));
    EXPECT_FALSE(ExtractKernelFromBinary("nobody", vImage, &vOne));
}

TEST(ElfUtils, TextIsCleanedForEachAssembler)
{
    std::string strText = "dcl_wavesize 64\n  mov\ndcl_wavesize";
    ProcessILText(strText, false, true);
    EXPECT_EQ(strText, "; DCL_WAVESIZE removed\n\n  mov\n; DCL_WAVESIZE removed\n");
    ProcessILText(strText, true, false);
    EXPECT_EQ(strText, "; DCL_WAVESIZE removed\n\nmov\n; DCL_WAVESIZE removed");
    std::string strEmpty;
    ProcessILText(strEmpty, true, true);
    EXPECT_EQ(strEmpty, "");
}

TEST(ElfUtils, NoCorruptedByteDoesHarm)
{
    const std::vector<char> vImage = MakeKernels("1\n;$$$$$$$$$$\n").Make64();
    for (size_t nByte = 0; nByte < vImage.size(); ++nByte)
    {
        for (unsigned int nFlip : {0x01u, 0x80u, 0xFFu})
        {
            std::vector<char> vCorrupted = vImage;
            vCorrupted[nByte] = static_cast<char>(vCorrupted[nByte] ^ nFlip);
            std::vector<char> vOne;
            ExtractKernelFromBinary("k", vCorrupted, &vOne);
            PatchKernelEntry("k", &vCorrupted);
            RemoveElfSection(&vCorrupted, ".text");
            AddILBinarySection(&vCorrupted, "debugil", "debugilbin", true, "Quench");
            InsertMetadataIntoElf(&vCorrupted, "k_2", "metadata");
            const unsigned int nToken = 7;
            InsertBinaryILIntoElf(&vCorrupted, &nToken, 4, "Quench");
            ASSERT_LT(vCorrupted.size(), (64u << 20)) << "byte " << nByte << " flipped by " << nFlip;
        }
    }
}

} // namespace
