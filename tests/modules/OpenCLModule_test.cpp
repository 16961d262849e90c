#include "modules/OpenCLModule.h"

#include "tests/modules/FakeLibraries.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <sstream>

namespace
{

/// Every function of the fake runtime returns its own name.
template <class Entry>
std::string NameOf(Entry pEntry)
{
    return pEntry == nullptr ? "null" : reinterpret_cast<const char* (*)()>(reinterpret_cast<void*>(pEntry))();
}

struct SVersionCase
{
    const char* szLibrary;
    OpenCLModule::OpenCLVersion eVersion;
};

class OpenCLModuleVersion : public testing::TestWithParam<SVersionCase>
{
};

TEST_P(OpenCLModuleVersion, IsTheHighestCompleteOne)
{
    OpenCLModule module(Library(GetParam().szLibrary));
    EXPECT_EQ(module.OpenCLLoaded(), GetParam().eVersion);
    module.UnloadModule();
    EXPECT_EQ(module.OpenCLLoaded(), OpenCLModule::OpenCL_None);
    EXPECT_EQ(module.GetPlatformIDs, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Libraries, OpenCLModuleVersion,
                         testing::Values(SVersionCase{"fakecl_2_0", OpenCLModule::OpenCL_2_0},
                                         SVersionCase{"fakecl_1_2", OpenCLModule::OpenCL_1_2},
                                         SVersionCase{"fakecl_1_1", OpenCLModule::OpenCL_1_1},
                                         SVersionCase{"fakecl_1_0", OpenCLModule::OpenCL_1_0},
                                         SVersionCase{"fakecl_none", OpenCLModule::OpenCL_None},
                                         SVersionCase{"not there", OpenCLModule::OpenCL_None}));

TEST(OpenCLModule, KeepsTheHalfOfAVersion)
{
    const OpenCLModule module(Library("fakecl_1_1"));
    EXPECT_EQ(module.LinkProgram, nullptr);
    EXPECT_EQ(NameOf(module.CompileProgram), "clCompileProgram");
    EXPECT_EQ(NameOf(module.CreateImage), "clCreateImage");
}

TEST(OpenCLModule, ALibraryThatDoesNotOpenLeavesTheTable)
{
    OpenCLModule module(Library("fakecl_1_2"));
    EXPECT_EQ(module.LoadModule("not there"), OpenCLModule::OpenCL_1_2);
    EXPECT_EQ(NameOf(module.CreateBuffer), "clCreateBuffer");
}

TEST(OpenCLModule, TheFirstUsableLibraryOfAListStands)
{
    OpenCLModule module("not there");
    EXPECT_EQ(module.LoadModule({"not there", Library("fakecl_none"), Library("fakecl_1_0")}),
              OpenCLModule::OpenCL_1_0);
}

TEST(OpenCLModule, EveryEntryIsTheFunctionOfItsNameAndGoesToItsSlot)
{
    const OpenCLModule module(Library("fakecl_2_0"));
    cl_icd_dispatch_table table = {};
    module.GetAsCLDispatchTable(table);

    EXPECT_EQ(NameOf(table.clGetPlatformIDs), "clGetPlatformIDs");
    EXPECT_EQ(NameOf(table.clCreateSubDevicesEXT), "clCreateSubDevicesEXT");
    EXPECT_EQ(NameOf(table.clSetKernelExecInfo), "clSetKernelExecInfo");

    // The functions of the fake runtime, by the sizes of their families.
    std::ostringstream text;
    text << module;
    int nSet = 0;
    std::string strName, strEquals, strState;
    for (std::istringstream lines(text.str()); lines >> strName >> strEquals >> strState;)
    {
        nSet += strState == "set" ? 1 : 0;
    }
    EXPECT_EQ(nSet, 74 + 1 + 8 + 3 + 1 + 16 + 13);
}

TEST(OpenCLModule, AClientsTableCountsAndComesBackWhole)
{
    cl_icd_dispatch_table client;
    std::memset(&client, 0x5A, sizeof(client));
    OpenCLModule module("not there");
    module.SetFromCLDispatchTable(client);
    EXPECT_EQ(module.OpenCLLoaded(), OpenCLModule::OpenCL_2_0);
    EXPECT_TRUE(module.IsExtensionSupported(OpenCLModule::OpenCL_ext_device_fission));
    EXPECT_TRUE(module.IsExtensionSupported(OpenCLModule::OpenCL_khr_gl_event));
    EXPECT_FALSE(module.IsExtensionSupported(OpenCLModule::OpenCL_khr_d3d10_sharing));

    // All slots except the six of the oldest sharing extension and those after version 2.0.
    cl_icd_dispatch_table back = {};
    module.GetAsCLDispatchTable(back);
    const auto* pBack = reinterpret_cast<const unsigned char*>(&back);
    const size_t nKnown = offsetof(cl_icd_dispatch_table, clCloneKernel);
    EXPECT_EQ(std::count(pBack, pBack + sizeof(back), 0x5A), static_cast<std::ptrdiff_t>(nKnown - 6 * sizeof(void*)));

    client.clFinish = nullptr;
    module.SetFromCLDispatchTable(client);
    EXPECT_EQ(module.OpenCLLoaded(), OpenCLModule::OpenCL_None);
}

TEST(OpenCLModule, ACopyDoesNotCloseTheLibrary)
{
    OpenCLModule module(Library("fakecl_1_2"));
    std::make_unique<OpenCLModule>(module).reset();
    EXPECT_EQ(NameOf(module.Finish), "clFinish");
}

void* CL_API_CALL FindByPlatform(cl_platform_id platform, const char* szName)
{
    EXPECT_EQ(platform, reinterpret_cast<cl_platform_id>(7));
    return std::strcmp(szName, "clCreateKeyOVK") == 0 ? const_cast<char*>("key") : nullptr;
}

void* CL_API_CALL FindByName(const char* szName)
{
    return std::strcmp(szName, "clIcdGetPlatformIDsKHR") == 0 ? const_cast<char*>("icd") : nullptr;
}

TEST(OpenCLModule, ExtensionsComeFromThePlatformsCallIfThereIsOne)
{
    OpenCLModule module("not there");
    const auto platform = reinterpret_cast<cl_platform_id>(7);
    EXPECT_FALSE(module.LoadOpenCLExtensions(platform));

    module.GetExtensionFunctionAddress = FindByName;
    EXPECT_TRUE(module.LoadOpenCLExtensions(platform));
    EXPECT_NE(module.IcdGetPlatformIDsKHR, nullptr);
    EXPECT_EQ(module.CreateKeyOVK, nullptr);

    module.GetExtensionFunctionAddressForPlatform = FindByPlatform;
    EXPECT_TRUE(module.LoadOpenCLExtensions(platform));
    EXPECT_EQ(module.IcdGetPlatformIDsKHR, nullptr);
    EXPECT_NE(module.CreateKeyOVK, nullptr);
}

} // namespace
