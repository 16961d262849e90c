#include "tools/session/launch/Libraries.h"

#include "tools/session/launch/OpenCLEntryPoints.def"

#include <dlfcn.h>
#include <sys/auxv.h>

#include <cstring>
#include <filesystem>
#include <system_error>

namespace KestrelTool
{

namespace
{

/// The development name in a build tree, or the soname if only that is installed.
const char* const s_pszDebugLibrary = "libOVKKestrel.so.1";

void* Open(const std::string& strPath)
{
    void* pLibrary = dlopen(strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (pLibrary == nullptr)
    {
        throw CPlatformError("can't open " + strPath + ": " + dlerror());
    }
    return pLibrary;
}

void* OpenAny(std::initializer_list<const char*> names)
{
    for (const char* pszName : names)
    {
        if (void* pLibrary = dlopen(pszName, RTLD_NOW | RTLD_LOCAL))
        {
            return pLibrary;
        }
    }
    throw CPlatformError(
        "this machine has no OpenCL runtime: --platform system takes a loader, libOpenCL.so.1 (Debian: "
        "ocl-icd-libopencl1), and the driver of a device");
}

/// The debugger opens the compilers by name; it finds one that is open already wherever its file is.
void OpenCompilers(const std::string& strPlatformDir)
{
    Open(strPlatformDir + "/libovkocl12cl64.so");
    Open(strPlatformDir + "/libovkqrlrt.so");
}

/// The running program's path. Without the system's own files mounted, it is the path that the program was started
/// with.
std::filesystem::path FindProgram()
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    const char* pszStarted = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    return error && pszStarted != nullptr ? std::filesystem::weakly_canonical(pszStarted, error) : program;
}

template <typename Function>
void Find(void* pLibrary, const char* pszName, Function& pFunction)
{
    pFunction = reinterpret_cast<Function>(dlsym(pLibrary, pszName));
}

} // namespace

CLibraries::CLibraries(const std::string& strPlatformDir, const std::string& strDebugLibrary)
{
    if (strPlatformDir.empty())
    {
        LoadOpenCL(OpenAny({"libOpenCL.so", "libOpenCL.so.2", "libOpenCL.so.1"}));
    }
    else
    {
        OpenCompilers(strPlatformDir);
        LoadOpenCL(Open(strPlatformDir + "/libOpenCL.so"));
    }
    LoadDebugger(strDebugLibrary);
}

CLibraries::CLibraries(const std::string& strPlatformDir, const std::string& strOpenCL,
                       const std::string& strDebugLibrary)
{
    OpenCompilers(strPlatformDir);
    LoadOpenCL(Open(strOpenCL));
    LoadDebugger(strDebugLibrary);
}

void CLibraries::LoadOpenCL(void* pLibrary)
{
    std::memset(&cl, 0, sizeof(cl));
#define FIND_ENTRY(name) Find(pLibrary, "cl" #name, cl.cl##name);
    CL_ENTRIES(FIND_ENTRY)
#undef FIND_ENTRY
}

void CLibraries::LoadDebugger(const std::string& strDebugLibrary)
{
    void* pLibrary = Open(strDebugLibrary);
#define FIND_FUNCTION(name)                                                                                            \
    Find(pLibrary, #name, name);                                                                                       \
    if (name == nullptr)                                                                                               \
    {                                                                                                                  \
        throw CPlatformError(strDebugLibrary + " has no " #name);                                                      \
    }
    KESTREL_DEBUG_FUNCTIONS(FIND_FUNCTION)
#undef FIND_FUNCTION
    ovkclDebugSetDispatchTable(&cl);
}

std::string GetLibraryFolder()
{
    const std::filesystem::path program = FindProgram().parent_path();
    const std::filesystem::path beside = program.parent_path() / "lib";
    for (const std::filesystem::path& folder : {beside, program / KESTREL_LIBRARIES_FROM_PROGRAMS})
    {
        if (std::filesystem::exists(folder / s_pszDebugLibrary))
        {
            return folder.lexically_normal().string();
        }
    }
    return beside.string();
}

} // namespace KestrelTool
