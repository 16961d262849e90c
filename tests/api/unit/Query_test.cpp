#include "api/QueryGlobalMemory.h"
#include "api/Version.h"
#include "tests/api/unit/SessionFixture.h"

#include <numeric>

namespace
{

const size_t s_nItems = 8; // 4 x 2
const ovkclDebugRegisterLocator s_nX1at7 = 0x800000000700011EULL;

/// A call of a query with good arguments.
struct SQuery
{
    const char* szName;
    std::function<ovkclDebugError(ovkclDebugContext)> call;
    bool bStarted; ///< allowed there
    bool bHalted;
    bool bFinished;
};

size_t g_nSize;
ovkclDebugPC g_pc;
ovkclDebugPC g_list[4];
char g_bytes[4096];
const cl_bool* g_pMask;
const void* g_pValues;
ovkclDebugRegisterLocator g_locators[4];

const SQuery s_Queries[] = {
    {"pc", [](ovkclDebugContext c) { return ovkclDebugGetProgramCounter(c, &g_pc); }, false, true, false},
    {"set", [](ovkclDebugContext c) { return ovkclDebugSetBreakpoint(c, 5, 2, nullptr); }, true, true, false},
    {"clear", [](ovkclDebugContext c) { return ovkclDebugClearBreakpoint(c, 7); }, true, true, false},
    {"clear all", [](ovkclDebugContext c) { return ovkclDebugClearAllBreakpoints(c); }, true, true, false},
    {"count", [](ovkclDebugContext c) { return ovkclDebugGetNumBreakpoints(c, &g_nSize); }, true, true, false},
    {"list", [](ovkclDebugContext c) { return ovkclDebugGetAllBreakpoints(c, g_list, 4); }, true, true, false},
    {"size", [](ovkclDebugContext c) { return ovkclDebugGetKernelBinarySize(c, &g_nSize); }, true, true, true},
    {"binary", [](ovkclDebugContext c) { return ovkclDebugGetKernelBinary(c, g_bytes, sizeof(g_bytes)); }, true, true,
     true},
    {"mask", [](ovkclDebugContext c) { return ovkclDebugGetExecutionMask(c, &g_pMask, &g_nSize); }, false, true, false},
    {"track", [](ovkclDebugContext c) { return ovkclDebugSetTrackingRegisters(c, nullptr, 0); }, true, false, false},
    {"track private", [](ovkclDebugContext c) { return ovkclDebugSetTrackPrivateMemory(c, CL_TRUE); }, true, false,
     false},
    {"active", [](ovkclDebugContext c) { return ovkclDebugGetNumberOfActiveRegisters(c, &g_nSize); }, false, true,
     false},
    {"list active", [](ovkclDebugContext c) { return ovkclDebugGetActiveRegisters(c, g_locators, 4); }, false, true,
     false},
    {"values", [](ovkclDebugContext c) { return ovkclDebugGetRegisterValues(c, 3, &g_pValues, &g_nSize, &g_nSize); },
     false, true, false},
    {"private", [](ovkclDebugContext c) { return ovkclDebugGetPrivateMemoryValues(c, 0, 4, g_bytes, &g_nSize); }, false,
     true, false},
    {"global", [](ovkclDebugContext c) { return ovkclDebugGetGlobalMemoryValues(c, 12, 0x1000, 4, g_bytes, &g_nSize); },
     false, true, false},
    {"regions", [](ovkclDebugContext c) { return ovkclDebugGetValidGlobalMemoryRegions(c, 0, nullptr, nullptr); },
     false, true, false},
};

class Query : public CSessionFixture
{
protected:
    void SetUp() override
    {
        CSessionFixture::SetUp();
        const auto setUp = g_setUpDebugger;
        g_setUpDebugger = [=, this](CScriptedDebugger& debugger)
        {
            setUp(debugger);
            debugger.AddResult("mask", s_nItems * sizeof(cl_bool)).GetData()[0] = 1;
            std::iota(debugger.results["m0"]->GetData(), debugger.results["m0"]->GetData() + 64,
                      static_cast<unsigned char>(0));
            OVK_ShaderDebugger::CShaderDebuggerBuffer& r3 = debugger.AddResult("r3", s_nItems * 16);
            std::iota(r3.GetData(), r3.GetData() + r3.GetSize(), static_cast<unsigned char>(0));
            debugger.vActive = {"r3", "x1[7]"};
            m_pDebugger = &debugger;
        };
    }

    CScriptedDebugger* m_pDebugger = nullptr;
};

TEST_F(Query, EachIsAllowedAtItsEventsAndForOpenSessionsOnly)
{
    ovkclDebugContext last = nullptr;
    const auto client = [&](ovkclDebugContext context, ovkclDebugEvent eEvent)
    {
        last = context;
        for (const SQuery& query : s_Queries)
        {
            const bool bAllowed = eEvent == OVKCLDEBUG_EVENT_STARTED  ? query.bStarted
                                  : eEvent == OVKCLDEBUG_EVENT_HALTED ? query.bHalted
                                                                      : query.bFinished;
            EXPECT_EQ(query.call(context), bAllowed ? OVKCLDEBUG_SUCCESS : OVKCLDEBUG_ERROR_INVALID_STATE)
                << query.szName << " at " << eEvent;
            EXPECT_EQ(query.call(&m_vEvents), OVKCLDEBUG_ERROR_INVALID_CONTEXT) << query.szName;
        }
        return OVKCLDEBUG_COMMAND_STEP;
    };
    const auto setUp = g_setUpDebugger;
    g_setUpDebugger = [=](CScriptedDebugger& debugger)
    {
        setUp(debugger);
        debugger.nStops = 1;
    };
    EXPECT_EQ(Debug(client), CL_SUCCESS);
    EXPECT_EQ(m_vEvents.size(), 3u);
    for (const SQuery& query : s_Queries)
    {
        EXPECT_EQ(query.call(last), OVKCLDEBUG_ERROR_INVALID_CONTEXT) << query.szName;
    }
}

TEST_F(Query, NullPointersComeAfterContextAndEvent)
{
    AtHalt(
        [&](ovkclDebugContext c)
        {
            const ovkclDebugError nNull = OVKCLDEBUG_ERROR_INVALID_ARGUMENT;
            EXPECT_EQ(ovkclDebugGetProgramCounter(nullptr, nullptr), OVKCLDEBUG_ERROR_INVALID_CONTEXT);
            EXPECT_EQ(ovkclDebugGetProgramCounter(c, nullptr), nNull);
            EXPECT_EQ(ovkclDebugGetNumBreakpoints(c, nullptr), nNull);
            EXPECT_EQ(ovkclDebugGetAllBreakpoints(c, nullptr, 0), nNull);
            EXPECT_EQ(ovkclDebugGetKernelBinarySize(c, nullptr), nNull);
            EXPECT_EQ(ovkclDebugGetKernelBinary(c, nullptr, 0), nNull);
            EXPECT_EQ(ovkclDebugGetExecutionMask(c, nullptr, &g_nSize), nNull);
            EXPECT_EQ(ovkclDebugGetExecutionMask(c, &g_pMask, nullptr), nNull);
            EXPECT_EQ(ovkclDebugSetTrackingRegisters(c, nullptr, 1), OVKCLDEBUG_ERROR_INVALID_STATE);
            EXPECT_EQ(ovkclDebugGetNumberOfActiveRegisters(c, nullptr), nNull);
            EXPECT_EQ(ovkclDebugGetActiveRegisters(c, nullptr, 1), nNull);
            EXPECT_EQ(ovkclDebugGetRegisterValues(c, 3, nullptr, &g_nSize, &g_nSize), nNull);
            EXPECT_EQ(ovkclDebugGetRegisterValues(c, 3, &g_pValues, nullptr, &g_nSize), nNull);
            EXPECT_EQ(ovkclDebugGetRegisterValues(c, 3, &g_pValues, &g_nSize, nullptr), nNull);
            EXPECT_EQ(ovkclDebugGetPrivateMemoryValues(c, 0, 1, nullptr, &g_nSize), nNull);
            EXPECT_EQ(ovkclDebugGetPrivateMemoryValues(c, 0, 1, g_bytes, nullptr), nNull);
            EXPECT_EQ(ovkclDebugGetPrivateMemoryValues(c, ~0ULL, 2, g_bytes, &g_nSize), nNull);
            EXPECT_EQ(ovkclDebugGetGlobalMemoryValues(c, 12, 0x1000, 1, nullptr, nullptr), nNull);
            EXPECT_EQ(ovkclDebugGetValidGlobalMemoryRegions(c, 1, nullptr, nullptr), nNull);
            EXPECT_EQ(ovkclDebugUtilGetLastError(c, 1, nullptr, nullptr), nNull);
            EXPECT_EQ(ovkclDebugUtilGetLastError(nullptr, 0, nullptr, nullptr), nNull);
        });
}

TEST_F(Query, BreakpointsAreLinesInAscendingOrder)
{
    AtHalt(
        [&](ovkclDebugContext c)
        {
            EXPECT_EQ(ovkclDebugGetProgramCounter(c, &g_pc), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_pc, 33u);
            EXPECT_EQ(ovkclDebugSetBreakpoint(c, 20, 1, &g_pc), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_pc, 21u);
            EXPECT_EQ(ovkclDebugSetBreakpoint(c, 21, 0, nullptr), OVKCLDEBUG_ERROR_OPERATION_FAILED);
            EXPECT_EQ(ovkclDebugSetBreakpoint(c, 9, 0, nullptr), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(ovkclDebugGetNumBreakpoints(c, &g_nSize), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_nSize, 2u);
            g_list[0] = g_list[1] = 0;
            EXPECT_EQ(ovkclDebugGetAllBreakpoints(c, g_list, 1), OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL);
            EXPECT_EQ(g_list[0], 9u);
            EXPECT_EQ(g_list[1], 0u);
            EXPECT_EQ(ovkclDebugGetAllBreakpoints(c, g_list, 4), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_list[1], 21u);
            EXPECT_EQ(ovkclDebugClearBreakpoint(c, 10), OVKCLDEBUG_ERROR_OPERATION_FAILED);
            EXPECT_EQ(ovkclDebugClearBreakpoint(c, 9), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(ovkclDebugClearAllBreakpoints(c), OVKCLDEBUG_SUCCESS);
        });
}

TEST_F(Query, TheKernelBinaryIsThePreparedOne)
{
    AtHalt(
        [&](ovkclDebugContext c)
        {
            size_t nSize = 0;
            EXPECT_EQ(ovkclDebugGetKernelBinarySize(c, &nSize), OVKCLDEBUG_SUCCESS);
            std::vector<char> vBinary(nSize);
            EXPECT_EQ(ovkclDebugGetKernelBinary(c, vBinary.data(), nSize - 1), OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL);
            EXPECT_EQ(ovkclDebugGetKernelBinary(c, vBinary.data(), nSize), OVKCLDEBUG_SUCCESS);
            const std::string strBinary(vBinary.begin(), vBinary.end());
            EXPECT_NE(strBinary.find("call 1024"), std::string::npos);
            EXPECT_NE(strBinary.find(".debugilbin"), std::string::npos);
            EXPECT_EQ(strBinary.find(".text"), std::string::npos);
        });
}

TEST_F(Query, RegistersAreHandedOutWithoutACopy)
{
    AtHalt(
        [&](ovkclDebugContext c)
        {
            EXPECT_EQ(ovkclDebugGetExecutionMask(c, &g_pMask, &g_nSize), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(static_cast<const void*>(g_pMask), m_pDebugger->results["mask"]->GetData());
            EXPECT_EQ(g_nSize, s_nItems);

            size_t nStride = 0;
            EXPECT_EQ(ovkclDebugGetRegisterValues(c, 3, &g_pValues, &nStride, &g_nSize), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_pValues, m_pDebugger->results["r3"]->GetData());
            EXPECT_EQ(nStride, 16u);
            EXPECT_EQ(g_nSize, s_nItems);
            for (const ovkclDebugRegisterLocator locator :
                 std::vector<ovkclDebugRegisterLocator>{4, s_nX1at7, 0x20000, ~0ULL})
            {
                EXPECT_EQ(ovkclDebugGetRegisterValues(c, locator, &g_pValues, &nStride, &g_nSize),
                          OVKCLDEBUG_ERROR_INVALID_LOCATION);
            }

            EXPECT_EQ(ovkclDebugGetNumberOfActiveRegisters(c, &g_nSize), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_nSize, 2u);
            EXPECT_EQ(ovkclDebugGetActiveRegisters(c, nullptr, 0), OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL);
            EXPECT_EQ(ovkclDebugGetActiveRegisters(c, g_locators, 2), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_locators[0], 3u);
            EXPECT_EQ(g_locators[1], s_nX1at7);
            m_pDebugger->vActive.clear();
            EXPECT_EQ(ovkclDebugGetActiveRegisters(c, nullptr, 0), OVKCLDEBUG_SUCCESS);

            m_pDebugger->results.erase("mask");
            EXPECT_EQ(ovkclDebugGetExecutionMask(c, &g_pMask, &g_nSize), OVKCLDEBUG_ERROR_INVALID_STATE);
        });
}

TEST_F(Query, TrackingKeepsPrivateMemoryUnlessItIsSwitchedOff)
{
    typedef std::set<std::string> Names;
    struct SDevice
    {
        const char* szName;
        const char* szPrivate;
    };
    for (const SDevice& device : {SDevice{"Quench", "PrivateUAVAccess8"}, SDevice{"Kiln", "x1"}})
    {
        m_fake.strDeviceName = device.szName;
        const Names both = {device.szPrivate, "r3", "x2[7]", "x2"};
        const Names registersOnly = {"r3", "x2[7]", "x2"};
        const auto client = [&](ovkclDebugContext c, ovkclDebugEvent eEvent)
        {
            if (eEvent != OVKCLDEBUG_EVENT_STARTED)
            {
                return OVKCLDEBUG_COMMAND_CONTINUE;
            }
            const ovkclDebugRegisterLocator locators[] = {3, 0x800000000700021EULL};
            const ovkclDebugRegisterLocator bad[] = {3, 0x20000};
            EXPECT_EQ(ovkclDebugSetTrackingRegisters(c, nullptr, 1), OVKCLDEBUG_ERROR_INVALID_ARGUMENT);
            EXPECT_EQ(ovkclDebugSetTrackingRegisters(c, locators, 2), OVKCLDEBUG_SUCCESS);
            EXPECT_TRUE(m_pDebugger->GetEnableTrackingVariables());
            EXPECT_EQ(m_pDebugger->GetTrackingVariables(), both);
            EXPECT_EQ(ovkclDebugSetTrackingRegisters(c, bad, 2), OVKCLDEBUG_ERROR_INVALID_LOCATION);
            EXPECT_EQ(m_pDebugger->GetTrackingVariables(), both) << "nothing changed";

            EXPECT_EQ(ovkclDebugSetTrackPrivateMemory(c, 2), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(m_pDebugger->GetTrackingVariables(), registersOnly) << "any value but CL_TRUE";
            EXPECT_EQ(ovkclDebugSetTrackingRegisters(c, locators, 2), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(m_pDebugger->GetTrackingVariables(), both) << "2 still means that it is tracked";
            EXPECT_EQ(ovkclDebugSetTrackPrivateMemory(c, CL_FALSE), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(ovkclDebugSetTrackingRegisters(c, locators, 2), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(m_pDebugger->GetTrackingVariables(), registersOnly);

            EXPECT_EQ(ovkclDebugSetTrackingRegisters(c, nullptr, 0), OVKCLDEBUG_SUCCESS);
            EXPECT_FALSE(m_pDebugger->GetEnableTrackingVariables());
            return OVKCLDEBUG_COMMAND_CONTINUE;
        };
        EXPECT_EQ(Debug(client), CL_SUCCESS);
    }
}

TEST_F(Query, PrivateMemoryIsReadAcrossRowsForEveryWorkItem)
{
    struct SDevice
    {
        const char* szName;
        const char* szRow1;
    };
    for (const SDevice& device : {SDevice{"Quench", "PrivateUAVAccess8[1]"}, SDevice{"Kiln", "x1[1]"}})
    {
        m_fake.strDeviceName = device.szName;
        AtHalt(
            [&](ovkclDebugContext c)
            {
                OVK_ShaderDebugger::CShaderDebuggerBuffer& row = m_pDebugger->AddResult(device.szRow1, s_nItems * 16);
                std::iota(row.GetData(), row.GetData() + row.GetSize(), static_cast<unsigned char>(1));
                std::vector<unsigned char> vBytes(s_nItems * 20 + 1, 0xEE);
                EXPECT_EQ(ovkclDebugGetPrivateMemoryValues(c, 12, 20, vBytes.data(), &g_nSize), OVKCLDEBUG_SUCCESS);
                EXPECT_EQ(g_nSize, s_nItems * 20);
                for (size_t i = 0; i < s_nItems * 20; ++i)
                {
                    const size_t nItem = i / 20;
                    const size_t nByte = i % 20;
                    EXPECT_EQ(vBytes[i], nByte < 4 ? 0 : nItem * 16 + nByte - 4 + 1) << i;
                }
                EXPECT_EQ(vBytes.back(), 0xEE);
                EXPECT_EQ(ovkclDebugGetPrivateMemoryValues(c, 12, 0, nullptr, &g_nSize), OVKCLDEBUG_SUCCESS);
                EXPECT_EQ(g_nSize, 0u);
                EXPECT_EQ(ovkclDebugGetPrivateMemoryValues(c, 16ULL << 32, 4, vBytes.data(), &g_nSize),
                          OVKCLDEBUG_SUCCESS);
                EXPECT_EQ(vBytes[0], 0) << "far past the last row";

                m_pDebugger->AddResult(device.szRow1, 16);
                EXPECT_EQ(ovkclDebugGetPrivateMemoryValues(c, 16, 4, vBytes.data(), &g_nSize),
                          OVKCLDEBUG_ERROR_INTERNAL);
            });
    }
}

TEST_F(Query, GlobalMemoryIsNamedByResourceAndAddress)
{
    struct SCase
    {
        ovkclDebugMemoryResource resource;
        ovkclDebugMemoryAddress address;
        size_t nCount;
        ovkclDebugError nCode;
        size_t nRead;
    };
    const ovkclDebugError nMiss = OVKCLDEBUG_ERROR_INVALID_LOCATION;
    const SCase cases[] = {{12, 0x1000, 8, OVKCLDEBUG_SUCCESS, 8},
                           {12, 0x103F, 8, OVKCLDEBUG_SUCCESS, 1},
                           {12, 0x1010, 48, OVKCLDEBUG_SUCCESS, 48},
                           {12, 0x1040, 1, nMiss, 0},
                           {12, 0xFFF, 1, nMiss, 0},
                           {11, 0x1000, 8, nMiss, 0},
                           {12, 0x1008, ~size_t(0), OVKCLDEBUG_SUCCESS, 56}};
    AtHalt(
        [&](ovkclDebugContext c)
        {
            for (const SCase& test : cases)
            {
                g_nSize = 0;
                EXPECT_EQ(
                    ovkclDebugGetGlobalMemoryValues(c, test.resource, test.address, test.nCount, g_bytes, &g_nSize),
                    test.nCode);
                EXPECT_EQ(g_nSize, test.nRead) << test.address;
                EXPECT_TRUE(test.nRead == 0 || g_bytes[0] == static_cast<char>(test.address - 0x1000));
            }
            EXPECT_EQ(ovkclDebugGetGlobalMemoryValues(c, 12, 0x1008, 0, nullptr, &g_nSize), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_nSize, 64u);
            EXPECT_EQ(ovkclDebugGetGlobalMemoryValues(c, 12, 0x1008, 0, nullptr, nullptr), nMiss);

            ovkclDebugMemoryRegion region = {};
            EXPECT_EQ(ovkclDebugGetValidGlobalMemoryRegions(c, 1, &region, &g_nSize), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_nSize, 1u);
            EXPECT_EQ(region.resource, 12u);
            EXPECT_EQ(region.first, 0x1000u);
            EXPECT_EQ(region.last, 0x103Fu);
            EXPECT_EQ(ovkclDebugGetValidGlobalMemoryRegions(c, 0, &region, &g_nSize),
                      OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL);
        });
}

TEST_F(Query, AnOlderDeviceIsTriedWithItsRawUAVs)
{
    struct SCase
    {
        const char* szDevice;
        const char* szUav;
        ovkclDebugMemoryResource resource;
        ovkclDebugError nCode;
    };
    const ovkclDebugError nMiss = OVKCLDEBUG_ERROR_INVALID_LOCATION;
    for (const SCase& test : {SCase{"Kiln", "11", 0, OVKCLDEBUG_SUCCESS}, SCase{"Kiln", "8", 0, OVKCLDEBUG_SUCCESS},
                              SCase{"Kiln", "8", 11, OVKCLDEBUG_SUCCESS}, SCase{"Kiln", "11", 5, nMiss},
                              SCase{"Kiln", "9", 0, nMiss}, SCase{"Quench", "11", 0, nMiss}})
    {
        Close();
        m_fake.strDeviceName = test.szDevice;
        m_fake.vProgramBinary = MakeKernelImage("k", std::string(";memory:64bitABI\n;pointer:a:float:1:1:16:uav:") +
                                                         test.szUav + ":4:RW:0:0\n;value:n:i32:1:1:0\n");
        Open();
        AtHalt(
            [&](ovkclDebugContext c)
            { EXPECT_EQ(ovkclDebugGetGlobalMemoryValues(c, test.resource, 0x1000, 4, g_bytes, nullptr), test.nCode); });
    }
}

TEST_F(Query, ANullBufferHasNoRegionAndA32BitAddressHasFourBytes)
{
    Close();
    m_fake.vProgramBinary = MakeKernelImage("k", ";pointer:a:float:1:1:16:uav:12:4:RW:0:0\n;value:n:i32:1:1:0\n");
    Open();
    const auto setUp = g_setUpDebugger;
    g_setUpDebugger = [=](CScriptedDebugger& debugger)
    {
        setUp(debugger);
        debugger.results["cb1"]->GetData()[20] = 0xFF;
    };
    AtHalt([&](ovkclDebugContext c)
           { EXPECT_EQ(ovkclDebugGetGlobalMemoryValues(c, 12, 0x1000, 4, g_bytes, nullptr), OVKCLDEBUG_SUCCESS); });

    const cl_mem none = nullptr;
    ovkclInterceptSetKernelArg(m_kernel, 0, sizeof(none), &none);
    AtHalt(
        [&](ovkclDebugContext c)
        {
            EXPECT_EQ(ovkclDebugGetValidGlobalMemoryRegions(c, 0, nullptr, &g_nSize), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(g_nSize, 0u);
        });
}

TEST(Version, IsTheProjects)
{
    cl_uint version[3] = {};
    EXPECT_EQ(ovkclDebugGetVersion(&version[0], &version[1], &version[2]), OVKCLDEBUG_SUCCESS);
    EXPECT_EQ(version[0] * 100 + version[1] * 10 + version[2], 130u);
    EXPECT_EQ(ovkclDebugGetVersion(nullptr, &version[1], &version[2]), OVKCLDEBUG_ERROR_INVALID_ARGUMENT);
}

} // namespace
