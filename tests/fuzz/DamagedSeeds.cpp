#include "tests/fuzz/DamagedSeeds.h"

#include "platform/compiler/Assembler.h"
#include "platform/compiler/ProgramBuilder.h"
#include "tests/binary/TestImage.h"
#include "tests/support/Folders.h"

#include <fstream>
#include <iterator>

namespace DamagedSeeds
{

namespace
{

/// For each byte: two values and eight flipped bits.
constexpr size_t s_nChanges = 10;

std::string ReadExample(const std::string& strName)
{
    std::ifstream file(KestrelTest::SourceFile("examples/") + strName + "/" + strName + ".il");
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

SSeed Build(const std::string& strExample, const std::string& strKernel)
{
    KestrelPlatform::SDeviceTarget target;
    target.strName = "Quench";
    KestrelPlatform::SBuildOptions options;
    options.bDebug = true;
    const KestrelPlatform::SBuildResult result =
        KestrelPlatform::BuildFromSource(ReadExample(strExample), options, target);
    EXPECT_TRUE(result.bOk) << result.strLog;
    return {strExample, strKernel, "Quench", result.GetImage()};
}

/// An example for the older device: its metadata, its text with the call in place, and the text's tokens.
SSeed MakeTokensIn32Bit()
{
    const std::string strSource = ReadExample("older_loop");
    const size_t nText = strSource.find("il_cs_2_0");
    std::string strText = strSource.substr(nText);
    strText.replace(strText.find(";$$$$$$$$$$"), 11, "call 1024");
    std::vector<unsigned int> vTokens;
    KestrelPlatform::SDiagnostic diagnostic;
    EXPECT_TRUE(KestrelPlatform::AssembleIL(strText.data(), strText.size(), vTokens, diagnostic))
        << diagnostic.ToString();

    CTestImage image;
    const std::string strTokens(reinterpret_cast<const char*>(vTokens.data()), vTokens.size() * sizeof(vTokens[0]));
    image.vSections = {{".debugil", SHT_PROGBITS, 1, strText, 0, 0},
                       {".debugilbin", SHT_PROGBITS, 4, strTokens, 0, 0},
                       {".rodata", SHT_PROGBITS, 1, strSource.substr(0, nText), 0, 0}};
    image.vSymbols = {{"__OpenCL_older_loop_metadata", CTestImage::s_nFirst + 2, 0, nText}};
    return {"tokens_in_32_bit", "older_loop", "Kiln", image.Make32()};
}

char ChangeByte(char cOld, size_t nChange)
{
    switch (nChange)
    {
    case 0:
        return 0;

    case 1:
        return static_cast<char>(0xFF);

    default:
        return static_cast<char>(cOld ^ (1 << (nChange - 2)));
    }
}

} // namespace

const std::vector<SSeed>& All()
{
    static const std::vector<SSeed> s_vSeeds = {Build("vector_add", "vector_add"), Build("two_kernels", "shift"),
                                                MakeTokensIn32Bit()};
    return s_vSeeds;
}

size_t Damage(const SSeed& seed, size_t nStride, const Sink& sink)
{
    size_t nGiven = 0;
    const size_t nBytes = seed.vImage.size();
    for (size_t n = 0; n < nBytes * s_nChanges; n += nStride, ++nGiven)
    {
        std::vector<char> vImage = seed.vImage;
        char& cByte = vImage[n / s_nChanges];
        cByte = ChangeByte(cByte, n % s_nChanges);
        sink(seed.strName + ", byte " + std::to_string(n / s_nChanges) + ", change " + std::to_string(n % s_nChanges),
             vImage);
    }
    for (size_t n = 0; n < nBytes; n += nStride, ++nGiven)
    {
        sink(seed.strName + ", cut after " + std::to_string(n) + " bytes",
             std::vector<char>(seed.vImage.begin(), seed.vImage.begin() + static_cast<std::ptrdiff_t>(n)));
    }
    return nGiven;
}

} // namespace DamagedSeeds
