// Faults in the program's use of OpenCL itself, apart from its kernels.

#include "tools/layer/Complaints.h"

#include "KestrelPlatform.h"
#include "tools/layer/Connection.h"

#include <algorithm>
#include <memory>
#include <string_view>

namespace KestrelLayer
{

using nlohmann::json;

namespace
{

thread_local bool s_bInCallback = false;

void Tell(const json& message)
{
    CConnection::Get().Tell(KestrelTool::WriteHeader(message));
}

/// Why an argument prevents the kernel's launch; empty if it doesn't.
std::string_view FindFault(const SParameter& parameter, const SSetArgument& argument)
{
    if (!argument.bSet)
    {
        return "unset";
    }
    const bool bObject = parameter.bKnown && (parameter.nSpace == CL_KERNEL_ARG_ADDRESS_GLOBAL ||
                                              parameter.nSpace == CL_KERNEL_ARG_ADDRESS_CONSTANT);
    const bool bNull =
        argument.bNull || std::all_of(argument.vValue.begin(), argument.vValue.end(), [](int n) { return n == 0; });
    return bObject && !bNull && CObjects::Get().FindHandle(argument) == EHandle::None ? "gone" : "";
}

/// The software platform's own counters; null on another platform.
const SPlatformControl* FindControl()
{
    cl_platform_id platform = nullptr;
    if (g_pTarget == nullptr || g_pTarget->clGetExtensionFunctionAddressForPlatform == nullptr ||
        g_pTarget->clGetPlatformIDs(1, &platform, nullptr) != CL_SUCCESS)
    {
        return nullptr;
    }
    void* const pFunction = g_pTarget->clGetExtensionFunctionAddressForPlatform(platform, KESTREL_PLATFORM_CONTROL);
    return pFunction != nullptr ? reinterpret_cast<KestrelPlatformControlFunction>(pFunction)() : nullptr;
}

const std::pair<const char*, EPlatformCounter> s_Counters[] = {
    {"context", PLATFORM_COUNTER_CONTEXTS},   {"queue", PLATFORM_COUNTER_QUEUES},
    {"program", PLATFORM_COUNTER_PROGRAMS},   {"kernel", PLATFORM_COUNTER_KERNELS},
    {"memory", PLATFORM_COUNTER_MEM_OBJECTS}, {"sampler", PLATFORM_COUNTER_SAMPLERS},
    {"event", PLATFORM_COUNTER_EVENTS},       {"mapping", PLATFORM_COUNTER_MAPPINGS},
};

/// Runs at the end of the process, after the program's own cleanup.
__attribute__((destructor)) void TellWhatIsLeft()
{
    try
    {
        const SPlatformControl* const pControl =
            g_pTarget != nullptr && CConnection::Get().IsOn() ? FindControl() : nullptr;
        json objects = json::object();
        for (const auto& [pszName, eCounter] : s_Counters)
        {
            const uint64_t nLeft = pControl != nullptr ? pControl->GetCounter(eCounter) : 0;
            if (nLeft != 0)
            {
                objects[pszName] = nLeft;
            }
        }
        if (!objects.empty())
        {
            Tell({{"what", "left"}, {"objects", objects}});
        }
    }
    catch (...)
    {
        return; // the program ends as it would without the layer
    }
}

} // namespace

void TellRefusedLaunch(const SKernel& kernel, uint64_t nNumber, cl_int nCode)
{
    json arguments = json::array();
    for (size_t i = 0; i < kernel.vArguments.size(); ++i)
    {
        const SParameter& parameter = (*kernel.pParameters)[i];
        const std::string_view fault = FindFault(parameter, kernel.vArguments[i]);
        if (!fault.empty())
        {
            arguments.push_back({{"number", i}, {"name", parameter.strName}, {"fault", fault}});
        }
    }
    Tell({{"what", "refused"},
          {"number", nNumber},
          {"name", kernel.strName},
          {"code", nCode},
          {"arguments", arguments}});
}

void NoteWait(const char* pszCall)
{
    if (s_bInCallback)
    {
        Tell({{"what", "waits"}, {"call", pszCall}});
    }
}

void CL_CALLBACK CallBack(cl_event event, cl_int nStatus, void* pCallback)
{
    const std::unique_ptr<SEventCallback> pOwner(static_cast<SEventCallback*>(pCallback));
    const bool bOuter = s_bInCallback;
    s_bInCallback = true;
    pOwner->pfnNotify(event, nStatus, pOwner->pUserData);
    s_bInCallback = bOuter;
}

} // namespace KestrelLayer
