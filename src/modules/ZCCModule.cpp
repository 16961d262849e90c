#include "modules/ZCCModule.h"

ZCCModule::ZCCModule()
{
    LoadModule(s_DefaultModuleName);
}

void ZCCModule::Initialize()
{
#define ZCC_CLEAR(name, result, parameters) name = nullptr;
    ZCC_ENTRY_POINTS(ZCC_CLEAR)
#undef ZCC_CLEAR
    m_bModuleLoaded = false;
}

bool ZCCModule::LoadModule(const std::string& moduleName)
{
    if (!m_DynamicLibraryHelper.LoadModule(
            {moduleName, s_DefaultModuleName, s_OldDefaultModuleName, s_TMP_MODULE_NAME, s_HSA_COMPILER_LIB_NAME}))
    {
        return m_bModuleLoaded;
    }

#define ZCC_LOOK_UP(name, result, parameters)                                                                          \
    name = reinterpret_cast<PFNzcc##name>(m_DynamicLibraryHelper.GetProcAddress("zcc" #name));
    ZCC_ENTRY_POINTS(ZCC_LOOK_UP)
#undef ZCC_LOOK_UP

    m_bModuleLoaded = CompilerInit != nullptr;
    return m_bModuleLoaded;
}

void ZCCModule::UnloadModule()
{
    m_DynamicLibraryHelper.UnloadModule();
    Initialize();
}
