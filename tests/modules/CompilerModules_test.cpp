#include "modules/QRLModules.h"
#include "modules/ZCCModule.h"

#include "tests/modules/FakeLibraries.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

namespace
{

bool IsOpen(const std::string& strLibrary)
{
    void* pHandle = dlopen(strLibrary.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (pHandle != nullptr)
    {
        dlclose(pHandle);
    }
    return pHandle != nullptr;
}

TEST(ZCCModule, FallsBackOnTheKnownNames)
{
    ZCCModule module;
    module.UnloadModule();
    EXPECT_FALSE(module.IsLoaded());
    EXPECT_EQ(module.CompilerInit, nullptr);

    EXPECT_TRUE(module.LoadModule("not there"));
    EXPECT_NE(module.Disassemble, nullptr);
    EXPECT_TRUE(IsOpen(Library("ovkocl12cl64")));
}

TEST(ZCCModule, OneEntryDecides)
{
    ZCCModule module;
    EXPECT_TRUE(module.LoadModule(Library("fakezcc_no_disassemble")));
    EXPECT_EQ(module.Disassemble, nullptr);
    EXPECT_NE(module.Compile, nullptr);

    EXPECT_FALSE(module.LoadModule(Library("fakeqrldd_all")));
    EXPECT_FALSE(module.IsLoaded());
}

TEST(QRLModules, AreLoadedWithAllEntriesOrClosedAgain)
{
    QRLDDModule module(Library("fakeqrldd_all"));
    EXPECT_TRUE(module.m_ModuleLoaded);
    EXPECT_NE(module.Init, nullptr);

    EXPECT_FALSE(module.LoadModule(Library("fakeqrldd_two")));
    EXPECT_FALSE(module.m_ModuleLoaded);
    EXPECT_EQ(module.GetExport, nullptr);
    EXPECT_FALSE(IsOpen(Library("fakeqrldd_two")));
    EXPECT_FALSE(IsOpen(Library("fakeqrldd_all")));
}

TEST(QRLModules, TheRuntimeNeedsAllOfItsNames)
{
    EXPECT_TRUE(QRLRTModule(QRLRTModule::s_DefaultModuleName).m_ModuleLoaded);
    EXPECT_FALSE(QRLCLModule(Library("ovkqrlrt")).m_ModuleLoaded);
}

} // namespace
