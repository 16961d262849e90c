/* A layer of the OpenCL loader that has nothing to do with the debugger: it says when a kernel is enqueued. */
#include <CL/cl_layer.h>

#include <stdio.h>
#include <string.h>

static const cl_icd_dispatch* s_target;
static cl_icd_dispatch s_table;

static cl_int CL_API_CALL enqueue(cl_command_queue queue, cl_kernel kernel, cl_uint dimensions, const size_t* offset,
                                  const size_t* global, const size_t* local, cl_uint events, const cl_event* wait_list,
                                  cl_event* event)
{
    puts("the other layer");
    fflush(stdout);
    return s_target->clEnqueueNDRangeKernel(queue, kernel, dimensions, offset, global, local, events, wait_list, event);
}

__attribute__((visibility("default"))) cl_int CL_API_CALL clGetLayerInfo(cl_layer_info name, size_t size, void* value,
                                                                         size_t* size_ret)
{
    const cl_layer_api_version version = CL_LAYER_API_VERSION_100;
    if (name != CL_LAYER_API_VERSION)
    {
        return CL_INVALID_VALUE;
    }
    if (value != NULL && size >= sizeof(version))
    {
        memcpy(value, &version, sizeof(version));
    }
    if (size_ret != NULL)
    {
        *size_ret = sizeof(version);
    }
    return CL_SUCCESS;
}

__attribute__((visibility("default"))) cl_int CL_API_CALL clInitLayer(cl_uint count, const cl_icd_dispatch* target,
                                                                      cl_uint* count_ret, const cl_icd_dispatch** layer)
{
    if (count < sizeof(s_table) / sizeof(void*))
    {
        return CL_INVALID_VALUE;
    }
    s_target = target;
    s_table = *target;
    s_table.clEnqueueNDRangeKernel = enqueue;
    *count_ret = sizeof(s_table) / sizeof(void*);
    *layer = &s_table;
    return CL_SUCCESS;
}
