#include "api/ApiTrace.h"
#include "api/DispatchTable.h"
#include "api/EnqueuePaths.h"
#include "api/InterceptProperties.h"
#include "api/PlatformQueries.h"
#include "core/FileLogger.h"
#include "device/ShaderDebuggerHostCL.h"
#include "modules/CLCall.h"

#include <memory>

using namespace Kestrel;
using OVK_ShaderDebugger::CShaderDebuggerHostCL;
using OVK_ShaderDebugger::QueryCL;

namespace
{

const char* const s_szSessionLog = "OVKKestrel.log";

cl_int Refuse(cl_int nCode, const char* pszReason)
{
    CLD_Log("Error: ", pszReason, "\n");
    return nCode;
}

/// Whether what a session makes can be released again. A client's table, or a runtime, may be incomplete.
bool CanRelease()
{
    const OpenCLModule& cl = g_CLDispatchTable;
    return cl.ReleaseContext != nullptr && cl.ReleaseCommandQueue != nullptr && cl.ReleaseProgram != nullptr &&
           cl.ReleaseKernel != nullptr && cl.ReleaseMemObject != nullptr && cl.ReleaseEvent != nullptr &&
           cl.EnqueueUnmapMemObject != nullptr;
}

/// Whether launches of this queue can be debugged at all. \param device  receives the queue's device
cl_int CheckQueue(cl_command_queue queue, cl_device_id& device)
{
    cl_int nCode = CheckOVKPlatform(queue);
    if (nCode != CL_SUCCESS)
    {
        return Refuse(nCode, "Failed to check CL platform info.");
    }
    cl_command_queue_properties properties = 0;
    if (QueryCL(g_CLDispatchTable.GetCommandQueueInfo, queue, CL_QUEUE_PROPERTIES, properties) != CL_SUCCESS)
    {
        return Refuse(OVKCLDEBUG_ENQUEUE_FAILED, "Failed to check CL queue info.");
    }
    if ((properties & CL_QUEUE_COMMAND_INTERCEPT_ENABLE) == 0)
    {
        return Refuse(OVKCLDEBUG_ENQUEUE_NO_INTERCEPT, "Command queue not created with intercept flag.");
    }
    if (QueryCL(g_CLDispatchTable.GetCommandQueueInfo, queue, CL_QUEUE_DEVICE, device) != CL_SUCCESS)
    {
        return Refuse(OVKCLDEBUG_ENQUEUE_FAILED, "Failed to check CL queue info.");
    }
    cl_device_type type = 0;
    if (QueryCL(g_CLDispatchTable.GetDeviceInfo, device, CL_DEVICE_TYPE, type) != CL_SUCCESS)
    {
        return Refuse(OVKCLDEBUG_ENQUEUE_FAILED, "Failed to check CL device info.");
    }
    return type == CL_DEVICE_TYPE_GPU ? CL_SUCCESS
                                      : Refuse(OVKCLDEBUG_ENQUEUE_WRONG_DEVICE, "The queue's device is not a GPU.");
}

OVK_ShaderDebugger::ThreadID GetDispatchDimensions(cl_uint work_dim, const size_t* global_work_size)
{
    OVK_ShaderDebugger::ThreadID dimensions(ShaderUtils::TID_1D, 1, 1, 1, 1);
    if (work_dim >= 1)
    {
        dimensions.x = static_cast<int>(global_work_size[0]);
    }
    if (work_dim >= 2)
    {
        dimensions.y = static_cast<int>(global_work_size[1]);
        dimensions.type = ShaderUtils::TID_2D;
    }
    if (work_dim >= 3)
    {
        dimensions.z = static_cast<int>(global_work_size[2]);
        dimensions.type = ShaderUtils::TID_3D;
    }
    return dimensions;
}

cl_int EnqueueDebugged(const SEnqueueArguments& arguments, ovkclDebugCallback callback, void* user_data)
{
    const bool bOnDemand = TakeValuesOnDemand();
    if (callback == nullptr || arguments.global_work_size == nullptr)
    {
        return CL_INVALID_VALUE;
    }
    cl_device_id device = nullptr;
    const cl_int nCode = CheckQueue(arguments.command_queue, device);
    if (nCode != CL_SUCCESS)
    {
        return nCode;
    }
    if (!CanRelease())
    {
        return Refuse(OVKCLDEBUG_ENQUEUE_FAILED, "The runtime lacks a function that releases.");
    }
    if (!IsKernelDebuggable(arguments.kernel, device))
    {
        return Refuse(OVKCLDEBUG_ENQUEUE_NOT_DEBUGGABLE, "The kernel was built without debug information.");
    }

    std::unique_ptr<CKernelDebugState> pState(new CKernelDebugState);
    pState->m_callback = callback;
    pState->m_pUserData = user_data;
    CShaderDebuggerHostCL* pHost = CShaderDebuggerHostCL::CreateShaderDebuggerHostCL(
        OVK_ShaderDebugger::PLT_OpenCL, arguments.kernel, arguments.command_queue,
        OVK_ShaderDebugger::GetLogPath(s_szSessionLog));
    if (pHost == nullptr)
    {
        return Refuse(OVKCLDEBUG_ENQUEUE_FAILED, "Failed to create debugger host.");
    }
    pState->m_pShaderDebuggerHost = pHost;
    pState->m_bTidewater = pHost->IsTidewater();
    pHost->SetLoggingLevel(OVK_ShaderDebugger::GetEnvLogLevel());
    pHost->SetValuesOnDemand(bOnDemand);
    pState->m_dispatchDimensions = GetDispatchDimensions(arguments.work_dim, arguments.global_work_size);
    if (!pHost->SetEnqueueData(arguments.work_dim, arguments.global_work_offset, arguments.global_work_size,
                               arguments.local_work_size))
    {
        return Refuse(OVKCLDEBUG_ENQUEUE_FAILED, "Failed to set enqueue data.");
    }

    // The hook refuses to work with a table that isn't complete.
    const bool bDebugInCommandInterceptCallback = IsEXTObjectMetadataSupported(device) &&
                                                  IsOVKEventCallbackSupported(device) &&
                                                  g_CLDispatchTable.OpenCLLoaded() != OpenCLModule::OpenCL_None;
    return bDebugInCommandInterceptCallback ? EnqueueOnInterceptPath(std::move(pState), arguments)
                                            : EnqueueOnFallbackPath(std::move(pState), arguments);
}

} // namespace

cl_int ovkclDebugEnqueueNDRangeKernel(cl_command_queue command_queue, cl_kernel kernel, cl_uint work_dim,
                                      const size_t* global_work_offset, const size_t* global_work_size,
                                      const size_t* local_work_size, cl_uint num_events_in_wait_list,
                                      const cl_event* event_wait_list, cl_event* event, ovkclDebugCallback callback,
                                      void* user_data)
{
    TraceCall(__func__, command_queue, kernel, work_dim, global_work_offset, global_work_size, local_work_size,
              num_events_in_wait_list, event_wait_list, event, callback, user_data);
    return RunExported<cl_int>(__func__, CL_OUT_OF_HOST_MEMORY, OVKCLDEBUG_ENQUEUE_FAILED,
                               [&]
                               {
                                   const SEnqueueArguments arguments = {
                                       command_queue,           kernel,           work_dim,
                                       global_work_offset,      global_work_size, local_work_size,
                                       num_events_in_wait_list, event_wait_list,  event};
                                   return EnqueueDebugged(arguments, callback, user_data);
                               });
}

cl_int ovkclDebugEnqueueTask(cl_command_queue command_queue, cl_kernel kernel, cl_uint num_events_in_wait_list,
                             const cl_event* event_wait_list, cl_event* event, ovkclDebugCallback callback,
                             void* user_data)
{
    TraceCall(__func__, command_queue, kernel, num_events_in_wait_list, event_wait_list, event, callback, user_data);
    const size_t nOne = 1;
    return TraceReturn(__func__, ovkclDebugEnqueueNDRangeKernel(command_queue, kernel, 1, nullptr, &nOne, &nOne,
                                                                num_events_in_wait_list, event_wait_list, event,
                                                                callback, user_data));
}
