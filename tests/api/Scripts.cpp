#include "tests/api/Scripts.h"

namespace
{

ovkclDebugCommand Step(ovkclDebugContext, ovkclDebugEvent)
{
    return OVKCLDEBUG_COMMAND_STEP;
}

/// Runs to a breakpoint near the kernel's end, goes back to the start, and continues.
ovkclDebugCommand RunAndGoBack(ovkclDebugContext context, ovkclDebugEvent eEvent)
{
    static int s_nHalts = 0;
    if (eEvent == OVKCLDEBUG_EVENT_STARTED)
    {
        s_nHalts = 0;
        ovkclDebugSetBreakpoint(context, 20, 100, nullptr);
        return OVKCLDEBUG_COMMAND_CONTINUE;
    }
    return ++s_nHalts == 1 ? static_cast<ovkclDebugCommand>(OVKCLDEBUG_COMMAND_EXT_RUN_BACK)
                           : OVKCLDEBUG_COMMAND_CONTINUE;
}

/// Tracks registers, and makes every query at each stop.
ovkclDebugCommand Ask(ovkclDebugContext context, ovkclDebugEvent eEvent)
{
    ovkclDebugRegisterLocator locator = 0;
    ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>("r1"), &locator);
    if (eEvent == OVKCLDEBUG_EVENT_STARTED)
    {
        ovkclDebugSetTrackingRegisters(context, &locator, 1);
    }
    size_t nSize = 0;
    size_t nStride = 0;
    const void* pValues = nullptr;
    const cl_bool* pMask = nullptr;
    char bytes[256];
    ovkclDebugGetKernelBinarySize(context, &nSize);
    ovkclDebugGetExecutionMask(context, &pMask, &nSize);
    ovkclDebugGetRegisterValues(context, locator, &pValues, &nSize, &nStride);
    ovkclDebugGetPrivateMemoryValues(context, 0, 4, bytes, &nSize);
    ovkclDebugGetGlobalMemoryValues(context, 10, 0, 4, bytes, &nSize);
    ovkclDebugRegisterLocator registers[64];
    ovkclDebugGetActiveRegisters(context, registers, 64);
    ovkclDebugUtilDebugRegisterLocatorToString(locator, sizeof(bytes), reinterpret_cast<cl_char*>(bytes), &nSize);
    ovkclDebugUtilGetLastError(context, sizeof(bytes), bytes, &nSize);
    return OVKCLDEBUG_COMMAND_STEP;
}

} // namespace

const std::vector<SScript>& GetScripts()
{
    static const std::vector<SScript> s_vScripts = {
        {"StepsIntercepted", &Step, true},        {"StepsBlocking", &Step, false},
        {"RunsIntercepted", &RunAndGoBack, true}, {"RunsBlocking", &RunAndGoBack, false},
        {"AsksIntercepted", &Ask, true},          {"AsksBlocking", &Ask, false}};
    return s_vScripts;
}
