#include "api/ApiTrace.h"
#include "binary/KernelArgTracking.h"

using namespace Kestrel;

namespace
{

template <typename Body>
cl_int RunIntercept(const char* pszFunction, const Body& body)
{
    return RunExported<cl_int>(pszFunction, CL_OUT_OF_HOST_MEMORY, CL_OUT_OF_HOST_MEMORY, body);
}

} // namespace

cl_kernel ovkclInterceptCreateKernel(cl_program program, const char* kernel_name, cl_int* errcode_ret)
{
    TraceCall(__func__, program, kernel_name, errcode_ret);
    return RunExportedCreate<cl_kernel>(
        __func__, errcode_ret,
        [&](cl_int& nCode) { return OVK_ShaderDebugger::InterceptCreateKernel(program, kernel_name, &nCode); });
}

cl_int ovkclInterceptCreateKernelsInProgram(cl_program program, cl_uint num_kernels, cl_kernel* kernels,
                                            cl_uint* num_kernels_ret)
{
    TraceCall(__func__, program, num_kernels, kernels, num_kernels_ret);
    return RunIntercept(__func__,
                        [&] {
                            return OVK_ShaderDebugger::InterceptCreateKernelsInProgram(program, num_kernels, kernels,
                                                                                       num_kernels_ret);
                        });
}

cl_int ovkclInterceptRetainKernel(cl_kernel kernel)
{
    TraceCall(__func__, kernel);
    return RunIntercept(__func__, [&] { return OVK_ShaderDebugger::InterceptRetainKernel(kernel); });
}

cl_int ovkclInterceptReleaseKernel(cl_kernel kernel)
{
    TraceCall(__func__, kernel);
    return RunIntercept(__func__, [&] { return OVK_ShaderDebugger::InterceptReleaseKernel(kernel); });
}

cl_int ovkclInterceptSetKernelArg(cl_kernel kernel, cl_uint arg_index, size_t arg_size, const void* arg_value)
{
    TraceCall(__func__, kernel, arg_index, arg_size, arg_value);
    return RunIntercept(__func__, [&]
                        { return OVK_ShaderDebugger::InterceptSetKernelArg(kernel, arg_index, arg_size, arg_value); });
}
