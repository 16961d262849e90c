#include "tests/e2e/DebugFunctions.h"
#include "tests/e2e/ExampleList.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/e2e/SmallKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

using namespace KestrelTest;
using namespace KestrelTool;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace
{

/// The code and bytes of a query of all work-items' private memory.
struct SPrivate
{
    ovkclDebugError nCode = OVKCLDEBUG_SUCCESS;
    size_t nBytes = 0;
    std::vector<unsigned char> vBytes;
};

SPrivate ReadPrivate(const CSession& session, ovkclDebugMemoryAddress nAddress, size_t nCount, size_t nItems)
{
    SPrivate result;
    // One byte more than requested, to check that it isn't changed.
    result.vBytes.assign(nItems * nCount + 1, 0xA5);
    result.nCode = GetDebugFunctions().ovkclDebugGetPrivateMemoryValues(session.GetContext(), nAddress, nCount,
                                                                        result.vBytes.data(), &result.nBytes);
    return result;
}

/// Steps an example to its end and calls a function at every stop, with the last executed line.
template <typename AtStop>
void StepExample(const std::string& strName, AtStop atStop, const CScriptedClient::Answer& onStarted = AlwaysStep)
{
    CLaunch launch(GetLibraries(), ReadLaunchFile(GetExamplePath(strName)));
    size_t nStops = 0;
    CScriptedClient client(onStarted,
                           [&](CSession& session)
                           {
                               ++nStops;
                               atStop(session, launch, session.GetListing().GetLine(session.GetExecutedLine()));
                               return OVKCLDEBUG_COMMAND_STEP;
                           });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_GT(nStops, 5u);
    EXPECT_TRUE(launch.Compare().empty()) << "the outputs are wrong";
}

/// Compares private memory in every range with a model of it, for all work-items.
void ComparePrivate(const CSession& session, const std::vector<std::vector<unsigned char>>& vModel)
{
    const size_t nSize = vModel[0].size();
    for (size_t nAddress = 0; nAddress < nSize; nAddress += 3)
    {
        for (const size_t nCount : {size_t(1), size_t(4), size_t(20), nSize - nAddress})
        {
            if (nCount > nSize - nAddress)
            {
                continue;
            }
            const SPrivate read = ReadPrivate(session, nAddress, nCount, vModel.size());
            ASSERT_EQ(read.nCode, OVKCLDEBUG_SUCCESS);
            ASSERT_EQ(read.nBytes, nCount * vModel.size());
            ASSERT_EQ(read.vBytes.back(), 0xA5);
            for (size_t i = 0; i < vModel.size(); ++i)
            {
                ASSERT_EQ(std::memcmp(&read.vBytes[i * nCount], &vModel[i][nAddress], nCount), 0)
                    << nCount << " bytes at " << nAddress << " of work-item " << i;
            }
        }
    }
}

void PutWord(std::vector<unsigned char>& vBytes, size_t nAddress, uint32_t nValue)
{
    std::memcpy(&vBytes[nAddress], &nValue, sizeof(nValue));
}

} // namespace

// The kernel's first store writes id + 70 at 4 * (id % 4), the second one 3 * id, 32 bytes further on.
TEST(Memory, PrivateMemoryOfTheNewerGeneration)
{
    const size_t nItems =
        CLaunch(GetLibraries(), ReadLaunchFile(GetExamplePath("private_uav/private_uav.json"))).GetWorkItems();
    std::vector<std::vector<unsigned char>> vModel(nItems, std::vector<unsigned char>(80, 0));
    size_t nStores = 0;
    StepExample("private_uav/private_uav.json",
                [&](CSession& session, CLaunch&, const std::string& strLine)
                {
                    if (strLine.find("uav_raw_store_id(8)") == 0)
                    {
                        for (size_t i = 0; i < nItems; ++i)
                        {
                            const uint32_t nId = static_cast<uint32_t>(i);
                            PutWord(vModel[i], (nStores == 0 ? 0 : 32) + 4 * (nId % 4),
                                    nStores == 0 ? nId + 70 : nId * 3);
                        }
                        ++nStores;
                    }
                    ComparePrivate(session, vModel);
                });
    EXPECT_EQ(nStores, 2u);
}

// Here private memory is the array x1: pass n of the loop writes n + id to the x of element n.
TEST(Memory, PrivateMemoryOfTheOlderGeneration)
{
    std::vector<std::vector<unsigned char>> vModel(8, std::vector<unsigned char>(80, 0));
    uint32_t nPass = 0;
    StepExample("older_loop/older_loop.json",
                [&](CSession& session, CLaunch&, const std::string& strLine)
                {
                    if (strLine.find("mov x1[") == 0)
                    {
                        for (uint32_t i = 0; i < 8; ++i)
                        {
                            PutWord(vModel[i], 16 * nPass, nPass + i);
                        }
                        ++nPass;
                    }
                    ComparePrivate(session, vModel);
                });
    EXPECT_EQ(nPass, 4u);
}

TEST(Memory, PrivateMemoryIsTrackedUnlessTheClientSwitchesItOff)
{
    struct SCase
    {
        const char* pszName;
        int nTrackBefore; ///< the private memory call in front of the register call; -1 for none
        int nTrackAfter;
        bool bTracked;
    };
    const SCase cases[] = {{"as a session starts", -1, -1, true},
                           {"off in front", CL_FALSE, -1, false},
                           {"off after", -1, CL_FALSE, false},
                           {"off and on again", CL_FALSE, CL_TRUE, true}};
    const SDebugFunctions& debug = GetDebugFunctions();
    for (const SCase& entry : cases)
    {
        SCOPED_TRACE(entry.pszName);
        bool bSeen = false;
        StepExample(
            "private_uav/private_uav.json",
            [&](CSession& session, CLaunch& launch, const std::string&)
            {
                const SPrivate read = ReadPrivate(session, 0, 16, launch.GetWorkItems());
                EXPECT_EQ(read.nCode, entry.bTracked ? OVKCLDEBUG_SUCCESS : OVKCLDEBUG_ERROR_INVALID_STATE);
                if (!entry.bTracked)
                {
                    return;
                }
                bSeen = bSeen || std::count(read.vBytes.begin(), read.vBytes.end() - 1, 0) !=
                                     static_cast<ptrdiff_t>(read.vBytes.size() - 1);
                EXPECT_EQ(session.GetRegister("r4").pWords, nullptr) << "not tracked";
            },
            [&](CSession& session)
            {
                if (entry.nTrackBefore >= 0)
                {
                    EXPECT_EQ(debug.ovkclDebugSetTrackPrivateMemory(session.GetContext(), entry.nTrackBefore), 0);
                }
                EXPECT_EQ(Track(session, {"r6"}), OVKCLDEBUG_SUCCESS);
                if (entry.nTrackAfter >= 0)
                {
                    EXPECT_EQ(debug.ovkclDebugSetTrackPrivateMemory(session.GetContext(), entry.nTrackAfter), 0);
                }
                return OVKCLDEBUG_COMMAND_STEP;
            });
        EXPECT_EQ(bSeen, entry.bTracked);
    }
}

namespace
{

struct SGeneration
{
    const char* pszName;
    const char* pszExample;
    const char* pszRegister; ///< holds the address of each work-item's element of the output
    unsigned int nComponents;
    ovkclDebugMemoryResource nUav;
    std::vector<ovkclDebugMemoryResource> vAlso;  ///< tried in addition to the UAV
    std::vector<ovkclDebugMemoryResource> vOther; ///< give no memory
};

class GlobalMemory : public testing::TestWithParam<SGeneration>
{
protected:
    ovkclDebugError Read(const CSession& session, ovkclDebugMemoryResource nUav, uint64_t nAddress, size_t nCount,
                         void* pBytes, size_t* pSize)
    {
        return GetDebugFunctions().ovkclDebugGetGlobalMemoryValues(session.GetContext(), nUav, nAddress, nCount, pBytes,
                                                                   pSize);
    }

    /// The address of the output's first element, once its register is written; 0 before.
    uint64_t FindBase(const CSession& session)
    {
        const SRegisterView view = session.GetRegister(GetParam().pszRegister);
        if (view.pWords == nullptr)
        {
            return 0;
        }
        return view[0][0] + (GetParam().nComponents == 2 ? uint64_t(view[0][1]) << 32 : 0);
    }
};

} // namespace

TEST_P(GlobalMemory, IsAsItIsAtTheStop)
{
    const SGeneration& generation = GetParam();
    size_t nChanged = 0;
    StepExample(
        generation.pszExample,
        [&](CSession& session, CLaunch& launch, const std::string& strLine)
        {
            const uint64_t nBase = FindBase(session);
            if (nBase == 0)
            {
                return;
            }
            size_t nArgument = 0;
            while (!launch.GetFile().vArguments[nArgument].vExpected)
            {
                ++nArgument;
            }
            const SArgument& output = launch.GetFile().vArguments[nArgument];
            const size_t nSize = output.vContents.size();
            nChanged += strLine.find("uav_raw_store") == 0;
            const std::vector<unsigned char>& vWanted = nChanged != 0 ? *output.vExpected : output.vContents;

            std::vector<unsigned char> vGot(nSize, 0xA5);
            size_t nRead = 0;
            ASSERT_EQ(Read(session, generation.nUav, nBase, nSize, vGot.data(), &nRead), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(nRead, nSize);
            EXPECT_EQ(vGot, vWanted);

            // The size of the buffer that contains an address.
            EXPECT_EQ(Read(session, generation.nUav, nBase + nSize - 1, 0, nullptr, &nRead), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(nRead, nSize);
            // A range that reaches beyond the buffer's end is cut off, whatever follows it.
            unsigned char bytes[8] = {};
            EXPECT_EQ(Read(session, generation.nUav, nBase + nSize - 3, 8, bytes, &nRead), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(nRead, 3u);
            EXPECT_EQ(std::memcmp(bytes, &vWanted[nSize - 3], 3), 0);
            EXPECT_EQ(Read(session, generation.nUav, nBase, 8, bytes, nullptr), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(std::memcmp(bytes, vWanted.data(), 8), 0);

            for (const ovkclDebugMemoryResource nUav : generation.vAlso)
            {
                EXPECT_EQ(Read(session, nUav, nBase, 8, bytes, &nRead), OVKCLDEBUG_SUCCESS) << nUav;
            }
            for (const ovkclDebugMemoryResource nUav : generation.vOther)
            {
                EXPECT_EQ(Read(session, nUav, nBase, 8, bytes, &nRead), OVKCLDEBUG_ERROR_INVALID_LOCATION) << nUav;
            }
            EXPECT_EQ(Read(session, generation.nUav, 1, 4, bytes, &nRead), OVKCLDEBUG_ERROR_INVALID_LOCATION);
            EXPECT_EQ(Read(session, generation.nUav, ~uint64_t(0), 4, bytes, &nRead),
                      OVKCLDEBUG_ERROR_INVALID_LOCATION);
            EXPECT_EQ(Read(session, generation.nUav, nBase, 4, nullptr, &nRead), OVKCLDEBUG_ERROR_INVALID_ARGUMENT);
        });
    EXPECT_GT(nChanged, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Generations, GlobalMemory,
    testing::Values(SGeneration{"Quench", "call_chain/call_chain.json", "r2", 2, 10, {}, {0, 8, 9, 11, 12}},
                    SGeneration{"Kiln", "older_loop/older_loop.json", "r2", 1, 11, {0, 8}, {1, 9, 10, 12}}),
    [](const testing::TestParamInfo<SGeneration>& test) { return std::string(test.param.pszName); });

// At a stop in a function, what happens after the call must not be visible yet.
TEST(Memory, GlobalMemoryInAFunctionHasNothingOfWhatComesAfterTheCall)
{
    CLaunch launch(GetLibraries(), MakeSmallKernel("uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r0.x\n"
                                                   "call 1031\n"
                                                   "iadd r3.x, r3.x, l0.x\n"
                                                   "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x\n",
                                                   "",
                                                   "func 1031\niadd r3.x, r0.x, l0.y\niadd r3.x, r3.x, l0.x\n"
                                                   "ret\nendfunc\n"));
    size_t nStores = 0;
    CScriptedClient client(AlwaysStep,
                           [&](CSession& session)
                           {
                               nStores += session.GetListing().GetLine(session.GetExecutedLine()).find("uav_raw") == 0;
                               const SRegisterView base = session.GetRegister("r2");
                               if (base.pWords == nullptr)
                               {
                                   return OVKCLDEBUG_COMMAND_STEP;
                               }
                               int values[8] = {};
                               size_t nRead = 0;
                               EXPECT_EQ(GetDebugFunctions().ovkclDebugGetGlobalMemoryValues(
                                             session.GetContext(), 10, base[0][0] + (uint64_t(base[0][1]) << 32),
                                             sizeof(values), values, &nRead),
                                         OVKCLDEBUG_SUCCESS);
                               for (int i = 0; i < 8; ++i)
                               {
                                   const int wanted[] = {0, i, i + 5};
                                   EXPECT_EQ(values[i], wanted[nStores]) << "after " << session.GetExecutedLine();
                               }
                               return OVKCLDEBUG_COMMAND_STEP;
                           });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_EQ(nStores, 2u);
}

TEST(Memory, ActiveRegistersAreThoseThatHaveAValue)
{
    std::vector<std::vector<std::string>> vActive;
    CLaunch launch(GetLibraries(), MakeSmallKernel("mov x1[2].x, r0.x\n"
                                                   "fence_memory\n"
                                                   "iadd r10.x, r0.x, l0.y\n",
                                                   "dcl_indexed_temp_array x1[4]\n"));
    CScriptedClient client(AlwaysStep,
                           [&](CSession& session)
                           {
                               vActive.push_back(session.GetActiveRegisters());
                               return OVKCLDEBUG_COMMAND_STEP;
                           });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    ASSERT_EQ(vActive.size(), 7u);
    EXPECT_THAT(vActive[0], ElementsAre("r0"));
    EXPECT_THAT(vActive[2], ElementsAre("r0", "r1", "r2"));
    EXPECT_THAT(vActive[3], AllOf(Contains("x1[2]"), Not(Contains("x1[0]"))));
    EXPECT_EQ(vActive[4], vActive[3]) << "the fence writes nothing";
    EXPECT_THAT(vActive[5], Contains("r10"));
}

TEST(Memory, OnlyTrackedRegistersHaveAValue)
{
    const SLaunchFile file = MakeSmallKernel("iadd r3.x, r0.x, l0.y\n"
                                             "mov x1[r0.x].x, r0.x\n"
                                             "if_logicalnz r0.x\n"
                                             "iadd r3.x, r3.x, l0.y\n"
                                             "endif\n",
                                             "dcl_indexed_temp_array x1[8]\n");
    CLaunch launch(GetLibraries(), file);
    std::vector<std::string> vLast;
    std::vector<unsigned int> vR3;
    CScriptedClient client(
        [](CSession& session)
        {
            EXPECT_EQ(Track(session, {"r3", "x1[5]"}), OVKCLDEBUG_SUCCESS);
            // A text that isn't a register changes nothing.
            EXPECT_EQ(Track(session, {"r3", "nonsense"}), OVKCLDEBUG_ERROR_INVALID_LOCATION);
            EXPECT_EQ(GetLibraries().ovkclDebugSetTrackingRegisters(session.GetContext(), nullptr, 1),
                      OVKCLDEBUG_ERROR_INVALID_ARGUMENT);
            return OVKCLDEBUG_COMMAND_STEP;
        },
        [&](CSession& session)
        {
            vLast = session.GetActiveRegisters();
            const SRegisterView view = session.GetRegister("r3");
            vR3.clear();
            for (size_t i = 0; view.pWords != nullptr && i < view.nItems; ++i)
            {
                vR3.push_back(view[i][0]);
            }
            EXPECT_EQ(Track(session, {"r1"}), OVKCLDEBUG_ERROR_INVALID_STATE);
            EXPECT_EQ(GetDebugFunctions().ovkclDebugSetTrackPrivateMemory(session.GetContext(), CL_TRUE),
                      OVKCLDEBUG_ERROR_INVALID_STATE);
            return OVKCLDEBUG_COMMAND_STEP;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_THAT(vLast, AllOf(Contains("r3"), Contains("x1[5]"), Not(Contains("r0")), Not(Contains("r2"))));
    EXPECT_THAT(vR3, ElementsAre(1, 3, 4, 5, 6, 7, 8, 9));
}

namespace
{

/// The codes of all queries, each with valid arguments except for the given context.
std::vector<ovkclDebugError> AskEverything(ovkclDebugContext context)
{
    const CLibraries& lib = GetLibraries();
    const SDebugFunctions& debug = GetDebugFunctions();
    ovkclDebugPC nLine = 0;
    ovkclDebugPC lines[64];
    size_t nSize = 0;
    const cl_bool* pMask = nullptr;
    const void* pValues = nullptr;
    ovkclDebugRegisterLocator registers[256];
    std::vector<char> vBinary(1 << 20);
    char bytes[16 * 64];
    return {lib.ovkclDebugGetProgramCounter(context, &nLine),
            lib.ovkclDebugGetExecutionMask(context, &pMask, &nSize),
            lib.ovkclDebugGetNumberOfActiveRegisters(context, &nSize),
            lib.ovkclDebugGetActiveRegisters(context, registers, 256),
            lib.ovkclDebugGetRegisterValues(context, 0, &pValues, &nSize, &nSize),
            debug.ovkclDebugGetPrivateMemoryValues(context, 0, 16, bytes, &nSize),
            debug.ovkclDebugGetGlobalMemoryValues(context, 10, 1, 0, nullptr, &nSize),
            lib.ovkclDebugSetBreakpoint(context, 0, 100, &nLine),
            debug.ovkclDebugGetNumBreakpoints(context, &nSize),
            debug.ovkclDebugGetAllBreakpoints(context, lines, 64),
            debug.ovkclDebugClearBreakpoint(context, nLine),
            debug.ovkclDebugClearAllBreakpoints(context),
            lib.ovkclDebugSetTrackingRegisters(context, nullptr, 0),
            debug.ovkclDebugSetTrackPrivateMemory(context, CL_TRUE),
            lib.ovkclDebugGetKernelBinarySize(context, &nSize),
            lib.ovkclDebugGetKernelBinary(context, vBinary.data(), vBinary.size())};
}

std::vector<ovkclDebugError> Codes(ovkclDebugError nStops, ovkclDebugError nLive, ovkclDebugError nTracking,
                                   ovkclDebugError nBinary)
{
    std::vector<ovkclDebugError> vCodes(7, nStops);
    vCodes.insert(vCodes.end(), 5, nLive);
    vCodes.insert(vCodes.end(), 2, nTracking);
    vCodes.insert(vCodes.end(), 2, nBinary);
    return vCodes;
}

/// Makes queries at the last event, where a scripted client can't.
class CFinalQuestions : public CScriptedClient
{
public:
    using CScriptedClient::CScriptedClient;
    void OnFinished(CSession& session) override { vCodes = AskEverything(session.GetContext()); }
    std::vector<ovkclDebugError> vCodes;
};

} // namespace

TEST(Memory, EveryQueryKnowsItsEventsAndContexts)
{
    const ovkclDebugError nOk = OVKCLDEBUG_SUCCESS;
    const ovkclDebugError nState = OVKCLDEBUG_ERROR_INVALID_STATE;
    const ovkclDebugError nContext = OVKCLDEBUG_ERROR_INVALID_CONTEXT;
    CLaunch launch(GetLibraries(), MakeSmallKernel("iadd r3.x, r0.x, l0.y\n"));
    ovkclDebugContext stale = nullptr;
    size_t nHalts = 0;
    CFinalQuestions client(
        [&](CSession& session)
        {
            stale = session.GetContext();
            EXPECT_EQ(AskEverything(stale), Codes(nState, nOk, nOk, nOk));
            return OVKCLDEBUG_COMMAND_STEP;
        },
        [&](CSession& session)
        {
            std::vector<ovkclDebugError> vWanted = Codes(nOk, nOk, nState, nOk);
            vWanted[6] = OVKCLDEBUG_ERROR_INVALID_LOCATION; // no buffer contains the address 1
            EXPECT_EQ(AskEverything(session.GetContext()), vWanted);
            EXPECT_EQ(AskEverything(&nHalts), Codes(nContext, nContext, nContext, nContext));
            return ++nHalts < 2 ? OVKCLDEBUG_COMMAND_STEP : OVKCLDEBUG_COMMAND_CONTINUE;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_EQ(client.vCodes, Codes(nState, nState, nState, nOk));
    EXPECT_EQ(AskEverything(stale), Codes(nContext, nContext, nContext, nContext));
    EXPECT_EQ(AskEverything(nullptr), Codes(nContext, nContext, nContext, nContext));
}

TEST(Memory, NullAndShortArgumentsGetTheirCodes)
{
    const CLibraries& lib = GetLibraries();
    const SDebugFunctions& debug = GetDebugFunctions();
    const ovkclDebugError nArgument = OVKCLDEBUG_ERROR_INVALID_ARGUMENT;
    const ovkclDebugError nSmall = OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL;
    CLaunch launch(lib, MakeSmallKernel("iadd r3.x, r0.x, l0.y\n"));
    CScriptedClient client(
        AlwaysStep,
        [&](CSession& session)
        {
            const ovkclDebugContext context = session.GetContext();
            size_t nSize = 0;
            const void* pValues = nullptr;
            const cl_bool* pMask = nullptr;
            unsigned char bytes[256] = {};
            EXPECT_EQ(lib.ovkclDebugGetProgramCounter(context, nullptr), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetExecutionMask(context, nullptr, &nSize), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetExecutionMask(context, &pMask, nullptr), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetNumberOfActiveRegisters(context, nullptr), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetRegisterValues(context, 0, nullptr, &nSize, &nSize), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetRegisterValues(context, 0, &pValues, nullptr, &nSize), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetRegisterValues(context, 0, &pValues, &nSize, nullptr), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetRegisterValues(context, 0x20000, &pValues, &nSize, &nSize),
                      OVKCLDEBUG_ERROR_INVALID_LOCATION);
            EXPECT_EQ(lib.ovkclDebugGetRegisterValues(context, 999, &pValues, &nSize, &nSize),
                      OVKCLDEBUG_ERROR_INVALID_LOCATION);
            EXPECT_EQ(debug.ovkclDebugGetPrivateMemoryValues(context, 0, 4, nullptr, &nSize), nArgument);
            EXPECT_EQ(debug.ovkclDebugGetPrivateMemoryValues(context, 0, 4, bytes, nullptr), nArgument);
            EXPECT_EQ(debug.ovkclDebugGetPrivateMemoryValues(context, ~uint64_t(0), 4, bytes, &nSize), nArgument);
            EXPECT_EQ(debug.ovkclDebugGetPrivateMemoryValues(context, 0, 0, nullptr, &nSize), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(nSize, 0u);
            EXPECT_EQ(debug.ovkclDebugGetNumBreakpoints(context, nullptr), nArgument);
            EXPECT_EQ(debug.ovkclDebugGetAllBreakpoints(context, nullptr, 4), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetKernelBinarySize(context, nullptr), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetKernelBinary(context, nullptr, 4), nArgument);

            lib.ovkclDebugGetNumberOfActiveRegisters(context, &nSize);
            std::vector<ovkclDebugRegisterLocator> vRegisters(nSize, 77);
            EXPECT_EQ(lib.ovkclDebugGetActiveRegisters(context, vRegisters.data(), nSize - 1), nSmall);
            EXPECT_EQ(vRegisters[0], 77u) << "nothing may be written";
            EXPECT_EQ(lib.ovkclDebugGetActiveRegisters(context, nullptr, 0), nSmall);
            EXPECT_EQ(lib.ovkclDebugGetActiveRegisters(context, nullptr, 1), nArgument);
            EXPECT_EQ(lib.ovkclDebugGetKernelBinary(context, bytes, 16), nSmall);

            ovkclDebugPC first = 0;
            ovkclDebugPC second = 0;
            EXPECT_EQ(lib.ovkclDebugSetBreakpoint(context, 0, 100, &first), OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(lib.ovkclDebugSetBreakpoint(context, first + 1, 100, &second), OVKCLDEBUG_SUCCESS);
            ovkclDebugPC lines[2] = {0xFFFF, 0xFFFF};
            EXPECT_EQ(debug.ovkclDebugGetAllBreakpoints(context, lines, 1), nSmall);
            EXPECT_THAT(lines, ElementsAre(first, 0xFFFF)) << "as many as there is room for";
            EXPECT_EQ(debug.ovkclDebugGetAllBreakpoints(context, lines, 2), OVKCLDEBUG_SUCCESS);
            EXPECT_THAT(lines, ElementsAre(first, second));
            EXPECT_EQ(debug.ovkclDebugClearBreakpoint(context, 0xFFFF), OVKCLDEBUG_ERROR_OPERATION_FAILED);
            EXPECT_EQ(lib.ovkclDebugSetBreakpoint(context, 0xFFFF, 10, &first), OVKCLDEBUG_ERROR_OPERATION_FAILED);
            EXPECT_EQ(debug.ovkclDebugClearAllBreakpoints(context), OVKCLDEBUG_SUCCESS);
            return OVKCLDEBUG_COMMAND_CONTINUE;
        });
    EXPECT_EQ(RunSession(lib, launch, client), CL_SUCCESS);
    EXPECT_THAT(client.GetEvents(), ElementsAre("started", "halted", "finished"));
}
