#include "tests/api/PlatformFixture.h"
#include "tests/api/Scripts.h"
#include "tests/api/allocations/AllocationFaults.h"
#include "tests/support/Stride.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>

namespace
{

/// How many of a session's allocations are skipped after each that is made to fail: trying all of them takes minutes.
/// KESTREL_ALLOCATION_STRIDE=1 skips none.
size_t Stride()
{
    return ReadStride("KESTREL_ALLOCATION_STRIDE", s_bSanitized ? 197 : 23);
}

/// The first allocation to fail. With a stride above their number it is the only one in a round.
size_t First()
{
    return ReadStride("KESTREL_ALLOCATION_FIRST", 1);
}

const unsigned int s_nHangSeconds = 60;

size_t CountEntries(const char* pszFolder)
{
    const std::filesystem::directory_iterator first(pszFolder);
    return static_cast<size_t>(std::distance(first, std::filesystem::directory_iterator()));
}

/// The runtime's threads end a little after their work.
bool WaitForThreads(size_t nThreads)
{
    for (int i = 0; i < 2000 && CountEntries("/proc/self/task") > nThreads; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return CountEntries("/proc/self/task") <= nThreads;
}

class CAllocationFixture : public CPlatformFixture
{
protected:
    void SetUp() override
    {
        CPlatformFixture::SetUp();
        static const bool s_bCaught = AllocationFaults::CatchMalloc();
        ASSERT_TRUE(s_bCaught);
        m_Table = AllocationFaults::MakeTable(Cl());
        ASSERT_EQ(ovkclDebugSetDispatchTable(&m_Table), CL_SUCCESS);
    }

    void TearDown() override
    {
        alarm(0);
        AllocationFaults::Fail(0, false);
        Close();
        ovkclDebugSetDispatchTable(&Cl());
        CPlatformFixture::TearDown();
    }

    cl_int Enqueue(size_t nGlobal, const size_t* pLocal, cl_event& event) override
    {
        const AllocationFaults::CInside inside;
        return CPlatformFixture::Enqueue(nGlobal, pLocal, event);
    }

    void Note(ovkclDebugEvent eEvent) override
    {
        const AllocationFaults::CInside outside(false);
        CPlatformFixture::Note(eEvent);
    }

    cl_icd_dispatch m_Table;
};

class EveryAllocation : public CAllocationFixture, public testing::WithParamInterface<SScript>
{
protected:
    void SetUp() override
    {
        CAllocationFixture::SetUp();
        SetIntercept(GetParam().bIntercept);
        Open();
        m_nOpen = CountObjects();
    }

    /// One session of the script, in which one allocation fails. The alarm ends a session that hangs.
    cl_int RunSession(uint64_t nAllocation, bool bForEver)
    {
        const std::vector<float> vBefore(s_nItems, -1.0f);
        Cl().clEnqueueWriteBuffer(m_queue, m_buffers[2], CL_TRUE, 0, sizeof(float) * s_nItems, vBefore.data(), 0,
                                  nullptr, nullptr);
        alarm(s_nHangSeconds);
        AllocationFaults::Fail(nAllocation, bForEver);
        const cl_int nCode = Debug(GetParam().pfnClient);
        Cl().clFinish(m_queue);
        m_nAllocations = AllocationFaults::CountAllocations();
        m_nFailed = AllocationFaults::CountFailed();
        AllocationFaults::Fail(0, false);
        return nCode;
    }

    void ExpectGoodSession()
    {
        EXPECT_EQ(RunSession(0, false), CL_SUCCESS);
        EXPECT_EQ(ReadOutput(), ExpectedOutput());
        ASSERT_FALSE(m_vEvents.empty());
        EXPECT_EQ(m_vEvents.back(), OVKCLDEBUG_EVENT_FINISHED);
        EXPECT_TRUE(WaitForObjects(m_nOpen));
    }

    uint64_t m_nOpen = 0;
    uint64_t m_nAllocations = 0; ///< of the last session
    uint64_t m_nFailed = 0;
};

bool IsLast(ovkclDebugEvent eEvent)
{
    return eEvent == OVKCLDEBUG_EVENT_FINISHED || eEvent == OVKCLDEBUG_EVENT_ERROR;
}

} // namespace

/// An accepted launch has its outputs, whatever couldn't be allocated; a refused one has left the buffers alone, and
/// its code names what was missing. A session that was begun ends with an event. No object, memory, file or thread is
/// left, and the next session works.
TEST_P(EveryAllocation, CanFailOnceAndForEver)
{
    // Memory that is kept between sessions has to grow first.
    uint64_t nAllocations = 0;
    for (int n = 0; n < 6 && (nAllocations == 0 || m_nAllocations != nAllocations); ++n)
    {
        nAllocations = m_nAllocations;
        ExpectGoodSession();
    }
    ASSERT_EQ(m_nAllocations, nAllocations);
    const uint64_t nAlive = AllocationFaults::CountAlive();
    const size_t nFiles = CountEntries("/proc/self/fd");
    const size_t nThreads = CountEntries("/proc/self/task");
    std::map<cl_int, uint64_t> codes;
    uint64_t nFaults = 0;
    for (const bool bForEver : {false, true})
    {
        // Each round tries other allocations.
        for (uint64_t n = First() + nFaults % Stride(); n <= nAllocations && !HasFailure(); n += Stride())
        {
            SCOPED_TRACE(std::string(bForEver ? "from allocation " : "allocation ") + std::to_string(n));
            ++nFaults;
            const cl_int nCode = RunSession(n, bForEver);
            EXPECT_GT(m_nFailed, 0u);
            EXPECT_TRUE(nCode == CL_SUCCESS || nCode == CL_OUT_OF_HOST_MEMORY || nCode == OVKCLDEBUG_ENQUEUE_FAILED)
                << nCode;
            ++codes[nCode];
            EXPECT_EQ(ReadOutput(), nCode == CL_SUCCESS ? ExpectedOutput() : std::vector<float>(s_nItems, -1.0f));
            EXPECT_TRUE(m_vEvents.empty() ? nCode != CL_SUCCESS || GetParam().bIntercept : IsLast(m_vEvents.back()));
            EXPECT_TRUE(WaitForObjects(m_nOpen));
            EXPECT_EQ(AllocationFaults::CountAlive(), nAlive);
            EXPECT_EQ(CountEntries("/proc/self/fd"), nFiles);
            if (nFaults % 40 == 0)
            {
                ExpectGoodSession();
            }
        }
    }
    ExpectGoodSession();
    EXPECT_EQ(CountEntries("/proc/self/fd"), nFiles);
    EXPECT_TRUE(WaitForThreads(nThreads));
    EXPECT_GT(codes[CL_OUT_OF_HOST_MEMORY], 0u);
    std::printf("%llu allocations, %llu faults injected\n", static_cast<unsigned long long>(nAllocations),
                static_cast<unsigned long long>(nFaults));
    for (const auto& code : codes)
    {
        std::printf("  code %d: %llu\n", code.first, static_cast<unsigned long long>(code.second));
    }
}

INSTANTIATE_TEST_SUITE_P(Sessions, EveryAllocation, testing::ValuesIn(GetScripts()),
                         [](const testing::TestParamInfo<SScript>& test) { return std::string(test.param.pszName); });
