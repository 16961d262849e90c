#ifndef KESTREL_TESTS_SUPPORT_OPENCLPROGRAM_H
#define KESTREL_TESTS_SUPPORT_OPENCLPROGRAM_H

#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/platform/runtime/Runtime.h"
#include "tests/support/Folders.h"

#include <array>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <type_traits>

namespace KestrelTest
{

/// A failed call of the runtime that a test needs.
class COpenCLFailure : public std::runtime_error
{
public:
    COpenCLFailure(const std::string& strCall, cl_int nCode)
        : std::runtime_error(strCall + " gave " + std::to_string(nCode)), m_nCode(nCode)
    {
    }
    cl_int Code() const { return m_nCode; }

private:
    cl_int m_nCode;
};

inline void Need(cl_int nCode, const std::string& strCall)
{
    if (nCode != CL_SUCCESS)
    {
        throw COpenCLFailure(strCall, nCode);
    }
}

/// A memory object of a COpenCLDevice, released with the last copy.
class CDeviceBuffer
{
public:
    CDeviceBuffer() = default;
    explicit CDeviceBuffer(cl_mem mem) : m_pMem(mem, [](cl_mem object) { Runtime().clReleaseMemObject(object); }) {}
    cl_mem Get() const { return m_pMem.get(); }

private:
    std::shared_ptr<std::remove_pointer_t<cl_mem>> m_pMem;
};

/// `__local` memory of this size as an argument.
struct SLocalBytes
{
    size_t nBytes;
};

/// With KESTREL_CHECK_BINARIES=1, complaints of the system's readers of debug data about a binary fail the test. A
/// binary that a debugger has made has no debug data.
inline void CheckDebugData(const std::vector<char>& vBinary)
{
    const std::string_view bytes(vBinary.data(), vBinary.size());
    if (std::getenv("KESTREL_CHECK_BINARIES") != nullptr && bytes.find(".debug_line") != std::string_view::npos)
    {
        EXPECT_EQ(KestrelTests::Complaints(vBinary), "");
    }
}

/// One device with a context and a queue, as in a host program. Its functions throw COpenCLFailure.
class COpenCLDevice
{
public:
    explicit COpenCLDevice(const std::string& strName)
    {
        cl_platform_id platform = nullptr;
        Need(cl.clGetPlatformIDs(1, &platform, nullptr), "clGetPlatformIDs");
        cl_uint nDevices = 0;
        Need(cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 0, nullptr, &nDevices), "clGetDeviceIDs");
        std::vector<cl_device_id> vDevices(nDevices);
        Need(cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, nDevices, vDevices.data(), nullptr), "clGetDeviceIDs");
        for (cl_device_id device : vDevices)
        {
            char name[64] = {};
            cl.clGetDeviceInfo(device, CL_DEVICE_NAME, sizeof name - 1, name, nullptr);
            m_device = strName == name ? device : m_device;
        }
        cl_int nCode = CL_DEVICE_NOT_FOUND;
        Need(m_device == nullptr ? nCode : CL_SUCCESS, "looking for " + strName);
        m_context = cl.clCreateContext(nullptr, 1, &m_device, nullptr, nullptr, &nCode);
        Need(nCode, "clCreateContext");
        m_queue = cl.clCreateCommandQueue(m_context, m_device, 0, &nCode);
        Need(nCode, "clCreateCommandQueue");
    }

    ~COpenCLDevice()
    {
        if (m_queue != nullptr)
        {
            cl.clReleaseCommandQueue(m_queue);
        }
        if (m_context != nullptr)
        {
            cl.clReleaseContext(m_context);
        }
    }

    COpenCLDevice(const COpenCLDevice&) = delete;
    COpenCLDevice& operator=(const COpenCLDevice&) = delete;

    template <class T>
    CDeviceBuffer Buffer(const std::vector<T>& vContents)
    {
        cl_int nCode = -1;
        const cl_mem mem = cl.clCreateBuffer(m_context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR,
                                             vContents.size() * sizeof(T), const_cast<T*>(vContents.data()), &nCode);
        Need(nCode, "clCreateBuffer");
        return CDeviceBuffer(mem);
    }

    template <class T>
    std::vector<T> Read(const CDeviceBuffer& buffer)
    {
        size_t nBytes = 0;
        Need(cl.clGetMemObjectInfo(buffer.Get(), CL_MEM_SIZE, sizeof nBytes, &nBytes, nullptr), "clGetMemObjectInfo");
        std::vector<T> vContents(nBytes / sizeof(T));
        Need(cl.clEnqueueReadBuffer(m_queue, buffer.Get(), CL_TRUE, 0, nBytes, vContents.data(), 0, nullptr, nullptr),
             "clEnqueueReadBuffer");
        return vContents;
    }

    /// A 2D image whose rows follow each other directly. \param pPixels null for zeros
    CDeviceBuffer Image2D(const cl_image_format& format, size_t nWidth, size_t nHeight, const void* pPixels)
    {
        cl_image_desc desc = {};
        desc.image_type = CL_MEM_OBJECT_IMAGE2D;
        desc.image_width = nWidth;
        desc.image_height = nHeight;
        cl_int nCode = -1;
        const cl_mem mem = cl.clCreateImage(m_context, CL_MEM_READ_WRITE | (pPixels ? CL_MEM_COPY_HOST_PTR : 0),
                                            &format, &desc, const_cast<void*>(pPixels), &nCode);
        Need(nCode, "clCreateImage");
        return CDeviceBuffer(mem);
    }

    template <class T>
    std::vector<T> ReadImage2D(const CDeviceBuffer& image, size_t nWidth, size_t nHeight, size_t nChannels)
    {
        std::vector<T> vPixels(nWidth * nHeight * nChannels);
        const size_t origin[3] = {0, 0, 0};
        const size_t region[3] = {nWidth, nHeight, 1};
        Need(cl.clEnqueueReadImage(m_queue, image.Get(), CL_TRUE, origin, region, 0, 0, vPixels.data(), 0, nullptr,
                                   nullptr),
             "clEnqueueReadImage");
        return vPixels;
    }

    /// The binary of a program for this device.
    std::vector<char> Binary(cl_program program)
    {
        size_t nSize = 0;
        Need(cl.clGetProgramInfo(program, CL_PROGRAM_BINARY_SIZES, sizeof nSize, &nSize, nullptr), "clGetProgramInfo");
        std::vector<char> vBinary(nSize);
        char* pBinary = vBinary.data();
        Need(cl.clGetProgramInfo(program, CL_PROGRAM_BINARIES, sizeof pBinary, &pBinary, nullptr), "clGetProgramInfo");
        return vBinary;
    }

    SRuntimeEntries& cl = Runtime();
    cl_device_id m_device = nullptr;
    cl_context m_context = nullptr;
    cl_command_queue m_queue = nullptr;
};

/// A program built from source for one device.
class COpenCLProgram
{
public:
    /// Throws std::runtime_error with the build log for a source that doesn't build.
    COpenCLProgram(COpenCLDevice& device, const std::string& strSource, const std::string& strOptions = "")
        : m_Device(device), cl(device.cl)
    {
        const char* pszSource = strSource.c_str();
        cl_int nCode = -1;
        m_program = cl.clCreateProgramWithSource(device.m_context, 1, &pszSource, nullptr, &nCode);
        Need(nCode, "clCreateProgramWithSource");
        nCode = cl.clBuildProgram(m_program, 1, &device.m_device, strOptions.c_str(), nullptr, nullptr);
        if (nCode != CL_SUCCESS)
        {
            const std::string strLog = Log();
            cl.clReleaseProgram(m_program);
            throw std::runtime_error("clBuildProgram gave " + std::to_string(nCode) + ":\n" + strLog);
        }
        CheckDebugData(device.Binary(m_program));
    }

    /// From a kernel binary. Throws COpenCLFailure.
    COpenCLProgram(COpenCLDevice& device, const std::vector<char>& vBinary) : m_Device(device), cl(device.cl)
    {
        const auto* pBinary = reinterpret_cast<const unsigned char*>(vBinary.data());
        const size_t nSize = vBinary.size();
        cl_int nCode = -1;
        m_program =
            cl.clCreateProgramWithBinary(device.m_context, 1, &device.m_device, &nSize, &pBinary, nullptr, &nCode);
        Need(nCode, "clCreateProgramWithBinary");
        Need(cl.clBuildProgram(m_program, 1, &device.m_device, "", nullptr, nullptr), "clBuildProgram of a binary");
    }

    ~COpenCLProgram() { cl.clReleaseProgram(m_program); }

    COpenCLProgram(const COpenCLProgram&) = delete;
    COpenCLProgram& operator=(const COpenCLProgram&) = delete;

    std::string Log() const
    {
        size_t nSize = 0;
        cl.clGetProgramBuildInfo(m_program, m_Device.m_device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &nSize);
        std::string strLog(nSize, '\0');
        cl.clGetProgramBuildInfo(m_program, m_Device.m_device, CL_PROGRAM_BUILD_LOG, nSize, strLog.data(), nullptr);
        return strLog.c_str();
    }

    /// Sizes of a launch; a local size of zeros leaves it to the runtime.
    struct SRange
    {
        std::vector<size_t> vGlobal;
        std::vector<size_t> vLocal;
        std::vector<size_t> vOffset;
    };

    /// Runs a kernel and waits for it. Arguments: CDeviceBuffer, SLocalBytes, cl_sampler, or a value.
    template <class... TArguments>
    void Run(const std::string& strKernel, const SRange& range, const TArguments&... arguments)
    {
        cl_int nCode = -1;
        const cl_kernel kernel = cl.clCreateKernel(m_program, strKernel.c_str(), &nCode);
        Need(nCode, "clCreateKernel of " + strKernel);
        const std::shared_ptr<std::remove_pointer_t<cl_kernel>> owner(kernel,
                                                                      [this](cl_kernel k) { cl.clReleaseKernel(k); });
        cl_uint nIndex = 0;
        (SetArgument(kernel, nIndex++, arguments), ...);
        Need(cl.clEnqueueNDRangeKernel(m_Device.m_queue, kernel, static_cast<cl_uint>(range.vGlobal.size()),
                                       range.vOffset.empty() ? nullptr : range.vOffset.data(), range.vGlobal.data(),
                                       range.vLocal.empty() ? nullptr : range.vLocal.data(), 0, nullptr, nullptr),
             "clEnqueueNDRangeKernel of " + strKernel);
        Need(cl.clFinish(m_Device.m_queue), "clFinish after " + strKernel);
    }

    cl_program Get() const { return m_program; }

private:
    template <class T>
    void SetArgument(cl_kernel kernel, cl_uint nIndex, const T& argument)
    {
        const std::string strCall = "clSetKernelArg " + std::to_string(nIndex);
        if constexpr (std::is_same_v<T, CDeviceBuffer>)
        {
            const cl_mem mem = argument.Get();
            Need(cl.clSetKernelArg(kernel, nIndex, sizeof mem, &mem), strCall);
        }
        else if constexpr (std::is_same_v<T, SLocalBytes>)
        {
            Need(cl.clSetKernelArg(kernel, nIndex, argument.nBytes, nullptr), strCall);
        }
        else
        {
            Need(cl.clSetKernelArg(kernel, nIndex, sizeof argument, &argument), strCall);
        }
    }

    COpenCLDevice& m_Device;
    SRuntimeEntries& cl;
    cl_program m_program = nullptr;
};

/// The contents of a file of the project. \param strPath relative to the project's folder
inline std::string ReadProjectFile(const std::string& strPath)
{
    std::ifstream file(KestrelTest::SourceFile(strPath), std::ios::binary);
    if (!file)
    {
        throw std::runtime_error("can't read " + strPath);
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace KestrelTest

#endif
