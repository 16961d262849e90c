#include <fstream>
#include <random>
#include <sstream>

#include "platform/il/InstructionShape.h"
#include "platform/simt/Structure.h"
#include "tests/platform/simt/GeneratedKernel.h"
#include "tests/platform/simt/RecordedLaunch.h"
#include "tests/support/Folders.h"

namespace KestrelPlatformTest
{
namespace
{

using namespace KestrelPlatform;

struct SRefusal
{
    const char* pszText;
    uint32_t nInstruction;
    const char* pszMessage;
};

#define KERNEL(body) "il_cs_2_0\n" body "endmain\nend\n"

const SRefusal s_Refusals[] = {
    {"il_ps_2_0\nendmain\nend\n", 0, "the stream isn't a compute kernel"},
    {"il(0x5, 0x00030000)\nendmain\nend\n", 0, "the version is 0"},
    {"il(0x105, 0x00030200)\nendmain\nend\n", 0, "the language token has reserved bits set"},
    {"il_cs_2_0\nmov r0, r1\n", 1, "the stream has no end"},
    {KERNEL("mov r0, r1\nemit\n"), 1, "emit: has no meaning on this device"},
    {KERNEL("gds_load_id(1) r0, r1\n"), 0, "gds_load: has no meaning on this device"},
    {KERNEL("loop i0\nendloop\n"), 0, "loop: has no meaning on this device"},
    {KERNEL("if_logicalnz r0.x\n"), 1, "endmain: an open ifc isn't closed"},
    {KERNEL("whileloop\nendif\nendloop\n"), 1, "endif: closes nothing"},
    {KERNEL("if_logicalnz r0.x\nelse\nelse\nendif\n"), 2, "else: closes nothing"},
    {KERNEL("break\n"), 0, "break: stands in no loop and no switch"},
    {KERNEL("switch r0.x\ncontinue\nendswitch\n"), 1, "continue: stands in no loop"},
    {KERNEL("switch r0.x\nwhileloop\ncase 1\nendloop\nendswitch\n"), 2, "case: stands in no switch"},
    {KERNEL("switch r0.x\ndefault\ndefault\nendswitch\n"), 2, "default: the switch has one already"},
    {KERNEL("call 5\n"), 0, "call: there is no function 5"},
    {KERNEL("mcall(5)_in(0)\n"), 0, "mcall: there is no macro 5"},
    {"il_cs_2_0\ncall 5\nendmain\nfunc 5\ncall 6\nendfunc\nfunc 6\ncall 5\nendfunc\nend\n", 6,
     "call: label 5 calls itself"},
    {"il_cs_2_0\nendmain\nfunc 5\nendfunc\nfunc 5\nendfunc\nend\n", 3, "func: label 5 stands twice"},
    {"il_cs_2_0\nendmain\nmov r0, r1\nend\n", 1, "mov: stands outside every body"},
    {"il_cs_2_0\nfunc 5\nendfunc\nend\n", 0, "func: stands inside a body"},
    {"il_cs_2_0\nendmain\nfunc 3\nend\n", 2, "end: a function or macro isn't closed"},
    {"il_cs_2_0\nendmain\nendfunc\nend\n", 1, "endfunc: closes nothing"},
    {KERNEL("mov oC0, r1\n"), 0, "mov: register type 25 can't be written"},
    {KERNEL("mov r0, b1\n"), 0, "mov: register type 0 can't be read"},
    {KERNEL("mov r0, mem0\n"), 0, "mov: register type 47 can't be read"},
    {KERNEL("mov r0, x3[1]\n"), 0, "mov: array x3 isn't declared"},
    {KERNEL("mov r0, r1[r2.x]\n"), 0, "mov: register type 4 can't be indexed"},
    {KERNEL("breakc_relop(6) r0, r1\n"), 0, "breakc: stands in no loop and no switch"},
    {KERNEL("ifc_relop(6) r0, r1\nendif\n"), 0, "ifc: relation 6 isn't known"},
    {KERNEL("dcl_indexed_temp_array x1[100000]\n"), 0, "is too large"},
    {KERNEL("dcl_typeless_uav_id(8)_stride(4)_length(0x7FFFFFFF)_access(private)\n"), 0, "is too large"},
    {KERNEL("dcl_lds_id(1) 0xFFFFFFFF\n"), 0, "is too large"},
    {KERNEL("uav_struct_load_id(3) r0, r1\n"), 0, "uav_struct_load: UAV 3 has no stride"},
};

TEST(Refusals, NameTheInstruction)
{
    for (const SRefusal& test : s_Refusals)
    {
        const std::vector<uint32_t> vTokens = Assemble(test.pszText);
        SDecodeError error;
        EXPECT_EQ(DecodeProgram(vTokens.data(), vTokens.size(), error), nullptr) << test.pszText;
        EXPECT_EQ(error.nInstruction, test.nInstruction) << test.pszText;
        EXPECT_NE(error.strMessage.find(test.pszMessage), std::string::npos) << error.strMessage;
    }
}

/// The words of a tail whose count is fixed.
static uint32_t CountTail(EILTail eTail)
{
    switch (eTail)
    {
    case ILT_ONE:
        return 1;
    case ILT_TWO:
        return 2;
    case ILT_FOUR:
        return 4;
    default:
        return 0;
    }
}

/// Every opcode in the tables runs, is ignored, or is refused by name: none does nothing by accident.
TEST(Refusals, WhatHasNoMeaningIsRefusedByName)
{
    uint32_t nRefused = 0;
    for (uint32_t nOpCode = 1; nOpCode < IL_OP_LAST; ++nOpCode)
    {
        const SInstructionShape& shape = GetInstructionShape(nOpCode);
        if (!shape.pName || GetOpCodeClass(nOpCode) != ClassUnsupported)
        {
            continue;
        }
        std::vector<uint32_t> vTokens = {0, 0x00030200, nOpCode};
        vTokens.insert(vTokens.end(), shape.nSources + (shape.bDestination ? 1 : 0), 0x00040001);
        vTokens.insert(vTokens.end(), CountTail(shape.eTail), 0);
        vTokens.insert(vTokens.end(), {IL_OP_ENDMAIN, IL_OP_END});
        SDecodeError error;
        EXPECT_EQ(DecodeProgram(vTokens.data(), vTokens.size(), error), nullptr) << shape.pName;
        EXPECT_EQ(error.strMessage, std::string(shape.pName) + ": has no meaning on this device");
        ++nRefused;
    }
    EXPECT_GT(nRefused, 100u);
}

TEST(Refusals, EveryOpCodeIsDocumented)
{
    std::ifstream file(KestrelTest::SourceFile("docs/il.md"));
    std::stringstream text;
    text << file.rdbuf();
    const std::string strText = text.str();
    struct SName
    {
        const char* pszText;
        uint32_t nValue;
    };
    static const SName s_Names[] = {
#define IL_KEYWORD(text, value, format) {text, value},
#define IL_SPECIAL_KEYWORD(text, value, format) {text, value},
#include "il/ILOpCodes.def"
    };
    std::vector<std::string> vMissing;
    for (const SName& name : s_Names)
    {
        const std::string strRow = std::string("| `") + name.pszText + "` | " + std::to_string(name.nValue) + " |";
        const size_t nRow = strText.find(strRow);
        if (name.nValue == 0 || name.nValue >= IL_OP_LAST)
        {
            continue;
        }
        if (nRow == std::string::npos)
        {
            vMissing.push_back(name.pszText);
            continue;
        }
        const bool bRefused =
            strText.substr(nRow, strText.find('\n', nRow) - nRow).find("refused") != std::string::npos;
        EXPECT_EQ(bRefused, GetOpCodeClass(name.nValue) == ClassUnsupported) << name.pszText;
    }
    EXPECT_EQ(vMissing, std::vector<std::string>());
}

/// Decodes words and, if that works, runs them with a small limit: whatever they are, nothing may crash or hang.
bool RunWords(const std::vector<uint32_t>& vTokens)
{
    SDecodeError error;
    SLaunch launch;
    launch.pProgram = DecodeProgram(vTokens.data(), vTokens.size(), error);
    if (!launch.pProgram)
    {
        EXPECT_FALSE(error.strMessage.empty());
        return false;
    }
    std::vector<uint32_t> vMemory(64, 0x01010101);
    launch.vMemory.push_back({0x1000, 256, reinterpret_cast<unsigned char*>(vMemory.data()), false});
    launch.nGlobalSize[0] = 24;
    launch.nLocalSize[0] = 12;
    launch.nInstructionLimit = 2000;
    SImageBinding image;
    image.pData = reinterpret_cast<unsigned char*>(vMemory.data());
    image.nChannelOrder = 0x10B5;
    image.nChannelType = 0x10D2;
    image.nType = 0x10F1;
    image.nWidth = 4;
    image.nHeight = 4;
    image.nRowPitch = 16;
    image.nSlicePitch = 64;
    for (uint32_t n = 0; n < 4; ++n)
    {
        launch.mapResources[n] = image;
        launch.mapUavImages[n] = image;
    }
    CRecords records;
    RunLaunch(launch);
    launch.pTrace = &records;
    RunLaunch(launch);
    return true;
}

TEST(Robustness, RandomWordsAfterAHeader)
{
    std::mt19937 random(12345);
    uint32_t nRan = 0;
    for (int n = 0; n < 4000; ++n)
    {
        // All opcodes of the tables occur; about half of the operands name registers that exist.
        std::vector<uint32_t> vTokens = {0, 0x00030200};
        const uint32_t nInstructions = 1 + random() % 3;
        for (uint32_t i = 0; i < nInstructions; ++i)
        {
            const uint32_t nOpCode = random() % 737;
            const SInstructionShape& shape = GetInstructionShape(nOpCode);
            vTokens.push_back(static_cast<uint32_t>(nOpCode | (random() % 2 ? 0 : (random() & 0x3FFF) << 16)));
            const uint32_t nOperands = shape.nSources + (shape.bDestination ? 1 : 0);
            for (uint32_t k = 0; k < nOperands; ++k)
            {
                static const uint32_t s_nTypes[] = {4, 4, 4, 32, 41, 45, 47, 3};
                vTokens.push_back((random() % 6) | (s_nTypes[random() % 8] << 16) | (1 << 22));
                vTokens.push_back(k == 0 && shape.bDestination ? random() & 0x1FFF : random() & 0x01F7FFFF);
            }
            for (uint32_t k = 0; k < CountTail(shape.eTail); ++k)
            {
                vTokens.push_back(random() % 64);
            }
        }
        vTokens.insert(vTokens.end(), {IL_OP_ENDMAIN, IL_OP_END});
        nRan += RunWords(vTokens) ? 1 : 0;
    }
    EXPECT_GT(nRan, 200u);
}

TEST(Robustness, DamagedKernels)
{
    std::mt19937 random(54321);
    uint32_t nRan = 0;
    for (uint32_t nSeed = 1; nSeed <= 40; ++nSeed)
    {
        const std::vector<uint32_t> vWhole = Assemble(CGeneratedKernel(nSeed).Text());
        for (int n = 0; n < 40; ++n)
        {
            std::vector<uint32_t> vTokens = vWhole;
            if (n % 4 == 0)
            {
                vTokens.resize(random() % vTokens.size());
            }
            const uint32_t nChanges = 1 + random() % 3;
            for (uint32_t i = 0; i < nChanges && !vTokens.empty(); ++i)
            {
                uint32_t& nWord = vTokens[random() % vTokens.size()];
                nWord = random() % 2 ? nWord ^ (1u << random() % 32) : static_cast<uint32_t>(random());
            }
            nRan += RunWords(vTokens) ? 1 : 0;
        }
    }
    EXPECT_GT(nRan, 100u);
}

TEST(Robustness, DeepNestingAndLongCallChains)
{
    std::string strDeep = "il_cs_2_0\n";
    for (int n = 0; n < 20000; ++n)
    {
        strDeep += "if_logicalz r0.x\n";
    }
    for (int n = 0; n < 20000; ++n)
    {
        strDeep += "endif\n";
    }
    EXPECT_TRUE(RunWords(Assemble(strDeep + "endmain\nend\n")));
    std::string strChain = "il_cs_2_0\ncall 0\nendmain\n";
    for (int n = 0; n < 20000; ++n)
    {
        strChain += "func " + std::to_string(n) + "\ncall " + std::to_string(n + 1) + "\nendfunc\n";
    }
    EXPECT_TRUE(RunWords(Assemble(strChain + "func 20000\nendfunc\nend\n")));
    // Each function calls the next one twice: without a limit this would take 2^40 calls.
    std::string strDouble = "il_cs_2_0\ncall 0\nendmain\n";
    for (int n = 0; n < 40; ++n)
    {
        strDouble += "func " + std::to_string(n) + "\ncall " + std::to_string(n + 1) + "\ncall " +
                     std::to_string(n + 1) + "\nendfunc\n";
    }
    EXPECT_TRUE(RunWords(Assemble(strDouble + "func 40\nendfunc\nend\n")));
}

} // namespace
} // namespace KestrelPlatformTest
