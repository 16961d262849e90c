#include "modules/OpenCLModule.h"

#include <ostream>

static_assert(sizeof(SOpenCLEntryPoints) == 154 * sizeof(void*), "the table of entry points has 154 places");

namespace
{

const std::vector<std::string>& FallbackNames()
{
    static const std::vector<std::string> s_vNames = {"libOpenCL.so", "libOpenCL.so.2", "libOpenCL.so.1"};
    return s_vNames;
}

const char* ToText(bool bSet)
{
    return bSet ? "set" : "null";
}

} // namespace

OpenCLModule::OpenCLModule(const std::string& moduleName)
{
    m_openCLVersion = LoadModule(moduleName);
    if (moduleName == s_DefaultModuleName && m_openCLVersion == OpenCL_None)
    {
        m_openCLVersion = LoadModule(FallbackNames());
    }
}

OpenCLModule::OpenCLModule(const std::vector<std::string>& moduleNames)
{
    m_openCLVersion = LoadModule(moduleNames);
}

OpenCLModule::OpenCLModule(const OpenCLModule& other)
    : SOpenCLEntryPoints(other), m_openCLVersion(other.m_openCLVersion)
{
}

void OpenCLModule::Initialize()
{
    static_cast<SOpenCLEntryPoints&>(*this) = SOpenCLEntryPoints();
    m_openCLVersion = OpenCL_None;
}

OpenCLModule::OpenCLVersion OpenCLModule::LoadModule(const std::string& moduleName)
{
    if (!m_DynamicLibraryHelper.LoadModule(moduleName))
    {
        return OpenCLLoaded();
    }

    // Also clears the vendor's extensions, which belong to the library that was open before.
    Initialize();

#define CL_ICD_ENTRY(family, name)                                                                                     \
    if (Family::family != Family::Extension)                                                                           \
    {                                                                                                                  \
        name = reinterpret_cast<cl_api_cl##name>(m_DynamicLibraryHelper.GetProcAddress("cl" #name));                   \
    }
#include "modules/CLEntryPoints.def"

    m_openCLVersion = OpenCLLoaded();
    return m_openCLVersion;
}

OpenCLModule::OpenCLVersion OpenCLModule::LoadModule(const std::vector<std::string>& moduleNames)
{
    for (const std::string& name : moduleNames)
    {
        const OpenCLVersion eVersion = LoadModule(name);
        if (eVersion != OpenCL_None)
        {
            return eVersion;
        }
    }
    return OpenCL_None;
}

void OpenCLModule::UnloadModule()
{
    m_DynamicLibraryHelper.UnloadModule();
    Initialize();
}

bool OpenCLModule::IsComplete(Family family) const
{
#define CL_ICD_ENTRY(entryFamily, name)                                                                                \
    if (Family::entryFamily == family && name == nullptr)                                                              \
    {                                                                                                                  \
        return false;                                                                                                  \
    }
#include "modules/CLEntryPoints.def"
    return true;
}

OpenCLModule::OpenCLVersion OpenCLModule::OpenCLLoaded() const
{
    static constexpr Family s_Families[] = {Family::Core_1_0, Family::Core_1_1, Family::Core_1_2, Family::Core_2_0};

    int nVersion = OpenCL_None;
    for (Family family : s_Families)
    {
        if (!IsComplete(family))
        {
            break;
        }
        ++nVersion;
    }
    return static_cast<OpenCLVersion>(nVersion);
}

CLVendorEntry OpenCLModule::FindExtension(cl_platform_id platform, const char* szName) const
{
    void* pEntry = GetExtensionFunctionAddressForPlatform != nullptr
                       ? GetExtensionFunctionAddressForPlatform(platform, szName)
                       : GetExtensionFunctionAddress(szName);
    return reinterpret_cast<CLVendorEntry>(pEntry);
}

bool OpenCLModule::LoadOpenCLExtensions(cl_platform_id platform)
{
    if (GetExtensionFunctionAddressForPlatform == nullptr && GetExtensionFunctionAddress == nullptr)
    {
        return false;
    }

#define CL_ICD_ENTRY(family, name)                                                                                     \
    if (Family::family == Family::Extension)                                                                           \
    {                                                                                                                  \
        name = reinterpret_cast<cl_api_cl##name>(FindExtension(platform, "cl" #name));                                 \
    }
#define CL_EXT_ENTRY(type, name) name = reinterpret_cast<type>(FindExtension(platform, "cl" #name));
#include "modules/CLEntryPoints.def"
    return true;
}

bool OpenCLModule::IsExtensionSupported(OpenCLExt ext) const
{
    switch (ext)
    {
    case OpenCL_ext_device_fission:
        return IsComplete(Family::DeviceFission);
    case OpenCL_khr_gl_event:
        return IsComplete(Family::GLEvent);
    default:
        return false;
    }
}

void OpenCLModule::GetAsCLDispatchTable(cl_icd_dispatch_table& dispatchTable) const
{
#define CL_ICD_ENTRY(family, name) dispatchTable.cl##name = name;
#define CL_SLOT(block, index, name)                                                                                    \
    dispatchTable.cl##name = reinterpret_cast<decltype(dispatchTable.cl##name)>(_reserved##block##Extensions_##index);
#include "modules/CLEntryPoints.def"
}

void OpenCLModule::SetFromCLDispatchTable(const cl_icd_dispatch_table& dispatchTable)
{
#define CL_ICD_ENTRY(family, name) name = dispatchTable.cl##name;
#define CL_SLOT(block, index, name)                                                                                    \
    _reserved##block##Extensions_##index = reinterpret_cast<void*>(dispatchTable.cl##name);
#include "modules/CLEntryPoints.def"
    m_openCLVersion = OpenCLLoaded();
}

std::ostream& operator<<(std::ostream& output, const OpenCLModule& module)
{
#define CL_ICD_ENTRY(family, name) output << #name << " = " << ToText(module.name != nullptr) << "\n";
#define CL_SLOT(block, index, name)                                                                                    \
    output << "_reserved" #block "Extensions[" #index "] = "                                                           \
           << ToText(module._reserved##block##Extensions_##index != nullptr) << "\n";
#define CL_EXT_ENTRY(type, name) output << #name << " = " << ToText(module.name != nullptr) << "\n";
#include "modules/CLEntryPoints.def"
    return output;
}
