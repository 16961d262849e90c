#include "binary/Elf.h"
#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/platform/opencl_c/dwarf/DwarfFile.h"
#include "tests/support/OpenCLProgram.h"

using namespace KestrelTests;
using KestrelTest::COpenCLDevice;
using KestrelTest::COpenCLProgram;

namespace
{

const char s_szSource[] = R"(void put(__global int* to, int where, int what)
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

std::vector<char> GetBinary(COpenCLDevice& device, const COpenCLProgram& program)
{
    size_t nSize = 0;
    device.cl.clGetProgramInfo(program.Get(), CL_PROGRAM_BINARY_SIZES, sizeof nSize, &nSize, nullptr);
    std::vector<char> vBinary(nSize);
    char* pBinary = vBinary.data();
    device.cl.clGetProgramInfo(program.Get(), CL_PROGRAM_BINARIES, sizeof pBinary, &pBinary, nullptr);
    return vBinary;
}

} // namespace

TEST(DebugDataInBinaries, OutlivesChangesOfTheImage)
{
    COpenCLDevice device("Quench");
    const COpenCLProgram program(device, s_szSource, "-g");
    const std::vector<char> vBinary = GetBinary(device, program);
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
