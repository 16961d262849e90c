#include "platform/opencl_c/dwarf/DebugSections.h"

#include <cstdio>
#include <functional>
#include <map>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/compiler/ElfWriter.h"
#include "platform/opencl_c/driver/IrCompiler.h"
#include "platform/opencl_c/lowering/Lowered.h"
#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/platform/opencl_c/dwarf/DwarfFile.h"
#include "llvm/IR/DebugInfoMetadata.h"
#include "llvm/IR/IntrinsicInst.h"
#include "llvm/IR/LLVMContext.h"
#include "llvm/IR/Module.h"

using namespace KestrelOpenCL;
using namespace KestrelTests;

namespace
{

const char s_szSource[] = R"(typedef struct node { int value; __global struct node* next; } node_t;
union both { float f; uchar4 c; };
enum colour { RED, GREEN = 5, BLUE = -1 };
typedef float matrix[2][3];
__constant short table[3] = { 1, -2, 300 };
int twice(int x)
{
    int result = x * 2;
    return result;
}
int sum(int from, int to)
{
    int total = 0;
    for (int i = from; i < to; ++i)
    {
        int square = i * i;
        total += twice(square);
    }
    return total;
}
__kernel void first(__global int* out, const float scale, union both given, volatile __global const char* text)
{
    __local int shared[16];
    float4 v = (float4)(scale);
    union both mixed = given; node_t node;
    enum colour hue = GREEN;
    matrix m;
    bool flag = scale > 0.5f;
    mixed.f = scale; node.value = mixed.c.x;
    m[1][2] = v.y;
    shared[0] = table[out[0]];
    out[1] = sum(out[0], 5) + twice(node.value);
    if (flag)
    {
        double flag = m[1][2];
        out[2] = (int)flag + hue + text[3];
    }
    barrier(CLK_LOCAL_MEM_FENCE);
}
__kernel void second(__global int* restrict p, __constant uint3* q, __local uchar* r)
{
    p[0] = sum(1, q[0].x) + r[0];
}
)";

/// Stands in for the lowering: each instruction becomes one line of IL, each variable gets some place.
class CFakeLowering
{
public:
    explicit CFakeLowering(bool bDebug)
    {
        SCompileJob job;
        job.strSource = s_szSource;
        job.bDebug = job.options.bDebug = bDebug;
        job.target.strName = "Quench";
        m_pModule = CompileToIR(m_Context, job, m_strLog);
        if (m_pModule && PrepareForLowering(*m_pModule, job, m_strLog))
        {
            Lower();
        }
    }

    const std::string& GetLog() const { return m_strLog; }
    const SLowered& GetLowered() const { return m_Lowered; }

    std::vector<char> MakeImage(bool bLinesOnly) const
    {
        KestrelPlatform::CElfWriter elf;
        for (const SDebugSection& section : WriteDwarf(*m_pModule, m_Lowered, bLinesOnly))
        {
            elf.AddSection(section.strName, 0, 1, section.strData);
        }
        return elf.Write();
    }

private:
    void Lower()
    {
        m_Lowered.vLines.resize(5);
        for (const llvm::Function& function : *m_pModule)
        {
            if (function.getCallingConv() == llvm::CallingConv::SPIR_KERNEL && !function.isDeclaration())
            {
                LowerKernel(function);
            }
        }
        for (const llvm::GlobalVariable& global : m_pModule->globals())
        {
            if (global.getAddressSpace() == 3)
            {
                m_Lowered.vLocals.push_back({&global, m_Lowered.vKernels[0].pFunction, 48});
            }
        }
    }

    void LowerKernel(const llvm::Function& function)
    {
        SLoweredKernel kernel;
        kernel.pFunction = &function;
        kernel.nWrapperFirst = Line(nullptr);
        kernel.nWrapperLast = Line(nullptr);
        kernel.nFirst = Line(nullptr);
        std::vector<const llvm::DbgVariableIntrinsic*> vVariables;
        for (const llvm::BasicBlock& block : function)
        {
            for (const llvm::Instruction& instruction : block)
            {
                if (const auto* pVariable = llvm::dyn_cast<llvm::DbgVariableIntrinsic>(&instruction))
                {
                    vVariables.push_back(pVariable);
                }
                else if (!llvm::isa<llvm::AllocaInst>(instruction))
                {
                    Line(instruction.getDebugLoc().get());
                }
            }
        }
        kernel.nLast = Line(nullptr);
        m_Lowered.vKernels.push_back(kernel);
        for (const llvm::DbgVariableIntrinsic* pVariable : vVariables)
        {
            AddPlace(*pVariable, kernel);
        }
    }

    uint32_t Line(const llvm::DILocation* pPlace)
    {
        m_Lowered.vLines.push_back(pPlace);
        return static_cast<uint32_t>(m_Lowered.vLines.size()) - 1;
    }

    /// In turn: a register, private memory, and first private memory, then a register.
    void AddPlace(const llvm::DbgVariableIntrinsic& variable, const SLoweredKernel& kernel)
    {
        const auto nCount = static_cast<uint32_t>(m_Lowered.vVariables.size());
        SVariablePlace place;
        place.pVariable = variable.getVariable();
        place.pInlinedAt = variable.getDebugLoc()->getInlinedAt();
        place.pKernel = kernel.pFunction;
        place.nFirstLine = kernel.nFirst;
        place.nLastLine = kernel.nLast;
        place.eKind = nCount % 3 == 0 ? SVariablePlace::Register : SVariablePlace::Private;
        place.vComponents = {nCount * 4 + 1};
        place.nOffset = nCount * 16;
        if (nCount % 3 == 2)
        {
            place.nLastLine = (kernel.nFirst + kernel.nLast) / 2;
        }
        m_Lowered.vVariables.push_back(place);
        if (nCount % 3 == 2)
        {
            place.nFirstLine = place.nLastLine + 1;
            place.nLastLine = kernel.nLast;
            place.eKind = SVariablePlace::Register;
            m_Lowered.vVariables.push_back(place);
        }
    }

    llvm::LLVMContext m_Context;
    std::unique_ptr<llvm::Module> m_pModule;
    SLowered m_Lowered;
    std::string m_strLog;
};

std::vector<SDwarfFrame> ExpectedFrames(const llvm::DILocation* pPlace)
{
    std::vector<SDwarfFrame> vFrames;
    for (; pPlace; pPlace = pPlace->getInlinedAt())
    {
        const llvm::DILocation* pCall = pPlace->getInlinedAt();
        vFrames.push_back({pPlace->getScope()->getSubprogram()->getName().str(),
                           pCall ? static_cast<int>(pCall->getLine()) : 0,
                           pCall ? static_cast<int>(pCall->getColumn()) : 0});
    }
    return vFrames;
}

/// Calls a function with each line of a kernel and its source place.
void ForLines(const SLowered& lowered,
              const std::function<void(const SLoweredKernel&, uint32_t, const llvm::DILocation*)>& function)
{
    for (const SLoweredKernel& kernel : lowered.vKernels)
    {
        const llvm::DILocation* pPlace = nullptr;
        for (uint32_t n = kernel.nFirst; n <= kernel.nLast; ++n)
        {
            pPlace = lowered.vLines[n] ? lowered.vLines[n] : pPlace;
            function(kernel, n, pPlace);
        }
    }
}

bool Encloses(const llvm::DILocalScope* pOuter, const llvm::DILocalScope* pInner)
{
    for (; pInner;
         pInner = llvm::isa<llvm::DISubprogram>(pInner) ? nullptr : llvm::cast<llvm::DILocalScope>(pInner->getScope()))
    {
        if (pInner == pOuter)
        {
            return true;
        }
    }
    return false;
}

} // namespace

class DebugSections : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(m_Lowering.GetLowered().vKernels.size(), 2U) << m_Lowering.GetLog(); }

    const CFakeLowering m_Lowering{true};
};

TEST_F(DebugSections, AreAcceptedByReaders)
{
    for (const bool bLinesOnly : {false, true})
    {
        EXPECT_EQ(Complaints(m_Lowering.MakeImage(bLinesOnly)), "");
    }
}

TEST_F(DebugSections, GiveEachLineItsPlace)
{
    const CDwarfFile file(m_Lowering.MakeImage(false));
    ASSERT_TRUE(file.IsOpen());
    std::set<int> setLines;
    ForLines(m_Lowering.GetLowered(),
             [&](const SLoweredKernel& kernel, uint32_t nLine, const llvm::DILocation* pPlace)
             {
                 std::string strExpected = pPlace
                                               ? pPlace->getFilename().str() + ":" + std::to_string(pPlace->getLine()) +
                                                     ":" + std::to_string(pPlace->getColumn())
                                               : "";
                 if (!pPlace)
                 {
                     const llvm::DISubprogram* pSubprogram = kernel.pFunction->getSubprogram();
                     strExpected =
                         pSubprogram->getFilename().str() + ":" + std::to_string(pSubprogram->getScopeLine()) + ":0";
                 }
                 else
                 {
                     setLines.insert(static_cast<int>(pPlace->getLine()));
                 }
                 std::string strPlace = file.Place(nLine);
                 strPlace.erase(0, strPlace.rfind("./") == 0 ? 2 : 0);
                 EXPECT_EQ(strPlace, strExpected) << nLine;
             });
    EXPECT_GT(setLines.size(), 15U);
    const SLoweredKernel& kernel = m_Lowering.GetLowered().vKernels[0];
    EXPECT_EQ(file.Place(kernel.nWrapperFirst), "");
    EXPECT_EQ(file.Place(m_Lowering.GetLowered().vKernels[1].nLast + 1), "");
}

TEST_F(DebugSections, TellTheCallsThatWereInlined)
{
    const CDwarfFile file(m_Lowering.MakeImage(false));
    size_t nDeepest = 0;
    ForLines(m_Lowering.GetLowered(),
             [&](const SLoweredKernel& kernel, uint32_t nLine, const llvm::DILocation* pPlace)
             {
                 std::vector<SDwarfFrame> vExpected = ExpectedFrames(pPlace);
                 if (vExpected.empty())
                 {
                     vExpected.push_back({kernel.pFunction->getName().str(), 0, 0});
                 }
                 EXPECT_EQ(file.Frames(nLine), vExpected) << nLine;
                 nDeepest = std::max(nDeepest, vExpected.size());
             });
    EXPECT_EQ(nDeepest, 3U);
}

TEST_F(DebugSections, FindVariablesWhereTheyAre)
{
    const CDwarfFile file(m_Lowering.MakeImage(false));
    const SLowered& lowered = m_Lowering.GetLowered();
    size_t nFound = 0;
    ForLines(
        lowered,
        [&](const SLoweredKernel& kernel, uint32_t nLine, const llvm::DILocation* pPlace)
        {
            const std::vector<SDwarfVariable> vVariables =
                pPlace ? file.Variables(nLine) : std::vector<SDwarfVariable>();
            for (const SVariablePlace& place : lowered.vVariables)
            {
                // Of all calls that are active at the line, the one that the variable belongs to.
                const llvm::DILocation* pOpen = pPlace;
                while (pOpen && (pOpen->getInlinedAt() != place.pInlinedAt ||
                                 !Encloses(place.pVariable->getScope(), pOpen->getScope())))
                {
                    pOpen = pOpen->getInlinedAt();
                }
                if (!pOpen || place.pKernel != kernel.pFunction || nLine < place.nFirstLine || nLine > place.nLastLine)
                {
                    continue;
                }
                const auto it =
                    std::find_if(vVariables.begin(), vVariables.end(),
                                 [&](const SDwarfVariable& variable)
                                 {
                                     return variable.strName == place.pVariable->getName() &&
                                            variable.nLine == static_cast<int>(place.pVariable->getLine()) &&
                                            variable.nCallLine ==
                                                (place.pInlinedAt ? static_cast<int>(place.pInlinedAt->getLine()) : 0);
                                 });
                ASSERT_NE(it, vVariables.end()) << place.pVariable->getName().str() << " at " << nLine;
                EXPECT_EQ(it->bParameter, place.pVariable->isParameter());
                ASSERT_FALSE(it->vLocation.empty()) << it->strName;
                const bool bRegister = place.eKind == SVariablePlace::Register;
                EXPECT_EQ(it->vLocation[0].atom, bRegister ? DW_OP_regx : DW_OP_fbreg);
                EXPECT_EQ(it->vLocation[0].number, bRegister ? place.vComponents[0] : place.nOffset);
                ++nFound;
            }
        });
    EXPECT_GT(nFound, 200U);
}

TEST_F(DebugSections, DescribeTypes)
{
    const CDwarfFile file(m_Lowering.MakeImage(false));
    std::map<std::string, std::string> mapTypes;
    for (const SLoweredKernel& kernel : m_Lowering.GetLowered().vKernels)
    {
        for (uint32_t n = kernel.nFirst; n <= kernel.nLast; ++n)
        {
            for (const SDwarfVariable& variable : file.Variables(n))
            {
                mapTypes[variable.strName + ":" + std::to_string(variable.nLine)] = variable.strType;
            }
        }
    }
    const std::map<std::string, std::string> mapExpected = {
        {"x:6", "int"},
        {"result:8", "int"},
        {"from:11", "int"},
        {"to:11", "int"},
        {"total:13", "int"},
        {"i:14", "int"},
        {"square:16", "int"},
        {"out:21", "pointer(1) to int"},
        {"scale:21", "const float"},
        {"node:25", "node_t=struct node(16){0:int value;8:pointer next;}"},
        {"given:21", "union both(4){0:float f;0:uchar4=vector[4] of uchar=unsigned char c;}"},
        {"text:21", "pointer(1) to const volatile char"},
        {"shared:23", "array[16] of int"},
        {"v:24", "float4=vector[4] of float"},
        {"mixed:25", "union both(4){0:float f;0:uchar4=vector[4] of uchar=unsigned char c;}"},
        {"hue:26", "enum colour(4){RED=0;GREEN=5;BLUE=-1;}"},
        {"m:27", "array[2][3] of float"},
        {"flag:28", "bool"},
        {"flag:35", "double"},
        {"p:40", "restrict pointer(1) to int"},
        {"q:40", "pointer(2) to uint3=vector[3] of uint=unsigned int"},
        {"r:40", "pointer(3) to uchar=unsigned char"},
    };
    EXPECT_EQ(mapTypes, mapExpected);
    const auto vConstants = file.Constants();
    ASSERT_EQ(vConstants.size(), 1U);
    EXPECT_EQ(vConstants[0].first, "array[3] of short table");
    EXPECT_EQ(vConstants[0].second, std::string("\x01\x00\xFE\xFF\x2C\x01", 6));
}

TEST_F(DebugSections, KeepTheSource)
{
    const std::string strSection = CDwarfFile(m_Lowering.MakeImage(false)).Section(".debugsrc");
    const auto nLength = static_cast<uint32_t>(sizeof(s_szSource) - 1);
    ASSERT_EQ(strSection.size(), 8 + (nLength + 3) / 4 * 4);
    EXPECT_EQ(strSection.substr(0, 4), std::string("\x01\x00\x00\x00", 4));
    EXPECT_EQ(strSection.substr(4, 4), std::string(reinterpret_cast<const char*>(&nLength), 4));
    EXPECT_EQ(strSection.substr(8, nLength), s_szSource);
}

TEST(DebugSectionsWithoutDebug, AreLinesAlone)
{
    const CFakeLowering lowering(false);
    ASSERT_EQ(lowering.GetLowered().vKernels.size(), 2U) << lowering.GetLog();
    const std::string strPath = WriteFile(lowering.MakeImage(true));
    EXPECT_THAT(Ask("llvm-dwarfdump-15 --verify " + strPath), testing::HasSubstr("No errors."));
    const std::string strLines = Ask("llvm-dwarfdump-15 --debug-line " + strPath);
    for (const int nLine : {8, 14, 32, 36, 42})
    {
        EXPECT_THAT(strLines, testing::ContainsRegex("0x[0-9a-f]+ +" + std::to_string(nLine) + " "));
    }
    EXPECT_EQ(CDwarfFile(lowering.MakeImage(true)).Section(".debug_info"), "");
    std::remove(strPath.c_str());
}
