#include "Kernels.h"
#include "Runtime.h"

#include <unistd.h>

#include <cstdlib>

/// The runtime as an installable client driver, behind the system's own loader.
namespace
{

constexpr const char* s_pszLoader = "/usr/lib/x86_64-linux-gnu/libOpenCL.so.1";

class CLoaderTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(access(s_pszLoader, R_OK), 0) << "the loader is missing; scripts/setup installs it";
        setenv("OCL_ICD_VENDORS", (RuntimePath().substr(0, RuntimePath().rfind('/')) + "/icd").c_str(), 1);
    }
};

TEST_F(CLoaderTest, AKernelRunsThroughIt)
{
    static SRuntimeEntries cl(s_pszLoader);
    ASSERT_NE(cl.m_pModule, nullptr);
    cl_platform_id platform = nullptr;
    cl_uint nPlatforms = 0;
    ASSERT_EQ(cl.clGetPlatformIDs(1, &platform, &nPlatforms), CL_SUCCESS);
    EXPECT_EQ(nPlatforms, 1u);
    cl_device_id device = nullptr;
    ASSERT_EQ(cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_DEFAULT, 1, &device, nullptr), CL_SUCCESS);
    cl_int nError = -1;
    cl_context context = cl.clCreateContext(nullptr, 1, &device, nullptr, nullptr, &nError);
    ASSERT_EQ(nError, CL_SUCCESS);

    // The call from a later version that clients use behind a loader.
    ASSERT_NE(cl.clCreateCommandQueueWithProperties, nullptr);
    const cl_queue_properties wrong[] = {0x7777, 1, 0};
    EXPECT_EQ(cl.clCreateCommandQueueWithProperties(context, device, wrong, &nError), nullptr);
    EXPECT_EQ(nError, CL_INVALID_VALUE);
    const cl_queue_properties properties[] = {CL_QUEUE_PROPERTIES, 0x8000000000000000ULL | CL_QUEUE_PROFILING_ENABLE,
                                              0};
    cl_command_queue queue = cl.clCreateCommandQueueWithProperties(context, device, properties, &nError);
    ASSERT_EQ(nError, CL_SUCCESS);
    cl_command_queue_properties nProperties = 0;
    cl.clGetCommandQueueInfo(queue, CL_QUEUE_PROPERTIES, sizeof(nProperties), &nProperties, nullptr);
    EXPECT_EQ(nProperties, 0x8000000000000000ULL | CL_QUEUE_PROFILING_ENABLE);

    const std::string strSource = ScaleModule(true);
    const char* pszSource = strSource.c_str();
    cl_program program = cl.clCreateProgramWithSource(context, 1, &pszSource, nullptr, nullptr);
    ASSERT_EQ(cl.clBuildProgram(program, 0, nullptr, "-g", nullptr, nullptr), CL_SUCCESS);
    cl_kernel kernel = cl.clCreateKernel(program, "scale", nullptr);
    std::vector<cl_float> vValues(64, 1.5f);
    cl_mem buffer = cl.clCreateBuffer(context, CL_MEM_USE_HOST_PTR, 256, vValues.data(), nullptr);
    const cl_float fScale = 4.0f;
    cl.clSetKernelArg(kernel, 0, sizeof(buffer), &buffer);
    cl.clSetKernelArg(kernel, 1, sizeof(fScale), &fScale);
    cl.clSetKernelArg(kernel, 2, sizeof(buffer), &buffer);
    const size_t nGlobal = 64;
    EXPECT_EQ(cl.clEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &nGlobal, nullptr, 0, nullptr, nullptr), CL_SUCCESS);
    EXPECT_EQ(cl.clFinish(queue), CL_SUCCESS);
    EXPECT_EQ(vValues, std::vector<cl_float>(64, 6.0f));

    // The vendor's functions are found by their suffix, the settings through the platform.
    EXPECT_EQ(cl.clGetExtensionFunctionAddress("clCreateKeyOVK"),
              Runtime().clGetExtensionFunctionAddress("clCreateKeyOVK"));
    EXPECT_EQ(cl.clGetExtensionFunctionAddressForPlatform(platform, "kestrelPlatformControl"),
              Runtime().clGetExtensionFunctionAddress("kestrelPlatformControl"));

    // Calls that version 1.2 doesn't have end in an error rather than a crash.
    using SvmAlloc = void*(CL_API_CALL*)(cl_context, cl_bitfield, size_t, cl_uint);
    const auto svmAlloc = reinterpret_cast<SvmAlloc>(dlsym(cl.m_pModule, "clSVMAlloc"));
    ASSERT_NE(svmAlloc, nullptr);
    EXPECT_EQ(svmAlloc(context, 0, 16, 0), nullptr);

    cl.clReleaseMemObject(buffer);
    cl.clReleaseKernel(kernel);
    cl.clReleaseProgram(program);
    cl.clReleaseCommandQueue(queue);
    cl.clReleaseContext(context);
}

} // namespace
