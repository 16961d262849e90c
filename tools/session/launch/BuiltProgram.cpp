#include "tools/session/launch/BuiltProgram.h"

#include "tools/session/launch/Codes.h"
#include "tools/session/launch/Files.h"

namespace KestrelTool
{

namespace
{

void RequireSuccess(cl_int nCode, const char* pszWhat)
{
    if (nCode != CL_SUCCESS)
    {
        throw CPlatformError(std::string(pszWhat) + ": " + NameCode(nCode));
    }
}

cl_device_id ChooseDevice(const CLibraries& libraries, const std::string& strDevice)
{
    cl_uint nPlatforms = 0;
    RequireSuccess(libraries.cl.clGetPlatformIDs(0, nullptr, &nPlatforms), "clGetPlatformIDs");
    std::vector<cl_platform_id> vPlatforms(nPlatforms);
    RequireSuccess(libraries.cl.clGetPlatformIDs(nPlatforms, vPlatforms.data(), nullptr), "clGetPlatformIDs");
    const cl_device_type nType = strDevice.empty() ? CL_DEVICE_TYPE_GPU : CL_DEVICE_TYPE_ALL;
    for (const cl_platform_id platform : vPlatforms)
    {
        cl_device_id devices[64] = {};
        cl_uint nDevices = 0;
        if (libraries.cl.clGetDeviceIDs(platform, nType, 64, devices, &nDevices) != CL_SUCCESS)
        {
            continue;
        }
        for (cl_uint i = 0; i < nDevices && i < 64; ++i)
        {
            char szName[256] = {};
            RequireSuccess(libraries.cl.clGetDeviceInfo(devices[i], CL_DEVICE_NAME, sizeof(szName), szName, nullptr),
                           "clGetDeviceInfo");
            if (std::string(szName).compare(0, strDevice.size(), strDevice) == 0)
            {
                return devices[i];
            }
        }
    }
    throw CPlatformError("no device is named \"" + strDevice + "\"");
}

/// The context and program of one build.
class CBuild
{
public:
    CBuild(const CLibraries& libraries, const std::string& strDevice)
        : m_Lib(libraries), m_Device(ChooseDevice(libraries, strDevice))
    {
        cl_int nCode = CL_SUCCESS;
        m_Context = m_Lib.cl.clCreateContext(nullptr, 1, &m_Device, nullptr, nullptr, &nCode);
        RequireSuccess(nCode, "clCreateContext");
    }
    ~CBuild()
    {
        if (m_Program != nullptr)
        {
            m_Lib.cl.clReleaseProgram(m_Program);
        }
        m_Lib.cl.clReleaseContext(m_Context);
    }
    CBuild(const CBuild&) = delete;
    CBuild& operator=(const CBuild&) = delete;

    SBuiltProgram Build(const std::string& strSource, const std::string& strOptions)
    {
        const char* pszSource = strSource.c_str();
        cl_int nCode = CL_SUCCESS;
        m_Program = m_Lib.cl.clCreateProgramWithSource(m_Context, 1, &pszSource, nullptr, &nCode);
        RequireSuccess(nCode, "clCreateProgramWithSource");
        nCode = m_Lib.cl.clBuildProgram(m_Program, 1, &m_Device, strOptions.c_str(), nullptr, nullptr);
        if (nCode != CL_SUCCESS)
        {
            const std::string strLog = GetLog();
            throw CBuildError(strLog.empty() ? NameCode(nCode) + ": \"" + strOptions + "\"" : strLog);
        }
        size_t nSize = 0;
        RequireSuccess(m_Lib.cl.clGetProgramInfo(m_Program, CL_PROGRAM_BINARY_SIZES, sizeof(nSize), &nSize, nullptr),
                       "clGetProgramInfo");
        std::vector<char> vImage(nSize);
        char* pImage = vImage.data();
        RequireSuccess(m_Lib.cl.clGetProgramInfo(m_Program, CL_PROGRAM_BINARIES, sizeof(pImage), &pImage, nullptr),
                       "clGetProgramInfo");
        return {vImage, GetLog()};
    }

private:
    /// Asks for the size first, since the runtime copies the log as a whole or not at all.
    std::string GetLog() const
    {
        size_t nSize = 0;
        m_Lib.cl.clGetProgramBuildInfo(m_Program, m_Device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &nSize);
        std::string strLog(nSize, '\0');
        m_Lib.cl.clGetProgramBuildInfo(m_Program, m_Device, CL_PROGRAM_BUILD_LOG, nSize, strLog.data(), nullptr);
        return strLog.substr(0, strLog.find('\0'));
    }

    const CLibraries& m_Lib;
    cl_device_id m_Device;
    cl_context m_Context = nullptr;
    cl_program m_Program = nullptr;
};

} // namespace

SBuiltProgram BuildProgram(const CLibraries& libraries, const std::string& strSource, const std::string& strDevice,
                           const std::string& strOptions)
{
    return CBuild(libraries, strDevice).Build(strSource, strOptions);
}

bool IsImage(const std::string& strBytes)
{
    return strBytes.compare(0, 4, "\177ELF") == 0;
}

} // namespace KestrelTool
