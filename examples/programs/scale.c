/* Scales an array three times, then adds its halves, which are parts of one buffer, into a third part.
 * Prints the sums. An ordinary OpenCL program: it knows nothing of a debugger. */
#define CL_TARGET_OPENCL_VERSION 120
#include <CL/cl.h>

#include <stdio.h>
#include <stdlib.h>

enum
{
    COUNT = 256,
    HALF = 64
};

static void check(cl_int code, const char* what)
{
    if (code != CL_SUCCESS)
    {
        fprintf(stderr, "%s: %d\n", what, code);
        exit(1);
    }
}

static char* read_text(const char* path, const char* program)
{
    char beside[4096];
    char* text = calloc(1, 65536);
    const char* slash = NULL;
    for (const char* c = program; *c != '\0'; ++c)
    {
        slash = *c == '/' ? c : slash;
    }
    snprintf(beside, sizeof(beside), "%.*s%s", slash != NULL ? (int)(slash - program + 1) : 0, program, path);
    FILE* file = fopen(path, "r");
    file = file != NULL ? file : fopen(beside, "r");
    if (file == NULL || text == NULL || fread(text, 1, 65535, file) == 0)
    {
        fprintf(stderr, "can't read %s\n", path);
        exit(1);
    }
    fclose(file);
    return text;
}

int main(int argc, char** argv)
{
    cl_platform_id platform;
    cl_device_id device;
    cl_int code;
    check(clGetPlatformIDs(1, &platform, NULL), "clGetPlatformIDs");
    check(clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 1, &device, NULL), "clGetDeviceIDs");
    cl_context context = clCreateContext(NULL, 1, &device, NULL, NULL, &code);
    check(code, "clCreateContext");
    cl_command_queue queue = clCreateCommandQueue(context, device, 0, &code);
    check(code, "clCreateCommandQueue");

    char* text = read_text(argc > 1 ? argv[1] : "scale.cl", argv[0]);
    cl_program program = clCreateProgramWithSource(context, 1, (const char**)&text, NULL, &code);
    check(code, "clCreateProgramWithSource");
    check(clBuildProgram(program, 1, &device, NULL, NULL, NULL), "clBuildProgram");
    free(text);

    float data[COUNT];
    for (int i = 0; i < COUNT; ++i)
    {
        data[i] = (float)i;
    }
    cl_mem buffer = clCreateBuffer(context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, sizeof(data), data, &code);
    check(code, "clCreateBuffer");

    cl_kernel scale = clCreateKernel(program, "scale", &code);
    check(code, "clCreateKernel");
    const size_t whole = COUNT;
    const cl_int count = COUNT;
    check(clSetKernelArg(scale, 0, sizeof(buffer), &buffer), "clSetKernelArg");
    check(clSetKernelArg(scale, 2, sizeof(count), &count), "clSetKernelArg");
    for (int round = 0; round < 3; ++round)
    {
        const cl_float factor = (cl_float)(round + 1);
        check(clSetKernelArg(scale, 1, sizeof(factor), &factor), "clSetKernelArg");
        check(clEnqueueNDRangeKernel(queue, scale, 1, NULL, &whole, NULL, 0, NULL, NULL), "clEnqueueNDRangeKernel");
    }

    cl_kernel add = clCreateKernel(program, "add", &code);
    check(code, "clCreateKernel");
    cl_mem parts[3];
    for (cl_uint i = 0; i < 3; ++i)
    {
        const cl_buffer_region region = {i * HALF * sizeof(float), HALF * sizeof(float)};
        parts[i] = clCreateSubBuffer(buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, &code);
        check(code, "clCreateSubBuffer");
        check(clSetKernelArg(add, i, sizeof(parts[i]), &parts[i]), "clSetKernelArg");
    }
    const size_t half = HALF;
    check(clEnqueueNDRangeKernel(queue, add, 1, NULL, &half, NULL, 0, NULL, NULL), "clEnqueueNDRangeKernel");
    check(clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, sizeof(data), data, 0, NULL, NULL), "clEnqueueReadBuffer");
    printf("%g %g %g\n", data[2 * HALF], data[2 * HALF + 1], data[3 * HALF - 1]);

    for (int i = 0; i < 3; ++i)
    {
        clReleaseMemObject(parts[i]);
    }
    clReleaseKernel(add);
    clReleaseKernel(scale);
    clReleaseMemObject(buffer);
    clReleaseProgram(program);
    clReleaseCommandQueue(queue);
    clReleaseContext(context);
    return 0;
}
