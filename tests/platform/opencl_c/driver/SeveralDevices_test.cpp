#include "Programs.h"

#include "platform/compiler/OpenCLCompiler.h"
#include "tests/support/Folders.h"

#include <dlfcn.h>

/// One program for all devices at once.
namespace
{

using namespace KestrelTest;

const char* const s_pszSource = "kernel void k(global int* out) { out[0] = (int)sizeof(out) * 10 + sizeof(size_t); }\n";

/// A context with every device.
class CSeveralDevicesTest : public testing::Test
{
protected:
    CSeveralDevicesTest()
    {
        cl_platform_id platform = nullptr;
        Need(cl.clGetPlatformIDs(1, &platform, nullptr), "clGetPlatformIDs");
        cl_uint nDevices = 0;
        Need(cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 0, nullptr, &nDevices), "clGetDeviceIDs");
        m_vDevices.resize(nDevices);
        Need(cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, nDevices, m_vDevices.data(), nullptr), "clGetDeviceIDs");
        m_context = cl.clCreateContext(nullptr, nDevices, m_vDevices.data(), nullptr, nullptr, nullptr);
    }
    ~CSeveralDevicesTest() override { cl.clReleaseContext(m_context); }

    /// The value that the kernel writes on a device.
    int Run(cl_program program, cl_device_id device)
    {
        cl_int nCode = -1;
        const cl_command_queue queue = cl.clCreateCommandQueue(m_context, device, 0, nullptr);
        const cl_kernel kernel = cl.clCreateKernel(program, "k", &nCode);
        EXPECT_EQ(nCode, CL_SUCCESS);
        const cl_mem out = cl.clCreateBuffer(m_context, CL_MEM_READ_WRITE, 4, nullptr, nullptr);
        cl.clSetKernelArg(kernel, 0, sizeof out, &out);
        const size_t nOne = 1;
        nCode = cl.clEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &nOne, nullptr, 0, nullptr, nullptr);
        int nValue = nCode;
        if (nCode == CL_SUCCESS)
        {
            cl.clEnqueueReadBuffer(queue, out, CL_TRUE, 0, 4, &nValue, 0, nullptr, nullptr);
        }
        cl.clReleaseMemObject(out);
        cl.clReleaseKernel(kernel);
        cl.clReleaseCommandQueue(queue);
        return nValue;
    }

    cl_build_status StatusOf(cl_program program, cl_device_id device)
    {
        cl_build_status nStatus = 1;
        cl.clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_STATUS, sizeof nStatus, &nStatus, nullptr);
        return nStatus;
    }

    /// The expected value, by the device's address width.
    int Expected(cl_device_id device)
    {
        cl_uint nBits = 0;
        cl.clGetDeviceInfo(device, CL_DEVICE_ADDRESS_BITS, sizeof nBits, &nBits, nullptr);
        return static_cast<int>(nBits / 8 * 11);
    }

    SRuntimeEntries& cl = Runtime();
    std::vector<cl_device_id> m_vDevices;
    cl_context m_context = nullptr;
};

TEST_F(CSeveralDevicesTest, EachGetsABuildOfItsOwn)
{
    ASSERT_GE(m_vDevices.size(), 3u);
    const char* pszSource = s_pszSource;
    const CProgramHandle program(cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr));
    ASSERT_EQ(cl.clBuildProgram(program.Get(), 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
    for (const cl_device_id device : m_vDevices)
    {
        EXPECT_EQ(StatusOf(program.Get(), device), CL_BUILD_SUCCESS);
        EXPECT_EQ(Run(program.Get(), device), Expected(device));
    }

    // The program can be created again from its binaries, for all devices at once.
    std::vector<size_t> vSizes(m_vDevices.size());
    cl.clGetProgramInfo(program.Get(), CL_PROGRAM_BINARY_SIZES, vSizes.size() * sizeof(size_t), vSizes.data(), nullptr);
    std::vector<std::vector<unsigned char>> vBinaries;
    std::vector<unsigned char*> vPointers;
    for (const size_t nSize : vSizes)
    {
        vBinaries.emplace_back(nSize);
        vPointers.push_back(vBinaries.back().data());
    }
    cl.clGetProgramInfo(program.Get(), CL_PROGRAM_BINARIES, vPointers.size() * sizeof(void*), vPointers.data(),
                        nullptr);
    const CProgramHandle again(cl.clCreateProgramWithBinary(
        m_context, static_cast<cl_uint>(m_vDevices.size()), m_vDevices.data(), vSizes.data(),
        const_cast<const unsigned char**>(vPointers.data()), nullptr, nullptr));
    ASSERT_EQ(cl.clBuildProgram(again.Get(), 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
    for (const cl_device_id device : m_vDevices)
    {
        EXPECT_EQ(Run(again.Get(), device), Expected(device));
    }
}

TEST_F(CSeveralDevicesTest, WhatIsBuiltForSomeRunsOnThoseAlone)
{
    const char* pszSource = s_pszSource;
    const CProgramHandle program(cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr));
    ASSERT_EQ(cl.clBuildProgram(program.Get(), 1, &m_vDevices[1], "", nullptr, nullptr), CL_SUCCESS);
    EXPECT_EQ(StatusOf(program.Get(), m_vDevices[0]), CL_BUILD_NONE);
    EXPECT_EQ(Run(program.Get(), m_vDevices[1]), Expected(m_vDevices[1]));
    EXPECT_EQ(Run(program.Get(), m_vDevices[0]), CL_INVALID_PROGRAM_EXECUTABLE);
}

TEST_F(CSeveralDevicesTest, OneThatFailsFailsAloneAndSaysWhy)
{
    // Pointers that only fit on one kind of device.
    const char* pszSource = "kernel void k(global int* out) { int fits[9 - sizeof(size_t)]; int no[(int)"
                            "sizeof(size_t) - 5]; out[0] = sizeof fits + sizeof no; }\n";
    const CProgramHandle program(cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr));
    EXPECT_EQ(cl.clBuildProgram(program.Get(), 0, nullptr, "", nullptr, nullptr), CL_BUILD_PROGRAM_FAILURE);
    size_t nFailed = 0;
    for (const cl_device_id device : m_vDevices)
    {
        const bool bWide = Expected(device) == 88;
        EXPECT_EQ(StatusOf(program.Get(), device), bWide ? CL_BUILD_SUCCESS : CL_BUILD_ERROR);
        size_t nSize = 0;
        cl.clGetProgramBuildInfo(program.Get(), device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &nSize);
        EXPECT_EQ(nSize > 1, !bWide);
        nFailed += bWide ? 0 : 1;
    }
    EXPECT_TRUE(nFailed > 0 && nFailed < m_vDevices.size());
}

/// Runtime and library exchange C++ objects, so a differing interface is refused before that.
TEST(CompilerLibrary, GivesItsCompilerToItsOwnInterfaceAlone)
{
    using namespace KestrelPlatform;
    void* const pLibrary = dlopen(KestrelTest::PlatformFile("libkestrel-opencl-c.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(pLibrary, nullptr) << dlerror();
    const auto get = reinterpret_cast<GetOpenCLCompiler>(dlsym(pLibrary, s_pszGetOpenCLCompiler));
    ASSERT_NE(get, nullptr);
    const SCompilerInterface own;
    EXPECT_NE(get(&own), nullptr);
    for (uint32_t SCompilerInterface::*pnField :
         {&SCompilerInterface::nVersion, &SCompilerInterface::nJobBytes, &SCompilerInterface::nModuleBytes})
    {
        SCompilerInterface other;
        other.*pnField += 8;
        EXPECT_EQ(get(&other), nullptr);
    }
    dlclose(pLibrary);
}

} // namespace
