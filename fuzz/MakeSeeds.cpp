#include "fuzz/FuzzKernel.h"

#include "binary/ElfUtils.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/ProgramBuilder.h"
#include "tests/binary/TestImage.h"
#include "tests/support/Folders.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

/// Writes the seeds of the fuzz corpus, made from the examples: fuzz_make_seeds FOLDER. Existing files with other names
/// stay.
namespace
{

namespace fs = std::filesystem;

fs::path s_Folder;

void Save(const char* pszTarget, const std::string& strName, const void* pData, size_t nSize)
{
    const fs::path folder = s_Folder / pszTarget;
    fs::create_directories(folder);
    std::ofstream file(folder / ("seed_" + strName), std::ios::binary);
    file.write(static_cast<const char*>(pData), static_cast<std::streamsize>(nSize));
    if (!file)
    {
        std::cerr << "can't write " << folder << "\n";
        std::exit(1);
    }
}

void Save(const char* pszTarget, const std::string& strName, const std::string& strText)
{
    Save(pszTarget, strName, strText.data(), strText.size());
}

std::string ReadText(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

KestrelPlatform::SDeviceTarget TargetOf(const std::string& strSource)
{
    KestrelPlatform::SDeviceTarget target;
    const bool bOlder = strSource.find(";memory:64bitABI") == std::string::npos;
    target.strName = bOlder ? "Kiln" : "Quench";
    target.b64BitAddresses = !bOlder;
    target.bRawUavOnly = bOlder;
    return target;
}

/// Saves each stream several times: in binaries as the analysis needs it, and alone.
void SaveTokens(const std::string& strName, std::vector<unsigned int> vTokens, bool bOlder)
{
    const size_t nBytes = vTokens.size() * sizeof(vTokens[0]);
    vTokens.push_back(0);
    Save("disassemble", strName, vTokens.data(), nBytes);
    Save("il", strName, vTokens.data(), nBytes + (bOlder ? 1 : 0));
    Save("patch", strName, vTokens.data(), nBytes + (bOlder ? 1 : 2));
}

void SaveModule(const std::string& strName, const std::string& strSource)
{
    KestrelPlatform::SBuildOptions options;
    options.bDebug = true;
    const KestrelPlatform::SDeviceTarget target = TargetOf(strSource);
    const KestrelPlatform::SBuildResult result = KestrelPlatform::BuildFromSource(strSource, options, target);
    if (!result.bOk)
    {
        std::cerr << strName << ": " << result.strLog << "\n";
        std::exit(1);
    }
    Save("program", strName, strSource);
    Save("program", strName + "_image", result.GetImage().data(), result.GetImage().size());
    Save("elf", strName, result.GetImage().data(), result.GetImage().size());
    Save("assemble", strName, strSource.substr(strSource.find("il_cs_2_0")));
    SaveTokens(strName, result.vKernels.front().vTokens, target.bRawUavOnly);
    std::string strMetadata;
    OVK_ElfUtils::ExtractMetadataFromElf(result.GetImage(), result.vKernels.front().strName, &strMetadata);
    Save("metadata", strName, strMetadata);
}

/// Saves images that no compiler of this project makes: both ELF classes, other section types.
void SaveHandMadeImages()
{
    const std::string strMetadata = ";ARGSTART:__OpenCL_k_kernel\n;version:3:1:104\n;uniqueid:1024\n"
                                    ";ARGEND:__OpenCL_k_kernel\n";
    CTestImage image;
    image.vSections = {
        {".debugil", SHT_PROGBITS, 1, "il_cs_2_0\n;$$$$$$$$$$\nendmain\nfunc 1024\nret\nendfunc\nend\n", 0, 0},
        {".ovkil", SHT_PROGBITS, 1, "text", 0, 0},
        {".rodata", SHT_PROGBITS, 16, strMetadata + "header", 0, 0},
        {".rel", SHT_REL, 8, std::string(16, '\1'), 3, 4}};
    const auto nRodata = static_cast<uint16_t>(CTestImage::s_nFirst + 2);
    image.vSymbols = {{"local", CTestImage::s_nFirst, 1, 2},
                      {"absolute", SHN_ABS, 5, 0},
                      {"__OpenCL_k_metadata", nRodata, 0, strMetadata.size(), ELF64_ST_INFO(STB_GLOBAL, STT_OBJECT)},
                      {"__OpenCL_k_header", nRodata, strMetadata.size(), 6, ELF64_ST_INFO(STB_GLOBAL, STT_OBJECT)},
                      {"__OpenCL_k_ovkil", CTestImage::s_nFirst + 1, 0, 4, ELF64_ST_INFO(STB_GLOBAL, STT_OBJECT)},
                      {"__OpenCL_f_fmetadata", nRodata, 3, 9, ELF64_ST_INFO(STB_GLOBAL, STT_OBJECT)}};
    const std::vector<char> v64 = image.Make64();
    const std::vector<char> v32 = image.Make32();
    Save("elf", "by_hand_64", v64.data(), v64.size());
    Save("elf", "by_hand_32", v32.data(), v32.size());
}

/// Saves the kernels of the patcher's tests, which use every block and every kind of write.
void SaveTestKernels(const fs::path& folder)
{
    for (const auto& entry : fs::directory_iterator(folder))
    {
        const std::string strText = ReadText(entry.path());
        std::vector<unsigned int> vTokens;
        KestrelPlatform::SDiagnostic diagnostic;
        if (entry.path().extension() == ".il" &&
            KestrelPlatform::AssembleIL(strText.data(), strText.size(), vTokens, diagnostic))
        {
            const std::string strName = "kernel_" + entry.path().stem().string();
            Save("assemble", strName, strText);
            SaveTokens(strName, vTokens, entry.path().stem().string().find("older") != std::string::npos);
        }
    }
}

/// Saves the launch file of an example, with its file names replaced by those that the target knows.
void SaveLaunch(const fs::path& path)
{
    std::string strText = ReadText(path);
    const size_t nName = strText.find('"', strText.find(':', strText.find("\"program\""))) + 1;
    strText.replace(nName, strText.find('"', nName) - nName, "k.il");
    Save("launch", path.stem().string(), strText);
}

} // namespace

int main(int nArguments, char** ppszArguments)
{
    if (nArguments != 2)
    {
        std::cerr << "usage: fuzz_make_seeds FOLDER\n";
        return 2;
    }
    s_Folder = ppszArguments[1];
    const fs::path source = KestrelTest::SourceFile("");
    for (const auto& entry : fs::recursive_directory_iterator(source / "examples"))
    {
        if (entry.path().extension() == ".il")
        {
            SaveModule(entry.path().stem().string(), ReadText(entry.path()));
        }
        else if (entry.path().extension() == ".json")
        {
            SaveLaunch(entry.path());
        }
    }
    SaveTestKernels(source / "tests/instrument/kernels");
    SaveHandMadeImages();
    Save("program", "kernel_in_c",
         "__kernel void k(__global float* a, float f, __global const uint* b)\n{\n    size_t i = get_global_id(0);\n"
         "    a[i] = a[i] * f + (float)(b[i] << 2u);\n}\n");
    Save("launch", "of_every_kind",
         "{\"program\": \"k.il\", \"kernel\": \"k\", \"options\": \"-g\", \"global\": [4, 2], \"offset\": [0, 1],\n"
         " \"args\": [{\"buffer\": {\"type\": \"i8\", \"file\": \"bytes.bin\", \"expect\": {\"file\": \"bytes.bin\"}, "
         "\"save\": \"out\"}},\n {\"same\": 0}, {\"local\": 64}, {\"null\": \"buffer\"}, {\"null\": \"image\"},\n"
         " {\"value\": {\"type\": \"long\", \"values\": [1, -2]}},\n {\"buffer\": {\"type\": \"double\", \"count\": 3, "
         "\"fill\": {\"random\": 7}}},\n {\"image\": {\"order\": \"RG\", \"channel\": \"unorm8\", \"width\": 2, "
         "\"height\": 1, \"depth\": 2, \"fill\": {\"constant\": 300}}}]}\n");
    return 0;
}
