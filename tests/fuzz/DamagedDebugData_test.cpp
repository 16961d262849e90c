#include "fuzz/OpenCLRoad.h"
#include "fuzz/Targets.h"
#include "tests/fuzz/DamagedSeeds.h"
#include "tests/support/Stride.h"

#include "platform/compiler/DebugLines.h"
#include "platform/compiler/ElfReader.h"
#include "platform/compiler/ModuleBuilder.h"
#include "tools/source/DebugInfo.h"
#include "tools/source/SourcePlaces.h"

#include <gtest/gtest.h>

#include <algorithm>

/// Binaries with debug data, with every byte changed and cut at every place, for the two readers of lines: the tool's,
/// by the system's library, and the platform's.
namespace
{

using namespace KestrelPlatform;

const char* const s_pszSource = R"(int twice(int x) { int y = x + x; return y; }
kernel void k(global int* out, int n)
{
    struct { int a; float b[3]; } s = {1, {2, 3, 4}};
    for (int i = 0; i < n; ++i)
    {
        s.b[i % 3] += twice(i);
    }
#line 20 "other.cl"
    out[get_global_id(0)] = s.a + (int)s.b[n % 3];
}
)";

DamagedSeeds::SSeed MakeSeed()
{
    SCompileJob job = KestrelFuzz::MakeOpenCLJob(false, true);
    job.strSource = s_pszSource;
    SModule module;
    std::string strLog;
    EXPECT_TRUE(KestrelFuzz::OpenCLCompiler().Build(job, module, strLog)) << strLog;
    const SBuildResult result = BuildModule(module, job.options, job.target, "");
    EXPECT_TRUE(result.bOk) << result.strLog;
    return {"debug", "k", "Quench", result.GetImage()};
}

/// The place of each line, read by the platform's own reader.
std::vector<std::string> ReadByPlatform(const std::vector<char>& vImage, size_t nLines)
{
    CElfReader elf;
    std::string strFault;
    std::string_view section;
    std::vector<std::string> vPlaces;
    if (elf.Read(vImage.data(), vImage.size(), strFault) && elf.FindSection(s_LineSection, section))
    {
        const CDebugLines lines{section};
        for (size_t n = 0; n < nLines; ++n)
        {
            vPlaces.push_back(lines.Find(n));
        }
    }
    return vPlaces;
}

TEST(DamagedDebugData, IsReadToItsEndOrLeft)
{
    const DamagedSeeds::SSeed seed = MakeSeed();
    const size_t nLines = 120;
    std::vector<std::string> vWhole = KestrelTool::ReadSourcePlaces(seed.vImage, nLines);
    std::transform(vWhole.begin(), vWhole.end(), vWhole.begin(), KestrelTool::ShortenPlace);
    EXPECT_EQ(vWhole, ReadByPlatform(seed.vImage, nLines)) << "two readers that share nothing";
    EXPECT_NE(std::find(vWhole.begin(), vWhole.end(), "other.cl:20"), vWhole.end());
    const auto Read = [&](const std::string& strWhat, const std::vector<char>& vImage)
    {
        KestrelFuzz::SetInputName(strWhat);
        EXPECT_LE(KestrelTool::ReadSourcePlaces(vImage, nLines).size(), nLines);
        EXPECT_LE(ReadByPlatform(vImage, nLines).size(), nLines);
        KestrelTool::CDebugInfo info(vImage);
        for (unsigned int nLine = 0; nLine < nLines; nLine += 50)
        {
            info.FindVariables(nLine);
        }
        info.FindByName("s");
    };
    KestrelTool::CDebugInfo whole(seed.vImage);
    const std::vector<KestrelTool::SSourceVariable> vNamed = whole.FindByName("s");
    ASSERT_EQ(vNamed.size(), 1u);
    EXPECT_EQ(vNamed[0].pType->nSize, 16u);
    const size_t nImages = DamagedSeeds::Damage(seed, ReadStride("KESTREL_FLIP_STRIDE", s_bSanitized ? 53 : 3), Read);
    EXPECT_GT(nImages, s_bSanitized ? 300u : 1000u);
    RecordProperty("images", static_cast<int>(nImages));
    KestrelFuzz::SetInputName("");
}

} // namespace
