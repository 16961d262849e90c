/* An ordinary OpenCL program that launches a kernel, waits for it, and launches it again, until it is ended. */
#include <CL/cl.h>
#include <stdio.h>

int main(void)
{
    const char* const source = "kernel void add(global int* out)\n"
                               "{\n"
                               "    int id = get_global_id(0);\n"
                               "    out[id] += id;\n"
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
    const cl_kernel kernel = clCreateKernel(program, "add", NULL);
    cl_int zeros[64] = {0};
    const cl_mem out = clCreateBuffer(context, CL_MEM_COPY_HOST_PTR, sizeof(zeros), zeros, NULL);
    clSetKernelArg(kernel, 0, sizeof(out), &out);
    const size_t size = 64;
    for (int first = 1; clEnqueueNDRangeKernel(queue, kernel, 1, NULL, &size, NULL, 0, NULL, NULL) == CL_SUCCESS;
         first = 0)
    {
        clFinish(queue);
        if (first)
        {
            puts("launching");
            fflush(stdout);
        }
    }
    return 1;
}
