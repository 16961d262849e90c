// Compares generated kernels in OpenCL C with the same source compiled for the host.
//   KESTREL_OPENCL_C_KERNELS=N  number of kernels (400 by default, fewer under sanitizers)
//   KESTREL_OPENCL_C_SEED=N     only the kernel of this seed; its text is printed if it fails

#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/platform/opencl_c/generated/HostBuild.h"
#include "tests/platform/opencl_c/generated/KernelMaker.h"
#include "tests/support/Folders.h"
#include "tests/support/OpenCLProgram.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>

#include <unistd.h>

namespace KestrelTest
{
namespace
{

const unsigned int s_nParts = 16;
const size_t s_nKernelsInProgram = 25;
#ifdef __SANITIZE_ADDRESS__
const unsigned long s_nKernels = 64; // each takes many times as long
#else
const unsigned long s_nKernels = 400;
#endif

unsigned long FromEnvironment(const char* pszName, unsigned long nDefault)
{
    const char* const pszValue = std::getenv(pszName);
    return pszValue ? std::strtoul(pszValue, nullptr, 10) : nDefault;
}

/// This test's own folder, removed by the destructor.
class CScratchFolder
{
public:
    CScratchFolder()
        : m_Path(std::filesystem::temp_directory_path() / ("kestrel-generated-" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(m_Path);
    }
    ~CScratchFolder() { std::filesystem::remove_all(m_Path); }
    std::string Path() const { return m_Path.string(); }

private:
    std::filesystem::path m_Path;
};

struct SResults
{
    std::vector<cl_uint> vOut, vSums;
    bool operator==(const SResults& other) const { return vOut == other.vOut && vSums == other.vSums; }
};

std::string Difference(const SResults& got, const SResults& wanted)
{
    for (size_t n = 0; n < wanted.vOut.size(); ++n)
    {
        if (got.vOut[n] != wanted.vOut[n])
        {
            return "work-item " + std::to_string(n / g_nOutputs) + ", output " + std::to_string(n % g_nOutputs) + ": " +
                   std::to_string(got.vOut[n]) + " in place of " + std::to_string(wanted.vOut[n]);
        }
    }
    return "a sum by atomics";
}

class GeneratedKernels : public testing::TestWithParam<unsigned int>
{
protected:
    void Compare(const std::vector<uint64_t>& vSeeds)
    {
        std::vector<std::string> vNames, vTexts;
        std::string strKernels;
        for (uint64_t nSeed : vSeeds)
        {
            vNames.push_back("k" + std::to_string(nSeed));
            vTexts.push_back(MakeKernel(nSeed, vNames.back()));
            strKernels += vTexts.back();
        }
        std::mt19937 random(static_cast<unsigned int>(vSeeds[0]));
        std::vector<cl_int> vIn(g_nInputs);
        for (cl_int& nIn : vIn)
        {
            nIn = static_cast<cl_int>(random()) >> (random() % 31);
        }
        const CScratchFolder folder;
        const CHostBuild host(strKernels, vNames, folder.Path());
        std::vector<SResults> vWanted;
        for (const std::string& strName : vNames)
        {
            SResults results{std::vector<cl_uint>(g_nItems * g_nOutputs), std::vector<cl_uint>(g_nSums)};
            host.Run(strName, vIn.data(), results.vOut.data(), results.vSums.data());
            vWanted.push_back(results);
        }
        for (const char* pszDevice : {"Quench", "Kiln", "Host"})
        {
            COpenCLDevice device(pszDevice);
            for (const char* pszOptions : {"", "-g"})
            {
                COpenCLProgram program(
                    device, std::string("#pragma OPENCL FP_CONTRACT OFF\n") + g_pszCommonPrelude + strKernels,
                    pszOptions);
                EXPECT_EQ(KestrelTests::Complaints(device.Binary(program.Get())), "");
                for (size_t n = 0; n < vNames.size(); ++n)
                {
                    const SResults got = RunOnDevice(device, program, vNames[n], vIn);
                    EXPECT_TRUE(got == vWanted[n])
                        << pszDevice << " " << pszOptions << ": " << Difference(got, vWanted[n])
                        << "\nKESTREL_OPENCL_C_SEED=" << vSeeds[n] << " "
                        << KestrelTest::BuiltFile("bin/opencl_c_generated_tests")
                        << (vSeeds.size() == 1 ? "\n" + vTexts[n] : "");
                }
            }
        }
    }

    static SResults RunOnDevice(COpenCLDevice& device, COpenCLProgram& program, const std::string& strName,
                                const std::vector<cl_int>& vIn)
    {
        auto in = device.Buffer(vIn);
        auto out = device.Buffer(std::vector<cl_uint>(g_nItems * g_nOutputs));
        auto sums = device.Buffer(std::vector<cl_uint>(g_nSums));
        const std::array<cl_uint, 2> v = {g_nArgumentV[0], g_nArgumentV[1]};
        program.Run(strName, {{g_nItems}, {g_nGroupSize}, {}}, in, out, sums, cl_int{g_nArgumentN},
                    cl_float{g_fArgumentF}, v);
        return {device.Read<cl_uint>(out), device.Read<cl_uint>(sums)};
    }
};

TEST_P(GeneratedKernels, GiveWhatTheHostGives)
{
    const unsigned long nOne = FromEnvironment("KESTREL_OPENCL_C_SEED", 0);
    if (nOne != 0)
    {
        if (GetParam() == 0)
        {
            Compare({nOne});
        }
        return;
    }
    const unsigned long nKernels = FromEnvironment("KESTREL_OPENCL_C_KERNELS", s_nKernels);
    std::vector<uint64_t> vSeeds;
    for (unsigned long nSeed = 1 + GetParam(); nSeed <= nKernels; nSeed += s_nParts)
    {
        vSeeds.push_back(nSeed);
    }
    for (size_t n = 0; n < vSeeds.size(); n += s_nKernelsInProgram)
    {
        Compare({vSeeds.begin() + n, vSeeds.begin() + std::min(n + s_nKernelsInProgram, vSeeds.size())});
    }
}

INSTANTIATE_TEST_SUITE_P(Parts, GeneratedKernels, testing::Range(0u, s_nParts));

} // namespace
} // namespace KestrelTest
