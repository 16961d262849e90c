// Generated kernels with one planted fault each. The findings are compared with what the generator knows, and with
// the work-items that reach the place in a host build of the same source. Repaired kernels, and those without a fault,
// must have no findings.
//   KESTREL_CHECKED_KERNELS=N  number of kernels of each kind (20 by default, fewer under sanitizers)

#include "tests/platform/opencl_c/generated/HostBuild.h"
#include "tests/platform/opencl_c/generated/KernelMaker.h"
#include "tests/support/OpenCLProgram.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <set>

#include <unistd.h>

namespace KestrelTest
{
namespace
{

#ifdef __SANITIZE_ADDRESS__
const unsigned long s_nCheckedKernels = 3;
#else
const unsigned long s_nCheckedKernels = 20;
#endif
const size_t s_nMostInProgram = 25;

/// The device's definitions for planted kernels; in the host build the right form is used.
const char* const s_pszDevicePrelude = "#pragma OPENCL FP_CONTRACT OFF\n#define P(name)\n#ifdef FAULTY\n"
                                       "#define PLANTED(wrong, right) wrong\n#else\n"
                                       "#define PLANTED(wrong, right) right\n#endif\n";
const char* const s_pszHostForm = "#define PLANTED(wrong, right) right\n";

std::set<uint64_t> s_setCame; ///< work-items that reached the place in the current host run

void NoteItem(int nItem, int /*nLine*/, const char* /*pszName*/, const void* /*pValue*/, unsigned long /*nSize*/)
{
    s_setCame.insert(static_cast<uint64_t>(nItem));
}

struct SPlantedCase
{
    const char* pszName;
    EPlanted ePlanted;
    uint32_t nKind; ///< an EPlatformFinding
    /// Whether a work-item that reaches the place has the fault; null for a race.
    bool (*pfHas)(uint64_t nItem);
    /// Whether two work-items at the places, the lower one first, race.
    bool (*pfRace)(uint64_t nItem, uint64_t nOther);
};

const SPlantedCase s_PlantedCases[] = {
    {"index", PLANTED_INDEX, PLATFORM_FINDING_OUTSIDE, [](uint64_t n) { return n >= g_nItems / 2; }, nullptr},
    {"start", PLANTED_START, PLATFORM_FINDING_INIT, [](uint64_t n) { return n % 2 == 0; }, nullptr},
    {"shared", PLANTED_SHARED, PLATFORM_FINDING_RACE, nullptr,
     [](uint64_t n, uint64_t nOther) { return n / 2 == nOther / 2; }},
    {"atomic", PLANTED_ATOMIC, PLATFORM_FINDING_RACE, nullptr,
     [](uint64_t n, uint64_t nOther) { return n % 4 == nOther % 4; }},
    {"barrier", PLANTED_BARRIER, PLATFORM_FINDING_RACE, nullptr,
     [](uint64_t n, uint64_t nOther) { return n / g_nGroupSize == nOther / g_nGroupSize; }},
    {"nothing", PLANTED_NOTHING, 0, nullptr, nullptr},
};

std::vector<SPlatformFinding> TakeFindings()
{
    std::vector<SPlatformFinding> vFindings(Control().GetFindings(nullptr, 0));
    Control().GetFindings(vFindings.data(), static_cast<uint32_t>(vFindings.size()));
    return vFindings;
}

unsigned int LineOf(uint32_t nInstruction)
{
    char place[64] = {};
    Control().GetSourcePlace(nInstruction, place, sizeof place);
    const char* const pszLine = std::strrchr(place, ':');
    return pszLine ? static_cast<unsigned int>(std::atoi(pszLine + 1)) : 0;
}

class PlantedFaults : public testing::TestWithParam<SPlantedCase>
{
protected:
    static void SetUpTestSuite()
    {
        std::mt19937 random(1);
        s_vInputs.resize(g_nInputs);
        std::generate(s_vInputs.begin(), s_vInputs.end(),
                      [&] { return static_cast<cl_int>(random() >> random() % 31); });
    }

    void SetUp() override
    {
        Control().SetChecks(PLATFORM_CHECK_MEMORY | PLATFORM_CHECK_RACE | PLATFORM_CHECK_INIT | PLATFORM_CHECK_BARRIER);
    }

    void TearDown() override { Control().SetChecks(0); }

    static void Run(COpenCLDevice& device, COpenCLProgram& program, const std::string& strName)
    {
        const auto in = device.Buffer(s_vInputs);
        const auto out = device.Buffer(std::vector<cl_uint>(g_nItems * g_nOutputs));
        const auto sums = device.Buffer(std::vector<cl_uint>(g_nPlantedSums));
        const std::array<cl_uint, 2> v = {g_nArgumentV[0], g_nArgumentV[1]};
        program.Run(strName, {{g_nItems}, {g_nGroupSize}, {}}, in, out, sums, cl_int{g_nArgumentN},
                    cl_float{g_fArgumentF}, v);
    }

    /// The work-items that reach the planted place.
    static std::set<uint64_t> RunOnHost(const CHostBuild& host, const std::string& strName)
    {
        std::vector<cl_uint> vOut(g_nItems * g_nOutputs);
        std::vector<cl_uint> vSums(g_nPlantedSums);
        s_setCame.clear();
        host.Run(strName, s_vInputs.data(), vOut.data(), vSums.data(), NoteItem);
        return s_setCame;
    }

    static std::set<uint64_t> LowestOf(const std::set<uint64_t>& setItems)
    {
        auto it = setItems.begin();
        std::advance(it, std::min<size_t>(setItems.size(), std::size(SPlatformFinding().items)));
        return {setItems.begin(), it};
    }

    /// \param nFirst  the line where the kernel begins
    void Compare(const SPlantedKernel& kernel, unsigned int nFirst, std::set<uint64_t> setCame) const
    {
        const SPlantedCase& planted = GetParam();
        const std::multiset<unsigned int> setPlaces = {nFirst + kernel.nLine, nFirst + kernel.nOther};
        std::set<uint64_t> setFound;
        const std::vector<SPlatformFinding> vFindings = TakeFindings();
        for (const SPlatformFinding& finding : vFindings)
        {
            EXPECT_EQ(finding.nKind, planted.nKind) << "at line " << LineOf(finding.nInstruction);
            const uint32_t nOther = planted.pfRace ? finding.nOther : finding.nInstruction;
            EXPECT_EQ((std::multiset<unsigned int>{LineOf(finding.nInstruction), LineOf(nOther)}), setPlaces);
            setFound.insert(finding.items, finding.items + finding.nItems);
            if (planted.pfRace)
            {
                ExpectRace(kernel, finding, setCame);
            }
        }
        if (planted.pfRace)
        {
            EXPECT_EQ(!vFindings.empty(), planted.ePlanted == PLANTED_BARRIER || CanRace(setCame));
            return;
        }
        for (auto it = setCame.begin(); it != setCame.end();)
        {
            it = planted.pfHas(*it) ? std::next(it) : setCame.erase(it);
        }
        EXPECT_EQ(LowestOf(setFound), LowestOf(setCame));
    }

    static bool CanRace(const std::set<uint64_t>& setCame)
    {
        return std::any_of(setCame.begin(), setCame.end(),
                           [&](uint64_t n)
                           {
                               return std::any_of(setCame.upper_bound(n), setCame.end(),
                                                  [n](uint64_t nOther) { return GetParam().pfRace(n, nOther); });
                           });
    }

    static void ExpectRace(const SPlantedKernel& kernel, const SPlatformFinding& finding,
                           const std::set<uint64_t>& setCame)
    {
        const auto [nItem, nOther] = std::minmax(finding.nWorkItem, finding.nOtherItem);
        EXPECT_LT(nItem, nOther);
        EXPECT_TRUE(GetParam().pfRace(nItem, nOther)) << nItem << " and " << nOther;
        if (kernel.ePlanted == PLANTED_BARRIER)
        {
            const uint64_t nNext = (nOther - nItem) % g_nGroupSize;
            EXPECT_TRUE(nNext == kernel.nNext || nNext == g_nGroupSize - kernel.nNext) << nItem << " and " << nOther;
            return;
        }
        EXPECT_TRUE(setCame.count(nItem) && setCame.count(nOther)) << nItem << " and " << nOther;
    }

    /// \return how many of the kernels had their fault
    size_t CheckProgram(const std::vector<uint64_t>& vSeeds)
    {
        std::string strKernels;
        std::vector<std::string> vNames;
        std::vector<SPlantedKernel> vKernels;
        std::vector<unsigned int> vFirst;
        const std::string strHead = std::string(s_pszDevicePrelude) + g_pszCommonPrelude;
        for (const uint64_t nSeed : vSeeds)
        {
            const std::string strBefore = strHead + strKernels;
            vFirst.push_back(1 + static_cast<unsigned int>(std::count(strBefore.begin(), strBefore.end(), '\n')));
            vNames.push_back("k" + std::to_string(nSeed));
            vKernels.push_back(MakePlantedKernel(nSeed, vNames.back(), GetParam().ePlanted));
            strKernels += vKernels.back().strText;
        }
        COpenCLDevice device("Quench");
        COpenCLProgram repaired(device, strHead + strKernels, "-g");
        for (const std::string& strName : vNames)
        {
            SCOPED_TRACE(strName);
            Run(device, repaired, strName);
            for (const SPlatformFinding& finding : TakeFindings())
            {
                ADD_FAILURE() << "kind " << finding.nKind << " at line " << LineOf(finding.nInstruction) << " of\n"
                              << strHead + strKernels;
            }
        }
        return GetParam().ePlanted == PLANTED_NOTHING
                   ? 0
                   : CheckFaulty(device, strHead, strKernels, vNames, vKernels, vFirst);
    }

    size_t CheckFaulty(COpenCLDevice& device, const std::string& strHead, const std::string& strKernels,
                       const std::vector<std::string>& vNames, const std::vector<SPlantedKernel>& vKernels,
                       const std::vector<unsigned int>& vFirst)
    {
        const std::filesystem::path folder =
            std::filesystem::temp_directory_path() / ("kestrel-planted-" + std::to_string(getpid()));
        std::filesystem::create_directories(folder);
        const CHostBuild host(s_pszHostForm + strKernels, vNames, folder.string());
        std::filesystem::remove_all(folder);
        COpenCLProgram faulty(device, strHead + strKernels, "-g -DFAULTY");
        size_t nFaults = 0;
        for (size_t n = 0; n < vNames.size(); ++n)
        {
            SCOPED_TRACE(vNames[n]);
            Run(device, faulty, vNames[n]);
            Compare(vKernels[n], vFirst[n], RunOnHost(host, vNames[n]));
            nFaults += TakeFindings().empty() ? 0 : 1;
        }
        return nFaults;
    }

    static std::vector<cl_int> s_vInputs;
};

std::vector<cl_int> PlantedFaults::s_vInputs;

TEST_P(PlantedFaults, AreWhatTheGeneratorKnows)
{
    const char* const pszKernels = std::getenv("KESTREL_CHECKED_KERNELS");
    const unsigned long nKernels = pszKernels ? std::strtoul(pszKernels, nullptr, 10) : s_nCheckedKernels;
    size_t nFaults = 0;
    for (uint64_t nSeed = 1; nSeed <= nKernels;)
    {
        std::vector<uint64_t> vSeeds;
        for (; vSeeds.size() < s_nMostInProgram && nSeed <= nKernels; ++nSeed)
        {
            vSeeds.push_back(nSeed + 100000);
        }
        nFaults += CheckProgram(vSeeds);
    }
    EXPECT_EQ(nFaults > 0, GetParam().ePlanted != PLANTED_NOTHING);
}

INSTANTIATE_TEST_SUITE_P(Kinds, PlantedFaults, testing::ValuesIn(s_PlantedCases),
                         [](const auto& test) { return std::string(test.param.pszName); });

} // namespace
} // namespace KestrelTest
