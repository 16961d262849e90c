#include "binary/Elf.h"
#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/platform/opencl_c/dwarf/DwarfFile.h"
#include "tests/support/OpenCLProgram.h"

using namespace KestrelTests;
using KestrelTest::COpenCLDevice;
using KestrelTest::COpenCLFailure;
using KestrelTest::COpenCLProgram;

namespace
{

const char s_szLines[] = R"(void put(__global int* to, int where, int what)
{
    to[where] = what;
}
__kernel void faulty(__global int* data)
{
    size_t item = get_global_id(0);
    put(data, item == 5 ? 1000000 : (int)item, 7);
}
__kernel void endless(__global int* data)
{
    data[0] = 1;
    while (data[0])
    {
        data[1] += 1;
    }
}
)";

std::string SourcePlace(uint32_t nInstruction)
{
    char place[64] = {};
    EXPECT_LE(Control().GetSourcePlace(nInstruction, place, sizeof place), sizeof place);
    return place;
}

/// The options, and whether the program is recreated from its binary.
class BuiltPrograms : public testing::TestWithParam<std::tuple<const char*, bool>>
{
};

} // namespace

TEST_P(BuiltPrograms, NameTheLineOfAFault)
{
    COpenCLDevice device("Quench");
    const COpenCLProgram source(device, s_szLines, std::get<0>(GetParam()));
    const std::vector<char> vBinary = device.Binary(source.Get());
    EXPECT_EQ(Complaints(vBinary), "");
    COpenCLProgram binary(device, vBinary);
    COpenCLProgram other(device, s_szLines, std::get<0>(GetParam()));
    COpenCLProgram& program = std::get<1>(GetParam()) ? binary : other;
    const auto data = device.Buffer(std::vector<cl_int>(8));
    program.Run("faulty", {{8}, {}, {}}, data);
    SPlatformFault fault = {};
    Control().GetLastFault(&fault);
    ASSERT_EQ(fault.nBadAccesses, 1U);
    EXPECT_EQ(fault.nWorkItem, 5U);
    EXPECT_EQ(SourcePlace(fault.nInstruction), "kernel.cl:3");

    Control().SetInstructionLimit(5000);
    EXPECT_THROW(program.Run("endless", {{1}, {}, {}}, data), COpenCLFailure);
    Control().SetInstructionLimit(0);
    SPlatformEnd end = {};
    Control().GetLastEnd(&end);
    const std::string strPlace = SourcePlace(end.nInstruction);
    EXPECT_TRUE(strPlace == "kernel.cl:13" || strPlace == "kernel.cl:15") << strPlace;
    EXPECT_EQ(SourcePlace(100000), "");
}

INSTANTIATE_TEST_SUITE_P(Roads, BuiltPrograms,
                         testing::Combine(testing::Values("", "-g"), testing::Values(false, true)));

TEST(DebugDataInBinaries, OutlivesChangesOfTheImage)
{
    COpenCLDevice device("Quench");
    const COpenCLProgram program(device, s_szLines, "-g");
    const std::vector<char> vBinary = device.Binary(program.Get());
    CElf elf(vBinary);
    ASSERT_TRUE(elf.good());
    ASSERT_TRUE(elf.RemoveSection(".llvmir"));
    std::vector<char> vChanged;
    ASSERT_TRUE(elf.Store(&vChanged));
    EXPECT_EQ(Complaints(vChanged), "");
    const CDwarfFile before(vBinary);
    const CDwarfFile after(vChanged);
    for (const char* pszSection :
         {".debug_line", ".debug_info", ".debug_abbrev", ".debug_str", ".debug_ranges", ".debug_aranges", ".debugsrc"})
    {
        EXPECT_FALSE(before.Section(pszSection).empty()) << pszSection;
        EXPECT_EQ(after.Section(pszSection), before.Section(pszSection)) << pszSection;
    }
}
