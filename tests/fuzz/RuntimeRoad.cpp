#include "tests/fuzz/RuntimeRoad.h"

namespace
{

constexpr size_t s_nBufferBytes = 4096;

/// More than a work-group of the seeds needs.
constexpr uint64_t s_nInstructionLimit = 20000;

} // namespace

CRuntimeRoad::CRuntimeRoad(const std::string& strDevice)
{
    Control().Reset();
    Control().SetInstructionLimit(s_nInstructionLimit);
    cl_platform_id platform = nullptr;
    cl_device_id devices[8] = {};
    cl_uint nDevices = 0;
    EXPECT_EQ(cl.clGetPlatformIDs(1, &platform, nullptr), CL_SUCCESS);
    EXPECT_EQ(cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 8, devices, &nDevices), CL_SUCCESS);
    for (cl_uint i = 0; i < nDevices; ++i)
    {
        const std::string strName =
            InfoString([&](size_t nSize, void* pValue, size_t* pnSize)
                       { return cl.clGetDeviceInfo(devices[i], CL_DEVICE_NAME, nSize, pValue, pnSize); });
        m_Device = strName == strDevice ? devices[i] : m_Device;
    }
    cl_int nError = CL_SUCCESS;
    m_Context = cl.clCreateContext(nullptr, 1, &m_Device, nullptr, nullptr, &nError);
    EXPECT_EQ(nError, CL_SUCCESS);
    m_Queue = cl.clCreateCommandQueue(m_Context, m_Device, 0, &nError);
    EXPECT_EQ(nError, CL_SUCCESS);
    m_Buffer = cl.clCreateBuffer(m_Context, CL_MEM_READ_WRITE, s_nBufferBytes, nullptr, &nError);
    EXPECT_EQ(nError, CL_SUCCESS);
}

CRuntimeRoad::~CRuntimeRoad()
{
    cl.clReleaseMemObject(m_Buffer);
    cl.clReleaseCommandQueue(m_Queue);
    cl.clReleaseContext(m_Context);
    Control().Reset();
    for (int n = PLATFORM_COUNTER_CONTEXTS; n < PLATFORM_COUNTER_LAST; ++n)
    {
        EXPECT_EQ(Control().GetCounter(static_cast<EPlatformCounter>(n)), 0u) << "objects left, kind " << n;
    }
}

size_t CRuntimeRoad::Try(const std::vector<char>& vImage, const char* pszOptions)
{
    const auto* pImage = reinterpret_cast<const unsigned char*>(vImage.data());
    const size_t nSize = vImage.size();
    cl_int nStatus = CL_SUCCESS;
    cl_int nError = CL_SUCCESS;
    cl_program program = cl.clCreateProgramWithBinary(m_Context, 1, &m_Device, &nSize, &pImage, &nStatus, &nError);
    EXPECT_EQ(program == nullptr, nError != CL_SUCCESS);
    if (program == nullptr)
    {
        return 0;
    }
    const cl_int nBuilt = cl.clBuildProgram(program, 1, &m_Device, pszOptions, nullptr, nullptr);
    EXPECT_TRUE(nBuilt == CL_SUCCESS || nBuilt == CL_INVALID_BINARY || nBuilt == CL_BUILD_PROGRAM_FAILURE) << nBuilt;
    const size_t nRuns = nBuilt == CL_SUCCESS ? RunKernels(program) : 0;
    cl.clReleaseProgram(program);
    return nRuns;
}

size_t CRuntimeRoad::RunKernels(cl_program program)
{
    cl_kernel kernels[4] = {};
    cl_uint nKernels = 0;
    if (cl.clCreateKernelsInProgram(program, 4, kernels, &nKernels) != CL_SUCCESS)
    {
        return 0;
    }
    size_t nRuns = 0;
    for (cl_uint i = 0; i < nKernels && i < 4; ++i)
    {
        nRuns += Run(kernels[i]) ? 1 : 0;
        cl.clReleaseKernel(kernels[i]);
    }
    return nRuns;
}

bool CRuntimeRoad::Run(cl_kernel kernel)
{
    SetArguments(kernel);
    const size_t nGlobal = 8;
    return cl.clEnqueueNDRangeKernel(m_Queue, kernel, 1, nullptr, &nGlobal, nullptr, 0, nullptr, nullptr) ==
               CL_SUCCESS &&
           cl.clFinish(m_Queue) == CL_SUCCESS;
}

/// Each argument takes the buffer, a value of a fitting size, or a piece of local memory; if it takes none of these,
/// the launch fails.
void CRuntimeRoad::SetArguments(cl_kernel kernel)
{
    cl_uint nArguments = 0;
    cl.clGetKernelInfo(kernel, CL_KERNEL_NUM_ARGS, sizeof(nArguments), &nArguments, nullptr);
    const uint64_t values[16] = {2};
    for (cl_uint i = 0; i < nArguments; ++i)
    {
        bool bSet = cl.clSetKernelArg(kernel, i, sizeof(m_Buffer), &m_Buffer) == CL_SUCCESS ||
                    cl.clSetKernelArg(kernel, i, 64, nullptr) == CL_SUCCESS;
        for (size_t nBytes = 1; !bSet && nBytes <= sizeof(values); nBytes *= 2)
        {
            bSet = cl.clSetKernelArg(kernel, i, nBytes, values) == CL_SUCCESS;
        }
    }
}
