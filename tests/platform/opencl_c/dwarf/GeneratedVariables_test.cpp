// The variables of generated kernels built with "-g", at each statement, against a run of the same source on the host.
//   KESTREL_OPENCL_C_KERNELS=N  number of kernels (24 by default)
//   KESTREL_OPENCL_C_SEED=N     only the kernel of this seed; its text is printed if it fails

#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/platform/opencl_c/dwarf/TracedRun.h"
#include "tests/platform/opencl_c/generated/HostBuild.h"
#include "tests/platform/opencl_c/generated/KernelMaker.h"
#include "tests/support/Folders.h"
#include "tests/support/OpenCLProgram.h"

#include <cstdlib>
#include <filesystem>
#include <random>

using namespace KestrelTests;
using namespace KestrelTest;

namespace
{

const unsigned int s_nParts = 8;
const int s_nEach = 3; ///< every third work-item is looked at

struct SKernelToProbe
{
    uint64_t nSeed = 0;
    std::string strName, strText;
    CLayouts layouts;
};

unsigned long FromEnvironment(const char* pszName, unsigned long nDefault)
{
    const char* const pszValue = std::getenv(pszName);
    return pszValue ? std::strtoul(pszValue, nullptr, 10) : nDefault;
}

/// The seeds for a part of the test.
std::vector<SKernelToProbe> MakeKernels(unsigned int nPart)
{
    const unsigned long nOne = FromEnvironment("KESTREL_OPENCL_C_SEED", 0);
    const unsigned long nFirst = nOne != 0 ? nOne : 1 + nPart;
    const unsigned long nLast = nOne != 0 ? (nPart == 0 ? nOne : 0) : FromEnvironment("KESTREL_OPENCL_C_KERNELS", 24);
    std::vector<SKernelToProbe> vKernels;
    for (unsigned long nSeed = nFirst; nSeed <= nLast; nSeed += s_nParts)
    {
        SKernelToProbe kernel;
        kernel.nSeed = nSeed;
        kernel.strName = "k" + std::to_string(nSeed);
        kernel.strText = MakeProbedKernel(nSeed, kernel.strName, kernel.layouts);
        vKernels.push_back(std::move(kernel));
    }
    return vKernels;
}

CVisits* s_pHostVisits = nullptr;

void NoteOnHost(int nItem, int nLine, const char* pszName, const void* pValue, unsigned long nSize)
{
    if (nItem % s_nEach != 0)
    {
        return;
    }
    std::vector<SnapShot>& vVisits = (*s_pHostVisits)[{nItem, nLine}];
    if (vVisits.empty() || vVisits.back().count(pszName))
    {
        vVisits.emplace_back();
    }
    vVisits.back()[pszName] = std::string(static_cast<const char*>(pValue), nSize);
}

std::vector<cl_int> MakeInput(uint64_t nSeed)
{
    std::mt19937 random(static_cast<unsigned int>(nSeed));
    std::vector<cl_int> vIn(g_nInputs);
    for (cl_int& nIn : vIn)
    {
        nIn = static_cast<cl_int>(random()) >> (random() % 31);
    }
    return vIn;
}

/// Constant buffer 1: four words for each argument.
std::vector<uint32_t> Arguments()
{
    std::vector<uint32_t> vWords(3 * 4);
    uint32_t nBits = 0;
    std::memcpy(&nBits, &g_fArgumentF, sizeof nBits);
    for (const uint32_t nWord :
         {uint32_t{g_nArgumentN}, 0U, 0U, 0U, nBits, 0U, 0U, 0U, g_nArgumentV[0], g_nArgumentV[1]})
    {
        vWords.push_back(nWord);
    }
    return vWords;
}

struct SComparison
{
    size_t nValues = 0;
    size_t nPlaces = 0;      ///< lines that a work-item reached
    size_t nWithoutCode = 0; ///< those without an instruction where variables could be read
    std::string strDifference;
};

void CompareVisit(const SnapShot& expected, const SnapShot& got, const CLayouts& layouts, SComparison& result)
{
    for (const auto& [strName, strBytes] : expected)
    {
        const std::string& strLayout = layouts.at(strName);
        ++result.nValues;
        if (SettleBytes(got.at(strName), strLayout) != SettleBytes(strBytes, strLayout))
        {
            result.strDifference += strName + " is " + Hex(got.at(strName)) + " in place of " + Hex(strBytes) + "; ";
        }
    }
}

/// Compares up to the first difference.
SComparison Compare(const CVisits& expected, const CTracedRun& run, const CLayouts& layouts)
{
    SComparison result;
    for (const auto& [key, vExpected] : expected)
    {
        const auto it = run.GetVisits().find(key);
        ++result.nPlaces;
        const size_t nVisits = it == run.GetVisits().end() ? 0 : it->second.size();
        if (nVisits == 0 && !run.HasCode(key.second))
        {
            ++result.nWithoutCode;
            continue;
        }
        const std::string strWhere =
            "work-item " + std::to_string(key.first) + ", line " + std::to_string(key.second) + ": ";
        if (nVisits != vExpected.size())
        {
            result.strDifference =
                strWhere + std::to_string(nVisits) + " visits in place of " + std::to_string(vExpected.size());
            return result;
        }
        for (size_t n = 0; n < vExpected.size(); ++n)
        {
            CompareVisit(vExpected[n], it->second[n], layouts, result);
            if (!result.strDifference.empty())
            {
                result.strDifference = strWhere + "visit " + std::to_string(n) + ": " + result.strDifference;
                return result;
            }
        }
    }
    return result;
}

SComparison RunOnDevice(const SKernelToProbe& kernel, const char* pszDevice, const CVisits& expected)
{
    COpenCLDevice device(pszDevice);
    COpenCLProgram program(device,
                           std::string("#pragma OPENCL FP_CONTRACT OFF\n#define P(name)\n#line 100001\n") +
                               g_pszCommonPrelude + "#line 1\n" + kernel.strText,
                           "-g");
    const std::vector<char> vBinary = device.Binary(program.Get());
    EXPECT_EQ(Complaints(vBinary), "");
    CTracedRun run(vBinary, expected, Arguments());
    const auto in = device.Buffer(MakeInput(kernel.nSeed));
    const auto out = device.Buffer(std::vector<cl_uint>(g_nItems * g_nOutputs));
    const auto sums = device.Buffer(std::vector<cl_uint>(g_nSums));
    const std::array<cl_uint, 2> v = {g_nArgumentV[0], g_nArgumentV[1]};
    Control().SetTrace(CTracedRun::OnRecord, &run);
    program.Run(kernel.strName, {{g_nItems}, {g_nGroupSize}, {}}, in, out, sums, cl_int{g_nArgumentN},
                cl_float{g_fArgumentF}, v);
    Control().SetTrace(nullptr, nullptr);
    return Compare(expected, run, kernel.layouts);
}

class GeneratedVariables : public testing::TestWithParam<unsigned int>
{
};

} // namespace

TEST_P(GeneratedVariables, HaveTheValuesOfAHostRun)
{
    const std::vector<SKernelToProbe> vKernels = MakeKernels(GetParam());
    if (vKernels.empty())
    {
        return;
    }
    std::string strKernels;
    std::vector<std::string> vNames;
    for (const SKernelToProbe& kernel : vKernels)
    {
        strKernels += "#line 1\n" + kernel.strText;
        vNames.push_back(kernel.strName);
    }
    const std::filesystem::path folder =
        std::filesystem::path(testing::TempDir()) / ("kestrel-probed-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    const CHostBuild host(strKernels, vNames, folder.string());
    std::filesystem::remove_all(folder);
    SComparison all;
    for (const SKernelToProbe& kernel : vKernels)
    {
        CVisits expected;
        s_pHostVisits = &expected;
        std::vector<uint32_t> vOut(g_nItems * g_nOutputs), vSums(g_nSums);
        host.Run(kernel.strName, MakeInput(kernel.nSeed).data(), vOut.data(), vSums.data(), NoteOnHost);
        for (const char* pszDevice : {"Quench", "Kiln"})
        {
            const SComparison found = RunOnDevice(kernel, pszDevice, expected);
            EXPECT_EQ(found.strDifference, "") << pszDevice << "\nKESTREL_OPENCL_C_SEED=" << kernel.nSeed << " "
                                               << KestrelTest::BuiltFile("bin/opencl_c_dwarf_tests")
                                               << (vKernels.size() == 1 ? "\n" + kernel.strText : "");
            all.nValues += found.nValues;
            all.nPlaces += found.nPlaces;
            all.nWithoutCode += found.nWithoutCode;
        }
    }
    // Declarations of arrays have no code, nor have lines whose conditions are known at compile time.
    EXPECT_TRUE(vKernels.size() == 1 || all.nWithoutCode * 10 < all.nPlaces)
        << all.nWithoutCode << " of " << all.nPlaces;
    RecordProperty("values", static_cast<int>(all.nValues));
    RecordProperty("places_without_code", static_cast<int>(all.nWithoutCode));
}

INSTANTIATE_TEST_SUITE_P(Parts, GeneratedVariables, testing::Range(0U, s_nParts));
