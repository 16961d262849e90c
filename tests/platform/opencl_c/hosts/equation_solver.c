/* A host program in C as people write them: the loader's functions only, kernels as a string, out-of-order events,
   sub-buffers, a mapped result. Solves a linear system by the method of conjugate gradients. Ends with 0 if the result
   is right. */

#include <CL/cl.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char* const s_source =
    "#define FOR_EACH(i, n) for (size_t i = get_global_id(0); i < (n); i += get_global_size(0))\n"
    "\n"
    "// The matrix has 4 on its diagonal and -1 beside it.\n"
    "__kernel void apply(__global const float* x, __global float* y, const unsigned int n)\n"
    "{\n"
    "    FOR_EACH(i, n)\n"
    "    {\n"
    "        float sum = 4.0f * x[i];\n"
    "        if (i > 0)\n"
    "            sum -= x[i - 1];\n"
    "        if (i + 1 < n)\n"
    "            sum -= x[i + 1];\n"
    "        y[i] = sum;\n"
    "    }\n"
    "}\n"
    "\n"
    "__kernel void dot_product(__global const float* a, __global const float* b, __global float* sums,\n"
    "                          __local float* scratch, const unsigned int n)\n"
    "{\n"
    "    float sum = 0;\n"
    "    FOR_EACH(i, n) sum = mad(a[i], b[i], sum);\n"
    "    scratch[get_local_id(0)] = sum;\n"
    "    for (unsigned int half_size = get_local_size(0) / 2; half_size > 0; half_size /= 2)\n"
    "    {\n"
    "        barrier(CLK_LOCAL_MEM_FENCE);\n"
    "        if (get_local_id(0) < half_size)\n"
    "            scratch[get_local_id(0)] += scratch[get_local_id(0) + half_size];\n"
    "    }\n"
    "    if (get_local_id(0) == 0)\n"
    "        sums[get_group_id(0)] = scratch[0];\n"
    "}\n"
    "\n"
    "__kernel void add_scaled(__global float* y, __global const float* x, float a, float b, const unsigned int n)\n"
    "{\n"
    "    FOR_EACH(i, n) y[i] = a * x[i] + b * y[i];\n"
    "}\n";

enum
{
    SIZE = 1000,
    GROUPS = 4,
    LOCAL = 64
};

static cl_command_queue s_queue;
static cl_kernel s_apply, s_dot, s_add;
static cl_mem s_sums;

static void check(cl_int code, const char* what)
{
    if (code != CL_SUCCESS)
    {
        fprintf(stderr, "%s: %d\n", what, code);
        exit(2);
    }
}

static void launch(cl_kernel kernel)
{
    const size_t global = GROUPS * LOCAL, local = LOCAL;
    check(clEnqueueNDRangeKernel(s_queue, kernel, 1, NULL, &global, &local, 0, NULL, NULL), "clEnqueueNDRangeKernel");
}

static float dot(cl_mem a, cl_mem b)
{
    const cl_uint n = SIZE;
    float sum = 0, *sums;
    cl_int code;
    check(clSetKernelArg(s_dot, 0, sizeof a, &a) | clSetKernelArg(s_dot, 1, sizeof b, &b) |
              clSetKernelArg(s_dot, 2, sizeof s_sums, &s_sums) | clSetKernelArg(s_dot, 3, LOCAL * sizeof(float), NULL) |
              clSetKernelArg(s_dot, 4, sizeof n, &n),
          "clSetKernelArg");
    launch(s_dot);
    sums = clEnqueueMapBuffer(s_queue, s_sums, CL_TRUE, CL_MAP_READ, 0, GROUPS * sizeof(float), 0, NULL, NULL, &code);
    check(code, "clEnqueueMapBuffer");
    for (int i = 0; i < GROUPS; ++i)
    {
        sum += sums[i];
    }
    check(clEnqueueUnmapMemObject(s_queue, s_sums, sums, 0, NULL, NULL), "clEnqueueUnmapMemObject");
    return sum;
}

static void add_scaled(cl_mem y, cl_mem x, float a, float b)
{
    const cl_uint n = SIZE;
    check(clSetKernelArg(s_add, 0, sizeof y, &y) | clSetKernelArg(s_add, 1, sizeof x, &x) |
              clSetKernelArg(s_add, 2, sizeof a, &a) | clSetKernelArg(s_add, 3, sizeof b, &b) |
              clSetKernelArg(s_add, 4, sizeof n, &n),
          "clSetKernelArg");
    launch(s_add);
}

static void apply(cl_mem x, cl_mem y)
{
    const cl_uint n = SIZE;
    check(clSetKernelArg(s_apply, 0, sizeof x, &x) | clSetKernelArg(s_apply, 1, sizeof y, &y) |
              clSetKernelArg(s_apply, 2, sizeof n, &n),
          "clSetKernelArg");
    launch(s_apply);
}

int main(void)
{
    cl_platform_id platform;
    cl_device_id device;
    cl_int code;
    static float wanted[SIZE], got[SIZE];
    check(clGetPlatformIDs(1, &platform, NULL), "clGetPlatformIDs");
    check(clGetDeviceIDs(platform, CL_DEVICE_TYPE_DEFAULT, 1, &device, NULL), "clGetDeviceIDs");
    cl_context context = clCreateContext(NULL, 1, &device, NULL, NULL, &code);
    check(code, "clCreateContext");
    s_queue = clCreateCommandQueue(context, device, CL_QUEUE_PROFILING_ENABLE, &code);
    check(code, "clCreateCommandQueue");
    const char* source = s_source;
    cl_program program = clCreateProgramWithSource(context, 1, &source, NULL, &code);
    check(code, "clCreateProgramWithSource");
    code = clBuildProgram(program, 0, NULL, "-cl-mad-enable", NULL, NULL);
    if (code != CL_SUCCESS)
    {
        static char log[16384];
        clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_LOG, sizeof log, log, NULL);
        fprintf(stderr, "%s\n", log);
        return 2;
    }
    s_apply = clCreateKernel(program, "apply", &code);
    s_dot = clCreateKernel(program, "dot_product", &code);
    s_add = clCreateKernel(program, "add_scaled", &code);
    check(code, "clCreateKernel");

    /* Four vectors in one buffer. */
    const size_t stride = (SIZE * sizeof(float) + 4095) / 4096 * 4096;
    cl_mem whole = clCreateBuffer(context, CL_MEM_READ_WRITE, 4 * stride, NULL, &code);
    cl_mem vectors[4];
    for (int i = 0; i < 4; ++i)
    {
        const cl_buffer_region region = {i * stride, SIZE * sizeof(float)};
        vectors[i] = clCreateSubBuffer(whole, CL_MEM_READ_WRITE, CL_BUFFER_CREATE_TYPE_REGION, &region, &code);
        check(code, "clCreateSubBuffer");
    }
    s_sums = clCreateBuffer(context, CL_MEM_ALLOC_HOST_PTR, GROUPS * sizeof(float), NULL, &code);
    cl_mem x = vectors[0], r = vectors[1], p = vectors[2], ap = vectors[3];

    const float zero = 0;
    for (int i = 0; i < SIZE; ++i)
    {
        wanted[i] = (float)(i % 17) - 8.0f;
    }
    check(clEnqueueWriteBuffer(s_queue, p, CL_FALSE, 0, sizeof wanted, wanted, 0, NULL, NULL), "clEnqueueWriteBuffer");
    apply(p, r);
    check(clEnqueueFillBuffer(s_queue, x, &zero, sizeof zero, 0, sizeof wanted, 0, NULL, NULL), "clEnqueueFillBuffer");
    check(clEnqueueCopyBuffer(s_queue, r, p, 0, 0, sizeof wanted, 0, NULL, NULL), "clEnqueueCopyBuffer");
    float rr = dot(r, r);
    int passes = 0;
    for (; passes < 100 && rr > 1e-8f; ++passes)
    {
        apply(p, ap);
        const float alpha = rr / dot(p, ap);
        add_scaled(x, p, alpha, 1);
        add_scaled(r, ap, -alpha, 1);
        const float next = dot(r, r);
        add_scaled(p, r, 1, next / rr);
        rr = next;
    }
    check(clEnqueueReadBuffer(s_queue, x, CL_TRUE, 0, sizeof got, got, 0, NULL, NULL), "clEnqueueReadBuffer");
    float worst = 0;
    for (int i = 0; i < SIZE; ++i)
    {
        worst = fmaxf(worst, fabsf(got[i] - wanted[i]));
    }
    printf("%d passes, largest error %g\n", passes, worst);

    for (int i = 0; i < 4; ++i)
    {
        clReleaseMemObject(vectors[i]);
    }
    clReleaseMemObject(whole);
    clReleaseMemObject(s_sums);
    clReleaseKernel(s_apply);
    clReleaseKernel(s_dot);
    clReleaseKernel(s_add);
    clReleaseProgram(program);
    clReleaseCommandQueue(s_queue);
    clReleaseContext(context);
    return passes > 0 && worst < 1e-3f ? 0 : 1;
}
