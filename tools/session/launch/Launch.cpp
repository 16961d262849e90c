#include "tools/session/launch/Launch.h"

#include "KestrelPlatform.h"
#include "tools/session/launch/Codes.h"
#include "tools/session/launch/Files.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace KestrelTool
{

namespace
{

/// The loader's code if no driver is installed, as defined by its ICD extension.
const cl_int s_nNoPlatform = -1001;
const char* const s_pszWhatToInstall =
    ": install that of the device, with its file in /etc/OpenCL/vendors, or leave out --platform system";

/// The whole of an image, in the form that calls for reading and writing images expect.
struct SImageRegion
{
    explicit SImageRegion(const SArgument& image) : extents{image.nWidth, image.nHeight, 1}
    {
        const bool bRows = image.nImageType == CL_MEM_OBJECT_IMAGE1D_ARRAY;
        extents[1] = bRows ? image.nArray : image.nHeight;
        extents[2] = bRows ? 1 : std::max<size_t>({image.nDepth, image.nArray, 1});
    }
    size_t origin[3] = {0, 0, 0};
    size_t extents[3];
};

} // namespace

CLaunch::CLaunch(const CLibraries& libraries, SLaunchFile file) : m_Lib(libraries), m_File(std::move(file))
{
    try
    {
        Create();
    }
    catch (...)
    {
        Release();
        throw;
    }
}

CLaunch::~CLaunch()
{
    Release();
}

void CLaunch::Create()
{
    RequireCount();
    ChooseDevice();
    cl_int nCode = CL_SUCCESS;
    m_Context = m_Lib.ovkclInterceptCreateContext(nullptr, 1, &m_Device, nullptr, nullptr, &nCode);
    Check(nCode, "clCreateContext");
    m_Queue = m_Lib.ovkclInterceptCreateCommandQueue(m_Context, m_Device, 0, &nCode);
    Check(nCode, "clCreateCommandQueue");
    BuildProgram();
    m_Kernel = m_Lib.ovkclInterceptCreateKernel(m_Program, m_File.strKernel.c_str(), &nCode);
    if (nCode == CL_INVALID_KERNEL_NAME)
    {
        throw CLaunchFileError(m_File.strPath + ": kernel names none of the program's: \"" + m_File.strKernel + "\"");
    }
    Check(nCode, ("clCreateKernel of \"" + m_File.strKernel + "\"").c_str());
    CheckArgumentCount();
    CreateSharedBuffers();
    m_vMemory.assign(m_File.vArguments.size(), nullptr);
    for (size_t i = 0; i < m_File.vArguments.size(); ++i)
    {
        CreateArgument(i);
    }
    WriteContents(true);
}

void CLaunch::Release()
{
    for (std::vector<cl_mem>* pMemory : {&m_vMemory, &m_vBuffers, &m_vImageBuffers})
    {
        for (const cl_mem memory : *pMemory)
        {
            if (memory != nullptr)
            {
                m_Lib.cl.clReleaseMemObject(memory);
            }
        }
        pMemory->clear();
    }
    for (const cl_sampler sampler : m_vSamplers)
    {
        m_Lib.cl.clReleaseSampler(sampler);
    }
    m_vSamplers.clear();
    if (m_Kernel != nullptr)
    {
        m_Lib.ovkclInterceptReleaseKernel(m_Kernel);
    }
    if (m_Program != nullptr)
    {
        m_Lib.cl.clReleaseProgram(m_Program);
    }
    if (m_Queue != nullptr)
    {
        m_Lib.cl.clReleaseCommandQueue(m_Queue);
    }
    if (m_Context != nullptr)
    {
        m_Lib.cl.clReleaseContext(m_Context);
    }
}

void CLaunch::Check(cl_int nCode, const char* pszWhat) const
{
    if (nCode != CL_SUCCESS)
    {
        throw CPlatformError(m_File.strPath + ": " + pszWhat + ": " + NameCode(nCode));
    }
}

void CLaunch::CheckArgumentCount() const
{
    cl_uint nArguments = 0;
    Check(m_Lib.cl.clGetKernelInfo(m_Kernel, CL_KERNEL_NUM_ARGS, sizeof(nArguments), &nArguments, nullptr),
          "clGetKernelInfo");
    if (nArguments != m_File.vArguments.size())
    {
        throw CLaunchFileError(m_File.strPath + ": args has " + std::to_string(m_File.vArguments.size()) +
                               " entries, but the kernel takes " + std::to_string(nArguments));
    }
}

/// Translates the runtime's complaint about sizes into one about the launch file's fields.
void CLaunch::CheckSizes(cl_int nCode) const
{
    if (nCode == CL_INVALID_WORK_GROUP_SIZE || nCode == CL_INVALID_WORK_ITEM_SIZE)
    {
        throw CLaunchFileError(m_File.strPath +
                               ": local doesn't fit: it must divide global, and be what the kernel and device allow");
    }
    if (nCode == CL_INVALID_GLOBAL_OFFSET || nCode == CL_INVALID_GLOBAL_WORK_SIZE)
    {
        throw CLaunchFileError(m_File.strPath + ": global or offset is more than the device allows");
    }
}

void CLaunch::ChooseDevice()
{
    cl_uint nPlatforms = 0;
    const cl_int nCode = m_Lib.cl.clGetPlatformIDs(0, nullptr, &nPlatforms);
    if (nCode == s_nNoPlatform && m_Lib.cl.clGetExtensionFunctionAddress != nullptr &&
        m_Lib.cl.clGetExtensionFunctionAddress(KESTREL_PLATFORM_CONTROL) != nullptr)
    {
        throw CPlatformError("the software platform doesn't take what KESTREL_PLATFORM says");
    }
    if (nCode == s_nNoPlatform || (nCode == CL_SUCCESS && nPlatforms == 0))
    {
        throw CPlatformError(std::string("this machine's OpenCL loader finds no driver in /etc/OpenCL/vendors") +
                             s_pszWhatToInstall);
    }
    Check(nCode, "clGetPlatformIDs");
    std::vector<cl_platform_id> vPlatforms(nPlatforms);
    Check(m_Lib.cl.clGetPlatformIDs(nPlatforms, vPlatforms.data(), nullptr), "clGetPlatformIDs");

    const cl_device_type nType = m_File.strDevice.empty() ? CL_DEVICE_TYPE_GPU : CL_DEVICE_TYPE_ALL;
    for (const cl_platform_id platform : vPlatforms)
    {
        cl_uint nDevices = 0;
        if (m_Lib.cl.clGetDeviceIDs(platform, nType, 0, nullptr, &nDevices) != CL_SUCCESS)
        {
            continue;
        }
        std::vector<cl_device_id> vDevices(nDevices);
        Check(m_Lib.cl.clGetDeviceIDs(platform, nType, nDevices, vDevices.data(), nullptr), "clGetDeviceIDs");
        for (const cl_device_id device : vDevices)
        {
            char szName[256] = {};
            Check(m_Lib.cl.clGetDeviceInfo(device, CL_DEVICE_NAME, sizeof(szName), szName, nullptr), "clGetDeviceInfo");
            if (std::string(szName).compare(0, m_File.strDevice.size(), m_File.strDevice) == 0)
            {
                m_Device = device;
                m_strDeviceName = szName;
                return;
            }
        }
    }
    if (m_File.strDevice.empty())
    {
        throw CPlatformError(std::string("no OpenCL driver here has a GPU") + s_pszWhatToInstall);
    }
    throw CLaunchFileError(m_File.strPath + ": device names none of the runtime's: \"" + m_File.strDevice + "\"");
}

/// Creates the program from a text, or from the image of a binary.
cl_program CLaunch::CreateProgram() const
{
    cl_int nCode = CL_SUCCESS;
    if (m_File.strSource.compare(0, 4, "\177ELF") == 0)
    {
        const size_t nSize = m_File.strSource.size();
        const unsigned char* pImage = reinterpret_cast<const unsigned char*>(m_File.strSource.data());
        cl_program program =
            m_Lib.cl.clCreateProgramWithBinary(m_Context, 1, &m_Device, &nSize, &pImage, nullptr, &nCode);
        Check(nCode, "clCreateProgramWithBinary");
        return program;
    }
    const char* pszSource = m_File.strSource.c_str();
    cl_program program = m_Lib.cl.clCreateProgramWithSource(m_Context, 1, &pszSource, nullptr, &nCode);
    Check(nCode, "clCreateProgramWithSource");
    return program;
}

void CLaunch::BuildProgram()
{
    m_Program = CreateProgram();
    cl_int nCode = m_Lib.cl.clBuildProgram(m_Program, 1, &m_Device, m_File.strOptions.c_str(), nullptr, nullptr);
    if (nCode == CL_INVALID_BUILD_OPTIONS)
    {
        throw CLaunchFileError(m_File.strPath + ": options are none that the compiler knows: \"" + m_File.strOptions +
                               "\"");
    }
    if (nCode != CL_SUCCESS)
    {
        const std::string strLog = GetBuildLog();
        throw CPlatformError(m_File.strPath + ": the program doesn't build:\n" +
                             (strLog.empty() ? NameCode(nCode) : strLog));
    }
}

std::string CLaunch::GetBuildLog() const
{
    size_t nSize = 0;
    if (m_Lib.cl.clGetProgramBuildInfo(m_Program, m_Device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &nSize) != CL_SUCCESS)
    {
        return std::string();
    }
    std::string strLog(nSize, '\0');
    m_Lib.cl.clGetProgramBuildInfo(m_Program, m_Device, CL_PROGRAM_BUILD_LOG, nSize, &strLog[0], nullptr);
    return strLog.c_str();
}

cl_mem CLaunch::CreateImage(const SArgument& argument)
{
    const cl_image_format format = {argument.nChannelOrder, argument.nChannelType};
    cl_image_desc desc = {};
    cl_int nCode = CL_SUCCESS;
    desc.image_type = argument.nImageType;
    desc.image_width = argument.nWidth;
    desc.image_height = argument.nHeight;
    desc.image_depth = argument.nDepth;
    desc.image_array_size = argument.nArray;
    if (argument.nImageType == CL_MEM_OBJECT_IMAGE1D_BUFFER)
    {
        desc.buffer = m_Lib.cl.clCreateBuffer(m_Context, CL_MEM_READ_WRITE, argument.vContents.size(), nullptr, &nCode);
        Check(nCode, "clCreateBuffer");
        m_vImageBuffers.push_back(desc.buffer);
    }
    cl_mem image = m_Lib.cl.clCreateImage(m_Context, CL_MEM_READ_WRITE, &format, &desc, nullptr, &nCode);
    Check(nCode, "clCreateImage");
    return image;
}

void CLaunch::CreateSharedBuffers()
{
    for (const SArgument& buffer : m_File.vBuffers)
    {
        cl_int nCode = CL_SUCCESS;
        m_vBuffers.push_back(
            m_Lib.cl.clCreateBuffer(m_Context, CL_MEM_READ_WRITE, buffer.vContents.size(), nullptr, &nCode));
        Check(nCode, "clCreateBuffer");
    }
}

/// A shared buffer, or a part of one.
cl_mem CLaunch::CreatePart(const SArgument& argument) const
{
    const cl_mem buffer = m_vBuffers[argument.nSame];
    if (!argument.nOrigin)
    {
        Check(m_Lib.cl.clRetainMemObject(buffer), "clRetainMemObject");
        return buffer;
    }
    const cl_buffer_region region = {*argument.nOrigin, argument.vContents.size()};
    cl_int nCode = CL_SUCCESS;
    cl_mem part = m_Lib.cl.clCreateSubBuffer(buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, &nCode);
    Check(nCode, "clCreateSubBuffer");
    return part;
}

cl_sampler CLaunch::CreateSampler(const SArgument& argument)
{
    cl_int nCode = CL_SUCCESS;
    const cl_sampler sampler = m_Lib.cl.clCreateSampler(m_Context, argument.bNormalized ? CL_TRUE : CL_FALSE,
                                                        argument.nAddressing, argument.nFilter, &nCode);
    Check(nCode, "clCreateSampler");
    m_vSamplers.push_back(sampler);
    return sampler;
}

void CLaunch::CreateArgument(size_t nArgument)
{
    const SArgument& argument = m_File.vArguments[nArgument];
    const void* pValue = &m_vMemory[nArgument];
    size_t nSize = sizeof(cl_mem);
    cl_sampler sampler = nullptr;
    cl_int nCode = CL_SUCCESS;
    switch (argument.eKind)
    {
    case SArgument::Buffer:
        m_vMemory[nArgument] =
            m_Lib.cl.clCreateBuffer(m_Context, CL_MEM_READ_WRITE, argument.vContents.size(), nullptr, &nCode);
        Check(nCode, "clCreateBuffer");
        break;
    case SArgument::Image:
        m_vMemory[nArgument] = CreateImage(argument);
        break;
    case SArgument::Sub:
        m_vMemory[nArgument] = CreatePart(argument);
        break;
    case SArgument::Sampler:
        sampler = CreateSampler(argument);
        pValue = &sampler;
        break;
    case SArgument::Same:
        pValue = &m_vMemory[argument.nSame];
        break;
    case SArgument::Value:
        pValue = argument.vContents.data();
        nSize = argument.vContents.size();
        break;
    case SArgument::Local:
        pValue = nullptr;
        nSize = argument.nLocalBytes;
        break;
    case SArgument::NullBuffer:
    case SArgument::NullImage:
        break;
    }
    nCode = m_Lib.ovkclInterceptSetKernelArg(m_Kernel, static_cast<cl_uint>(nArgument), nSize, pValue);
    Check(nCode, ("clSetKernelArg of argument " + std::to_string(nArgument)).c_str());
}

void CLaunch::WriteBuffer(cl_mem buffer, const SArgument& argument)
{
    Check(m_Lib.cl.clEnqueueWriteBuffer(m_Queue, buffer, CL_TRUE, 0, argument.vContents.size(),
                                        argument.vContents.data(), 0, nullptr, nullptr),
          "clEnqueueWriteBuffer");
}

void CLaunch::ResetContents()
{
    WriteContents(false);
}

/// \param bNew  the buffers are still empty: those without contents stay so
void CLaunch::WriteContents(bool bNew)
{
    for (size_t i = 0; i < m_File.vBuffers.size(); ++i)
    {
        if (!bNew || !m_File.vBuffers[i].bUnwritten)
        {
            WriteBuffer(m_vBuffers[i], m_File.vBuffers[i]);
        }
    }
    for (size_t i = 0; i < m_File.vArguments.size(); ++i)
    {
        const SArgument& argument = m_File.vArguments[i];
        if (argument.eKind == SArgument::Buffer && !(bNew && argument.bUnwritten))
        {
            WriteBuffer(m_vMemory[i], argument);
        }
        else if (argument.eKind == SArgument::Image)
        {
            const SImageRegion region(argument);
            Check(m_Lib.cl.clEnqueueWriteImage(m_Queue, m_vMemory[i], CL_TRUE, region.origin, region.extents, 0, 0,
                                               argument.vContents.data(), 0, nullptr, nullptr),
                  "clEnqueueWriteImage");
        }
    }
}

void CLaunch::Run()
{
    cl_event event = nullptr;
    cl_int nCode = m_Lib.cl.clEnqueueNDRangeKernel(m_Queue, m_Kernel, m_File.nDimensions, Offset(), m_File.nGlobalSize,
                                                   LocalSize(), 0, nullptr, &event);
    CheckSizes(nCode);
    Check(nCode, "clEnqueueNDRangeKernel");
    nCode = m_Lib.cl.clWaitForEvents(1, &event);
    m_Lib.cl.clReleaseEvent(event);
    Check(nCode, "clWaitForEvents");
}

cl_int CLaunch::Debug(ovkclDebugCallback callback, void* pUserData)
{
    cl_event event = nullptr;
    const cl_int nCode =
        m_Lib.ovkclDebugEnqueueNDRangeKernel(m_Queue, m_Kernel, m_File.nDimensions, Offset(), m_File.nGlobalSize,
                                             LocalSize(), 0, nullptr, &event, callback, pUserData);
    if (event != nullptr)
    {
        m_Lib.cl.clWaitForEvents(1, &event);
        m_Lib.cl.clReleaseEvent(event);
    }
    CheckSizes(nCode);
    return nCode;
}

std::vector<unsigned char> CLaunch::ReadContents(size_t nArgument) const
{
    const SArgument& argument = m_File.vArguments[nArgument];
    std::vector<unsigned char> vBytes(argument.vContents.size());
    if (argument.eKind == SArgument::Buffer || argument.eKind == SArgument::Sub)
    {
        Check(m_Lib.cl.clEnqueueReadBuffer(m_Queue, m_vMemory[nArgument], CL_TRUE, 0, vBytes.size(), vBytes.data(), 0,
                                           nullptr, nullptr),
              "clEnqueueReadBuffer");
    }
    else if (argument.eKind == SArgument::Image)
    {
        const SImageRegion region(argument);
        Check(m_Lib.cl.clEnqueueReadImage(m_Queue, m_vMemory[nArgument], CL_TRUE, region.origin, region.extents, 0, 0,
                                          vBytes.data(), 0, nullptr, nullptr),
              "clEnqueueReadImage");
    }
    return vBytes;
}

std::vector<char> CLaunch::ReadBinary() const
{
    size_t nSize = 0;
    if (m_Lib.cl.clGetProgramInfo(m_Program, CL_PROGRAM_BINARY_SIZES, sizeof(nSize), &nSize, nullptr) != CL_SUCCESS)
    {
        return {};
    }
    std::vector<char> vBinary(nSize);
    char* pBinary = vBinary.data();
    const cl_int nCode = m_Lib.cl.clGetProgramInfo(m_Program, CL_PROGRAM_BINARIES, sizeof(pBinary), &pBinary, nullptr);
    return nCode == CL_SUCCESS ? vBinary : std::vector<char>();
}

void CLaunch::SaveOutputs() const
{
    for (size_t i = 0; i < m_File.vArguments.size(); ++i)
    {
        const std::string& strPath = m_File.vArguments[i].strSave;
        if (strPath.empty())
        {
            continue;
        }
        const std::vector<unsigned char> vBytes = ReadContents(i);
        try
        {
            WriteFileBytes(strPath, {reinterpret_cast<const char*>(vBytes.data()), vBytes.size()});
        }
        catch (const CFileError& error)
        {
            throw CLaunchFileError(m_File.strPath + ": args[" + std::to_string(i) + "].save names " + error.what());
        }
    }
}

std::vector<SDifference> CLaunch::Compare() const
{
    std::vector<SDifference> vDifferences;
    for (size_t i = 0; i < m_File.vArguments.size(); ++i)
    {
        const SArgument& argument = m_File.vArguments[i];
        if (!argument.vExpected)
        {
            continue;
        }
        const std::vector<unsigned char> vGot = ReadContents(i);
        const size_t nSize = argument.pType->nSize;
        for (size_t nOffset = 0; nOffset < vGot.size(); nOffset += nSize)
        {
            const unsigned char* pExpected = argument.vExpected->data() + nOffset;
            if (std::memcmp(&vGot[nOffset], pExpected, nSize) != 0)
            {
                vDifferences.push_back({i, nOffset / nSize, FormatElement(*argument.pType, &vGot[nOffset]),
                                        FormatElement(*argument.pType, pExpected)});
                break;
            }
        }
    }
    return vDifferences;
}

/// If the number of work-items exceeds 64 bits, nothing that counts them would be right.
void CLaunch::RequireCount() const
{
    size_t nItems = 1;
    for (const size_t nSize : m_File.nGlobalSize)
    {
        if (__builtin_mul_overflow(nItems, nSize, &nItems))
        {
            throw CLaunchFileError(m_File.strPath + ": global is more than 2^64 work-items");
        }
    }
}

size_t CLaunch::GetWorkItems() const
{
    return m_File.nGlobalSize[0] * m_File.nGlobalSize[1] * m_File.nGlobalSize[2];
}

} // namespace KestrelTool
