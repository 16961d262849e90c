/*
 * The smallest client: steps a kernel to its end and prints where it is and how many work-items are active.
 *
 *   minimal_client PLATFORM_FOLDER
 *
 * PLATFORM_FOLDER is the folder of the software platform, build/release/lib/kestrel-platform in a build of this
 * project. On a machine with a runtime of its own, the two lines that load the platform aren't needed.
 */

#include <OVKKestrel.h>

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define WORK_ITEMS 8

static const char* const s_pszSource = ";ARGSTART:__OpenCL_twice_kernel\n"
                                       ";version:3:1:104\n"
                                       ";device:quench\n"
                                       ";uniqueid:1024\n"
                                       ";memory:64bitABI\n"
                                       ";pointer:data:i32:1:1:0:uav:10:4:RW:0:0\n"
                                       ";function:1:1030\n"
                                       ";ARGEND:__OpenCL_twice_kernel\n"
                                       "il_cs_2_0\n"
                                       "dcl_cb cb0[10]\n"
                                       "dcl_cb cb1[1]\n"
                                       "dcl_literal l0, 2, 1, 3, 0\n"
                                       ";$$$$$$$$$$\n"
                                       "endmain\n"
                                       "func 1024\n"
                                       ";__OpenCL_twice_kernel\n"
                                       "dcl_max_thread_per_group 256\n"
                                       "dcl_typeless_uav_id(10)_stride(4)_length(4)\n"
                                       "imad r0.x, vThreadGrpId.x, cb0[1].x, vTidInGrp.x\n"
                                       "ishl r1.x, r0.x, l0.x\n"
                                       "i64add r2.xy, cb1[0].xy, r1.x000\n"
                                       "uav_raw_load_id(10)_addr64 r3.x, r2.xy\n"
                                       "ilt r4.x, r0.x, l0.z\n"
                                       "if_logicalnz r4.x\n"
                                       "ishl r3.x, r3.x, l0.y\n"
                                       "endif\n"
                                       "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x\n"
                                       "ret\n"
                                       "endfunc\n"
                                       "end\n";

static cl_icd_dispatch_table s_CL;

static ovkclDebugCommand CL_CALLBACK OnEvent(ovkclDebugContext context, ovkclDebugEvent event, void* pUserData)
{
    if (event == OVKCLDEBUG_EVENT_ERROR)
    {
        char szError[256] = "";
        ovkclDebugUtilGetLastError(context, sizeof(szError), szError, NULL);
        printf("error: %s\n", szError);
    }
    if (event == OVKCLDEBUG_EVENT_HALTED)
    {
        ovkclDebugPC nLine = 0;
        const cl_bool* pMask = NULL;
        size_t nItems = 0;
        size_t nActive = 0;
        size_t i;
        ovkclDebugGetProgramCounter(context, &nLine);
        if (ovkclDebugGetExecutionMask(context, &pMask, &nItems) == OVKCLDEBUG_SUCCESS)
        {
            for (i = 0; i < nItems; ++i)
            {
                nActive += pMask[i] != 0;
            }
        }
        printf("stop %d: %zu of %zu active, next is line %u\n", ++*(int*)pUserData, nActive, nItems, nLine);
    }
    return OVKCLDEBUG_COMMAND_STEP;
}

static void* LoadFrom(const char* pszFolder, const char* pszName)
{
    char szPath[4096];
    void* pLibrary;
    snprintf(szPath, sizeof(szPath), "%s/%s", pszFolder, pszName);
    pLibrary = dlopen(szPath, RTLD_NOW | RTLD_LOCAL);
    if (pLibrary == NULL)
    {
        printf("%s\n", dlerror());
        exit(3);
    }
    return pLibrary;
}

/* Fills the table from the runtime's platform: every OpenCL object starts with a pointer to its runtime's table. */
static void UsePlatform(const char* pszFolder)
{
    cl_platform_id platform = NULL;
    void* pRuntime = LoadFrom(pszFolder, "libOpenCL.so");
    cl_api_clGetPlatformIDs pfnGetPlatformIDs;
    LoadFrom(pszFolder, "libovkocl12cl64.so");
    *(void**)&pfnGetPlatformIDs = dlsym(pRuntime, "clGetPlatformIDs");
    pfnGetPlatformIDs(1, &platform, NULL);
    memcpy(&s_CL, *(void**)platform, sizeof(s_CL));
    ovkclDebugSetDispatchTable(&s_CL);
}

static void Check(cl_int nCode, const char* pszWhat)
{
    if (nCode != CL_SUCCESS)
    {
        printf("%s failed with %d\n", pszWhat, (int)nCode);
        exit(1);
    }
}

int main(int argc, char** argv)
{
    const size_t nGlobal = WORK_ITEMS;
    cl_int data[WORK_ITEMS];
    cl_int nCode = CL_SUCCESS;
    int nStops = 0;
    int i;
    cl_platform_id platform = NULL;
    cl_device_id device = NULL;
    cl_context context;
    cl_command_queue queue;
    cl_program program;
    cl_kernel kernel;
    cl_mem buffer;
    cl_event done = NULL;

    if (argc != 2)
    {
        printf("usage: minimal_client PLATFORM_FOLDER\n");
        return 2;
    }
    UsePlatform(argv[1]);

    Check(s_CL.clGetPlatformIDs(1, &platform, NULL), "clGetPlatformIDs");
    Check(s_CL.clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, NULL), "clGetDeviceIDs");
    context = ovkclInterceptCreateContext(NULL, 1, &device, NULL, NULL, &nCode);
    Check(nCode, "clCreateContext");
    queue = ovkclInterceptCreateCommandQueue(context, device, 0, &nCode);
    Check(nCode, "clCreateCommandQueue");
    program = s_CL.clCreateProgramWithSource(context, 1, (const char**)&s_pszSource, NULL, &nCode);
    Check(nCode, "clCreateProgramWithSource");
    Check(s_CL.clBuildProgram(program, 1, &device, "-g", NULL, NULL), "clBuildProgram");
    kernel = ovkclInterceptCreateKernel(program, "twice", &nCode);
    Check(nCode, "clCreateKernel");

    for (i = 0; i < WORK_ITEMS; ++i)
    {
        data[i] = i + 1;
    }
    buffer = s_CL.clCreateBuffer(context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, sizeof(data), data, &nCode);
    Check(nCode, "clCreateBuffer");
    Check(ovkclInterceptSetKernelArg(kernel, 0, sizeof(buffer), &buffer), "clSetKernelArg");

    Check(ovkclDebugEnqueueNDRangeKernel(queue, kernel, 1, NULL, &nGlobal, NULL, 0, NULL, &done, OnEvent, &nStops),
          "ovkclDebugEnqueueNDRangeKernel");
    Check(s_CL.clWaitForEvents(1, &done), "clWaitForEvents");
    Check(s_CL.clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, sizeof(data), data, 0, NULL, NULL),
          "clEnqueueReadBuffer");

    nCode = nStops > 0 ? 0 : 1;
    for (i = 0; i < WORK_ITEMS; ++i)
    {
        printf("%d ", (int)data[i]);
        nCode |= data[i] != (i + 1) * (i < 3 ? 2 : 1);
    }
    printf("\n");

    s_CL.clReleaseEvent(done);
    s_CL.clReleaseMemObject(buffer);
    ovkclInterceptReleaseKernel(kernel);
    s_CL.clReleaseProgram(program);
    s_CL.clReleaseCommandQueue(queue);
    s_CL.clReleaseContext(context);
    return nCode;
}
