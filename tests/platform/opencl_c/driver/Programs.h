#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_DRIVER_PROGRAMS_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_DRIVER_PROGRAMS_H

#include "tests/support/OpenCLProgram.h"

#include <string>
#include <vector>

namespace KestrelTest
{

/// A program that is released at the end of the scope; may be null.
class CProgramHandle
{
public:
    explicit CProgramHandle(cl_program program = nullptr)
        : m_pProgram(program, [](cl_program object) { object ? Runtime().clReleaseProgram(object) : CL_SUCCESS; })
    {
    }
    cl_program Get() const { return m_pProgram.get(); }

private:
    std::shared_ptr<std::remove_pointer_t<cl_program>> m_pProgram;
};

inline CProgramHandle FromSource(COpenCLDevice& device, const std::string& strSource)
{
    const char* pszSource = strSource.c_str();
    return CProgramHandle(device.cl.clCreateProgramWithSource(device.m_context, 1, &pszSource, nullptr, nullptr));
}

inline std::string LogOf(COpenCLDevice& device, const CProgramHandle& program)
{
    size_t nSize = 0;
    device.cl.clGetProgramBuildInfo(program.Get(), device.m_device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &nSize);
    std::string strLog(nSize, '\0');
    device.cl.clGetProgramBuildInfo(program.Get(), device.m_device, CL_PROGRAM_BUILD_LOG, nSize, strLog.data(),
                                    nullptr);
    return strLog.c_str();
}

inline cl_program_binary_type TypeOf(COpenCLDevice& device, const CProgramHandle& program)
{
    cl_program_binary_type nType = 0xFFFF;
    device.cl.clGetProgramBuildInfo(program.Get(), device.m_device, CL_PROGRAM_BINARY_TYPE, sizeof nType, &nType,
                                    nullptr);
    return nType;
}

inline std::vector<unsigned char> BinaryOf(COpenCLDevice& device, const CProgramHandle& program)
{
    size_t nSize = 0;
    device.cl.clGetProgramInfo(program.Get(), CL_PROGRAM_BINARY_SIZES, sizeof nSize, &nSize, nullptr);
    std::vector<unsigned char> vBytes(nSize);
    unsigned char* pBytes = vBytes.data();
    device.cl.clGetProgramInfo(program.Get(), CL_PROGRAM_BINARIES, sizeof pBytes, &pBytes, nullptr);
    return vBytes;
}

inline CProgramHandle FromBinary(COpenCLDevice& device, const std::vector<unsigned char>& vBytes)
{
    const unsigned char* pBytes = vBytes.data();
    const size_t nSize = vBytes.size();
    return CProgramHandle(
        device.cl.clCreateProgramWithBinary(device.m_context, 1, &device.m_device, &nSize, &pBytes, nullptr, nullptr));
}

/// Runs `kernel void NAME(global int* out)` of a built program over n work-items.
inline std::vector<int> RunInts(COpenCLDevice& device, const CProgramHandle& program, const char* pszName, size_t n)
{
    const std::shared_ptr<std::remove_pointer_t<cl_kernel>> kernel(
        device.cl.clCreateKernel(program.Get(), pszName, nullptr),
        [](cl_kernel k) { k ? Runtime().clReleaseKernel(k) : CL_SUCCESS; });
    const std::vector<unsigned char> vBinary = BinaryOf(device, program);
    CheckDebugData({vBinary.begin(), vBinary.end()});
    if (!kernel)
    {
        ADD_FAILURE() << "no kernel " << pszName;
        return std::vector<int>(n, -1);
    }
    const CDeviceBuffer out = device.Buffer(std::vector<int>(n, -1));
    const cl_mem mem = out.Get();
    Need(device.cl.clSetKernelArg(kernel.get(), 0, sizeof mem, &mem), "clSetKernelArg");
    Need(device.cl.clEnqueueNDRangeKernel(device.m_queue, kernel.get(), 1, nullptr, &n, nullptr, 0, nullptr, nullptr),
         "clEnqueueNDRangeKernel");
    return device.Read<int>(out);
}

} // namespace KestrelTest

#endif
