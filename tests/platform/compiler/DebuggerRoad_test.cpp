// What a debugger does with a kernel binary, with the compiler library for conversions: text to tokens, tokens back to
// text, and a build of the result.

#include "binary/ElfUtils.h"
#include "platform/compiler/ProgramBuilder.h"
#include "tests/platform/compiler/Modules.h"
#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <filesystem>
#include <sstream>

using namespace KestrelPlatform;

namespace
{

/// All IL modules of the examples.
std::vector<std::filesystem::path> ExampleModules()
{
    std::vector<std::filesystem::path> vPaths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(KestrelTest::SourceFile("examples")))
    {
        if (entry.path().extension() == ".il")
        {
            vPaths.push_back(entry.path());
        }
    }
    return vPaths;
}

class DebuggerRoad : public testing::Test
{
protected:
    void SetUp() override
    {
        // Once opened by path, the library is found by its name.
        m_pLibrary = dlopen(KestrelTest::PlatformFile("libovkocl12cl64.so").c_str(), RTLD_NOW);
        ASSERT_NE(m_pLibrary, nullptr) << dlerror();
    }

    void TearDown() override { dlclose(m_pLibrary); }

    void Travel(const SBuildResult& built, const SCompiledKernel& kernel, const SDeviceTarget& target)
    {
        std::vector<char> vImage = built.GetImage();
        ASSERT_TRUE(OVK_ElfUtils::PatchKernelEntry(kernel.strName, &vImage));
        for (const char* pSection : {".ovkil", ".llvmir", ".text"})
        {
            ASSERT_TRUE(OVK_ElfUtils::RemoveElfSection(&vImage, pSection));
        }
        ASSERT_TRUE(OVK_ElfUtils::AddILBinarySection(&vImage, "debugil", "debugilbin", false, target.strName));
        std::vector<unsigned int> vTokens;
        ASSERT_TRUE(OVK_ElfUtils::ExtractBinaryILFromElf(vImage, &vTokens));
        EXPECT_EQ(vTokens, kernel.vTokens);
        EXPECT_EQ(Modules::ReadElfComplaints(vImage), "");

        ASSERT_TRUE(OVK_ElfUtils::InsertBinaryILIntoElf(&vImage, vTokens.data(), vTokens.size() * sizeof(unsigned int),
                                                        target.strName));
        ASSERT_TRUE(OVK_ElfUtils::UnpatchKernelEntry(kernel.strName, &vImage));
        SBuildOptions options;
        options.bUseDebugIL = true;
        options.strJustKernel = kernel.strName;
        const SBuildResult again = BuildFromBinary(vImage.data(), vImage.size(), options, target);
        ASSERT_TRUE(again.bOk) << again.strLog;
        ASSERT_EQ(again.vKernels.size(), 1u);
        EXPECT_EQ(again.vKernels[0].vTokens, kernel.vTokens);
        EXPECT_EQ(Modules::ReadElfComplaints(vImage), "");
    }

    void* m_pLibrary = nullptr;
};

TEST_F(DebuggerRoad, EveryKernelOfEveryExampleComesBackAsItWas)
{
    size_t nKernels = 0;
    for (const std::filesystem::path& path : ExampleModules())
    {
        SCOPED_TRACE(path.filename().string());
        std::ifstream file(path);
        std::stringstream source;
        source << file.rdbuf();
        const bool bOlder = source.str().find(";device:kiln") != std::string::npos;
        const SDeviceTarget target = bOlder ? Modules::Older() : Modules::Newer();
        SBuildOptions options;
        options.bDebug = true;
        const SBuildResult built = BuildFromSource(source.str(), options, target);
        ASSERT_TRUE(built.bOk) << built.strLog;
        for (const SCompiledKernel& kernel : built.vKernels)
        {
            Travel(built, kernel, target);
            ++nKernels;
        }
    }
    EXPECT_GT(nKernels, 0u);
}

} // namespace
