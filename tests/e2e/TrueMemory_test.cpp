#include "tests/e2e/DebugFunctions.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/e2e/SmallKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>

using namespace KestrelTest;
using namespace KestrelTool;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace
{

typedef std::vector<int> Ints;

/// At most nCount ints of a resource; empty if it doesn't exist.
Ints ReadInts(const CSession& session, ovkclDebugMemoryResource nResource, uint64_t nAddress, size_t nCount)
{
    Ints ints(nCount);
    size_t nRead = 0;
    const ovkclDebugError nCode = GetDebugFunctions().ovkclDebugGetGlobalMemoryValues(
        session.GetContext(), nResource, nAddress, nCount * 4, ints.data(), &nRead);
    ints.resize(nCode == OVKCLDEBUG_SUCCESS ? nRead / 4 : 0);
    return ints;
}

/// The first ints of the output, whose address the third instruction computes.
Ints ReadOutput(const CSession& session, size_t nCount)
{
    const SRegisterView base = session.GetRegister("r2");
    return base.pWords != nullptr ? ReadInts(session, 10, base[0][0] + (uint64_t(base[0][1]) << 32), nCount) : Ints();
}

/// The expected memory right after the nth execution of a line.
struct SAfter
{
    const char* pszLine;
    int nVisit;
    Ints vExpected;
};

struct SMemoryCase
{
    const char* pszName;
    const char* pszBody;
    std::vector<SAfter> vAfter;
    const char* pszFunctions = "";
    const char* pszDeclarations = "";
    std::vector<std::string> vTracked = {};
    const char* pszAfterCall = ""; ///< the main body after its call
};

SLaunchFile MakeFile(const SMemoryCase& test)
{
    SLaunchFile file = MakeSmallKernel(test.pszBody, test.pszDeclarations, test.pszFunctions);
    file.strSource.insert(file.strSource.find("endmain"), test.pszAfterCall);
    return file;
}

void Track(CSession& session, const std::vector<std::string>& vNames)
{
    std::vector<ovkclDebugRegisterLocator> vLocators;
    for (const std::string& strName : vNames)
    {
        vLocators.push_back(0);
        GetLibraries().ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>(strName.c_str()),
                                                                  &vLocators.back());
    }
    EXPECT_EQ(GetLibraries().ovkclDebugSetTrackingRegisters(session.GetContext(), vLocators.data(), vLocators.size()),
              OVKCLDEBUG_SUCCESS);
}

/// Steps a kernel to its end, reads memory at every stop, and compares it with the rows of the case.
template <typename Read>
void StepAndCompare(const SMemoryCase& test, const SLaunchFile& file, const Read& read)
{
    CLaunch launch(GetLibraries(), file);
    std::map<std::string, int> visits;
    size_t nMet = 0;
    CScriptedClient client(
        [&](CSession& session)
        {
            if (!test.vTracked.empty())
            {
                Track(session, test.vTracked);
            }
            return OVKCLDEBUG_COMMAND_STEP;
        },
        [&](CSession& session)
        {
            const std::string strLine = session.GetListing().GetLine(session.GetExecutedLine());
            const int nVisit = ++visits[strLine];
            const Ints vRead = read(session);
            for (const SAfter& after : test.vAfter)
            {
                if (after.pszLine == strLine && after.nVisit == nVisit)
                {
                    ++nMet;
                    EXPECT_THAT(vRead, ElementsAreArray(after.vExpected)) << "after " << strLine << ", " << nVisit;
                }
            }
            return OVKCLDEBUG_COMMAND_STEP;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_EQ(nMet, test.vAfter.size()) << "not all lines were met";
}

// Two passes: r3 is 0 and 1.
#define TWO_PASSES(body)                                                                                               \
    "mov r3.x, l0.z\nwhileloop\nige r4.x, r3.x, l0.x\nbreak_logicalnz r4.x\n" body "iadd r3.x, r3.x, l0.y\nendloop\n"
#define STORE(value) "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, " value "\n"

const Ints s_Zeros(8, 0);
const Ints s_Ones(8, 1);
const Ints s_Twos(8, 2);
const Ints s_OddTwo = {0, 2, 0, 2, 0, 2, 0, 2};
const Ints s_EvenOne = {1, 0, 1, 0, 1, 0, 1, 0};
const Ints s_Both = {1, 2, 1, 2, 1, 2, 1, 2};

/// The output is zeros at first; r0.x is the work-item's number, l0 is 2, 1, 0, -1.
const std::vector<SMemoryCase> s_MemoryCases = {
    {"a store after the target, in a loop",
     TWO_PASSES("iadd r5.x, r3.x, l0.y\n" STORE("r5.x") "mov r6.x, r5.x\n"),
     {{"iadd r5.x, r3.x, l0.y", 1, s_Zeros},
      {"uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r5.x", 1, s_Ones},
      {"mov r6.x, r5.x", 1, s_Ones},
      {"iadd r5.x, r3.x, l0.y", 2, s_Ones},
      {"uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r5.x", 2, s_Twos},
      {"iadd r3.x, r3.x, l0.y", 2, s_Twos}}},
    {"the other part of an if, in a loop",
     TWO_PASSES("and r6.x, r0.x, l0.y\nif_logicalnz r6.x\n" STORE("l0.x") "mov r7.x, l0.y\nelse\n" STORE(
         "l0.y") "mov r7.x, l0.x\nendif\n"),
     {{"if_logicalnz r6.x", 1, s_Zeros},
      {"mov r7.x, l0.y", 1, s_OddTwo},
      {"else", 1, s_OddTwo},
      {"mov r7.x, l0.x", 1, s_Both},
      {"mov r7.x, l0.y", 2, s_Both}}},
    {"a later case",
     "and r6.x, r0.x, l0.y\nswitch r6.x\ncase 0\nmov r7.x, l0.y\n" STORE(
         "l0.y") "break\ncase 1\nmov r8.x, l0.y\n" STORE("l0.x") "break\nendswitch\n",
     {{"switch r6.x", 1, s_Zeros},
      {"case 0", 1, s_Zeros},
      {"mov r7.x, l0.y", 1, s_Zeros},
      {"break", 1, s_EvenOne},
      {"mov r8.x, l0.y", 1, s_EvenOne},
      {"endswitch", 1, s_Both}}},
    {"a switch in a loop, left in its second pass by those who are in the first case",
     TWO_PASSES("switch r3.x\ncase 0\nmov r7.x, l0.y\n" STORE("l0.y") "break\ncase 1\nmov r8.x, l0.y\n" STORE(
         "l0.x") "break\nendswitch\nmov r9.x, l0.y\n"),
     {{"mov r7.x, l0.y", 1, s_Zeros},
      {"mov r9.x, l0.y", 1, s_Ones},
      {"mov r8.x, l0.y", 1, s_Ones},
      {"endswitch", 2, s_Twos}}},
    {"a loop in a loop",
     TWO_PASSES("mov r5.x, l0.z\nwhileloop\nige r6.x, r5.x, l0.x\nbreak_logicalnz r6.x\nmov r8.x, l0.y\n"
                "uav_raw_load_id(10)_addr64 r7.x, r2.xy\niadd r7.x, r7.x, l0.y\n" STORE(
                    "r7.x") "iadd r5.x, r5.x, l0.y\nendloop\nmov r9.x, l0.y\n"),
     {{"mov r8.x, l0.y", 1, s_Zeros},
      {"mov r8.x, l0.y", 2, s_Ones},
      {"mov r9.x, l0.y", 1, s_Twos},
      {"mov r8.x, l0.y", 3, s_Twos},
      {"mov r8.x, l0.y", 4, Ints(8, 3)},
      {"mov r9.x, l0.y", 2, Ints(8, 4)}}},
    {"work-items that left the loop before",
     // Work-item n leaves in pass n & 1; what it adds afterwards comes after the loop.
     "and r9.x, r0.x, l0.y\nmov r3.x, l0.z\nwhileloop\nige r4.x, r3.x, r9.x\nbreak_logicalnz r4.x\n"
     "mov r8.x, l0.y\n" STORE("l0.y") "iadd r3.x, r3.x, l0.y\nendloop\n" STORE("l0.x"),
     {{"mov r8.x, l0.y", 1, s_Zeros},
      {"iadd r3.x, r3.x, l0.y", 1, {0, 1, 0, 1, 0, 1, 0, 1}},
      {"endloop", 1, {0, 1, 0, 1, 0, 1, 0, 1}}}},
    {"a function called in a loop",
     TWO_PASSES("call 1031\nmov r9.x, l0.y\n"),
     {{"iadd r5.x, r3.x, l0.y", 1, s_Zeros},
      {"mov r8.x, l0.y", 1, s_Ones},
      {"mov r9.x, l0.y", 1, s_Ones},
      {"iadd r5.x, r3.x, l0.y", 2, s_Ones},
      {"mov r9.x, l0.y", 2, s_Twos}},
     "func 1031\niadd r5.x, r3.x, l0.y\n" STORE("r5.x") "mov r8.x, l0.y\nret\nendfunc\n"},
    {"a guard",
     "ige r4.x, r0.x, l0.x\nif_logicalnz r4.x\n" STORE("l0.x") "mov r9.x, l0.y\nendif\n" TWO_PASSES(
         "mov r8.x, l0.y\n" STORE("l0.y")),
     {{"mov r9.x, l0.y", 1, {0, 0, 2, 2, 2, 2, 2, 2}},
      {"mov r8.x, l0.y", 1, {0, 0, 2, 2, 2, 2, 2, 2}},
      {"mov r8.x, l0.y", 2, s_Ones}}},
    {"a macro that runs in a loop",
     TWO_PASSES("mcall(3)_in(0)\nmov r9.x, l0.y\n"),
     {{"iadd r5.x, r3.x, l0.y", 1, s_Zeros},
      {"uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r5.x", 1, s_Ones},
      {"mcall(3)_in(0)", 1, s_Ones},
      {"mov r9.x, l0.y", 1, s_Ones},
      {"iadd r5.x, r3.x, l0.y", 2, s_Ones},
      {"mov r8.x, l0.y", 2, s_Twos}},
     "mdef(3)_outline\n;small\niadd r5.x, r3.x, l0.y\n" STORE("r5.x") "mov r8.x, l0.y\nmend\n"},
    {"a call on a condition, with a return on one",
     TWO_PASSES("and r6.x, r0.x, l0.y\ncall_logicalnz r6.x, 1031\n") STORE("l0.y"),
     {{"func 1031", 1, s_Zeros},
      {"uav_raw_store_id(10)_addr64 mem0.x, r2.xy, l0.x", 1, s_OddTwo},
      {"ret_logicalnz l0.y", 1, s_OddTwo},
      {"call_logicalnz r6.x, 1031", 2, s_OddTwo}},
     "func 1031\n" STORE("l0.x") "ret_logicalnz l0.y\n" STORE("l0.w") "ret\nendfunc\n"},
    {"a guard on a condition",
     TWO_PASSES("and r6.x, r0.x, l0.y\nret_logicalnz r6.x\n" STORE("l0.y") "mov r8.x, l0.y\n"),
     {{"ret_logicalnz r6.x", 1, s_Zeros}, {"mov r8.x, l0.y", 1, s_EvenOne}, {"ret_logicalnz r6.x", 2, s_EvenOne}}},
    {"stores without a destination",
     "uav_add_id(10)_addr64 r2.xy, l0.x\nmov r3.x, l0.y\nuav_uinc_id(10)_addr64 r2.xy, r0.x\nmov r4.x, l0.y\n"
     "uav_udec_id(10)_addr64 r2.xy, l0.x\nmov r5.x, l0.y\nuav_fmax_id(10)_addr64 r2.xy, l0.x\nmov r6.x, l0.y\n"
     "uav_fmin_id(10)_addr64 r2.xy, l0.y\nmov r7.x, l0.y\nflat_store r2.xy, r0.x\nmov r8.x, l0.y\n",
     {{"uav_add_id(10)_addr64 r2.xy, l0.x", 1, s_Twos},
      {"mov r3.x, l0.y", 1, s_Twos},
      // 0 if 2 is at least the work-item's number, else one more.
      {"uav_uinc_id(10)_addr64 r2.xy, r0.x", 1, {0, 0, 0, 3, 3, 3, 3, 3}},
      {"mov r4.x, l0.y", 1, {0, 0, 0, 3, 3, 3, 3, 3}},
      // 2 from 0 and from more than 2.
      {"uav_udec_id(10)_addr64 r2.xy, l0.x", 1, s_Twos},
      {"mov r5.x, l0.y", 1, s_Twos},
      {"mov r6.x, l0.y", 1, s_Twos},
      {"uav_fmin_id(10)_addr64 r2.xy, l0.y", 1, s_Ones},
      {"mov r7.x, l0.y", 1, s_Ones},
      {"flat_store r2.xy, r0.x", 1, {0, 1, 2, 3, 4, 5, 6, 7}},
      {"mov r8.x, l0.y", 1, {0, 1, 2, 3, 4, 5, 6, 7}}}},
    {"reading forms",
     "uav_read_fmax_id(10)_addr64 r3.x, r2.xy, l0.x\nmov r4.x, l0.y\n",
     {{"mov r4.x, l0.y", 1, s_Twos}}},
    {"steps over stores with tracking on",
     "mov r3.x, l0.y\n" STORE("l0.y") "mov r4.x, l0.y\nmov r5.x, l0.y\n" STORE("l0.x") "mov r6.x, l0.y\n",
     {{"uav_raw_store_id(10)_addr64 mem0.x, r2.xy, l0.y", 1, s_Ones},
      {"mov r4.x, l0.y", 1, s_Ones},
      {"mov r5.x, l0.y", 1, s_Ones},
      {"uav_raw_store_id(10)_addr64 mem0.x, r2.xy, l0.x", 1, s_Twos},
      {"mov r6.x, l0.y", 1, s_Twos}},
     "",
     "",
     {"r2"}},
    {"a store in the main body, after the call",
     STORE("l0.y") "mov r8.x, l0.y\n",
     {{"mov r8.x, l0.y", 1, s_Ones},
      {"call 1024", 1, s_Ones},
      {"uav_raw_store_id(10)_addr64 mem0.x, r2.xy, l0.x", 1, s_Twos}},
     "",
     "dcl_typeless_uav_id(10)_stride(4)_length(4)\n",
     {},
     STORE("l0.x") "mov r9.x, l0.y\nmov r9.x, l0.y\n"},
};

} // namespace

TEST(TrueMemory, GlobalMemoryIsThatOfTheStop)
{
    for (const SMemoryCase& test : s_MemoryCases)
    {
        SCOPED_TRACE(test.pszName);
        StepAndCompare(test, MakeFile(test), [](const CSession& session) { return ReadOutput(session, 8); });
    }
}

TEST(TrueMemory, GlobalMemoryIsThatOfTheStopAfterGoingBack)
{
    CLaunch launch(GetLibraries(), MakeSmallKernel(TWO_PASSES("iadd r5.x, r3.x, l0.y\n" STORE("r5.x"))));
    std::map<std::string, std::vector<Ints>> seen;
    size_t nStops = 0;
    CScriptedClient client(
        AlwaysStep,
        [&](CSession& session)
        {
            // Fourteen stops forward, thirteen back, and on to the end; each place shows the same both times.
            ovkclDebugPC nNext = 0;
            EXPECT_EQ(GetLibraries().ovkclDebugGetProgramCounter(session.GetContext(), &nNext), OVKCLDEBUG_SUCCESS);
            const SRegisterView pass = session.GetRegister("r3");
            const std::string strPlace =
                session.GetListing().GetLine(nNext) + (pass.pWords != nullptr ? std::to_string(pass[0][0]) : "");
            seen[strPlace].push_back(ReadOutput(session, 8));
            ++nStops;
            return nStops > 14 && nStops <= 27 ? OVKCLDEBUG_COMMAND_EXT_STEP_BACK : OVKCLDEBUG_COMMAND_STEP;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    size_t nRepeated = 0;
    for (const auto& place : seen)
    {
        nRepeated += place.second.size() > 2;
        for (const Ints& vRead : place.second)
        {
            EXPECT_EQ(vRead, place.second.front()) << place.first;
        }
    }
    EXPECT_GT(nRepeated, 8u);
    EXPECT_THAT(seen["iadd r5.x, r3.x, l0.y0"], testing::Each(s_Zeros));
    EXPECT_THAT(seen["iadd r5.x, r3.x, l0.y1"], testing::Each(s_Ones));
    EXPECT_THAT(seen["iadd r3.x, r3.x, l0.y0"], testing::Each(s_Ones));
    EXPECT_THAT(seen["iadd r3.x, r3.x, l0.y1"], testing::Each(s_Twos));
}

namespace
{

/// In each of the two groups the work-items store group + 1, then in each pass their number in the group. 20 bytes are
/// declared; a local argument has 16 bytes.
SLaunchFile MakeLocalKernel()
{
    SLaunchFile launch = MakeSmallKernel(
        "ishl r1.x, vTidInGrp.x, l0.x\niadd r5.x, vThreadGrpId.x, l0.y\nlds_store_id(1) r1.x, r5.x\n"
        "iadd r6.x, r1.x, cb1[1].x\n" TWO_PASSES("mov r8.x, l0.y\niadd r7.x, vTidInGrp.x, r3.x\n"
                                                 "lds_store_id(1) r1.x, r7.x\nlds_store_id(2) r6.x, r7.x\n"),
        "dcl_lds_id(1) 20\ndcl_lds_id(2) 0\n");
    const std::string strOutput = ";pointer:out:i32:1:1:0:uav:10:4:RW:0:0\n";
    launch.strSource.insert(launch.strSource.find(strOutput), ";memory:hwlocal:20\n");
    launch.strSource.insert(launch.strSource.find(strOutput) + strOutput.size(),
                            ";pointer:scratch:i32:1:1:16:hl:2:4:RW:0:0\n");
    launch.strSource.replace(launch.strSource.find("cb1[1]"), 6, "cb1[2]");
    SArgument local;
    local.eKind = SArgument::Local;
    local.nLocalBytes = 16;
    launch.vArguments.push_back(local);
    return launch;
}

} // namespace

TEST(TrueMemory, LocalMemoryIsThatOfTheStopForEveryGroup)
{
    const ovkclDebugMemoryResource nBlock = OVKCLDEBUG_EXT_LOCAL_BLOCK(1);
    const ovkclDebugMemoryResource nArgument = OVKCLDEBUG_EXT_LOCAL_ARGUMENT(1);
    const std::vector<SMemoryCase> cases = {{"the declared block",
                                             "",
                                             {{"iadd r5.x, vThreadGrpId.x, l0.y", 1, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
                                              {"lds_store_id(1) r1.x, r5.x", 1, {1, 1, 1, 1, 0, 2, 2, 2, 2, 0}},
                                              {"mov r8.x, l0.y", 1, {1, 1, 1, 1, 0, 2, 2, 2, 2, 0}},
                                              {"lds_store_id(1) r1.x, r7.x", 1, {0, 1, 2, 3, 0, 0, 1, 2, 3, 0}},
                                              {"mov r8.x, l0.y", 2, {0, 1, 2, 3, 0, 0, 1, 2, 3, 0}},
                                              {"endloop", 1, {1, 2, 3, 4, 0, 1, 2, 3, 4, 0}}}},
                                            {"the argument",
                                             "",
                                             {{"lds_store_id(1) r1.x, r7.x", 1, {0, 0, 0, 0, 0, 0, 0, 0}},
                                              {"lds_store_id(2) r6.x, r7.x", 1, {0, 1, 2, 3, 0, 1, 2, 3}},
                                              {"lds_store_id(1) r1.x, r7.x", 2, {0, 1, 2, 3, 0, 1, 2, 3}},
                                              {"endloop", 1, {1, 2, 3, 4, 1, 2, 3, 4}}}}};
    for (size_t n = 0; n < cases.size(); ++n)
    {
        SCOPED_TRACE(cases[n].pszName);
        StepAndCompare(cases[n], MakeLocalKernel(),
                       [&](const CSession& session)
                       {
                           Ints vBoth;
                           for (unsigned int nGroup = 0; nGroup < 2; ++nGroup)
                           {
                               const Ints vGroup = ReadInts(session, n == 0 ? nBlock : nArgument,
                                                            OVKCLDEBUG_EXT_LOCAL_ADDRESS(nGroup, 0), 100);
                               vBoth.insert(vBoth.end(), vGroup.begin(), vGroup.end());
                           }
                           return vBoth;
                       });
    }
}

TEST(TrueMemory, LocalMemoryThatIsNotThereIsNoPlace)
{
    CLaunch launch(GetLibraries(), MakeLocalKernel());
    CScriptedClient client(
        AlwaysStep,
        [&](CSession& session)
        {
            const auto& read = GetDebugFunctions().ovkclDebugGetGlobalMemoryValues;
            struct SPlace
            {
                ovkclDebugMemoryResource nResource;
                unsigned int nGroup;
                unsigned int nOffset;
                ovkclDebugError nCode;
                size_t nRead;
            };
            const ovkclDebugError nMiss = OVKCLDEBUG_ERROR_INVALID_LOCATION;
            const SPlace places[] = {{OVKCLDEBUG_EXT_LOCAL_BLOCK(1), 1, 12, OVKCLDEBUG_SUCCESS, 8},
                                     {OVKCLDEBUG_EXT_LOCAL_BLOCK(1), 1, 20, nMiss, 77},
                                     {OVKCLDEBUG_EXT_LOCAL_BLOCK(1), 2, 0, nMiss, 77},
                                     {OVKCLDEBUG_EXT_LOCAL_BLOCK(1), ~0u, 0, nMiss, 77},
                                     {OVKCLDEBUG_EXT_LOCAL_BLOCK(2), 0, 0, nMiss, 77},
                                     {OVKCLDEBUG_EXT_LOCAL_ARGUMENT(0), 0, 0, nMiss, 77},
                                     {OVKCLDEBUG_EXT_LOCAL_ARGUMENT(1), 0, 15, OVKCLDEBUG_SUCCESS, 1},
                                     {OVKCLDEBUG_EXT_LOCAL_ARGUMENT(2), 0, 0, nMiss, 77}};
            for (const SPlace& place : places)
            {
                unsigned char bytes[16] = {};
                size_t nRead = 77;
                const uint64_t nAddress = OVKCLDEBUG_EXT_LOCAL_ADDRESS(place.nGroup, place.nOffset);
                EXPECT_EQ(read(session.GetContext(), place.nResource, nAddress, 16, bytes, &nRead), place.nCode);
                EXPECT_EQ(nRead, place.nRead) << place.nResource << " " << nAddress;
            }
            size_t nSize = 0;
            EXPECT_EQ(read(session.GetContext(), OVKCLDEBUG_EXT_LOCAL_BLOCK(1), 0, 0, nullptr, &nSize),
                      OVKCLDEBUG_SUCCESS);
            EXPECT_EQ(nSize, 20u);
            return OVKCLDEBUG_COMMAND_CONTINUE;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
}

// A kernel whose main body declares what its function uses.
TEST(TrueMemory, PrivateMemoryDeclaredInTheMainBodyIsThere)
{
    CLaunch launch(
        GetLibraries(),
        MakeSmallKernel("uav_raw_store_id(8) mem0.x, l0.z, r0.x\nuav_raw_load_id(8) r3.x, l0.z\n" STORE("r3.x"),
                        "dcl_typeless_uav_id(8)_stride(4)_length(16)_access(private)\n"));
    size_t nStops = 0;
    CScriptedClient client(AlwaysStep,
                           [&](CSession& session)
                           {
                               const SRegisterView loaded = session.GetRegister("r3");
                               if (loaded.pWords != nullptr)
                               {
                                   ++nStops;
                                   for (uint32_t i = 0; i < 8; ++i)
                                   {
                                       EXPECT_EQ(loaded[i][0], i);
                                   }
                               }
                               return OVKCLDEBUG_COMMAND_STEP;
                           });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_EQ(nStops, 3u);
    const std::vector<unsigned char> vBytes = launch.ReadContents(0);
    Ints vOutput(8);
    std::memcpy(vOutput.data(), vBytes.data(), 32);
    EXPECT_THAT(vOutput, ElementsAreArray({0, 1, 2, 3, 4, 5, 6, 7}));
}

/// The kernel runs of movements, if memory is queried three times at each stop on a certain line.
TEST(TrueMemory, AQueryCostsARunOnlyWhereTheLastOneDidNotLeaveMemoryAsItIs)
{
    struct SCost
    {
        const char* pszBody;
        const char* pszLine;
        uint64_t nRuns;
    };
    const SCost costs[] = {
        {STORE("l0.y") "mov r3.x, l0.y\n", "mov r3.x, l0.y", 0},
        {"mov r3.x, l0.y\n" STORE("l0.y"), "mov r3.x, l0.y", 0},
        {STORE("l0.y") "mov r3.x, l0.y\nfence_memory\n", "fence_memory", 0},
        {"uav_add_id(10)_addr64 r2.xy, l0.x\nmov r3.x, l0.y\n", "mov r3.x, l0.y", 0},
        {"uav_add_id(10)_addr64 r2.xy, l0.x\nmov r3.x, l0.y\n", "uav_add_id(10)_addr64 r2.xy, l0.x", 1},
        {TWO_PASSES("mov r5.x, l0.y\n") STORE("l0.y"), "mov r5.x, l0.y", 0},
        {TWO_PASSES(STORE("l0.y") "mov r5.x, l0.y\n"), "mov r5.x, l0.y", 2},
    };
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    for (const SCost& cost : costs)
    {
        CLaunch launch(GetLibraries(), MakeSmallKernel(cost.pszBody));
        uint64_t nRuns = 0;
        CScriptedClient client(AlwaysStep,
                               [&](CSession& session)
                               {
                                   if (session.GetListing().GetLine(session.GetExecutedLine()) == cost.pszLine)
                                   {
                                       control.ClearCounters();
                                       for (int i = 0; i < 3; ++i)
                                       {
                                           EXPECT_EQ(ReadOutput(session, 8).size(), 8u);
                                       }
                                       nRuns += control.GetCounter(PLATFORM_COUNTER_KERNEL_RUNS);
                                   }
                                   return OVKCLDEBUG_COMMAND_STEP;
                               });
        EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
        EXPECT_EQ(nRuns, cost.nRuns) << cost.pszBody;
    }
}
