#include "modules/DynamicLibraryModule.h"

#include <dlfcn.h>

DynamicLibraryModule::DynamicLibraryModule(const std::string& name)
{
    LoadModule(name);
}

DynamicLibraryModule::~DynamicLibraryModule()
{
    UnloadModule();
}

bool DynamicLibraryModule::LoadModule(const std::string& name)
{
    // An empty name would give the program itself, which isn't a library.
    void* pModule = name.empty() ? nullptr : dlopen(name.c_str(), RTLD_LAZY);
    if (pModule == nullptr)
    {
        return false;
    }

    UnloadModule();
    m_Module = pModule;
    return true;
}

bool DynamicLibraryModule::LoadModule(const std::vector<std::string>& names)
{
    for (const std::string& name : names)
    {
        if (LoadModule(name))
        {
            return true;
        }
    }
    return false;
}

void DynamicLibraryModule::UnloadModule()
{
    if (m_Module != nullptr)
    {
        dlclose(m_Module);
        m_Module = nullptr;
    }
}

void* DynamicLibraryModule::GetProcAddress(const std::string& name) const
{
    return m_Module == nullptr ? nullptr : dlsym(m_Module, name.c_str());
}
