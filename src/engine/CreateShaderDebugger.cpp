#include "core/Log.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/ShaderDebuggerIL.h"

#include <new>

namespace OVK_ShaderDebugger
{

IShaderDebugger* IShaderDebugger::CreateShaderDebugger(Platform ePlatform, CShaderDebuggerHost* pHost)
{
    if (pHost == nullptr)
    {
        return nullptr;
    }
    // The platforms differ only in their hosts and devices.
    if (ePlatform != PLT_QRL && ePlatform != PLT_OpenCL)
    {
        SD_Log(pHost, logERROR, "Unknown ShaderDebugger requested.");
        return nullptr;
    }
    IShaderDebugger* pDebugger = new (std::nothrow) CShaderDebuggerIL(pHost);
    if (pDebugger != nullptr)
    {
        pHost->RegisterDebugger(pDebugger);
    }
    return pDebugger;
}

} // namespace OVK_ShaderDebugger
