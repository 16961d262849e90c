/* Prints how bright each row of a picture is. Some rows come out wrong: the kernel has a bug, which docs/tutorial.md
 * finds. An ordinary OpenCL program: it knows nothing of a debugger. */
#define CL_TARGET_OPENCL_VERSION 120
#include <CL/cl.h>

#include <stdio.h>
#include <stdlib.h>

enum
{
    ROWS = 8,
    COLUMNS = 256
};

static void check(cl_int code, const char* what)
{
    if (code != CL_SUCCESS)
    {
        fprintf(stderr, "%s: %d\n", what, code);
        exit(1);
    }
}

static char* read_text(const char* path)
{
    char* text = calloc(1, 65536);
    FILE* file = fopen(path, "r");
    if (file == NULL || text == NULL || fread(text, 1, 65535, file) == 0)
    {
        fprintf(stderr, "can't read %s\n", path);
        exit(1);
    }
    fclose(file);
    return text;
}

int main(void)
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

    char* text = read_text("average.cl");
    cl_program program = clCreateProgramWithSource(context, 1, (const char**)&text, NULL, &code);
    check(code, "clCreateProgramWithSource");
    check(clBuildProgram(program, 1, &device, NULL, NULL, NULL), "clBuildProgram");
    free(text);

    /* Each row is a little brighter than the one before. */
    cl_uchar pixels[ROWS][COLUMNS];
    cl_int means[ROWS];
    for (int row = 0; row < ROWS; ++row)
    {
        for (int column = 0; column < COLUMNS; ++column)
        {
            pixels[row][column] = (cl_uchar)(30 * row + column % 8);
        }
    }
    cl_mem in = clCreateBuffer(context, CL_MEM_READ_ONLY | CL_MEM_COPY_HOST_PTR, sizeof(pixels), pixels, &code);
    check(code, "clCreateBuffer");
    cl_mem out = clCreateBuffer(context, CL_MEM_WRITE_ONLY, sizeof(means), NULL, &code);
    check(code, "clCreateBuffer");

    cl_kernel average = clCreateKernel(program, "average", &code);
    check(code, "clCreateKernel");
    const cl_int columns = COLUMNS;
    const size_t rows = ROWS;
    check(clSetKernelArg(average, 0, sizeof(in), &in), "clSetKernelArg");
    check(clSetKernelArg(average, 1, sizeof(out), &out), "clSetKernelArg");
    check(clSetKernelArg(average, 2, sizeof(columns), &columns), "clSetKernelArg");
    check(clEnqueueNDRangeKernel(queue, average, 1, NULL, &rows, NULL, 0, NULL, NULL), "clEnqueueNDRangeKernel");
    check(clEnqueueReadBuffer(queue, out, CL_TRUE, 0, sizeof(means), means, 0, NULL, NULL), "clEnqueueReadBuffer");
    for (int row = 0; row < ROWS; ++row)
    {
        printf("%d%s", means[row], row + 1 < ROWS ? " " : "\n");
    }

    clReleaseKernel(average);
    clReleaseMemObject(in);
    clReleaseMemObject(out);
    clReleaseProgram(program);
    clReleaseCommandQueue(queue);
    clReleaseContext(context);
    return 0;
}
