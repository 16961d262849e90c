#include "binary/KernelArgTracking.h"

#include "modules/CLDispatchTable.h"

#include "TestImage.h"

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <thread>

namespace
{

using namespace OVK_ShaderDebugger;

/// A runtime with one program whose kernels are named "k". A call of the given name fails with the given code.
struct SFakeRuntime
{
    std::mutex mutex;
    std::string strFailing;
    cl_int nFailure = CL_OUT_OF_RESOURCES;
    cl_uint nNumArgs = 9;
    std::map<cl_kernel, cl_uint> mapReferences;
    uintptr_t nNextKernel = 0x1000;
    std::vector<cl_device_type> vDeviceTypes = {CL_DEVICE_TYPE_CPU, CL_DEVICE_TYPE_GPU};
    std::vector<char> vBinary;
    int nBinaryQueries = 0;

    bool Fails(const char* szCall) const { return strFailing == szCall; }
};

SFakeRuntime* s_pRuntime = nullptr;

cl_int Give(const void* pValue, size_t nSize, size_t nRoom, void* pRoom, size_t* pSize)
{
    if (pSize != nullptr)
    {
        *pSize = nSize;
    }
    if (pRoom == nullptr)
    {
        return CL_SUCCESS;
    }
    if (nRoom < nSize)
    {
        return CL_INVALID_VALUE;
    }
    std::memcpy(pRoom, pValue, nSize);
    return CL_SUCCESS;
}

cl_kernel NewKernel()
{
    const auto kernel = reinterpret_cast<cl_kernel>(s_pRuntime->nNextKernel++);
    s_pRuntime->mapReferences[kernel] = 1;
    return kernel;
}

cl_kernel CL_API_CALL CreateKernel(cl_program, const char*, cl_int* pCode)
{
    const std::lock_guard<std::mutex> lock(s_pRuntime->mutex);
    *pCode = s_pRuntime->Fails("CreateKernel") ? s_pRuntime->nFailure : CL_SUCCESS;
    return *pCode == CL_SUCCESS ? NewKernel() : nullptr;
}

cl_int CL_API_CALL CreateKernelsInProgram(cl_program, cl_uint nRoom, cl_kernel* pKernels, cl_uint* pCount)
{
    *pCount = 3;
    for (cl_uint nKernel = 0; pKernels != nullptr && nKernel < std::min(nRoom, 3u); ++nKernel)
    {
        pKernels[nKernel] = NewKernel();
    }
    return s_pRuntime->Fails("CreateKernelsInProgram") ? s_pRuntime->nFailure : CL_SUCCESS;
}

cl_int CL_API_CALL RetainKernel(cl_kernel kernel)
{
    ++s_pRuntime->mapReferences[kernel];
    return CL_SUCCESS;
}

cl_int CL_API_CALL ReleaseKernel(cl_kernel kernel)
{
    const std::lock_guard<std::mutex> lock(s_pRuntime->mutex);
    if (s_pRuntime->Fails("ReleaseKernel"))
    {
        return s_pRuntime->nFailure;
    }
    if (--s_pRuntime->mapReferences[kernel] == 0)
    {
        s_pRuntime->mapReferences.erase(kernel);
    }
    return CL_SUCCESS;
}

cl_int CL_API_CALL SetKernelArg(cl_kernel, cl_uint, size_t, const void*)
{
    return s_pRuntime->Fails("SetKernelArg") ? s_pRuntime->nFailure : CL_SUCCESS;
}

cl_int CL_API_CALL GetKernelInfo(cl_kernel kernel, cl_kernel_info nWhat, size_t nRoom, void* pRoom, size_t* pSize)
{
    const std::lock_guard<std::mutex> lock(s_pRuntime->mutex);
    switch (nWhat)
    {
    case CL_KERNEL_NUM_ARGS:
        // "Later" lets the first kernel of a program succeed.
        return s_pRuntime->Fails("NumArgs") || (s_pRuntime->Fails("NumArgsLater") && s_pRuntime->nBinaryQueries > 0)
                   ? s_pRuntime->nFailure
                   : Give(&s_pRuntime->nNumArgs, sizeof(cl_uint), nRoom, pRoom, pSize);
    case CL_KERNEL_REFERENCE_COUNT:
        return s_pRuntime->Fails("References")
                   ? s_pRuntime->nFailure
                   : Give(&s_pRuntime->mapReferences[kernel], sizeof(cl_uint), nRoom, pRoom, pSize);
    case CL_KERNEL_FUNCTION_NAME:
        return s_pRuntime->Fails("Name") || (s_pRuntime->Fails("NameText") && pRoom != nullptr)
                   ? s_pRuntime->nFailure
                   : Give("k", 2, nRoom, pRoom, pSize);
    default:
        return CL_INVALID_VALUE;
    }
}

cl_int CL_API_CALL GetProgramInfo(cl_program, cl_program_info nWhat, size_t nRoom, void* pRoom, size_t* pSize)
{
    const std::lock_guard<std::mutex> lock(s_pRuntime->mutex);
    const auto nNumDevices = static_cast<cl_uint>(s_pRuntime->vDeviceTypes.size());
    switch (nWhat)
    {
    case CL_PROGRAM_NUM_DEVICES:
        return s_pRuntime->Fails("NumDevices") ? s_pRuntime->nFailure
                                               : Give(&nNumDevices, sizeof(nNumDevices), nRoom, pRoom, pSize);
    case CL_PROGRAM_DEVICES:
    {
        std::vector<uintptr_t> vDevices;
        for (uintptr_t nDevice = 0; nDevice < nNumDevices; ++nDevice)
        {
            vDevices.push_back(nDevice + 1);
        }
        return s_pRuntime->Fails("Devices")
                   ? s_pRuntime->nFailure
                   : Give(vDevices.data(), vDevices.size() * sizeof(uintptr_t), nRoom, pRoom, pSize);
    }
    case CL_PROGRAM_BINARY_SIZES:
    {
        // The first device has no binary.
        std::vector<size_t> vSizes(nNumDevices, s_pRuntime->vBinary.size());
        vSizes[0] = 0;
        return s_pRuntime->Fails("Sizes") ? s_pRuntime->nFailure
                                          : Give(vSizes.data(), vSizes.size() * sizeof(size_t), nRoom, pRoom, pSize);
    }
    case CL_PROGRAM_BINARIES:
        ++s_pRuntime->nBinaryQueries;
        std::copy(s_pRuntime->vBinary.begin(), s_pRuntime->vBinary.end(), static_cast<char**>(pRoom)[1]);
        return s_pRuntime->Fails("Binaries") ? s_pRuntime->nFailure : CL_SUCCESS;
    default:
        return CL_INVALID_VALUE;
    }
}

cl_int CL_API_CALL GetDeviceInfo(cl_device_id device, cl_device_info, size_t nRoom, void* pRoom, size_t* pSize)
{
    const cl_device_type nType = s_pRuntime->vDeviceTypes[reinterpret_cast<uintptr_t>(device) - 1];
    return s_pRuntime->Fails("DeviceType") ? s_pRuntime->nFailure : Give(&nType, sizeof(nType), nRoom, pRoom, pSize);
}

const std::string s_Metadata = ";ARGSTART:__OpenCL_k_kernel\n;version:3:1:104\n"
                               ";image:picture:2D:RO:3:1:0\n"
                               ";value:n:i32:1:1:32\n"
                               ";pointer:a:float:1:1:48:uav:12:4:RW:0:0\n"
                               ";constarg:2:a\n"
                               ";sampler:s:0:1:18\n"
                               ";pointer:c:float:1:1:64:hc:13:4:RO:0:0\n"
                               ";pointer:l:float:1:1:80:hl:1:4:RW:0:0\n"
                               ";counter:e:4:7:1:96\n"
                               ";pointer:odd:float:1:1:112:nowhere:5:4:RW:0:0\n"
                               ";function:1:1\n;ARGEND:__OpenCL_k_kernel\n";

std::vector<char> MakeBinary(const std::string& strMetadata)
{
    CTestImage image;
    image.vSections = {{".rodata", SHT_PROGBITS, 1, strMetadata, 0, 0}};
    image.vSymbols = {{"__OpenCL_k_metadata", CTestImage::s_nFirst, 0, strMetadata.size(), STT_OBJECT}};
    return image.Make64();
}

class KernelArgTracking : public testing::Test
{
protected:
    KernelArgTracking()
    {
        s_pRuntime = &m_runtime;
        m_runtime.vBinary = MakeBinary(s_Metadata);
        m_table.clCreateKernel = ::CreateKernel;
        m_table.clCreateKernelsInProgram = ::CreateKernelsInProgram;
        m_table.clRetainKernel = ::RetainKernel;
        m_table.clReleaseKernel = ::ReleaseKernel;
        m_table.clSetKernelArg = ::SetKernelArg;
        m_table.clGetKernelInfo = ::GetKernelInfo;
        m_table.clGetProgramInfo = ::GetProgramInfo;
        m_table.clGetDeviceInfo = ::GetDeviceInfo;
        SetCLDispatchTable(m_table);
    }

    ~KernelArgTracking() override
    {
        SetCLDispatchTable(cl_icd_dispatch_table{});
        s_pRuntime = nullptr;
    }

    static cl_kernel Create()
    {
        cl_int nCode = -1;
        const cl_kernel kernel = InterceptCreateKernel(nullptr, "k", &nCode);
        EXPECT_EQ(nCode == CL_SUCCESS, kernel != nullptr);
        return kernel;
    }

    /// Name, kind and resource of every argument, or the code of the query.
    static std::string Describe(cl_kernel kernel)
    {
        std::string strText;
        for (cl_uint nArgument = 0;; ++nArgument)
        {
            char szName[32] = "", szKind[32] = "";
            unsigned int nResource = 0;
            const cl_int nCode =
                ovkclGetKernelArgInfo(kernel, nArgument, OVKCL_KERNEL_ARG_NAME, sizeof(szName), szName, nullptr);
            if (nCode != CL_SUCCESS)
            {
                return strText + std::to_string(nCode);
            }
            ovkclGetKernelArgInfo(kernel, nArgument, OVKCL_KERNEL_ARG_KIND, sizeof(szKind), szKind, nullptr);
            ovkclGetKernelArgInfo(kernel, nArgument, OVKCL_KERNEL_ARG_RESOURCE_ID, 4, &nResource, nullptr);
            strText += std::string(szName) + " " + szKind + " " + std::to_string(nResource) + ", ";
        }
    }

    static std::string Value(cl_kernel kernel, cl_uint nArgument)
    {
        const void* pValue = nullptr;
        size_t nSize = 0;
        const cl_int nCode = ovkclGetKernelArg(kernel, nArgument, &pValue, &nSize);
        return nCode != CL_SUCCESS
                   ? std::to_string(nCode)
                   : (pValue == nullptr ? "null" : std::string(static_cast<const char*>(pValue), nSize)) + " of " +
                         std::to_string(nSize);
    }

    SFakeRuntime m_runtime;
    cl_icd_dispatch_table m_table = {};
};

const char s_Known[] = "picture image 3, n value 0, a globalpointer 12, c globalpointer 13, l localpointer 1, "
                       "e counter 0,  unknown 0,  unknown 0,  unknown 0, -49";
const char s_Unknown[] = " unknown 0,  unknown 0,  unknown 0,  unknown 0,  unknown 0,  unknown 0,  unknown 0, "
                         " unknown 0,  unknown 0, -49";

TEST_F(KernelArgTracking, KindsComeFromTheMetadata)
{
    const cl_kernel kernel = Create();
    EXPECT_EQ(Describe(kernel), s_Known);
    EXPECT_EQ(InterceptReleaseKernel(kernel), CL_SUCCESS);
    EXPECT_EQ(Describe(kernel), "-48");
}

TEST_F(KernelArgTracking, TheRecordEndsWhereTheKernelsArgumentsDo)
{
    m_runtime.nNumArgs = 2;
    const cl_kernel kernel = Create();
    EXPECT_EQ(Describe(kernel), "picture image 3, n value 0, -49");
    InterceptReleaseKernel(kernel);
}

TEST_F(KernelArgTracking, WhatCannotBeReadStaysUnknownAndTheKernelLives)
{
    for (const char* szFailing : {"Name", "NameText", "NumDevices", "Devices", "Sizes", "Binaries", "DeviceType"})
    {
        m_runtime.strFailing = szFailing;
        const cl_kernel kernel = Create();
        EXPECT_EQ(Describe(kernel), s_Unknown) << szFailing;
        InterceptReleaseKernel(kernel);
    }
    m_runtime.strFailing.clear();

    const std::string strOther = ";ARGSTART:__OpenCL_other_kernel\n;version:3:1:104\n;ARGEND:__OpenCL_other_kernel\n";
    for (const std::string& strMetadata :
         {std::string("no metadata"), std::string(), s_Metadata.substr(0, 200), strOther})
    {
        m_runtime.vBinary = MakeBinary(strMetadata);
        const cl_kernel kernel = Create();
        EXPECT_EQ(Describe(kernel), s_Unknown) << strMetadata;
        InterceptReleaseKernel(kernel);
    }

    m_runtime.vBinary = {'x'};
    m_runtime.nBinaryQueries = 0;
    m_runtime.vDeviceTypes = {};
    InterceptReleaseKernel(Create());
    m_runtime.vDeviceTypes = {CL_DEVICE_TYPE_CPU};
    const cl_kernel kernel = Create();
    EXPECT_EQ(Describe(kernel), s_Unknown);
    EXPECT_EQ(m_runtime.nBinaryQueries, 0);
    EXPECT_EQ(InterceptSetKernelArg(kernel, 0, 1, "x"), CL_SUCCESS);
    EXPECT_EQ(Value(kernel, 0), "x of 1");
    InterceptReleaseKernel(kernel);
}

TEST_F(KernelArgTracking, TheRecordMirrorsWhatTheKernelHas)
{
    const cl_kernel kernel = Create();
    EXPECT_EQ(Value(kernel, 0), "null of 0");
    EXPECT_EQ(Value(kernel, 9), "-49");
    EXPECT_EQ(InterceptSetKernelArg(kernel, 1, 4, "1234"), CL_SUCCESS);
    EXPECT_EQ(InterceptSetKernelArg(kernel, 1, 2, "56"), CL_SUCCESS);
    EXPECT_EQ(Value(kernel, 1), "56 of 2");
    EXPECT_EQ(InterceptSetKernelArg(kernel, 1, 0, "78"), CL_SUCCESS);
    EXPECT_EQ(Value(kernel, 1), "null of 0");
    EXPECT_EQ(InterceptSetKernelArg(kernel, 1, 2, "56"), CL_SUCCESS);
    EXPECT_EQ(InterceptSetKernelArg(kernel, 4, 256, nullptr), CL_SUCCESS);
    EXPECT_EQ(Value(kernel, 4), "null of 256");
    EXPECT_EQ(InterceptSetKernelArg(kernel, 99, 2, "78"), CL_SUCCESS);
    EXPECT_EQ(ovkclGetKernelArg(kernel, 1, nullptr, nullptr), CL_SUCCESS);

    m_runtime.strFailing = "SetKernelArg";
    EXPECT_EQ(InterceptSetKernelArg(kernel, 1, 2, "78"), m_runtime.nFailure);
    EXPECT_EQ(Value(kernel, 1), "56 of 2");
    m_runtime.strFailing.clear();
    const cl_kernel stranger = NewKernel(); // created without the interface
    EXPECT_EQ(InterceptSetKernelArg(stranger, 0, 2, "78"), CL_SUCCESS);
    EXPECT_EQ(Value(stranger, 0), "-48");
    EXPECT_EQ(InterceptReleaseKernel(stranger), CL_SUCCESS);
    InterceptReleaseKernel(kernel);
    EXPECT_EQ(Value(kernel, 1), "-48");
}

TEST_F(KernelArgTracking, TheRecordGoesWithTheLastReference)
{
    const cl_kernel kernel = Create();
    InterceptSetKernelArg(kernel, 0, 1, "x");
    InterceptRetainKernel(kernel);
    EXPECT_EQ(InterceptReleaseKernel(kernel), CL_SUCCESS);
    EXPECT_EQ(Value(kernel, 0), "x of 1");
    m_runtime.strFailing = "ReleaseKernel";
    EXPECT_EQ(InterceptReleaseKernel(kernel), m_runtime.nFailure);
    EXPECT_EQ(Value(kernel, 0), "x of 1");
    m_runtime.strFailing = "References";
    EXPECT_EQ(InterceptReleaseKernel(kernel), CL_SUCCESS); // the record has to stay
    EXPECT_EQ(Value(kernel, 0), "x of 1");
    m_runtime.mapReferences[kernel] = 1;
    m_runtime.strFailing.clear();

    // A kernel that was released without the interface, and whose handle now belongs to another one.
    ReleaseKernel(kernel);
    m_runtime.nNextKernel = reinterpret_cast<uintptr_t>(kernel);
    EXPECT_EQ(Create(), kernel);
    EXPECT_EQ(Value(kernel, 0), "null of 0");
    EXPECT_EQ(InterceptReleaseKernel(kernel), CL_SUCCESS);
    EXPECT_TRUE(m_runtime.mapReferences.empty());
}

TEST_F(KernelArgTracking, AKernelThatCannotBeRecordedIsNotMade)
{
    cl_int nCode = 0;
    m_runtime.strFailing = "NumArgs";
    EXPECT_EQ(InterceptCreateKernel(nullptr, "k", &nCode), nullptr);
    EXPECT_EQ(nCode, CL_OUT_OF_HOST_MEMORY);
    EXPECT_EQ(InterceptCreateKernel(nullptr, "k", nullptr), nullptr);
    m_runtime.strFailing = "CreateKernel";
    EXPECT_EQ(InterceptCreateKernel(nullptr, "k", &nCode), nullptr);
    EXPECT_EQ(nCode, m_runtime.nFailure);
    EXPECT_TRUE(m_runtime.mapReferences.empty());
}

TEST_F(KernelArgTracking, AllKernelsOfAProgramAreRecordedOrNone)
{
    cl_kernel kernels[3] = {};
    cl_uint nCount = 0;
    EXPECT_EQ(InterceptCreateKernelsInProgram(nullptr, 0, nullptr, &nCount), CL_SUCCESS);
    EXPECT_EQ(nCount, 3u);
    EXPECT_EQ(InterceptCreateKernelsInProgram(nullptr, 2, kernels, nullptr), CL_SUCCESS);
    EXPECT_EQ(Value(kernels[1], 0), "null of 0");
    EXPECT_EQ(kernels[2], nullptr);
    InterceptReleaseKernel(kernels[0]);
    InterceptReleaseKernel(kernels[1]);

    m_runtime.nBinaryQueries = 0;
    m_runtime.strFailing = "NumArgsLater";
    nCount = 0;
    const auto first = reinterpret_cast<cl_kernel>(m_runtime.nNextKernel);
    EXPECT_EQ(InterceptCreateKernelsInProgram(nullptr, 3, kernels, &nCount), CL_OUT_OF_HOST_MEMORY);
    EXPECT_EQ(nCount, 3u);
    EXPECT_EQ(std::count(kernels, kernels + 3, nullptr), 3);
    EXPECT_EQ(Value(first, 0), "-48");
    EXPECT_TRUE(m_runtime.mapReferences.empty());
}

TEST_F(KernelArgTracking, AnEntryThatTheRuntimeLacksIsAnError)
{
    SetCLDispatchTable(cl_icd_dispatch_table{});
    cl_int nCode = 0;
    cl_kernel kernel = reinterpret_cast<cl_kernel>(1);
    EXPECT_EQ(InterceptCreateKernel(nullptr, "k", &nCode), nullptr);
    EXPECT_NE(nCode, CL_SUCCESS);
    EXPECT_NE(InterceptCreateKernelsInProgram(nullptr, 1, &kernel, nullptr), CL_SUCCESS);
    EXPECT_NE(InterceptRetainKernel(kernel), CL_SUCCESS);
    EXPECT_NE(InterceptReleaseKernel(kernel), CL_SUCCESS);
    EXPECT_NE(InterceptSetKernelArg(kernel, 0, 0, nullptr), CL_SUCCESS);

    // Functions that are only used to query arguments may be missing.
    cl_icd_dispatch_table table = m_table;
    table.clGetProgramInfo = nullptr;
    SetCLDispatchTable(table);
    kernel = Create();
    EXPECT_EQ(Describe(kernel), s_Unknown);
    EXPECT_EQ(InterceptReleaseKernel(kernel), CL_SUCCESS);
    table.clGetProgramInfo = m_table.clGetProgramInfo;
    table.clGetDeviceInfo = nullptr;
    SetCLDispatchTable(table);
    kernel = Create();
    EXPECT_EQ(Describe(kernel), s_Unknown);
    EXPECT_EQ(InterceptReleaseKernel(kernel), CL_SUCCESS);
}

TEST_F(KernelArgTracking, TextsAreCutToTheirRoom)
{
    const cl_kernel kernel = Create();
    struct
    {
        size_t nRoom;
        const char* szText;
        size_t nGiven;
    } const s_Rooms[] = {{0, "######", 0}, {1, "", 1}, {4, "ima", 4}, {6, "image", 6}, {7, "image", 6}};
    for (const auto& room : s_Rooms)
    {
        char szText[8] = "######";
        size_t nGiven = 99;
        EXPECT_EQ(ovkclGetKernelArgInfo(kernel, 0, OVKCL_KERNEL_ARG_KIND, room.nRoom, szText, &nGiven), CL_SUCCESS);
        EXPECT_STREQ(szText, room.szText);
        EXPECT_EQ(nGiven, room.nGiven);
    }

    size_t nSize = 0;
    unsigned int nResource = 99;
    EXPECT_EQ(ovkclGetKernelArgInfo(kernel, 0, OVKCL_KERNEL_ARG_KIND, 0, nullptr, &nSize), CL_SUCCESS);
    EXPECT_EQ(nSize, 6u);
    EXPECT_EQ(ovkclGetKernelArgInfo(kernel, 0, OVKCL_KERNEL_ARG_RESOURCE_ID, 8, &nResource, &nSize), CL_INVALID_VALUE);
    EXPECT_EQ(nSize, 4u);
    EXPECT_EQ(nResource, 99u);
    EXPECT_EQ(ovkclGetKernelArgInfo(kernel, 0, OVKCL_KERNEL_ARG_RESOURCE_ID, 4, nullptr, &nSize), CL_INVALID_VALUE);
    EXPECT_EQ(ovkclGetKernelArgInfo(kernel, 0, 0x21A0, 8, &nResource, &nSize), -2065);
    EXPECT_EQ(ovkclGetKernelArgInfo(kernel, 0, 0x21A6, 8, &nResource, &nSize), CL_INVALID_VALUE);
    InterceptReleaseKernel(kernel);
}

TEST_F(KernelArgTracking, ThreadsDoNotMeet)
{
    std::vector<std::thread> vThreads;
    for (char cThread = 'a'; cThread < 'e'; ++cThread)
    {
        vThreads.emplace_back(
            [cThread]
            {
                for (int nRound = 0; nRound < 50; ++nRound)
                {
                    const cl_kernel kernel = Create();
                    InterceptSetKernelArg(kernel, 1, 1, &cThread);
                    EXPECT_EQ(Value(kernel, 1), std::string(1, cThread) + " of 1");
                    InterceptReleaseKernel(kernel);
                }
            });
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    EXPECT_TRUE(m_runtime.mapReferences.empty());
}

TEST(KernelInfo, ACopyHasItsOwnBytes)
{
    KernelInfo::ArgInfo first("abc", 3, KernelInfo::ArgInfo::ARG_VALUE, 5);
    KernelInfo::ArgInfo second(first);
    first.SetArgData("x", 1);
    EXPECT_EQ(std::string(static_cast<const char*>(second.GetArgValue()), second.GetArgSize()), "abc");
    second = first;
    first.SetArgData(nullptr, 9);
    EXPECT_EQ(std::string(static_cast<const char*>(second.GetArgValue()), second.GetArgSize()), "x");
    EXPECT_EQ(first.GetArgValue(), nullptr);
    EXPECT_EQ(first.GetArgSize(), 9u);
}

} // namespace
