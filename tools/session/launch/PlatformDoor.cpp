#include "tools/session/launch/PlatformDoor.h"

namespace KestrelTool
{

const SPlatformControl* FindPlatformControl(const CLibraries& libraries)
{
    cl_platform_id platform = nullptr;
    if (libraries.cl.clGetExtensionFunctionAddressForPlatform == nullptr || libraries.cl.clGetPlatformIDs == nullptr ||
        libraries.cl.clGetPlatformIDs(1, &platform, nullptr) != CL_SUCCESS)
    {
        return nullptr;
    }
    void* pFunction = libraries.cl.clGetExtensionFunctionAddressForPlatform(platform, KESTREL_PLATFORM_CONTROL);
    const SPlatformControl* pControl =
        pFunction != nullptr ? reinterpret_cast<KestrelPlatformControlFunction>(pFunction)() : nullptr;
    return pControl != nullptr && pControl->nSize >= sizeof(SPlatformControl) ? pControl : nullptr;
}

} // namespace KestrelTool
