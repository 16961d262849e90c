#include "Kernels.h"
#include "Runtime.h"

#include <mutex>

/// Kernels with faults: the launch completes, and the faults are reported.
namespace
{

class CFaultsTest : public CRuntimeTest
{
protected:
    /// Collects the texts passed to the context's callback.
    struct SReports
    {
        std::mutex m_mutex;
        std::vector<std::string> m_vTexts;
    };

    void SetUp() override
    {
        CRuntimeTest::SetUp();
        cl.clReleaseCommandQueue(m_queue);
        cl.clReleaseContext(m_context);
        const auto notify = [](const char* pszText, const void*, size_t, void* pUser)
        {
            auto& reports = *static_cast<SReports*>(pUser);
            std::lock_guard<std::mutex> lock(reports.m_mutex);
            reports.m_vTexts.emplace_back(pszText);
        };
        m_context = cl.clCreateContext(nullptr, 1, &m_device, notify, &m_reports, nullptr);
        m_queue = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
    }

    /// Runs a kernel with one int pointer over 64 work-items in groups of 16. \return the buffer's contents
    std::vector<cl_int> Run(const std::string& strSource, const char* pszKernel)
    {
        const char* pszSource = strSource.c_str();
        cl_program program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
        EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
        cl_kernel kernel = cl.clCreateKernel(program, pszKernel, nullptr);
        std::vector<cl_int> vValues(64, 7);
        cl_mem buffer = MakeBuffer(64 * 4, vValues.data());
        EXPECT_EQ(cl.clSetKernelArg(kernel, 0, sizeof(buffer), &buffer), CL_SUCCESS);
        const size_t nGlobal = 64;
        const size_t nLocal = 16;
        EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &nGlobal, &nLocal, 0, nullptr, nullptr),
                  CL_SUCCESS);
        EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
        vValues = ReadAll<cl_int>(buffer, 64);
        cl.clReleaseMemObject(buffer);
        cl.clReleaseKernel(kernel);
        cl.clReleaseProgram(program);
        return vValues;
    }

    /// The only text that the callback received.
    std::string Report()
    {
        Control().GetCounter(PLATFORM_COUNTER_CONTEXTS); // waits for the callback
        std::lock_guard<std::mutex> lock(m_reports.m_mutex);
        EXPECT_EQ(m_reports.m_vTexts.size(), 1u);
        return m_reports.m_vTexts.empty() ? std::string() : m_reports.m_vTexts[0];
    }

    SReports m_reports;
};

TEST_F(CFaultsTest, ABarrierThatPartOfAGroupMisses)
{
    // The first work-item of each group doesn't reach the barrier.
    const std::string strSource = MakeModule(
        true, "misses", ";pointer:out:i32:1:1:0:uav:12:4:RW:0:0\n", "dcl_typeless_uav_id(12)_stride(4)_length(4)\n",
        "if_logicalnz vTidInGrp.x\nfence_threads\nendif\nishl r1.x, r0.x, l10.x\n"
        "i64add r1.xy, cb1[0].xyxy, r1.x000\nuav_raw_store_id(12)_addr64 mem0.x, r1.xy, r0.x\n");
    const std::vector<cl_int> vValues = Run(strSource, "misses");
    for (cl_int n = 0; n < 64; ++n)
    {
        EXPECT_EQ(vValues[static_cast<size_t>(n)], n) << "the others go on";
    }
    SPlatformFault fault{};
    Control().GetLastFault(&fault);
    EXPECT_EQ(fault.nUnreachedBarriers, 4u);
    EXPECT_EQ(fault.nBadAccesses, 0u);
    EXPECT_NE(Report().find("kernel misses: 4 barriers"), std::string::npos);
    SPlatformFaultRecord records[8] = {};
    ASSERT_EQ(Control().GetFaultRecords(records, 8), 4u);
    for (uint64_t n = 0; n < 4; ++n)
    {
        EXPECT_EQ(records[n].nWorkItem, 16 * n);
        EXPECT_NE(records[n].bBarrier, 0);
        EXPECT_EQ(records[n].nInstruction, records[0].nInstruction);
    }
}

TEST_F(CFaultsTest, DivisionsByZeroAndTheLeastNumberAreNoFault)
{
    const std::vector<cl_int> vValues =
        Run("kernel void divide(global int* p) { int i = get_global_id(0); int zero = i - i; int least = 1 << 31;\n"
            "p[i] = i / zero + i % zero + (least / (zero - 1) - least) + least % (zero - 1); }",
            "divide");
    for (cl_int n = 0; n < 64; ++n)
    {
        EXPECT_EQ(vValues[static_cast<size_t>(n)], n - 1);
    }
    SPlatformFault fault{};
    Control().GetLastFault(&fault);
    EXPECT_EQ(fault.nBadAccesses, 0u);
}

TEST_F(CFaultsTest, AddressesFarAwayAreDroppedAndTheFirstOneIsTold)
{
    const std::vector<cl_int> vValues =
        Run("kernel void far(global int* p) { int i = get_global_id(0); p[i * 536870911] = p[-1 - i] + 1; }", "far");
    EXPECT_EQ(vValues[0], 1) << "what isn't there reads as 0";
    EXPECT_EQ(std::vector<cl_int>(vValues.begin() + 1, vValues.end()), std::vector<cl_int>(63, 7));
    SPlatformFault fault{};
    Control().GetLastFault(&fault);
    EXPECT_EQ(fault.nBadAccesses, 64u + 63u);
    SPlatformFaultRecord records[4] = {};
    EXPECT_EQ(Control().GetFaultRecords(records, 4), 64u) << "no more are kept";
    EXPECT_EQ(records[0].nWorkItem, 0u);
    EXPECT_EQ(records[0].bWrite, 0);
    EXPECT_EQ(records[1].nWorkItem, 1u);
    EXPECT_EQ(records[2].nWorkItem, 1u) << "a read and a write";
    EXPECT_NE(records[2].bWrite, records[1].bWrite);
    EXPECT_EQ(fault.nWorkItem, 0u);
    EXPECT_EQ(fault.bWrite, 0);
    EXPECT_NE(Report().find("127 accesses outside memory, the first a read"), std::string::npos);
}

TEST_F(CFaultsTest, ToldWithTheKindOfMemoryAndWhereTheBuffersWere)
{
    // A read of local memory beyond its block, of an element beyond an array, and a write just after a buffer.
    const std::string strSource =
        MakeModule(true, "beyond", ";memory:hwlocal:16\n;pointer:out:i32:1:1:0:uav:12:4:RW:0:0\n",
                   "dcl_typeless_uav_id(12)_stride(4)_length(4)\ndcl_lds_id(1) 16\ndcl_indexed_temp_array x1[2]\n",
                   "if_logicalz r0.x\nmov r2.x, vTidInGrp.x\niadd r2.x, r2.x, l10.x\nmov r3.x, x1[r2.x].x\n"
                   "mov r2.x, cb0[0].x\nlds_load_id(1) r3.x, r2.x\n"
                   "ishl r1.x, cb0[0].x, l10.x\ni64add r1.xy, cb1[0].xyxy, r1.x000\n"
                   "uav_raw_store_id(12)_addr64 mem0.x, r1.xy, r0.x\nendif\n");
    Run(strSource, "beyond");
    SPlatformFaultRecord records[8] = {};
    ASSERT_EQ(Control().GetFaultRecords(records, 8), 3u);
    EXPECT_EQ(records[0].nMemory, static_cast<uint32_t>(PLATFORM_MEMORY_REGISTERS));
    EXPECT_EQ(records[0].nAddress, 2u);
    EXPECT_EQ(records[1].nMemory, static_cast<uint32_t>(PLATFORM_MEMORY_LOCAL));
    EXPECT_EQ(records[1].nAddress, 64u);
    EXPECT_EQ(records[2].nMemory, static_cast<uint32_t>(PLATFORM_MEMORY_GLOBAL));
    SPlatformBuffer buffer = {};
    ASSERT_EQ(Control().GetLastBuffers(&buffer, 1), 1u);
    EXPECT_EQ(buffer.nArgument, 0u);
    EXPECT_EQ(records[2].nAddress, buffer.nAddress + buffer.nSize) << "just past it";
    SPlatformSizes sizes = {};
    Control().GetLastSizes(&sizes);
    EXPECT_EQ(sizes.nDimensions, 1u);
    EXPECT_EQ(sizes.global[0], 64u);
    EXPECT_EQ(sizes.local[1], 1u);
    SPlatformEnd end = {};
    Control().GetLastEnd(&end);
    EXPECT_EQ(end.nEnd, static_cast<uint32_t>(PLATFORM_END_COMPLETE));
}

TEST_F(CFaultsTest, RunsAreBrokenOffAndSayWhereTheyWere)
{
    // An endless loop that only the break ends, as the limit is off.
    Control().SetInstructionLimit(0);
    const std::string strSource =
        MakeModule(true, "endless", ";pointer:out:i32:1:1:0:uav:12:4:RW:0:0\n", "", "whileloop\nendloop\n");
    const char* pszSource = strSource.c_str();
    cl_program program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
    ASSERT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
    cl_kernel kernel = cl.clCreateKernel(program, "endless", nullptr);
    const cl_mem null = nullptr;
    ASSERT_EQ(cl.clSetKernelArg(kernel, 0, sizeof(null), &null), CL_SUCCESS);
    const size_t nGlobal = 4096;
    const auto enqueue = [&]
    {
        cl_event event = nullptr;
        EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &nGlobal, nullptr, 0, nullptr, &event),
                  CL_SUCCESS);
        cl.clFlush(m_queue);
        return event;
    };
    const auto waitFor = [&](cl_event event)
    {
        cl.clWaitForEvents(1, &event);
        cl_int nStatus = CL_COMPLETE;
        cl.clGetEventInfo(event, CL_EVENT_COMMAND_EXECUTION_STATUS, sizeof(nStatus), &nStatus, nullptr);
        cl.clReleaseEvent(event);
        return nStatus;
    };
    SPlatformEnd end = {};
    cl_event running = enqueue();
    for (cl_int nStatus = CL_QUEUED; nStatus > CL_RUNNING;)
    {
        cl.clGetEventInfo(running, CL_EVENT_COMMAND_EXECUTION_STATUS, sizeof(nStatus), &nStatus, nullptr);
    }
    Control().BreakRuns(1);
    EXPECT_EQ(waitFor(running), CL_OUT_OF_RESOURCES);
    std::vector<SPlatformPlace> vPlaces(Control().GetPlaces(nullptr, 0));
    Control().GetPlaces(vPlaces.data(), static_cast<uint32_t>(vPlaces.size()));
    uint64_t nItems = 0;
    for (const SPlatformPlace& place : vPlaces)
    {
        nItems += place.nItems;
        EXPECT_TRUE(place.nWhere == PLATFORM_WHERE_AT || place.nWhere == PLATFORM_WHERE_NOT_BEGUN) << place.nWhere;
        EXPECT_EQ(place.nWhere == PLATFORM_WHERE_AT, place.nMost != 0);
    }
    EXPECT_EQ(nItems, nGlobal);
    Control().GetLastEnd(&end);
    EXPECT_EQ(end.nEnd, static_cast<uint32_t>(PLATFORM_END_BROKEN));
    EXPECT_LT(end.nWorkItem, nGlobal);
    EXPECT_EQ(waitFor(enqueue()), CL_OUT_OF_RESOURCES) << "and those to come";

    Control().BreakRuns(0);
    Control().SetInstructionLimit(1000);
    EXPECT_EQ(waitFor(enqueue()), CL_OUT_OF_RESOURCES);
    Control().GetLastEnd(&end);
    EXPECT_EQ(end.nEnd, static_cast<uint32_t>(PLATFORM_END_LIMIT));
    cl.clFinish(m_queue);
    cl.clReleaseKernel(kernel);
    cl.clReleaseProgram(program);
}

TEST_F(CFaultsTest, ADispatchBeyond64BitsIsRefused)
{
    const char* pszSource = "kernel void none(global int* p) { p[0] = 1; }";
    cl_program program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
    ASSERT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
    cl_kernel kernel = cl.clCreateKernel(program, "none", nullptr);
    const size_t sizes[][3] = {{0x80000000, 0x80000000, 4}, {0x80000000, 0x80000000, 8}, {0xFFFFFFFF, 0xFFFFFFFF, 2}};
    for (const auto& global : sizes)
    {
        EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 3, nullptr, global, nullptr, 0, nullptr, nullptr),
                  CL_INVALID_GLOBAL_WORK_SIZE);
    }
    cl.clReleaseKernel(kernel);
    cl.clReleaseProgram(program);
}

} // namespace
