#include "Kernels.h"
#include "Runtime.h"

#include <sys/mman.h>

#include <atomic>
#include <cstring>
#include <numeric>
#include <thread>

namespace
{

class CKernelsTest : public CRuntimeTest
{
protected:
    using CRuntimeTest::CRuntimeTest;

    cl_program MakeProgram(const std::string& strSource)
    {
        const char* pszSource = strSource.c_str();
        return cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
    }

    std::string BuildLog(cl_program program)
    {
        return InfoString(
            [&](size_t nSize, void* pValue, size_t* pnSize)
            { return cl.clGetProgramBuildInfo(program, m_device, CL_PROGRAM_BUILD_LOG, nSize, pValue, pnSize); });
    }

    /// Creates a kernel of a module, and releases the program.
    cl_kernel MakeKernel(const std::string& strSource, const char* pszName, const char* pszOptions = "")
    {
        cl_program program = MakeProgram(strSource);
        EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, pszOptions, nullptr, nullptr), CL_SUCCESS)
            << BuildLog(program);
        cl_kernel kernel = cl.clCreateKernel(program, pszName, nullptr);
        EXPECT_NE(kernel, nullptr);
        cl.clReleaseProgram(program);
        return kernel;
    }

    void SetScaleArguments(cl_kernel kernel, cl_mem source, cl_float fScale, cl_mem target)
    {
        EXPECT_EQ(cl.clSetKernelArg(kernel, 0, sizeof(source), &source), CL_SUCCESS);
        EXPECT_EQ(cl.clSetKernelArg(kernel, 1, sizeof(fScale), &fScale), CL_SUCCESS);
        EXPECT_EQ(cl.clSetKernelArg(kernel, 2, sizeof(target), &target), CL_SUCCESS);
    }

    cl_int Launch(cl_kernel kernel, size_t nGlobal, cl_event* pEvent = nullptr)
    {
        return cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &nGlobal, nullptr, 0, nullptr, pEvent);
    }

    static std::vector<cl_float> Ramp(size_t nCount)
    {
        std::vector<cl_float> vValues(nCount);
        std::iota(vValues.begin(), vValues.end(), 1.0f);
        return vValues;
    }

    static std::vector<cl_float> Scaled(std::vector<cl_float> vValues, cl_float fScale)
    {
        for (cl_float& fValue : vValues)
        {
            fValue *= fScale;
        }
        return vValues;
    }

    std::vector<char> ImageOf(cl_program program)
    {
        size_t nSize = 0;
        EXPECT_EQ(cl.clGetProgramInfo(program, CL_PROGRAM_BINARY_SIZES, sizeof(nSize), &nSize, nullptr), CL_SUCCESS);
        std::vector<char> vImage(nSize);
        char* pImage = vImage.data();
        EXPECT_EQ(cl.clGetProgramInfo(program, CL_PROGRAM_BINARIES, sizeof(pImage), &pImage, nullptr), CL_SUCCESS);
        return vImage;
    }

    cl_program FromImage(const std::vector<char>& vImage, cl_int* pnError = nullptr)
    {
        const size_t nSize = vImage.size();
        const auto* pImage = reinterpret_cast<const unsigned char*>(vImage.data());
        return cl.clCreateProgramWithBinary(m_context, 1, &m_device, &nSize, &pImage, nullptr, pnError);
    }

    void ExpectScales(cl_kernel kernel)
    {
        const std::vector<cl_float> vIn = Ramp(300);
        cl_mem source = MakeBuffer(vIn.size() * 4, vIn.data());
        cl_mem target = MakeBuffer(vIn.size() * 4);
        SetScaleArguments(kernel, source, 3.0f, target);
        EXPECT_EQ(Launch(kernel, vIn.size()), CL_SUCCESS);
        EXPECT_EQ(ReadAll<cl_float>(target, vIn.size()), Scaled(vIn, 3.0f));
        cl.clReleaseMemObject(source);
        cl.clReleaseMemObject(target);
    }
};

/// The same test on both devices.
class CDeviceKernelsTest : public CKernelsTest, public testing::WithParamInterface<const char*>
{
protected:
    CDeviceKernelsTest() : CKernelsTest(GetParam()) {}
    bool IsNewer() const { return m_strDevice == "Quench"; }
};

INSTANTIATE_TEST_SUITE_P(Devices, CDeviceKernelsTest, testing::Values("Quench", "Kiln"));

TEST_P(CDeviceKernelsTest, RunsFromSourceFromBinaryAndFromDebugText)
{
    cl_program program = MakeProgram(ScaleModule(IsNewer()));
    ASSERT_EQ(cl.clBuildProgram(program, 1, &m_device, "-g", nullptr, nullptr), CL_SUCCESS) << BuildLog(program);
    cl_kernel kernel = cl.clCreateKernel(program, "scale", nullptr);
    ExpectScales(kernel);
    cl.clReleaseKernel(kernel);
    const std::vector<char> vImage = ImageOf(program);
    cl.clReleaseProgram(program);

    for (const char* pszOptions : {"", "-use-debugil", "-ignore-env -use-debugil -just-kernel=scale"})
    {
        SCOPED_TRACE(pszOptions);
        cl_program again = FromImage(vImage);
        ASSERT_EQ(cl.clBuildProgram(again, 1, &m_device, pszOptions, nullptr, nullptr), CL_SUCCESS) << BuildLog(again);
        kernel = cl.clCreateKernel(again, "scale", nullptr);
        ExpectScales(kernel);
        cl.clReleaseKernel(kernel);
        cl.clReleaseProgram(again);
    }
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_KERNEL_RUNS), 4u);
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_BUILDS), 4u);
}

TEST_P(CDeviceKernelsTest, TakesNullBuffersOneBufferTwiceAndPartsOfBuffers)
{
    cl_kernel kernel = MakeKernel(ScaleModule(IsNewer()), "scale");
    const std::vector<cl_float> vIn = Ramp(64);
    cl_mem buffer = MakeBuffer(64 * 4, vIn.data());
    const cl_buffer_region region{128, 128};
    cl_mem part = cl.clCreateSubBuffer(buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, nullptr);

    SetScaleArguments(kernel, buffer, 2.0f, buffer);
    EXPECT_EQ(Launch(kernel, 64), CL_SUCCESS);
    EXPECT_EQ(ReadAll<cl_float>(buffer, 64), Scaled(vIn, 2.0f));

    SetScaleArguments(kernel, buffer, 1.0f, part);
    EXPECT_EQ(Launch(kernel, 32), CL_SUCCESS);
    std::vector<cl_float> vExpected = Scaled(vIn, 2.0f);
    std::copy(vExpected.begin(), vExpected.begin() + 32, vExpected.begin() + 32);
    EXPECT_EQ(ReadAll<cl_float>(buffer, 64), vExpected);

    // A sub-buffer in the middle of a buffer that is passed too: memory after the sub-buffer is still the buffer's.
    const cl_buffer_region middle{128, 64};
    cl_mem inside = cl.clCreateSubBuffer(buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &middle, nullptr);
    SetScaleArguments(kernel, inside, 1.0f, buffer);
    const size_t nOffset = 48, nCount = 16;
    EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, &nOffset, &nCount, nullptr, 0, nullptr, nullptr),
              CL_SUCCESS);
    std::fill(vExpected.begin() + 48, vExpected.end(), 0.0f);
    EXPECT_EQ(ReadAll<cl_float>(buffer, 64), vExpected);
    SPlatformFault fault{};
    Control().GetLastFault(&fault);
    EXPECT_EQ(fault.nBadAccesses, 16u) << "the reads, which are past the buffer";
    cl.clReleaseMemObject(inside);

    SetScaleArguments(kernel, nullptr, 2.0f, buffer);
    EXPECT_EQ(Launch(kernel, 64), CL_SUCCESS);
    EXPECT_EQ(ReadAll<cl_float>(buffer, 64), std::vector<cl_float>(64, 0.0f)) << "a null buffer reads as 0";
    Control().GetLastFault(&fault);
    EXPECT_EQ(fault.nBadAccesses, 64u);
    EXPECT_EQ(fault.bWrite, 0);
    for (cl_mem mem : {buffer, part})
    {
        cl.clReleaseMemObject(mem);
    }
    cl.clReleaseKernel(kernel);
}

TEST_P(CDeviceKernelsTest, AnAccessPastABufferIsDroppedCountedAndReported)
{
    std::atomic<int> nReports{0};
    const auto notify = [](const char* pszText, const void*, size_t, void* pUser)
    {
        EXPECT_NE(std::string(pszText).find("kernel scale: 8 accesses"), std::string::npos) << pszText;
        ++*static_cast<std::atomic<int>*>(pUser);
    };
    cl.clReleaseCommandQueue(m_queue);
    cl.clReleaseContext(m_context);
    m_context = cl.clCreateContext(nullptr, 1, &m_device, notify, &nReports, nullptr);
    m_queue = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
    cl_kernel kernel = MakeKernel(ScaleModule(IsNewer()), "scale");
    const std::vector<cl_float> vIn = Ramp(64);
    cl_mem source = MakeBuffer(64 * 4, vIn.data());
    cl_mem target = MakeBuffer(56 * 4);
    SetScaleArguments(kernel, source, 1.0f, target);
    EXPECT_EQ(Launch(kernel, 64), CL_SUCCESS);
    EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
    SPlatformFault fault{};
    Control().GetLastFault(&fault);
    EXPECT_EQ(fault.nBadAccesses, 8u);
    EXPECT_EQ(fault.bWrite, 1);
    EXPECT_EQ(fault.nWorkItem, 56u);
    Control().GetCounter(PLATFORM_COUNTER_CONTEXTS); // waits for the callback
    EXPECT_EQ(nReports, 1);
    for (cl_mem mem : {source, target})
    {
        cl.clReleaseMemObject(mem);
    }
    cl.clReleaseKernel(kernel);
}

TEST_F(CKernelsTest, ArgumentsStandWhereTheMetadataSays)
{
    const std::string strMore = ";value:v:i32:3:1:16\n;value:s:struct:24:1:32\n;pointer:b:u32:1:1:64:uav:13:4:RW:0:0\n"
                                ";pointer:l1:float:1:1:80:hl:1:4:RW:0:0\n;pointer:l2:float:1:1:96:hl:1:4:RW:0:0\n";
    cl_kernel kernel = MakeKernel(DumpModule(strMore), "dump");
    cl_mem target = MakeBuffer(128);
    cl_mem other = MakeBuffer(1 << 20);
    const cl_buffer_region region{256, 256};
    cl_mem part = cl.clCreateSubBuffer(other, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, nullptr);
    const cl_int vector[3] = {1, -2, 3};
    unsigned char bytes[24];
    std::iota(std::begin(bytes), std::end(bytes), static_cast<unsigned char>(1));
    EXPECT_EQ(cl.clSetKernelArg(kernel, 0, sizeof(target), &target), CL_SUCCESS);
    EXPECT_EQ(cl.clSetKernelArg(kernel, 1, sizeof(vector), vector), CL_SUCCESS);
    EXPECT_EQ(cl.clSetKernelArg(kernel, 2, sizeof(bytes), bytes), CL_SUCCESS);
    EXPECT_EQ(cl.clSetKernelArg(kernel, 3, sizeof(part), &part), CL_SUCCESS);
    EXPECT_EQ(cl.clSetKernelArg(kernel, 4, 100, nullptr), CL_SUCCESS);
    EXPECT_EQ(cl.clSetKernelArg(kernel, 5, 64, nullptr), CL_SUCCESS);
    cl_ulong nLocal = 0;
    EXPECT_EQ(cl.clGetKernelWorkGroupInfo(kernel, m_device, CL_KERNEL_LOCAL_MEM_SIZE, sizeof(nLocal), &nLocal, nullptr),
              CL_SUCCESS);
    EXPECT_EQ(nLocal, 164u);
    EXPECT_EQ(cl.clEnqueueTask(m_queue, kernel, 0, nullptr, nullptr), CL_SUCCESS);

    const std::vector<cl_uint> vWords = ReadAll<cl_uint>(target, 32);
    const auto element = [&](size_t n)
    { return std::vector<cl_uint>(vWords.begin() + 4 * n, vWords.begin() + 4 * n + 4); };
    EXPECT_EQ(element(1), (std::vector<cl_uint>{1, static_cast<cl_uint>(-2), 3, 0}));
    EXPECT_EQ(std::memcmp(&vWords[8], bytes, sizeof(bytes)), 0);
    const auto address = [&](size_t n) { return vWords[4 * n] | (static_cast<cl_ulong>(vWords[4 * n + 1]) << 32); };
    EXPECT_GT(address(0), 0xFFFFFFFFu) << "the newer device's addresses need all of their 64 bits";
    EXPECT_EQ(element(0)[2] | element(0)[3], 0u);
    EXPECT_NE(address(4), address(0));
    EXPECT_EQ(address(4) % 128, 0u);
    EXPECT_EQ(element(5), (std::vector<cl_uint>{0, 0, 0, 0}));
    EXPECT_EQ(element(6), (std::vector<cl_uint>{112, 0, 0, 0})) << "after the 100 bytes of the first, aligned to 16";
    for (cl_mem mem : {target, other, part})
    {
        cl.clReleaseMemObject(mem);
    }
    cl.clReleaseKernel(kernel);
}

TEST_F(CKernelsTest, AddressesOfTheOlderDeviceHave32Bits)
{
    cl_device_id kiln = FindDevice("Kiln");
    cl_context context = cl.clCreateContext(nullptr, 1, &kiln, nullptr, nullptr, nullptr);
    std::vector<cl_mem> vBuffers;
    cl_int nError = CL_SUCCESS;
    // The address space has room for less than nine objects of 512 MiB. They share their memory, of which no page is
    // resident.
    constexpr size_t nSize = size_t{512} << 20;
    void* pMemory = mmap(nullptr, nSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pMemory, MAP_FAILED);
    while (nError == CL_SUCCESS && vBuffers.size() < 16)
    {
        cl_mem buffer = cl.clCreateBuffer(context, CL_MEM_USE_HOST_PTR, nSize, pMemory, &nError);
        if (buffer)
        {
            vBuffers.push_back(buffer);
        }
    }
    EXPECT_EQ(nError, CL_MEM_OBJECT_ALLOCATION_FAILURE);
    EXPECT_GE(vBuffers.size(), 6u);
    EXPECT_LT(vBuffers.size(), 9u);
    for (cl_mem buffer : vBuffers)
    {
        cl.clReleaseMemObject(buffer);
    }
    cl.clReleaseContext(context);
    munmap(pMemory, nSize);
}

TEST_F(CKernelsTest, TellsOfKernelsAndArguments)
{
    cl_program program = MakeProgram(ScaleModule(true));
    ASSERT_EQ(cl.clBuildProgram(program, 0, nullptr, "-g", nullptr, nullptr), CL_SUCCESS);
    const auto programString = [&](cl_program_info eInfo)
    {
        return InfoString([&](size_t nSize, void* pValue, size_t* pnSize)
                          { return cl.clGetProgramInfo(program, eInfo, nSize, pValue, pnSize); });
    };
    EXPECT_EQ(programString(CL_PROGRAM_KERNEL_NAMES), "scale");
    EXPECT_EQ(programString(CL_PROGRAM_SOURCE), ScaleModule(true));
    cl_kernel kernel = nullptr;
    cl_uint nKernels = 0;
    EXPECT_EQ(cl.clCreateKernelsInProgram(program, 1, &kernel, &nKernels), CL_SUCCESS);
    EXPECT_EQ(nKernels, 1u);
    cl_uint nArguments = 0;
    EXPECT_EQ(cl.clGetKernelInfo(kernel, CL_KERNEL_NUM_ARGS, sizeof(nArguments), &nArguments, nullptr), CL_SUCCESS);
    EXPECT_EQ(nArguments, 3u);
    const auto argumentString = [&](cl_uint nIndex, cl_kernel_arg_info eInfo)
    {
        return InfoString([&](size_t nSize, void* pValue, size_t* pnSize)
                          { return cl.clGetKernelArgInfo(kernel, nIndex, eInfo, nSize, pValue, pnSize); });
    };
    EXPECT_EQ(argumentString(0, CL_KERNEL_ARG_TYPE_NAME), "float*");
    EXPECT_EQ(argumentString(1, CL_KERNEL_ARG_TYPE_NAME), "float");
    EXPECT_EQ(argumentString(2, CL_KERNEL_ARG_NAME), "out");
    size_t nGroup = 0;
    EXPECT_EQ(cl.clGetKernelWorkGroupInfo(kernel, nullptr, CL_KERNEL_WORK_GROUP_SIZE, sizeof(nGroup), &nGroup, nullptr),
              CL_SUCCESS);
    EXPECT_EQ(nGroup, 256u);
    // The kernel keeps its program alive, and the client can still query the program.
    cl.clReleaseProgram(program);
    cl_program kept = nullptr;
    EXPECT_EQ(cl.clGetKernelInfo(kernel, CL_KERNEL_PROGRAM, sizeof(kept), &kept, nullptr), CL_SUCCESS);
    EXPECT_EQ(kept, program);
    EXPECT_EQ(cl.clRetainProgram(kept), CL_SUCCESS);
    cl.clReleaseKernel(kernel);
    EXPECT_EQ(cl.clReleaseProgram(kept), CL_SUCCESS);
}

TEST_F(CKernelsTest, ABuildThatFailsSaysWhere)
{
    std::string strBroken = ScaleModule(true);
    strBroken.replace(strBroken.find("mul r2.x"), 8, "mul q2.x");
    const auto nLine =
        1 + std::count(strBroken.begin(), strBroken.begin() + static_cast<long>(strBroken.find("mul q2")), '\n');
    cl_program program = MakeProgram(strBroken);
    EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_BUILD_PROGRAM_FAILURE);
    EXPECT_NE(BuildLog(program).find("line " + std::to_string(nLine)), std::string::npos) << BuildLog(program);
    cl_build_status eStatus = 0;
    cl.clGetProgramBuildInfo(program, m_device, CL_PROGRAM_BUILD_STATUS, sizeof(eStatus), &eStatus, nullptr);
    EXPECT_EQ(eStatus, CL_BUILD_ERROR);
    EXPECT_EQ(cl.clCreateKernel(program, "scale", nullptr), nullptr);
    cl.clReleaseProgram(program);

    // Modules that assemble but have no meaning: with a missing function, or stages and memory that this device doesn't
    // have.
    const char* const lost[][3] = {{"call 1030", "call 1031", "call"},
                                   {"mul r2.x, r2.x, cb1[1].x", "gds_add_id(1) r2.x, r2.x", "gds_add"},
                                   {"mul r2.x, r2.x, cb1[1].x", "emit", "emit"},
                                   {"mul r2.x, r2.x, cb1[1].x", "dsx r2.x, r2.x", "dsx"},
                                   {"mul r2.x, r2.x, cb1[1].x", "append_buf_alloc_id(1) r2.x", "append_buf_alloc"}};
    for (const auto& change : lost)
    {
        std::string strLost = ScaleModule(true);
        const size_t nAt = strLost.find(change[0]);
        strLost.replace(nAt, std::string(change[0]).size(), change[1]);
        const auto nLostLine = 1 + std::count(strLost.begin(), strLost.begin() + static_cast<long>(nAt), '\n');
        program = MakeProgram(strLost);
        EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_BUILD_PROGRAM_FAILURE);
        const std::string strLog = BuildLog(program);
        EXPECT_NE(strLog.find("line " + std::to_string(nLostLine)), std::string::npos) << strLog;
        EXPECT_NE(strLog.find(change[2]), std::string::npos) << strLog;
        cl.clReleaseProgram(program);
    }
}

TEST_F(CKernelsTest, RefusesTheOptionsThatATestNames)
{
    Control().SetRefusedBuildOption("-ignore-env");
    cl_program program = MakeProgram(ScaleModule(true));
    EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, "-g -ignore-env", nullptr, nullptr), CL_INVALID_BUILD_OPTIONS);
    EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, "-g", nullptr, nullptr), CL_SUCCESS);
    Control().SetRefusedBuildOption(nullptr);
    EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, "-g -ignore-env", nullptr, nullptr), CL_SUCCESS);
    cl.clReleaseProgram(program);
}

TEST_F(CKernelsTest, CompilesThenLinks)
{
    std::atomic<int> nNotified{0};
    const auto notify = [](cl_program, void* pUser) { ++*static_cast<std::atomic<int>*>(pUser); };
    cl_program object = MakeProgram(ScaleModule(true));
    ASSERT_EQ(cl.clCompileProgram(object, 0, nullptr, "", 0, nullptr, nullptr, notify, &nNotified), CL_SUCCESS);
    EXPECT_EQ(cl.clCreateKernel(object, "scale", nullptr), nullptr) << "not linked yet";
    cl_int nError = -1;
    cl_program linked = cl.clLinkProgram(m_context, 0, nullptr, "", 1, &object, notify, &nNotified, &nError);
    ASSERT_EQ(nError, CL_SUCCESS);
    const cl_program both[] = {object, object};
    cl_program failed = cl.clLinkProgram(m_context, 0, nullptr, "", 2, both, nullptr, nullptr, &nError);
    EXPECT_EQ(nError, CL_LINK_PROGRAM_FAILURE) << "a module of IL is whole in itself";
    EXPECT_NE(BuildLog(failed).find("whole program"), std::string::npos);
    cl.clReleaseProgram(failed);
    cl_kernel kernel = cl.clCreateKernel(linked, "scale", nullptr);
    ExpectScales(kernel);
    Control().GetCounter(PLATFORM_COUNTER_PROGRAMS); // waits for the callbacks
    EXPECT_EQ(nNotified, 2);
    cl.clReleaseKernel(kernel);
    cl.clReleaseProgram(linked);
    cl.clReleaseProgram(object);
}

TEST_F(CKernelsTest, AKernelThatDoesntEndIsStoppedAndFailsItsEventAndTheWait)
{
    Control().SetInstructionLimit(100000);
    cl_kernel kernel = MakeKernel(EndlessModule(), "endless");
    cl_event event = nullptr;
    ASSERT_EQ(Launch(kernel, 64, &event), CL_SUCCESS);
    EXPECT_EQ(cl.clWaitForEvents(1, &event), CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST);
    EXPECT_EQ(StatusOf(event), CL_OUT_OF_RESOURCES);
    EXPECT_EQ(cl.clFinish(m_queue), CL_OUT_OF_RESOURCES);
    EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS) << "reported once";
    cl.clReleaseEvent(event);
    cl.clReleaseKernel(kernel);
}

TEST_F(CKernelsTest, ALaunchKeepsWhatItNeedsAndItsArgumentsAsTheyWere)
{
    cl_event gate = cl.clCreateUserEvent(m_context, nullptr);
    cl_kernel kernel = MakeKernel(ScaleModule(true), "scale");
    const std::vector<cl_float> vIn = Ramp(64);
    cl_mem source = MakeBuffer(256, vIn.data());
    cl_mem target = MakeBuffer(256);
    cl_mem unused = MakeBuffer(256);
    SetScaleArguments(kernel, source, 5.0f, target);
    const size_t nGlobal = 64;
    ASSERT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &nGlobal, nullptr, 1, &gate, nullptr), CL_SUCCESS);
    SetScaleArguments(kernel, source, 7.0f, unused);
    cl.clReleaseKernel(kernel);
    cl.clReleaseMemObject(source);
    cl.clSetUserEventStatus(gate, CL_COMPLETE);
    EXPECT_EQ(ReadAll<cl_float>(target, 64), Scaled(vIn, 5.0f));
    cl.clReleaseMemObject(target);
    cl.clReleaseMemObject(unused);
    cl.clReleaseEvent(gate);
}

TEST_F(CKernelsTest, AnArgumentThatHasGoneIsFoundOut)
{
    cl_kernel kernel = MakeKernel(ScaleModule(true), "scale");
    cl_mem target = MakeBuffer(256);
    cl_mem gone = MakeBuffer(256);
    SetScaleArguments(kernel, gone, 1.0f, target);
    cl.clReleaseMemObject(gone);
    EXPECT_EQ(Launch(kernel, 64), CL_INVALID_KERNEL_ARGS);
    cl_mem other = MakeBuffer(256); // may have the old handle
    EXPECT_EQ(Launch(kernel, 64), CL_INVALID_KERNEL_ARGS);
    cl.clReleaseMemObject(other);
    cl.clReleaseMemObject(target);
    cl.clReleaseKernel(kernel);
}

struct SSamplerCase
{
    cl_addressing_mode m_eAddressing;
    std::vector<cl_float> m_vExpected;
};

TEST_F(CKernelsTest, ImagesAndSamplersReachTheKernel)
{
    cl_kernel kernel = MakeKernel(PictureModule(), "picture");
    const cl_image_format format{CL_R, CL_FLOAT};
    std::vector<cl_float> vRow = {10.0f, 11.0f, 12.0f, 13.0f};
    cl_mem source =
        cl.clCreateImage2D(m_context, CL_MEM_READ_ONLY | CL_MEM_COPY_HOST_PTR, &format, 4, 1, 0, vRow.data(), nullptr);
    cl_mem target = cl.clCreateImage2D(m_context, CL_MEM_WRITE_ONLY, &format, 4, 2, 0, nullptr, nullptr);
    cl_mem out = MakeBuffer(64);
    EXPECT_EQ(cl.clSetKernelArg(kernel, 0, sizeof(target), &target), CL_INVALID_ARG_VALUE) << "the kernel reads it";
    EXPECT_EQ(cl.clSetKernelArg(kernel, 1, sizeof(source), &source), CL_INVALID_ARG_VALUE) << "the kernel writes it";
    EXPECT_EQ(cl.clSetKernelArg(kernel, 0, sizeof(source), &source), CL_SUCCESS);
    EXPECT_EQ(cl.clSetKernelArg(kernel, 1, sizeof(target), &target), CL_SUCCESS);
    EXPECT_EQ(cl.clSetKernelArg(kernel, 2, sizeof(out), &out), CL_SUCCESS);
    const size_t origin[3] = {0, 0, 0}, region[3] = {4, 1, 1};
    for (const SSamplerCase& c :
         {SSamplerCase{CL_ADDRESS_CLAMP_TO_EDGE, {12, 13, 13, 13}}, SSamplerCase{CL_ADDRESS_CLAMP, {12, 13, 0, 0}}})
    {
        cl_sampler sampler = cl.clCreateSampler(m_context, CL_FALSE, c.m_eAddressing, CL_FILTER_NEAREST, nullptr);
        EXPECT_EQ(cl.clSetKernelArg(kernel, 3, sizeof(sampler), &sampler), CL_SUCCESS);
        cl.clReleaseSampler(sampler); // the kernel has copied what it needs
        EXPECT_EQ(Launch(kernel, 4), CL_SUCCESS);
        std::vector<cl_float> vRead(4);
        EXPECT_EQ(
            cl.clEnqueueReadImage(m_queue, target, CL_TRUE, origin, region, 0, 0, vRead.data(), 0, nullptr, nullptr),
            CL_SUCCESS);
        EXPECT_EQ(vRead, c.m_vExpected);
    }
    EXPECT_EQ(ReadAll<cl_uint>(out, 16),
              (std::vector<cl_uint>{4, 1, 1, 1, CL_FLOAT, CL_R, 0, 0, 4, 2, 1, 1, CL_FLOAT, CL_R, 0, 0}));

    cl_mem none = nullptr;
    EXPECT_EQ(cl.clSetKernelArg(kernel, 0, sizeof(none), &none), CL_SUCCESS) << "a null image reads as 0";
    EXPECT_EQ(Launch(kernel, 4), CL_SUCCESS);
    std::vector<cl_float> vRead(4, 1.0f);
    EXPECT_EQ(cl.clEnqueueReadImage(m_queue, target, CL_TRUE, origin, region, 0, 0, vRead.data(), 0, nullptr, nullptr),
              CL_SUCCESS);
    EXPECT_EQ(vRead, std::vector<cl_float>(4, 0.0f));
    EXPECT_EQ(ReadAll<cl_uint>(out, 16)[0], 0u);
    for (cl_mem mem : {source, target, out})
    {
        cl.clReleaseMemObject(mem);
    }
    cl.clReleaseKernel(kernel);
}

struct STraced
{
    std::vector<cl_uint> m_vInstructions;
};

TEST_F(CKernelsTest, ATraceHasEveryInstructionInOrder)
{
    STraced traced;
    const auto record = [](const SPlatformTraceRecord* pRecord, void* pUser)
    {
        auto& t = *static_cast<STraced*>(pUser);
        t.m_vInstructions.push_back(pRecord->nInstruction);
        EXPECT_LE(pRecord->nItems, 64u);
    };
    cl_kernel kernel = MakeKernel(ScaleModule(true), "scale");
    const std::vector<cl_float> vIn = Ramp(64);
    cl_mem buffer = MakeBuffer(256, vIn.data());
    SetScaleArguments(kernel, buffer, 2.0f, buffer);
    Control().SetTrace(record, &traced);
    EXPECT_EQ(Launch(kernel, 64), CL_SUCCESS);
    EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
    Control().SetTrace(nullptr, nullptr);
    // The body: id (2), shift, address, load, multiply, address, store; around it calls and returns.
    EXPECT_GE(traced.m_vInstructions.size(), 8u);
    const size_t nTraced = traced.m_vInstructions.size();
    EXPECT_EQ(Launch(kernel, 64), CL_SUCCESS);
    EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
    EXPECT_EQ(traced.m_vInstructions.size(), nTraced) << "the trace is switched off";
    EXPECT_EQ(ReadAll<cl_float>(buffer, 64), Scaled(vIn, 4.0f));
    cl.clReleaseMemObject(buffer);
    cl.clReleaseKernel(kernel);
}

class CNativeTest : public CKernelsTest
{
protected:
    CNativeTest() : CKernelsTest("Host") {}
};

struct SNativeArguments
{
    cl_uint* m_pWords;
    cl_uint m_nCount;
    cl_uint m_nValue;
};

TEST_F(CNativeTest, ANativeKernelGetsTheMemoryOfItsObjects)
{
    cl_mem buffer = MakeBuffer(64);
    SNativeArguments arguments{nullptr, 16, 77};
    const void* pPlace = &arguments.m_pWords;
    const auto fill = [](void* pArguments)
    {
        auto& a = *static_cast<SNativeArguments*>(pArguments);
        std::fill(a.m_pWords, a.m_pWords + a.m_nCount, a.m_nValue);
    };
    EXPECT_EQ(cl.clEnqueueNativeKernel(m_queue, fill, &arguments, sizeof(arguments), 1, &buffer, &pPlace, 0, nullptr,
                                       nullptr),
              CL_SUCCESS);
    arguments.m_nValue = 0; // the call has copied it
    EXPECT_EQ(ReadAll<cl_uint>(buffer, 16), std::vector<cl_uint>(16, 77));
    const void* pOutside = &arguments + 1;
    EXPECT_EQ(cl.clEnqueueNativeKernel(m_queue, fill, &arguments, sizeof(arguments), 1, &buffer, &pOutside, 0, nullptr,
                                       nullptr),
              CL_INVALID_VALUE);
    cl.clReleaseMemObject(buffer);
}

/// Several threads use one queue: each command checks that no other runs, and that its own thread's previous one did.
struct SInTurn
{
    const SRuntimeEntries& m_cl;
    cl_command_queue m_queue;
    std::atomic<int> m_nInside{0};
    std::atomic<int> m_nWrong{0};
    cl_uint m_vNext[4] = {};

    struct SCall
    {
        SInTurn* m_pShared;
        cl_uint m_nThread;
        cl_uint m_nNumber;
    };

    static void CL_CALLBACK Run(void* pArguments)
    {
        const auto& call = *static_cast<SCall*>(pArguments);
        SInTurn& shared = *call.m_pShared;
        const bool bAlone = ++shared.m_nInside == 1;
        const bool bNext = shared.m_vNext[call.m_nThread]++ == call.m_nNumber;
        // On any thread that runs the command, the wait would never end.
        const bool bRefused = shared.m_cl.clFinish(shared.m_queue) == CL_INVALID_OPERATION;
        shared.m_nWrong += bAlone && bNext && bRefused ? 0 : 1;
        --shared.m_nInside;
    }

    void Work(cl_uint nThread, cl_mem buffer)
    {
        for (cl_uint n = 0; n < 300; ++n)
        {
            SCall call{this, nThread, n};
            cl_event event = nullptr;
            m_nWrong += m_cl.clEnqueueNativeKernel(m_queue, Run, &call, sizeof(call), 0, nullptr, nullptr, 0, nullptr,
                                                   &event) != CL_SUCCESS;
            cl_uint nWord = 0;
            if ((n + nThread) % 3 == 0)
            {
                m_nWrong += m_cl.clWaitForEvents(1, &event) != CL_SUCCESS || m_vNext[nThread] != n + 1;
            }
            else if ((n + nThread) % 3 == 1)
            {
                m_nWrong += m_cl.clEnqueueReadBuffer(m_queue, buffer, CL_TRUE, 0, 4, &nWord, 0, nullptr, nullptr) !=
                                CL_SUCCESS ||
                            m_vNext[nThread] != n + 1;
            }
            m_cl.clReleaseEvent(event);
        }
        m_nWrong += m_cl.clFinish(m_queue) != CL_SUCCESS || m_vNext[nThread] != 300;
    }
};

TEST_F(CNativeTest, CommandsOfAQueueRunInTurnWhicheverOfTheWaitingThreadsRunsThem)
{
    cl_mem buffer = MakeBuffer(64);
    SInTurn shared{cl, m_queue};
    std::vector<std::thread> vThreads;
    for (cl_uint n = 0; n < 4; ++n)
    {
        vThreads.emplace_back([&shared, n, buffer] { shared.Work(n, buffer); });
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    EXPECT_EQ(shared.m_nWrong, 0);
    cl.clReleaseMemObject(buffer);
}

} // namespace
