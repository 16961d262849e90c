/*
 * A front end in C that knows the public header alone: it steps examples/vector_add and uses every exported
 * function in one session. Ends with 0 if each gave what it should.
 */

#include "OVKKestrel.h"
#include "tests/api/PlatformTable.h"

#include <stdlib.h>

enum
{
    ITEMS = 16
};

static cl_icd_dispatch s_cl;
static int s_nFailures = 0;

static void Check(int bCondition, const char* pszText, int nLine)
{
    if (!bCondition)
    {
        fprintf(stderr, "line %d: %s\n", nLine, pszText);
        ++s_nFailures;
    }
}
#define CHECK(condition) Check((condition), #condition, __LINE__)
#define CHECK_OK(call) CHECK((call) == 0)

typedef struct SClient
{
    int nStarted;
    int nHalted;
    int nFinished;
    int nErrors;
    int bSawSum; /* the sum's register had the outputs */
    ovkclDebugPC breakpoint;
} SClient;

static ovkclDebugRegisterLocator Locate(const char* pszName)
{
    ovkclDebugRegisterLocator locator = 0;
    char szBack[32] = "";
    size_t nSize = 0;
    CHECK_OK(ovkclDebugUtilStringToDebugRegisterLocator((const cl_char*)pszName, &locator));
    CHECK_OK(ovkclDebugUtilDebugRegisterLocatorToString(locator, sizeof(szBack), (cl_char*)szBack, &nSize));
    CHECK(strcmp(pszName, szBack) == 0 && nSize == strlen(pszName) + 1);
    return locator;
}

static void AtStarted(ovkclDebugContext context, SClient* pClient)
{
    const ovkclDebugRegisterLocator registers[] = {Locate("r2"), Locate("r7")};
    ovkclDebugPC lines[4] = {0};
    size_t nSize = 0;
    char szError[8];

    CHECK_OK(ovkclDebugGetKernelBinarySize(context, &nSize));
    {
        unsigned char* pBinary = (unsigned char*)malloc(nSize);
        CHECK_OK(ovkclDebugGetKernelBinary(context, pBinary, nSize));
        CHECK(nSize > 4 && memcmp(pBinary, "\177ELF", 4) == 0);
        free(pBinary);
    }
    CHECK_OK(ovkclDebugSetTrackPrivateMemory(context, CL_FALSE));
    CHECK_OK(ovkclDebugSetTrackingRegisters(context, registers, 2));
    CHECK_OK(ovkclDebugSetTrackingRegisters(context, NULL, 0));

    CHECK_OK(ovkclDebugSetBreakpoint(context, 0, 100, &pClient->breakpoint));
    CHECK_OK(ovkclDebugGetNumBreakpoints(context, &nSize));
    CHECK(nSize == 1);
    CHECK_OK(ovkclDebugGetAllBreakpoints(context, lines, 4));
    CHECK(lines[0] == pClient->breakpoint);
    CHECK_OK(ovkclDebugClearBreakpoint(context, pClient->breakpoint));
    CHECK_OK(ovkclDebugClearAllBreakpoints(context));

    CHECK_OK(ovkclDebugUtilGetLastError(context, sizeof(szError), szError, &nSize));
    CHECK(nSize == 0);
    CHECK(ovkclDebugGetProgramCounter(context, lines) == OVKCLDEBUG_ERROR_INVALID_STATE);
}

/* The address of a's first element, once r2 holds each work-item's. */
static void ReadGlobalMemory(ovkclDebugContext context)
{
    const void* pValues = NULL;
    size_t nStride = 0;
    size_t nElements = 0;
    size_t nSize = 0;
    float values[ITEMS];
    cl_ulong address = 0;
    int i;
    if (ovkclDebugGetRegisterValues(context, Locate("r2"), &pValues, &nStride, &nElements) != OVKCLDEBUG_SUCCESS)
    {
        return;
    }
    CHECK(nStride == 16 && nElements == ITEMS);
    memcpy(&address, pValues, sizeof(address));
    CHECK_OK(ovkclDebugGetGlobalMemoryValues(context, 10, address, sizeof(values), values, &nSize));
    CHECK(nSize == sizeof(values));
    for (i = 0; i < ITEMS; ++i)
    {
        CHECK(values[i] == (float)i);
    }
}

static void AtHalted(ovkclDebugContext context, SClient* pClient)
{
    ovkclDebugPC pc = 0;
    ovkclDebugRegisterLocator registers[64];
    const cl_bool* pMask = NULL;
    const void* pValues = NULL;
    size_t nStride = 0;
    size_t nElements = 0;
    size_t nSize = 0;
    char bytes[ITEMS * 20];
    size_t i;

    CHECK_OK(ovkclDebugGetProgramCounter(context, &pc));
    CHECK_OK(ovkclDebugGetExecutionMask(context, &pMask, &nElements));
    CHECK(nElements == ITEMS);
    for (i = 0; i < nElements; ++i)
    {
        CHECK(pMask[i] != 0);
    }
    CHECK_OK(ovkclDebugGetNumberOfActiveRegisters(context, &nSize));
    CHECK(nSize <= 64);
    CHECK_OK(ovkclDebugGetActiveRegisters(context, registers, 64));
    for (i = 0; i < nSize; ++i)
    {
        CHECK_OK(ovkclDebugGetRegisterValues(context, registers[i], &pValues, &nStride, &nElements));
        CHECK(nStride == 16 && nElements == ITEMS);
    }
    CHECK_OK(ovkclDebugGetPrivateMemoryValues(context, 12, 20, bytes, &nSize));
    CHECK(nSize == sizeof(bytes));
    ReadGlobalMemory(context);

    if (ovkclDebugGetRegisterValues(context, Locate("r7"), &pValues, &nStride, &nElements) == OVKCLDEBUG_SUCCESS)
    {
        int bSum = nElements == ITEMS;
        for (i = 0; i < nElements; ++i)
        {
            float fValue = 0;
            memcpy(&fValue, (const char*)pValues + i * nStride, sizeof(fValue));
            bSum = bSum && fValue == (float)i + 0.5f;
        }
        pClient->bSawSum = pClient->bSawSum || bSum;
    }
}

static ovkclDebugCommand CL_CALLBACK OnEvent(ovkclDebugContext context, ovkclDebugEvent debugEvent, void* user_data)
{
    SClient* pClient = (SClient*)user_data;
    switch (debugEvent)
    {
    case OVKCLDEBUG_EVENT_STARTED:
        ++pClient->nStarted;
        AtStarted(context, pClient);
        break;
    case OVKCLDEBUG_EVENT_HALTED:
        ++pClient->nHalted;
        AtHalted(context, pClient);
        if (pClient->nHalted == 3)
        {
            return OVKCLDEBUG_COMMAND_EXT_STEP_BACK;
        }
        if (pClient->nHalted == 5)
        {
            return OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
        }
        break;
    case OVKCLDEBUG_EVENT_FINISHED:
        ++pClient->nFinished;
        break;
    default:
        ++pClient->nErrors;
        break;
    }
    return OVKCLDEBUG_COMMAND_STEP;
}

static ovkclDebugCommand CL_CALLBACK Continue(ovkclDebugContext context, ovkclDebugEvent debugEvent, void* user_data)
{
    (void)context;
    ++*(int*)user_data;
    return debugEvent == OVKCLDEBUG_EVENT_STARTED ? OVKCLDEBUG_COMMAND_CONTINUE : OVKCLDEBUG_COMMAND_UNINITIALIZED;
}

static cl_device_id FindDevice(void)
{
    cl_platform_id platform = NULL;
    cl_device_id device = NULL;
    CHECK_OK(s_cl.clGetPlatformIDs(1, &platform, NULL));
    CHECK_OK(s_cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, NULL));
    return device;
}

static cl_program BuildProgram(cl_context context)
{
    static char szSource[65536];
    const char* pszSource = szSource;
    cl_program program;
    FILE* pFile = fopen(KESTREL_SOURCE_DIR "/examples/vector_add/vector_add.il", "rb");
    CHECK(pFile != NULL && fread(szSource, 1, sizeof(szSource) - 1, pFile) > 0);
    if (pFile != NULL)
    {
        fclose(pFile);
    }
    program = s_cl.clCreateProgramWithSource(context, 1, &pszSource, NULL, NULL);
    CHECK_OK(s_cl.clBuildProgram(program, 0, NULL, "-g", NULL, NULL));
    return program;
}

static void MakeKernelAgain(cl_program program)
{
    cl_kernel kernels[1] = {NULL};
    cl_uint nKernels = 0;
    CHECK_OK(ovkclInterceptCreateKernelsInProgram(program, 1, kernels, &nKernels));
    CHECK(nKernels == 1);
    CHECK_OK(ovkclInterceptRetainKernel(kernels[0]));
    CHECK_OK(ovkclInterceptReleaseKernel(kernels[0]));
    CHECK_OK(ovkclInterceptReleaseKernel(kernels[0]));
}

int main(void)
{
    const size_t global = ITEMS;
    const size_t local = 4;
    float values[3][ITEMS];
    cl_mem buffers[3];
    cl_icd_dispatch_table table;
    SClient client = {0};
    int nCalls = 0;
    int i;

    CHECK(OpenPlatform(KESTREL_PLATFORM_DIR, &s_cl) != NULL);
    CHECK_OK(ovkclDebugSetDispatchTable(&s_cl));
    memset(&table, 0, sizeof(table));
    CHECK_OK(ovkclDebugGetDispatchTable(&table));
    CHECK(table.clCreateContext == s_cl.clCreateContext);

    {
        cl_int nCode = -1;
        cl_device_id device = FindDevice();
        cl_context context = ovkclInterceptCreateContextFromType(NULL, CL_DEVICE_TYPE_GPU, NULL, NULL, &nCode);
        CHECK(context != NULL && nCode == CL_SUCCESS);
        CHECK_OK(s_cl.clReleaseContext(context));
        context = ovkclInterceptCreateContext(NULL, 1, &device, NULL, NULL, &nCode);
        CHECK(context != NULL && nCode == CL_SUCCESS);
        CHECK(ovkclInterceptCreateCommandQueueWithProperties(context, device, NULL, &nCode) == NULL);
        CHECK(nCode == CL_INVALID_OPERATION);

        cl_command_queue queue = ovkclInterceptCreateCommandQueue(context, device, 0, &nCode);
        cl_program program = BuildProgram(context);
        cl_kernel kernel = ovkclInterceptCreateKernel(program, "vector_add", &nCode);
        CHECK(queue != NULL && kernel != NULL && nCode == CL_SUCCESS);
        MakeKernelAgain(program);
        for (i = 0; i < 3; ++i)
        {
            int n;
            for (n = 0; n < ITEMS; ++n)
            {
                values[i][n] = i == 0 ? (float)n : i == 1 ? 0.5f : -1.0f;
            }
            buffers[i] = s_cl.clCreateBuffer(context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, sizeof(values[i]),
                                             values[i], NULL);
            CHECK_OK(ovkclInterceptSetKernelArg(kernel, (cl_uint)i, sizeof(cl_mem), &buffers[i]));
        }

        CHECK_OK(
            ovkclDebugEnqueueNDRangeKernel(queue, kernel, 1, NULL, &global, &local, 0, NULL, NULL, OnEvent, &client));
        CHECK_OK(s_cl.clFinish(queue));
        CHECK(client.nStarted == 1 && client.nFinished == 1 && client.nErrors == 0);
        CHECK(client.nHalted > 8 && client.bSawSum);
        CHECK_OK(s_cl.clEnqueueReadBuffer(queue, buffers[2], CL_TRUE, 0, sizeof(values[2]), values[2], 0, NULL, NULL));
        for (i = 0; i < ITEMS; ++i)
        {
            CHECK(values[2][i] == (float)i + 0.5f);
        }

        CHECK_OK(ovkclDebugEnqueueTask(queue, kernel, 0, NULL, NULL, Continue, &nCalls));
        CHECK_OK(s_cl.clFinish(queue));
        CHECK(nCalls == 2);

        /* What names no register leaves an assertion's line. */
        CHECK_OK(ovkclDebugUtilDebugRegisterLocatorToString(0x20000, 0, NULL, NULL));

        for (i = 0; i < 3; ++i)
        {
            CHECK_OK(s_cl.clReleaseMemObject(buffers[i]));
        }
        CHECK_OK(ovkclInterceptReleaseKernel(kernel));
        CHECK_OK(s_cl.clReleaseProgram(program));
        CHECK_OK(s_cl.clReleaseCommandQueue(queue));
        CHECK_OK(s_cl.clReleaseContext(context));
    }
    return s_nFailures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
