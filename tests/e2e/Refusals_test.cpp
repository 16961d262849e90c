#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/e2e/SmallKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

using namespace KestrelTest;
using namespace KestrelTool;
using testing::ElementsAre;

namespace
{

const char s_szStore[] = "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r0.x\n";

std::string Repeat(unsigned int nFirst, unsigned int nEnd, const std::string& strBefore, const std::string& strAfter)
{
    std::string strText;
    for (unsigned int i = nFirst; i < nEnd; ++i)
    {
        strText += strBefore + std::to_string(i) + strAfter;
    }
    return strText;
}

struct SRefusal
{
    const char* pszName;
    SLaunchFile file;
    const char* pszMessage;
    std::string strFind = "";
    std::string strReplace = "";
};

SLaunchFile TooManyLiterals()
{
    return MakeSmallKernel(s_szStore, Repeat(1, 65532, "dcl_literal l", ", 0, 0, 0, 0\n"));
}

/// The program binaries that the debugger sees, with one word of the debug text replaced. The platform's compiler
/// builds nothing malformed, so a malformed text has to be injected here.
std::string g_strFind;
std::string g_strReplace;

cl_int CL_API_CALL GetEditedProgramInfo(cl_program program, cl_program_info nName, size_t nSize, void* pValue,
                                        size_t* pSizeRet)
{
    const cl_int nCode = GetLibraries().cl.clGetProgramInfo(program, nName, nSize, pValue, pSizeRet);
    if (nCode != CL_SUCCESS || nName != CL_PROGRAM_BINARIES || pValue == nullptr || g_strFind.empty())
    {
        return nCode;
    }
    size_t nImage = 0;
    GetLibraries().cl.clGetProgramInfo(program, CL_PROGRAM_BINARY_SIZES, sizeof(nImage), &nImage, nullptr);
    char* pImage = *static_cast<char**>(pValue);
    for (char* p = pImage;
         (p = std::search(p, pImage + nImage, g_strFind.begin(), g_strFind.end())) != pImage + nImage;)
    {
        p = std::copy(g_strReplace.begin(), g_strReplace.end(), p);
    }
    return nCode;
}

} // namespace

TEST(Refusals, WhatTheKernelIsRefusedForStandsInTheLastError)
{
    const SRefusal refusals[] = {
        {"an atomic with a result", MakeSmallKernel("uav_read_add_id(10)_addr64 r3.x, r2.xy, r0.x\n"),
         "IL instruction uav_read_add is not yet supported."},
        {"a block that nothing closes", MakeSmallKernel("if_logicalnz r0.x\nendif\n"), "Invalid shader.", "endif\n",
         "nop  \n"},
        {"a text of another language", MakeSmallKernel(s_szStore), "Invalid shader.", "il_cs_2_0", "il(256,1)"},
        {"all literals taken", TooManyLiterals(), "There are insufficient free temp registers."},
        {"all UAVs taken",
         MakeSmallKernel(s_szStore, "",
                         "func 1099\n" + Repeat(12, 33, "dcl_typeless_uav_id(", ")_stride(4)_length(4)\n") +
                             "ret\nendfunc\n"),
         "There are insufficient free UAVs."},
    };
    cl_icd_dispatch_table table = GetLibraries().cl;
    table.clGetProgramInfo = &GetEditedProgramInfo;
    GetLibraries().ovkclDebugSetDispatchTable(&table);
    for (const SRefusal& refusal : refusals)
    {
        SCOPED_TRACE(refusal.pszName);
        g_strFind = refusal.strFind;
        g_strReplace = refusal.strReplace;
        CLaunch launch(GetLibraries(), refusal.file);
        CScriptedClient client(AlwaysStep, AlwaysStep);
        EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS) << "the launch itself isn't lost";
        EXPECT_THAT(client.GetEvents(), ElementsAre("error"));
        EXPECT_EQ(client.GetError(), refusal.pszMessage);
    }
    GetLibraries().ovkclDebugSetDispatchTable(&GetLibraries().cl);
}

TEST(Refusals, AKernelThatIsRefusedRunsAllTheSame)
{
    CLaunch launch(GetLibraries(), MakeSmallKernel("uav_read_add_id(10)_addr64 r3.x, r2.xy, l0.y\n"));
    CScriptedClient client(AlwaysStep, AlwaysStep);
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    const std::vector<unsigned char> vBytes = launch.ReadContents(0);
    EXPECT_EQ(ReadElement(*FindElementType("int"), vBytes.data()), 1);
}

namespace
{

ovkclDebugCommand CL_CALLBACK NeverCalled(ovkclDebugContext, ovkclDebugEvent, void*)
{
    ADD_FAILURE() << "no event may come of a launch that was refused";
    return OVKCLDEBUG_COMMAND_CONTINUE;
}

cl_int CL_API_CALL OtherVendor(cl_platform_id, cl_platform_info nName, size_t nSize, void* pValue, size_t* pSizeRet)
{
    const char szVendor[] = "Somebody Else";
    if (nName == CL_PLATFORM_VENDOR && pValue != nullptr && nSize >= sizeof(szVendor))
    {
        std::memcpy(pValue, szVendor, sizeof(szVendor));
    }
    if (pSizeRet != nullptr)
    {
        *pSizeRet = sizeof(szVendor);
    }
    return CL_SUCCESS;
}

cl_int Enqueue(const CLaunch& launch, cl_command_queue queue)
{
    const size_t nGlobal = 8;
    return GetLibraries().ovkclDebugEnqueueNDRangeKernel(queue, launch.GetKernel(), 1, nullptr, &nGlobal, nullptr, 0,
                                                         nullptr, nullptr, &NeverCalled, nullptr);
}

} // namespace

TEST(Refusals, WithoutDebugInformation)
{
    SLaunchFile file = MakeSmallKernel(s_szStore);
    file.strOptions.clear();
    const CLaunch launch(GetLibraries(), file);
    EXPECT_EQ(Enqueue(launch, launch.GetQueue()), OVKCLDEBUG_ENQUEUE_NOT_DEBUGGABLE);
}

TEST(Refusals, OnADeviceThatIsNoGpu)
{
    SLaunchFile file = MakeSmallKernel(s_szStore);
    file.strDevice = "Host";
    const CLaunch launch(GetLibraries(), file);
    EXPECT_EQ(Enqueue(launch, launch.GetQueue()), OVKCLDEBUG_ENQUEUE_WRONG_DEVICE);
}

TEST(Refusals, OnAnotherVendorsPlatform)
{
    const CLaunch launch(GetLibraries(), MakeSmallKernel(s_szStore));
    cl_icd_dispatch_table table = GetLibraries().cl;
    table.clGetPlatformInfo = &OtherVendor;
    GetLibraries().ovkclDebugSetDispatchTable(&table);
    EXPECT_EQ(Enqueue(launch, launch.GetQueue()), OVKCLDEBUG_ENQUEUE_WRONG_PLATFORM);
    GetLibraries().ovkclDebugSetDispatchTable(&GetLibraries().cl);
}

TEST(Refusals, WithoutTheIntercept)
{
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    control.SetExtensionEnabled("cl_ovk_event_callback", 0);
    {
        const CLaunch launch(GetLibraries(), MakeSmallKernel(s_szStore));
        EXPECT_EQ(Enqueue(launch, launch.GetQueue()), OVKCLDEBUG_ENQUEUE_NO_INTERCEPT);
    }
    control.Reset();

    const CLaunch launch(GetLibraries(), MakeSmallKernel(s_szStore));
    cl_context context = nullptr;
    cl_device_id device = nullptr;
    GetLibraries().cl.clGetCommandQueueInfo(launch.GetQueue(), CL_QUEUE_CONTEXT, sizeof(context), &context, nullptr);
    GetLibraries().cl.clGetCommandQueueInfo(launch.GetQueue(), CL_QUEUE_DEVICE, sizeof(device), &device, nullptr);
    cl_int nCode = CL_SUCCESS;
    const cl_command_queue queue = GetLibraries().cl.clCreateCommandQueue(context, device, 0, &nCode);
    EXPECT_EQ(Enqueue(launch, queue), OVKCLDEBUG_ENQUEUE_NO_INTERCEPT);
    EXPECT_EQ(Enqueue(launch, nullptr), CL_INVALID_COMMAND_QUEUE);
    GetLibraries().cl.clReleaseCommandQueue(queue);
}
