#include "api/ApiTrace.h"
#include "api/DispatchTable.h"
#include "api/InterceptProperties.h"
#include "api/PlatformQueries.h"
#include "modules/CLCall.h"

#include <vector>

using namespace Kestrel;
using OVK_ShaderDebugger::CreateCL;

cl_command_queue ovkclInterceptCreateCommandQueue(cl_context context, cl_device_id device,
                                                  cl_command_queue_properties properties, cl_int* errcode_ret)
{
    TraceCall(__func__, context, device, properties, errcode_ret);
    return RunExportedCreate<cl_command_queue>(
        __func__, errcode_ret,
        [&](cl_int& nCode) -> cl_command_queue
        {
            const cl_command_queue_properties nIntercept =
                IsOVKEventCallbackSupported(device) ? CL_QUEUE_COMMAND_INTERCEPT_ENABLE : 0;
            return CreateCL(nCode, g_CLDispatchTable.CreateCommandQueue, context, device, properties | nIntercept);
        });
}

cl_command_queue ovkclInterceptCreateCommandQueueWithProperties(cl_context context, cl_device_id device,
                                                                const cl_queue_properties* properties,
                                                                cl_int* errcode_ret)
{
    TraceCall(__func__, context, device, properties, errcode_ret);
    return RunExportedCreate<cl_command_queue>(
        __func__, errcode_ret,
        [&](cl_int& nCode) -> cl_command_queue
        {
            const std::vector<cl_queue_properties> vProperties = AppendCommandIntercept(properties, device);
            return CreateCL(nCode, g_CLDispatchTable.CreateCommandQueueWithProperties, context, device,
                            vProperties.data());
        });
}
