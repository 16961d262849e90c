#include "fuzz/CompilerLibrary.h"
#include "fuzz/ElfChanges.h"
#include "fuzz/FuzzKernel.h"
#include "fuzz/Targets.h"
#include "tests/binary/TestImage.h"
#include "tests/fuzz/DamagedSeeds.h"
#include "tests/fuzz/RuntimeRoad.h"
#include "tests/support/Stride.h"

#include "binary/CLMetadata.h"
#include "binary/Elf.h"
#include "binary/ElfUtils.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <set>
#include <sstream>

namespace
{

using namespace OVK_ShaderDebugger;
using DamagedSeeds::SSeed;

/// A changed alignment may add 16 MiB of padding to an image, of which several copies exist.
constexpr size_t s_nMaxGrowthKiB = 256 * 1024;

/// Which share of the images is tried; the same for each kind of change. KESTREL_FLIP_STRIDE=1 tries all.
size_t Stride(size_t nUsual)
{
    return ReadStride("KESTREL_FLIP_STRIDE", nUsual);
}

/// Names the current image, and ends the program with that name if it takes too long.
class CWatch
{
public:
    CWatch() { std::signal(SIGALRM, &CWatch::OnAlarm); }
    ~CWatch()
    {
        alarm(0);
        KestrelFuzz::SetInputName("");
    }

    void Begin(const std::string& strWhat)
    {
        KestrelFuzz::SetInputName(strWhat);
        std::snprintf(s_szWhat, sizeof(s_szWhat), "too long: %s\n", strWhat.c_str());
        alarm(20);
    }

private:
    static void OnAlarm(int)
    {
        const ssize_t nWritten = write(STDERR_FILENO, s_szWhat, strlen(s_szWhat));
        _exit(nWritten < 0 ? 2 : 1);
    }

    static char s_szWhat[256];
};

char CWatch::s_szWhat[256];

size_t PeakKiB()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<size_t>(usage.ru_maxrss);
}

class Damage : public testing::TestWithParam<size_t>
{
protected:
    void SetUp() override { KestrelFuzz::OpenCompilerLibrary(); }
    const SSeed& Seed() const { return DamagedSeeds::All()[GetParam()]; }
};

/// What the debugger's device does with a kernel binary, up to its tokens.
void Prepare(std::vector<char>& vImage, const std::string& strKernel)
{
    OVK_ElfUtils::PatchKernelEntry(strKernel, &vImage);
    for (const char* pszSection : {".ovkil", ".llvmir", ".text"})
    {
        OVK_ElfUtils::RemoveElfSection(&vImage, pszSection);
    }
    if (!OVK_ElfUtils::GetDataFromSection(".debugilbin", vImage, nullptr))
    {
        OVK_ElfUtils::AddILBinarySection(&vImage, "debugil", "debugilbin", false, "");
    }
}

/// Treats an image like that of a kernel under debug, without the device.
/// \return whether this gave a patched image
bool TryDebugger(std::vector<char> vImage, const std::string& strKernel)
{
    std::string strMetadata;
    CCLMetadata metadata;
    if (OVK_ElfUtils::ExtractMetadataFromElf(vImage, strKernel, &strMetadata) && metadata.FromString(strMetadata))
    {
        metadata.GetNextConstantBufferOffset();
    }
    Prepare(vImage, strKernel);

    CFakeHost host;
    host.strKernelName = strKernel;
    KestrelFuzz::CFuzzShader shader(&host, vImage.data(), vImage.size());
    if (!shader.AnalyzeShader())
    {
        return false;
    }
    const InstructionNumber nTarget = shader.m_nInstructionCount / 2;
    const auto* pPatched =
        reinterpret_cast<const char*>(shader.CreatePatchedShader(ProgramCounter(nTarget), {Register(RT_Temp, 0, 1)}));
    if (pPatched == nullptr)
    {
        return false;
    }
    std::vector<char> vPatched(pPatched, pPatched + shader.GetPatchedShaderSize());
    if (shader.m_bIsElf)
    {
        KestrelFuzz::CheckWritten("patch", vPatched);
    }
    OVK_ElfUtils::UnpatchKernelEntry(strKernel, &vPatched);
    return true;
}

TEST_P(Damage, TheDebuggerRefusesOrPatches)
{
    ASSERT_TRUE(TryDebugger(Seed().vImage, Seed().strKernel)) << "the seed itself";
    CWatch watch;
    size_t nPatched = 0;
    const size_t nPeak = PeakKiB();
    const size_t nTried = DamagedSeeds::Damage(Seed(), Stride(s_bSanitized ? 29 : 7),
                                               [&](const std::string& strWhat, const std::vector<char>& vImage)
                                               {
                                                   watch.Begin(strWhat);
                                                   nPatched += TryDebugger(vImage, Seed().strKernel) ? 1 : 0;
                                               });
    RecordProperty("tried", static_cast<int>(nTried));
    EXPECT_GT(nPatched, nTried / 20);
    EXPECT_LT(nPatched, nTried);
    EXPECT_TRUE(s_bSanitized || PeakKiB() - nPeak < s_nMaxGrowthKiB) << PeakKiB() - nPeak;
}

TEST_P(Damage, TheRuntimeRefusesOrRuns)
{
    CRuntimeRoad runtime(Seed().strDevice);
    const bool bTaken = Seed().vImage[EI_CLASS] == ELFCLASS64;
    ASSERT_EQ(runtime.Try(Seed().vImage, "") != 0, bTaken) << "the seed itself";
    ASSERT_EQ(runtime.Try(Seed().vImage, "-use-debugil") != 0, bTaken) << "the seed itself, by its text";
    CWatch watch;
    const size_t nPeak = PeakKiB();
    size_t nRan = 0;
    const size_t nTried = DamagedSeeds::Damage(Seed(), Stride(s_bSanitized ? 29 : 7),
                                               [&](const std::string& strWhat, const std::vector<char>& vImage)
                                               {
                                                   watch.Begin(strWhat);
                                                   nRan += runtime.Try(vImage, "") != 0 ? 1 : 0;
                                                   nRan += runtime.Try(vImage, "-use-debugil") != 0 ? 1 : 0;
                                               });
    RecordProperty("tried", static_cast<int>(nTried));
    EXPECT_EQ(nRan > nTried / 20, bTaken);
    EXPECT_LT(nRan, 2 * nTried);
    EXPECT_TRUE(s_bSanitized || PeakKiB() - nPeak < s_nMaxGrowthKiB) << PeakKiB() - nPeak;
}

/// The complaints, each once, without decimal and hexadecimal numbers.
std::set<std::string> Kinds(const std::string& strComplaints)
{
    std::set<std::string> kinds;
    std::istringstream lines(strComplaints);
    for (std::string strLine; std::getline(lines, strLine);)
    {
        std::string strKind;
        bool bNumber = false;
        for (const char c : strLine.substr(strLine.find("Warning") == std::string::npos ? 0 : strLine.find("Warning")))
        {
            bNumber = bNumber ? std::isxdigit(static_cast<unsigned char>(c)) != 0
                              : std::isdigit(static_cast<unsigned char>(c)) != 0;
            strKind += bNumber ? '0' : c;
        }
        kinds.insert(strKind);
    }
    return kinds;
}

/// Whether a complaint is about a damaged number that must stay unchanged while the image around it changes. Symbol
/// tables and relocations follow the section that they name, but in a section with a damaged type the number stays. So
/// does the header's description of program headers, which may then exceed a shorter image.
bool StaysDamaged(const std::string& strKind)
{
    return strKind.find("out of range sh_link value") != std::string::npos ||
           strKind.find("Too many program headers") != std::string::npos;
}

TEST_P(Damage, ReadelfHasNoNewComplaintOfWhatIsWritten)
{
    constexpr size_t nAtMost = 24;
    CWatch watch;
    size_t nImages = 0;
    const size_t nStride = Stride(Seed().vImage.size() * 11 / nAtMost | 1);
    const auto check = [&](const std::string& strWhat, const std::vector<char>& vImage)
    {
        watch.Begin(strWhat);
        std::set<std::string> before;
        bool bKnown = false;
        KestrelFuzz::ChangeImage(vImage,
                                 [&](const char* pszChange, const std::vector<char>& vChanged)
                                 {
                                     if (++nImages % 4 != 0)
                                     {
                                         return;
                                     }
                                     before = bKnown ? before : Kinds(ReadElfComplaints(vImage));
                                     bKnown = true;
                                     for (const std::string& strKind : Kinds(ReadElfComplaints(vChanged)))
                                     {
                                         EXPECT_TRUE(StaysDamaged(strKind) || before.count(strKind) == 1)
                                             << strWhat << ", " << pszChange << ": " << strKind;
                                     }
                                 });
    };
    DamagedSeeds::Damage(Seed(), nStride, check);
    EXPECT_GT(nImages, 100u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Damage, testing::Values(0, 1, 2),
                         [](const testing::TestParamInfo<size_t>& test)
                         { return DamagedSeeds::All()[test.param].strName; });

} // namespace
