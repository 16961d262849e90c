/* Makes most mistakes that a program can make with OpenCL, or with -DREPAIRED none of them. */
#define CL_TARGET_OPENCL_VERSION 120
#include <CL/cl.h>

#include <stdio.h>
#include <stdlib.h>

enum
{
    COUNT = 64
};

static const char s_text[] = "__kernel void shift(__global const int* in, __global int* out, int by)\n"
                             "{\n"
#ifndef REPAIRED
                             "    int unused[2] = {1, 2, 3};\n"
#endif
                             "    out[get_global_id(0)] = in[get_global_id(0) + by] + 1;\n"
                             "}\n";

static void need(cl_int code, const char* what)
{
    if (code != CL_SUCCESS)
    {
        fprintf(stderr, "%s: %d\n", what, code);
        exit(1);
    }
}

static void CL_CALLBACK finish(cl_event event, cl_int status, void* queue)
{
    (void)event;
    (void)status;
#ifdef REPAIRED
    clFlush(queue);
#else
    clFinish(queue);
#endif
}

int main(void)
{
    cl_platform_id platform;
    cl_device_id device;
    cl_int code;
    need(clGetPlatformIDs(1, &platform, NULL), "clGetPlatformIDs");
    need(clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 1, &device, NULL), "clGetDeviceIDs");
    cl_context context = clCreateContext(NULL, 1, &device, NULL, NULL, &code);
    need(code, "clCreateContext");
    cl_command_queue queue = clCreateCommandQueue(context, device, 0, &code);
    need(code, "clCreateCommandQueue");
    cl_command_queue other = clCreateCommandQueue(context, device, 0, &code);
    need(code, "clCreateCommandQueue");
    const char* text = s_text;
    cl_program program = clCreateProgramWithSource(context, 1, &text, NULL, &code);
    need(clBuildProgram(program, 1, &device, "", NULL, NULL), "clBuildProgram");
    cl_kernel shift = clCreateKernel(program, "shift", &code);
    need(code, "clCreateKernel");

    int data[COUNT + 1] = {0};
    cl_mem in = clCreateBuffer(context, CL_MEM_READ_WRITE, sizeof(data), NULL, &code);
    cl_mem short_in = clCreateBuffer(context, CL_MEM_COPY_HOST_PTR, COUNT * sizeof(int), data, &code);
    cl_mem out = clCreateBuffer(context, CL_MEM_READ_WRITE, COUNT * sizeof(int), NULL, &code);
    const size_t count = COUNT;
    cl_int by = 1;
    need(clSetKernelArg(shift, 0, sizeof(in), &in), "clSetKernelArg");
#ifdef REPAIRED
    need(clSetKernelArg(shift, 1, sizeof(out), &out), "clSetKernelArg");
    need(clEnqueueWriteBuffer(queue, in, CL_TRUE, 0, sizeof(data), data, 0, NULL, NULL), "clEnqueueWriteBuffer");
    need(clSetKernelArg(shift, 2, sizeof(by), &by), "clSetKernelArg");
#else
    need(clSetKernelArg(shift, 2, sizeof(by), &by), "clSetKernelArg");
    clEnqueueNDRangeKernel(queue, shift, 1, NULL, &count, NULL, 0, NULL, NULL); /* launch 1: out isn't set */
    need(clSetKernelArg(shift, 1, sizeof(out), &out), "clSetKernelArg");
#endif
    /* Launch 2: nobody has written in. */
    cl_event done;
    need(clEnqueueNDRangeKernel(queue, shift, 1, NULL, &count, NULL, 0, NULL, &done), "clEnqueueNDRangeKernel");
    need(clSetEventCallback(done, CL_COMPLETE, finish, other), "clSetEventCallback");
    need(clFinish(queue), "clFinish");
    clReleaseEvent(done);
    /* Launch 3: the buffer is too small. */
    need(clSetKernelArg(shift, 0, sizeof(short_in), &short_in), "clSetKernelArg");
#ifdef REPAIRED
    by = 0;
    need(clSetKernelArg(shift, 2, sizeof(by), &by), "clSetKernelArg");
#endif
    need(clEnqueueNDRangeKernel(queue, shift, 1, NULL, &count, NULL, 0, NULL, NULL), "clEnqueueNDRangeKernel");
    need(clFinish(queue), "clFinish");
    clReleaseMemObject(short_in);
#ifndef REPAIRED
    clEnqueueNDRangeKernel(queue, shift, 1, NULL, &count, NULL, 0, NULL, NULL); /* launch 4: in has gone */
#endif
    need(clEnqueueReadBuffer(queue, out, CL_TRUE, 0, COUNT * sizeof(int), data, 0, NULL, NULL), "clEnqueueReadBuffer");
    printf("%d\n", data[1]);

    clReleaseMemObject(in);
    clReleaseMemObject(out);
#ifdef REPAIRED
    clReleaseKernel(shift);
    clReleaseProgram(program);
#endif
    clReleaseCommandQueue(other);
    clReleaseCommandQueue(queue);
    clReleaseContext(context);
    return 0;
}
