#include "platform/compiler/OpenCLCompiler.h"

#include <dlfcn.h>
#include <sys/stat.h>

namespace KestrelPlatform
{
namespace
{

const char* const s_pszLibrary = "libkestrel-opencl-c.so";

/// The folder of the file that holds this function, with its "/" at the end.
std::string OwnFolder()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&OwnFolder), &info) == 0 || info.dli_fname == nullptr)
    {
        return "";
    }
    const std::string strFile = info.dli_fname;
    return strFile.substr(0, strFile.rfind('/') + 1);
}

struct SLibrary
{
    const IOpenCLCompiler* pCompiler = nullptr;
    std::string strFault;
};

SLibrary OpenLibrary()
{
    SLibrary library;
    void* const hLibrary = dlopen((OwnFolder() + s_pszLibrary).c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const pFunction = hLibrary != nullptr ? dlsym(hLibrary, s_pszGetOpenCLCompiler) : nullptr;
    if (pFunction == nullptr)
    {
        const char* const pszFault = dlerror();
        library.strFault = "the compiler of OpenCL C can't be opened: " + std::string(pszFault ? pszFault : "");
        return library;
    }
    const SCompilerInterface own;
    library.pCompiler = reinterpret_cast<GetOpenCLCompiler>(pFunction)(&own);
    library.strFault = library.pCompiler != nullptr ? "" : "the compiler of OpenCL C is of another version";
    return library;
}

} // namespace

const IOpenCLCompiler* OpenOpenCLCompiler(std::string& strFault)
{
    static const SLibrary& s_Library = *new SLibrary(OpenLibrary());
    strFault = s_Library.strFault;
    return s_Library.pCompiler;
}

std::string OpenCLCompilerVersion()
{
    // Another version of the library shows in the size of its file or in the time it was written.
    struct stat state = {};
    const std::string strFile = OwnFolder() + s_pszLibrary;
    if (stat(strFile.c_str(), &state) != 0)
    {
        return "";
    }
    return strFile + " " + std::to_string(state.st_size) + " " + std::to_string(state.st_mtim.tv_sec) + "." +
           std::to_string(state.st_mtim.tv_nsec);
}

} // namespace KestrelPlatform
