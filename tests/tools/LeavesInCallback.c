/* An ordinary OpenCL program that ends itself by _exit in the callback of a launch's end. */
#include <CL/cl.h>
#include <stdio.h>
#include <unistd.h>

static void CL_CALLBACK leave(cl_event event, cl_int status, void* data)
{
    (void)event;
    (void)data;
    _exit(status == CL_COMPLETE ? 9 : 1);
}

int main(void)
{
    const char* const source = "kernel void fill(global int* out)\n"
                               "{\n"
                               "    int id = get_global_id(0);\n"
                               "    out[id] = id;\n"
                               "}\n";
    cl_platform_id platform = NULL;
    cl_device_id device = NULL;
    if (clGetPlatformIDs(1, &platform, NULL) != CL_SUCCESS ||
        clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 1, &device, NULL) != CL_SUCCESS)
    {
        return 1;
    }
    const cl_context context = clCreateContext(NULL, 1, &device, NULL, NULL, NULL);
    const cl_command_queue queue = clCreateCommandQueue(context, device, 0, NULL);
    const cl_program program = clCreateProgramWithSource(context, 1, (const char**)&source, NULL, NULL);
    clBuildProgram(program, 1, &device, "", NULL, NULL);
    const cl_kernel kernel = clCreateKernel(program, "fill", NULL);
    const cl_mem out = clCreateBuffer(context, CL_MEM_READ_WRITE, 64 * sizeof(cl_int), NULL, NULL);
    clSetKernelArg(kernel, 0, sizeof(out), &out);
    const size_t size = 64;
    cl_event event = NULL;
    if (clEnqueueNDRangeKernel(queue, kernel, 1, NULL, &size, NULL, 0, NULL, &event) != CL_SUCCESS ||
        clSetEventCallback(event, CL_COMPLETE, leave, NULL) != CL_SUCCESS)
    {
        return 1;
    }
    clFinish(queue);
    pause();
    return 1;
}
