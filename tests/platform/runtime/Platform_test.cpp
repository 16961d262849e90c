#include "Runtime.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace
{

class CPlatformTest : public CRuntimeTest
{
protected:
    template <class T>
    T DeviceValue(cl_device_id device, cl_device_info eInfo)
    {
        T value{};
        EXPECT_EQ(cl.clGetDeviceInfo(device, eInfo, sizeof(value), &value, nullptr), CL_SUCCESS);
        return value;
    }
};

TEST_F(CPlatformTest, NamesItself)
{
    EXPECT_EQ(PlatformString(CL_PLATFORM_VENDOR), "Oberon Vector Kinetics, Inc.");
    EXPECT_EQ(PlatformString(CL_PLATFORM_ICD_SUFFIX_KHR), "OVK");
    EXPECT_EQ(PlatformString(CL_PLATFORM_VERSION).substr(0, 11), "OpenCL 1.2 ");
    EXPECT_EQ(DeviceString(m_device, CL_DEVICE_VERSION), "OpenCL 1.2 (1800.0)");
    Control().SetBuildNumber(1400);
    EXPECT_EQ(DeviceString(m_device, CL_DEVICE_VERSION), "OpenCL 1.2 (1400.0)");
}

struct SDeviceCase
{
    const char* m_pszName;
    cl_device_type m_nType;
    cl_uint m_nAddressBits;
    bool m_bNative;
};

TEST_F(CPlatformTest, HasThreeDevices)
{
    for (const SDeviceCase& device :
         {SDeviceCase{"Quench", CL_DEVICE_TYPE_GPU, 64, false}, SDeviceCase{"Kiln", CL_DEVICE_TYPE_GPU, 32, false},
          SDeviceCase{"Host", CL_DEVICE_TYPE_CPU, 64, true}})
    {
        SCOPED_TRACE(device.m_pszName);
        cl_device_id id = FindDevice(device.m_pszName);
        EXPECT_EQ(DeviceValue<cl_device_type>(id, CL_DEVICE_TYPE), device.m_nType);
        EXPECT_EQ(DeviceValue<cl_uint>(id, CL_DEVICE_ADDRESS_BITS), device.m_nAddressBits);
        EXPECT_EQ((DeviceValue<cl_device_exec_capabilities>(id, CL_DEVICE_EXECUTION_CAPABILITIES) &
                   CL_EXEC_NATIVE_KERNEL) != 0,
                  device.m_bNative);
        EXPECT_EQ(DeviceValue<cl_platform_id>(id, CL_DEVICE_PLATFORM), m_platform);
    }
    cl_device_id standard = nullptr;
    EXPECT_EQ(cl.clGetDeviceIDs(m_platform, CL_DEVICE_TYPE_DEFAULT, 1, &standard, nullptr), CL_SUCCESS);
    EXPECT_EQ(standard, FindDevice("Quench"));
    cl_uint nGpus = 0;
    EXPECT_EQ(cl.clGetDeviceIDs(m_platform, CL_DEVICE_TYPE_GPU, 0, nullptr, &nGpus), CL_SUCCESS);
    EXPECT_EQ(nGpus, 2u);
}

TEST_F(CPlatformTest, EveryQueryOfADeviceKeepsToTheSizes)
{
    int nKnown = 0;
    for (cl_device_info eInfo = CL_DEVICE_TYPE; eInfo < CL_DEVICE_TYPE + 0x60; ++eInfo)
    {
        SCOPED_TRACE(eInfo);
        size_t nSize = 0;
        const cl_int nError = cl.clGetDeviceInfo(m_device, eInfo, 0, nullptr, &nSize);
        if (nError != CL_SUCCESS)
        {
            EXPECT_EQ(nError, CL_INVALID_VALUE);
            continue;
        }
        ++nKnown;
        ASSERT_GT(nSize, 0u);
        std::vector<unsigned char> vValue(nSize + 1, 0xCD);
        EXPECT_EQ(cl.clGetDeviceInfo(m_device, eInfo, nSize - 1, vValue.data(), nullptr), CL_INVALID_VALUE);
        EXPECT_EQ(vValue, std::vector<unsigned char>(nSize + 1, 0xCD)) << "nothing is written";
        EXPECT_EQ(cl.clGetDeviceInfo(m_device, eInfo, nSize + 1, vValue.data(), nullptr), CL_SUCCESS);
        EXPECT_EQ(vValue.back(), 0xCD);
    }
    // The properties that clGetDeviceInfo of OpenCL 1.2 lists in this range, and the two for the half and double
    // formats.
    EXPECT_GE(nKnown, 72);
}

/// The symbols that the file exports, according to a tool for ELF files.
std::set<std::string> ExportedNames()
{
    std::set<std::string> setNames;
    std::FILE* pPipe = popen(("nm -D --defined-only " + RuntimePath()).c_str(), "r");
    char line[512];
    while (pPipe && std::fgets(line, sizeof(line), pPipe))
    {
        const std::string strLine(line);
        const size_t nName = strLine.find_last_of(' ') + 1;
        setNames.insert(strLine.substr(nName, strLine.find_first_of("@\n", nName) - nName));
    }
    if (pPipe)
    {
        pclose(pPipe);
    }
    return setNames;
}

TEST_F(CPlatformTest, ExportsTheEntryPointsOfVersion12AndNothingElse)
{
    const std::set<std::string> setNames = ExportedNames();
    // 74 of OpenCL 1.0 with the GL sharing calls, 8 of 1.1, 16 of 1.2, and the one that loaders look for.
    EXPECT_EQ(setNames.size(), 74u + 8u + 16u + 1u);
    for (const char* pszName : {"clGetPlatformIDs", "clCreateFromGLTexture2D", "clEnqueueReleaseGLObjects",
                                "clSetUserEventStatus", "clCreateFromGLTexture", "clIcdGetPlatformIDsKHR",
                                "clGetExtensionFunctionAddressForPlatform", "clUnloadCompiler"})
    {
        EXPECT_EQ(setNames.count(pszName), 1u) << pszName;
    }
    for (const char* pszName : {"clCreateCommandQueueWithProperties", "clSVMAlloc", "clCreateKeyOVK", "clCreatePipe",
                                "clGetGLContextInfoKHR", "kestrelPlatformControl"})
    {
        EXPECT_EQ(setNames.count(pszName), 0u) << pszName;
    }
}

TEST_F(CPlatformTest, StartsFromTheEnvironment)
{
    setenv("KESTREL_PLATFORM", "build=1400,no=cl_ovk_event_callback,with=cl_ext_object_metadata", 1);
    Control().Reset();
    EXPECT_EQ(DeviceString(m_device, CL_DEVICE_VERSION), "OpenCL 1.2 (1400.0)");
    EXPECT_EQ(PlatformString(CL_PLATFORM_EXTENSIONS), "cl_khr_icd cl_ovk_object_metadata cl_ext_object_metadata ");
    unsetenv("KESTREL_PLATFORM");
    Control().Reset();
    EXPECT_EQ(DeviceString(m_device, CL_DEVICE_VERSION), "OpenCL 1.2 (1800.0)");
    EXPECT_EQ(PlatformString(CL_PLATFORM_EXTENSIONS), "cl_khr_icd cl_ovk_event_callback cl_ovk_object_metadata ");
}

TEST_F(CPlatformTest, OffersNothingWhereASettingIsntUnderstood)
{
    for (const char* pszSettings : {"nonsense",
                                    "x=y",
                                    "limit=",
                                    "limit=1x",
                                    "limit=18446744073709551616",
                                    "build=-1",
                                    "vectors=100",
                                    "fail=clFinish",
                                    "fail=clFinish:1:5",
                                    "fail=clFinish:0:-5",
                                    "fail=clNone:1:-5",
                                    "fail=clFinish:1:-5:often",
                                    "no=cl_khr_icd",
                                    "build=1400,limt=3",
                                    ",",
                                    "limit=3,",
                                    ",limit=3",
                                    "limit=3,,build=1400",
                                    "limit=3,limit=3",
                                    "limit=3,build=1400,limit=4",
                                    "no=cl_ovk_event_callback,with=cl_ovk_event_callback",
                                    "fail=clFinish:1:-5,fail=clFinish:1:-5"})
    {
        setenv("KESTREL_PLATFORM", pszSettings, 1);
        Control().Reset();
        EXPECT_EQ(cl.clGetPlatformIDs(0, nullptr, nullptr), CL_INVALID_VALUE);
        cl_uint nPlatforms = 7;
        EXPECT_EQ(cl.clGetPlatformIDs(0, nullptr, &nPlatforms), CL_PLATFORM_NOT_FOUND_KHR) << pszSettings;
    }
    for (const char* pszSettings :
         {"", "limit=0x10", "fail=clFinish:1:-5:forever", "fail=:2:-6,schedule=7",
          "no=cl_ovk_event_callback,no=cl_ovk_object_metadata", "fail=clFinish:1:-5,fail=clFinish:2:-5"})
    {
        setenv("KESTREL_PLATFORM", pszSettings, 1);
        Control().Reset();
        cl_uint nPlatforms = 0;
        EXPECT_EQ(cl.clGetPlatformIDs(0, nullptr, &nPlatforms), CL_SUCCESS) << pszSettings;
    }
    unsetenv("KESTREL_PLATFORM");
    Control().Reset();
}

TEST_F(CPlatformTest, FindsExtensionFunctionsByName)
{
    EXPECT_NE(cl.clGetExtensionFunctionAddress("clIcdGetPlatformIDsKHR"), nullptr);
    EXPECT_EQ(cl.clGetExtensionFunctionAddress("clNothing"), nullptr);
    EXPECT_EQ(cl.clGetExtensionFunctionAddress(nullptr), nullptr);
    EXPECT_EQ(cl.clGetExtensionFunctionAddressForPlatform(reinterpret_cast<cl_platform_id>(m_context),
                                                          "clIcdGetPlatformIDsKHR"),
              nullptr);
}

TEST_F(CPlatformTest, AContextRemembersWhatItWasMadeOf)
{
    cl_device_id devices[] = {FindDevice("Kiln"), FindDevice("Host"), FindDevice("Kiln")};
    const cl_context_properties properties[] = {CL_CONTEXT_PLATFORM,
                                                reinterpret_cast<cl_context_properties>(m_platform), 0};
    cl_context context = cl.clCreateContext(properties, 3, devices, nullptr, nullptr, nullptr);
    cl_uint nDevices = 0;
    EXPECT_EQ(cl.clGetContextInfo(context, CL_CONTEXT_NUM_DEVICES, sizeof(nDevices), &nDevices, nullptr), CL_SUCCESS);
    EXPECT_EQ(nDevices, 2u) << "a device that is named twice is there once";
    cl_context_properties kept[3] = {};
    size_t nSize = 0;
    EXPECT_EQ(cl.clGetContextInfo(context, CL_CONTEXT_PROPERTIES, sizeof(kept), kept, &nSize), CL_SUCCESS);
    EXPECT_EQ(nSize, sizeof(kept));
    EXPECT_TRUE(std::equal(std::begin(kept), std::end(kept), std::begin(properties)));
    EXPECT_EQ(cl.clGetContextInfo(m_context, CL_CONTEXT_PROPERTIES, 0, nullptr, &nSize), CL_SUCCESS);
    EXPECT_EQ(nSize, 0u);
    cl.clReleaseContext(context);
}

} // namespace
