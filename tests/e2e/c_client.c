/*
 * A client in C that includes the public header and the C library alone. It debugs one launch, uses every exported
 * function on the way and checks what each gives. Ends with 0 if all is as it should be.
 *
 *   c_client PLATFORM_FOLDER
 *
 * The kernel gives each of eight work-items the sum of its number and twice that of a loop of three passes in
 * which those with an odd number take part.
 */

#include <OVKKestrel.h>

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define WORK_ITEMS 8
#define PASSES 3

static const char* const s_szSource[] = {";ARGSTART:__OpenCL_sum_kernel\n"
                                         ";version:3:1:104\n"
                                         ";device:quench\n"
                                         ";uniqueid:1024\n"
                                         ";memory:64bitABI\n"
                                         ";memory:uavprivate:32\n"
                                         ";privateid:8\n"
                                         ";pointer:data:i32:1:1:0:uav:10:4:RW:0:0\n"
                                         ";function:1:1030\n"
                                         ";ARGEND:__OpenCL_sum_kernel\n",
                                         "il_cs_2_0\n"
                                         "dcl_cb cb0[10]\n"
                                         "dcl_cb cb1[1]\n"
                                         "dcl_literal l0, 2, 1, 3, 0\n"
                                         ";$$$$$$$$$$\n"
                                         "endmain\n"
                                         "func 1024\n"
                                         ";__OpenCL_sum_kernel\n"
                                         "dcl_max_thread_per_group 256\n"
                                         "dcl_typeless_uav_id(10)_stride(4)_length(4)\n"
                                         "dcl_typeless_uav_id(8)_stride(4)_length(32)_access(private)\n",
                                         "imad r0.x, vThreadGrpId.x, cb0[1].x, vTidInGrp.x\n"
                                         "ishl r1.x, r0.x, l0.x\n"
                                         "i64add r2.xy, cb1[0].xy, r1.x000\n"
                                         "uav_raw_store_id(8) mem0.x, l0.w, r0.x\n"
                                         "mov r3.x, r0.x\n"
                                         "mov r4.x, l0.w\n"
                                         "whileloop\n"
                                         "ige r5.x, r4.x, l0.z\n"
                                         "break_logicalnz r5.x\n"
                                         "iadd r4.x, r4.x, l0.y\n"
                                         "and r5.x, r0.x, l0.y\n"
                                         "if_logicalnz r5.x\n"
                                         "iadd r3.x, r3.x, l0.x\n",
                                         "mov r6.x, r3.x\n"
                                         "endif\n"
                                         "endloop\n"
                                         "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x\n"
                                         "ret\n"
                                         "endfunc\n"
                                         "end\n"};

static cl_icd_dispatch_table s_CL;
static int s_nFailures = 0;

static void Report(const char* pszText, int nLine)
{
    printf("c_client.c:%d: %s\n", nLine, pszText);
    ++s_nFailures;
}

#define CHECK(condition) ((condition) ? (void)0 : Report(#condition, __LINE__))

/* What the callback works with. */
typedef struct SClient
{
    int nStarted;
    int nHalted;
    int nFinished;
    int nErrors;
    ovkclDebugContext context;
    ovkclDebugPC breakpoint;    /* the line after the addition */
    ovkclDebugPC firstLines[2]; /* next lines of the first two halts */
    cl_int values[WORK_ITEMS];  /* of r3 at the first of them */
} SClient;

/* The line of the kernel's text that starts with a text; the lines lie in the image with NULs or line ends between. */
static ovkclDebugPC FindLine(const char* pText, size_t nSize, const char* pszStart)
{
    ovkclDebugPC nLine = 0;
    size_t n = 0;
    while (n < nSize)
    {
        if (nSize - n >= strlen(pszStart) && memcmp(pText + n, pszStart, strlen(pszStart)) == 0)
        {
            return nLine;
        }
        while (n < nSize && pText[n] != '\n')
        {
            ++n;
        }
        ++n;
        ++nLine;
    }
    return (ovkclDebugPC)-1;
}

static ovkclDebugRegisterLocator Locate(const char* pszName)
{
    ovkclDebugRegisterLocator locator = 0;
    cl_char szName[64] = "";
    size_t nSize = 0;
    CHECK(ovkclDebugUtilStringToDebugRegisterLocator((const cl_char*)pszName, &locator) == OVKCLDEBUG_SUCCESS);
    CHECK(ovkclDebugUtilDebugRegisterLocatorToString(locator, 0, NULL, &nSize) == OVKCLDEBUG_SUCCESS);
    CHECK(nSize == strlen(pszName) + 1);
    CHECK(ovkclDebugUtilDebugRegisterLocatorToString(locator, nSize - 1, szName, NULL) ==
          OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL);
    CHECK(ovkclDebugUtilDebugRegisterLocatorToString(locator, nSize, szName, NULL) == OVKCLDEBUG_SUCCESS);
    CHECK(strcmp((const char*)szName, pszName) == 0);
    return locator;
}

static const cl_int* GetRegister(ovkclDebugContext context, const char* pszName)
{
    const void* pValues = NULL;
    size_t nStride = 0;
    size_t nElements = 0;
    if (ovkclDebugGetRegisterValues(context, Locate(pszName), &pValues, &nStride, &nElements) != OVKCLDEBUG_SUCCESS)
    {
        return NULL;
    }
    CHECK(nStride == 16 && nElements == WORK_ITEMS);
    return (const cl_int*)pValues;
}

/* Looks for the kernel's text in its image and puts a breakpoint after the addition. */
static void SetBreakpoints(ovkclDebugContext context, SClient* pClient)
{
    char* pImage;
    size_t nSize = 0;
    size_t n = 0;
    size_t nCount = 0;
    ovkclDebugPC after;
    ovkclDebugPC taken = 0;
    ovkclDebugPC lines[3] = {0, 0, 0};

    CHECK(ovkclDebugGetKernelBinarySize(context, &nSize) == OVKCLDEBUG_SUCCESS && nSize > 64);
    pImage = (char*)malloc(nSize);
    CHECK(ovkclDebugGetKernelBinary(context, pImage, nSize - 1) == OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL);
    CHECK(ovkclDebugGetKernelBinary(context, pImage, nSize) == OVKCLDEBUG_SUCCESS);
    CHECK(memcmp(pImage, "\177ELF", 4) == 0);
    while (n + 9 < nSize && memcmp(pImage + n, "il_cs_2_0", 9) != 0)
    {
        ++n;
    }
    after = FindLine(pImage + n, nSize - n, "mov r6.x, r3.x");
    free(pImage);
    CHECK(after != (ovkclDebugPC)-1);

    CHECK(ovkclDebugSetBreakpoint(context, 0, 1000, &taken) == OVKCLDEBUG_SUCCESS && taken < after);
    CHECK(ovkclDebugSetBreakpoint(context, after, 0, &pClient->breakpoint) == OVKCLDEBUG_SUCCESS);
    CHECK(pClient->breakpoint == after);
    CHECK(ovkclDebugGetNumBreakpoints(context, &nCount) == OVKCLDEBUG_SUCCESS && nCount == 2);
    CHECK(ovkclDebugGetAllBreakpoints(context, lines, 3) == OVKCLDEBUG_SUCCESS);
    CHECK(lines[0] == taken && lines[1] == after && lines[2] == 0);
    CHECK(ovkclDebugClearBreakpoint(context, taken) == OVKCLDEBUG_SUCCESS);
    CHECK(ovkclDebugClearBreakpoint(context, 0) == OVKCLDEBUG_ERROR_OPERATION_FAILED);
}

static void AtStarted(ovkclDebugContext context, SClient* pClient)
{
    ovkclDebugRegisterLocator registers[2];
    ovkclDebugPC line = 0;
    registers[0] = Locate("r3");
    registers[1] = Locate("r2");
    pClient->context = context;
    SetBreakpoints(context, pClient);
    CHECK(ovkclDebugSetTrackPrivateMemory(context, CL_TRUE) == OVKCLDEBUG_SUCCESS);
    CHECK(ovkclDebugSetTrackingRegisters(context, registers, 2) == OVKCLDEBUG_SUCCESS);
    CHECK(ovkclDebugGetProgramCounter(context, &line) == OVKCLDEBUG_ERROR_INVALID_STATE);
}

static void CheckMemory(ovkclDebugContext context)
{
    const cl_int* pAddress = GetRegister(context, "r2");
    unsigned char bytes[WORK_ITEMS * 6];
    cl_int data[WORK_ITEMS];
    cl_ulong address = 0;
    size_t nSize = 0;
    int i;

    CHECK(pAddress != NULL);
    memcpy(&address, pAddress, sizeof(address));
    CHECK(ovkclDebugGetGlobalMemoryValues(context, 10, address, 0, NULL, &nSize) == OVKCLDEBUG_SUCCESS);
    CHECK(nSize == sizeof(data));
    CHECK(ovkclDebugGetGlobalMemoryValues(context, 10, address, sizeof(data), data, &nSize) == OVKCLDEBUG_SUCCESS);
    CHECK(nSize == sizeof(data));
    CHECK(ovkclDebugGetPrivateMemoryValues(context, 0, 6, bytes, &nSize) == OVKCLDEBUG_SUCCESS);
    CHECK(nSize == sizeof(bytes));
    for (i = 0; i < WORK_ITEMS; ++i)
    {
        CHECK(data[i] == 100 + i); /* nothing has been stored yet */
        CHECK(bytes[6 * i] == i && bytes[6 * i + 1] == 0 && bytes[6 * i + 5] == 0);
    }
}

static void CheckRegisters(ovkclDebugContext context)
{
    ovkclDebugRegisterLocator registers[64];
    size_t nCount = 0;
    size_t i;
    int bTracked = 0;
    CHECK(ovkclDebugGetNumberOfActiveRegisters(context, &nCount) == OVKCLDEBUG_SUCCESS && nCount <= 64);
    CHECK(ovkclDebugGetActiveRegisters(context, registers, nCount) == OVKCLDEBUG_SUCCESS);
    for (i = 0; i < nCount; ++i)
    {
        CHECK(registers[i] != 4); /* r4 isn't tracked */
        bTracked += registers[i] == 3;
    }
    CHECK(bTracked == 1);
    CHECK(GetRegister(context, "r4") == NULL);
}

/* At the breakpoint of a pass, counted from 1: those with an odd number have added 2 in each. */
static void CheckPass(ovkclDebugContext context, int nPass)
{
    const cl_int* pValues = GetRegister(context, "r3");
    const cl_bool* pMask = NULL;
    size_t nItems = 0;
    int i;
    CHECK(ovkclDebugGetExecutionMask(context, &pMask, &nItems) == OVKCLDEBUG_SUCCESS && nItems == WORK_ITEMS);
    CHECK(pValues != NULL);
    for (i = 0; pValues != NULL && i < WORK_ITEMS; ++i)
    {
        CHECK((pMask[i] != 0) == (i % 2 != 0));
        if (i % 2 != 0)
        {
            CHECK(pValues[4 * i] == i + 2 * nPass);
        }
    }
}

static ovkclDebugCommand AtHalted(ovkclDebugContext context, SClient* pClient)
{
    ovkclDebugPC line = 0;
    CHECK(ovkclDebugGetProgramCounter(context, &line) == OVKCLDEBUG_SUCCESS);
    switch (++pClient->nHalted)
    {
    case 1: /* the breakpoint in the first pass */
        CHECK(line == pClient->breakpoint);
        CheckPass(context, 1);
        CheckMemory(context);
        CheckRegisters(context);
        return OVKCLDEBUG_COMMAND_STEP;
    case 2:
        CHECK(line != pClient->breakpoint);
        return OVKCLDEBUG_COMMAND_EXT_STEP_BACK;
    case 3: /* the first stop again */
        CHECK(line == pClient->breakpoint);
        CheckPass(context, 1);
        return OVKCLDEBUG_COMMAND_CONTINUE;
    case 4:
        CHECK(line == pClient->breakpoint);
        CheckPass(context, 2);
        return OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
    case 5:
        CHECK(line == pClient->breakpoint);
        CheckPass(context, 1);
        return OVKCLDEBUG_COMMAND_CONTINUE;
    case 6:
        CHECK(line == pClient->breakpoint);
        CheckPass(context, 2);
        return OVKCLDEBUG_COMMAND_CONTINUE;
    default: /* the last pass */
        CHECK(line == pClient->breakpoint);
        CheckPass(context, 3);
        CHECK(ovkclDebugClearAllBreakpoints(context) == OVKCLDEBUG_SUCCESS);
        return OVKCLDEBUG_COMMAND_STEP;
    }
}

static ovkclDebugCommand CL_CALLBACK OnEvent(ovkclDebugContext context, ovkclDebugEvent event, void* pUserData)
{
    SClient* pClient = (SClient*)pUserData;
    char szError[8] = "";
    size_t nSize = 77;
    CHECK(ovkclDebugUtilGetLastError(context, sizeof(szError), szError, &nSize) == OVKCLDEBUG_SUCCESS && nSize == 0);
    switch (event)
    {
    case OVKCLDEBUG_EVENT_STARTED:
        ++pClient->nStarted;
        AtStarted(context, pClient);
        return OVKCLDEBUG_COMMAND_CONTINUE;
    case OVKCLDEBUG_EVENT_HALTED:
        /* After the last breakpoint it steps to the end. */
        return pClient->nHalted >= 7 ? OVKCLDEBUG_COMMAND_STEP : AtHalted(context, pClient);
    case OVKCLDEBUG_EVENT_FINISHED:
        ++pClient->nFinished;
        return OVKCLDEBUG_COMMAND_CONTINUE;
    default:
        ++pClient->nErrors;
        return OVKCLDEBUG_COMMAND_CONTINUE;
    }
}

static ovkclDebugCommand CL_CALLBACK OnTaskEvent(ovkclDebugContext context, ovkclDebugEvent event, void* pUserData)
{
    const cl_bool* pMask = NULL;
    size_t nItems = 0;
    if (event == OVKCLDEBUG_EVENT_HALTED && *(int*)pUserData == 0)
    {
        CHECK(ovkclDebugGetExecutionMask(context, &pMask, &nItems) == OVKCLDEBUG_SUCCESS && nItems == 1);
    }
    *(int*)pUserData += event == OVKCLDEBUG_EVENT_HALTED || event == OVKCLDEBUG_EVENT_FINISHED;
    return event == OVKCLDEBUG_EVENT_STARTED ? OVKCLDEBUG_COMMAND_STEP : OVKCLDEBUG_COMMAND_CONTINUE;
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

/* Every OpenCL object starts with a pointer to the runtime's table. */
static cl_platform_id UsePlatform(const char* pszFolder)
{
    cl_icd_dispatch_table table;
    cl_platform_id platform = NULL;
    void* pRuntime = LoadFrom(pszFolder, "libOpenCL.so");
    cl_api_clGetPlatformIDs pfnGetPlatformIDs;
    LoadFrom(pszFolder, "libovkocl12cl64.so");
    *(void**)&pfnGetPlatformIDs = dlsym(pRuntime, "clGetPlatformIDs");
    pfnGetPlatformIDs(1, &platform, NULL);
    memcpy(&s_CL, *(void**)platform, sizeof(s_CL));

    CHECK(ovkclDebugSetDispatchTable(NULL) == CL_INVALID_VALUE);
    CHECK(ovkclDebugGetDispatchTable(NULL) == CL_INVALID_VALUE);
    CHECK(ovkclDebugSetDispatchTable(&s_CL) == CL_SUCCESS);
    memset(&table, 0, sizeof(table));
    CHECK(ovkclDebugGetDispatchTable(&table) == CL_SUCCESS);
    CHECK(table.clCreateContext == s_CL.clCreateContext);
    CHECK(table.clEnqueueNDRangeKernel == s_CL.clEnqueueNDRangeKernel);
    return platform;
}

static cl_program Build(cl_context context, cl_device_id device)
{
    static const cl_uint nParts = (cl_uint)(sizeof(s_szSource) / sizeof(s_szSource[0]));
    cl_int nCode = -1;
    cl_program program = s_CL.clCreateProgramWithSource(context, nParts, (const char**)s_szSource, NULL, &nCode);
    CHECK(nCode == CL_SUCCESS);
    CHECK(s_CL.clBuildProgram(program, 1, &device, "-g", NULL, NULL) == CL_SUCCESS);
    return program;
}

static cl_kernel MakeKernel(cl_program program)
{
    cl_int nCode = -1;
    cl_uint nKernels = 0;
    cl_kernel other = NULL;
    cl_kernel kernel = ovkclInterceptCreateKernel(program, "sum", &nCode);
    CHECK(kernel != NULL && nCode == CL_SUCCESS);
    CHECK(ovkclInterceptCreateKernel(program, "none", &nCode) == NULL && nCode == CL_INVALID_KERNEL_NAME);
    CHECK(ovkclInterceptCreateKernelsInProgram(program, 1, &other, &nKernels) == CL_SUCCESS);
    CHECK(nKernels == 1 && other != NULL);
    CHECK(ovkclInterceptRetainKernel(other) == CL_SUCCESS);
    CHECK(ovkclInterceptReleaseKernel(other) == CL_SUCCESS);
    CHECK(ovkclInterceptReleaseKernel(other) == CL_SUCCESS);
    return kernel;
}

static cl_context MakeContext(cl_platform_id platform, cl_device_id device)
{
    cl_context_properties properties[3];
    cl_int nCode = -1;
    cl_context context;
    properties[0] = CL_CONTEXT_PLATFORM;
    properties[1] = (cl_context_properties)platform;
    properties[2] = 0;
    context = ovkclInterceptCreateContextFromType(properties, CL_DEVICE_TYPE_GPU, NULL, NULL, &nCode);
    CHECK(context != NULL && nCode == CL_SUCCESS);
    CHECK(s_CL.clReleaseContext(context) == CL_SUCCESS);
    context = ovkclInterceptCreateContext(properties, 1, &device, NULL, NULL, &nCode);
    CHECK(context != NULL && nCode == CL_SUCCESS);
    return context;
}

/* A queue with properties; the platform's table knows such queues, its version doesn't promise them. */
static void TryQueueWithProperties(cl_context context, cl_device_id device)
{
    static const cl_queue_properties properties[] = {CL_QUEUE_PROPERTIES, CL_QUEUE_PROFILING_ENABLE, 0};
    cl_int nCode = -1;
    cl_command_queue queue = ovkclInterceptCreateCommandQueueWithProperties(context, device, properties, &nCode);
    CHECK((queue != NULL) == (nCode == CL_SUCCESS));
    CHECK(nCode == CL_SUCCESS || nCode == CL_INVALID_OPERATION);
    if (queue != NULL)
    {
        CHECK(s_CL.clReleaseCommandQueue(queue) == CL_SUCCESS);
    }
}

static void Debug(cl_command_queue queue, cl_kernel kernel, cl_mem buffer)
{
    const size_t nGlobal = WORK_ITEMS;
    const size_t nLocal = WORK_ITEMS / 2;
    cl_int data[WORK_ITEMS];
    SClient client;
    cl_event done = NULL;
    size_t nSize = 0;
    int nTaskStops = 0;
    int i;
    memset(&client, 0, sizeof(client));

    CHECK(ovkclDebugEnqueueNDRangeKernel(queue, kernel, 1, NULL, &nGlobal, &nLocal, 0, NULL, NULL, NULL, NULL) ==
          CL_INVALID_VALUE);
    CHECK(ovkclDebugEnqueueNDRangeKernel(queue, kernel, 1, NULL, &nGlobal, &nLocal, 0, NULL, &done, OnEvent, &client) ==
          CL_SUCCESS);
    CHECK(s_CL.clWaitForEvents(1, &done) == CL_SUCCESS);
    CHECK(s_CL.clReleaseEvent(done) == CL_SUCCESS);
    CHECK(client.nStarted == 1 && client.nFinished == 1 && client.nErrors == 0 && client.nHalted == 7);
    CHECK(ovkclDebugGetKernelBinarySize(client.context, &nSize) == OVKCLDEBUG_ERROR_INVALID_CONTEXT);
    CHECK(s_CL.clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, sizeof(data), data, 0, NULL, NULL) == CL_SUCCESS);
    for (i = 0; i < WORK_ITEMS; ++i)
    {
        CHECK(data[i] == i + (i % 2) * 2 * PASSES);
    }

    CHECK(ovkclDebugEnqueueTask(queue, kernel, 0, NULL, &done, OnTaskEvent, &nTaskStops) == CL_SUCCESS);
    CHECK(s_CL.clWaitForEvents(1, &done) == CL_SUCCESS);
    CHECK(s_CL.clReleaseEvent(done) == CL_SUCCESS);
    CHECK(nTaskStops == 2);
}

int main(int argc, char** argv)
{
    cl_int data[WORK_ITEMS];
    cl_int nCode = -1;
    cl_platform_id platform;
    cl_device_id device = NULL;
    cl_context context;
    cl_command_queue queue;
    cl_program program;
    cl_kernel kernel;
    cl_mem buffer;
    int i;

    if (argc != 2)
    {
        printf("usage: c_client PLATFORM_FOLDER\n");
        return 2;
    }
    platform = UsePlatform(argv[1]);
    CHECK(s_CL.clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, NULL) == CL_SUCCESS);
    context = MakeContext(platform, device);
    queue = ovkclInterceptCreateCommandQueue(context, device, 0, &nCode);
    CHECK(queue != NULL && nCode == CL_SUCCESS);
    TryQueueWithProperties(context, device);
    program = Build(context, device);
    kernel = MakeKernel(program);
    for (i = 0; i < WORK_ITEMS; ++i)
    {
        data[i] = 100 + i;
    }
    buffer = s_CL.clCreateBuffer(context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, sizeof(data), data, &nCode);
    CHECK(buffer != NULL && nCode == CL_SUCCESS);
    CHECK(ovkclInterceptSetKernelArg(kernel, 0, sizeof(buffer), &buffer) == CL_SUCCESS);
    CHECK(ovkclInterceptSetKernelArg(kernel, 1, sizeof(buffer), &buffer) == CL_INVALID_ARG_INDEX);

    Debug(queue, kernel, buffer);
    /* What names no register has an empty name, and leaves the line of an assertion. */
    CHECK(ovkclDebugUtilDebugRegisterLocatorToString(0x20000, 0, NULL, NULL) == OVKCLDEBUG_SUCCESS);

    CHECK(s_CL.clReleaseMemObject(buffer) == CL_SUCCESS);
    CHECK(ovkclInterceptReleaseKernel(kernel) == CL_SUCCESS);
    CHECK(s_CL.clReleaseProgram(program) == CL_SUCCESS);
    CHECK(s_CL.clReleaseCommandQueue(queue) == CL_SUCCESS);
    CHECK(s_CL.clReleaseContext(context) == CL_SUCCESS);
    printf("%d checks failed\n", s_nFailures);
    return s_nFailures == 0 ? 0 : 1;
}
