#include "tests/e2e/DebugFunctions.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/e2e/SmallKernel.h"

#include <gtest/gtest.h>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

/// The final x component of a register for the eight work-items.
struct SValues
{
    const char* pszRegister;
    std::vector<unsigned int> vValues;
};

/// A function body for MakeSmallKernel, with the expected stops of a stepping session after the three instructions of
/// the frame: the instruction, and who is active after it, one digit for each work-item.
struct SStopCase
{
    const char* pszName;
    std::string strBody;
    std::vector<std::string> vStops; ///< the call at the end isn't listed, as it isn't a stop
    std::vector<SValues> vValues;    ///< at the last stop
    std::string strFunctions;
};

std::ostream& operator<<(std::ostream& stream, const SStopCase& test)
{
    return stream << test.pszName;
}

/// l1 is 4, 6, 3, 1, l2 is 0, 1, 2, 5. r0.x is the work-item's number.
const char* const s_pszDeclarations = "dcl_literal l1, 4, 6, 3, 1\ndcl_literal l2, 0, 1, 2, 5\n";
const std::string s_Loop = "whileloop\niadd r4.x, r4.x, l1.w\nuge r5.x, r4.x, l2.z\nbreak_logicalnz r5.x\n";
const std::string s_LowerHalf = "ult r5.x, r0.x, l1.x\nif_logicalnz r5.x\n";
const std::vector<std::string> s_Pass = {"whileloop 11111111",       "iadd 11111111", "uge 11111111",
                                         "break_logicalnz 11111111", "ult 11111111",  "if_logicalnz 11110000"};
const std::vector<std::string> s_LastPass = {"whileloop 11111111", "iadd 11111111", "uge 11111111",
                                             "break_logicalnz 00000000", "endloop 11111111"};

const std::vector<std::string> s_StoringPass = {"whileloop 11111111",
                                                "iadd 11111111",
                                                "uge 11111111",
                                                "break_logicalnz 11111111",
                                                "uav_raw_load_id 11111111",
                                                "uav_raw_store_id 11111111",
                                                "iadd 11111111"};

std::vector<std::string> Join(const std::vector<std::vector<std::string>>& vParts)
{
    std::vector<std::string> vAll;
    for (const auto& part : vParts)
    {
        vAll.insert(vAll.end(), part.begin(), part.end());
    }
    return vAll;
}

const SStopCase s_StopCases[] = {
    {"AllOfAnElsePartContinue",
     s_Loop + s_LowerHalf + "iadd r6.x, r6.x, l1.w\nelse\ncontinue\nendif\niadd r7.x, r7.x, l1.w\nendloop\n",
     Join({s_Pass,
           {"iadd 11110000", "else 00001111", "continue 00000000", "endif 11110000", "iadd 11110000"},
           s_LastPass,
           {"ret 11111111"}}),
     {{"r7", {1, 1, 1, 1, 0, 0, 0, 0}}},
     ""},
    {"AllOfAnElsePartBreak",
     s_Loop + s_LowerHalf + "iadd r6.x, r6.x, l1.w\nelse\nbreak\nendif\niadd r7.x, r7.x, l1.w\nendloop\n",
     Join({s_Pass,
           {"iadd 11110000", "else 00001111", "break 00000000", "endif 11110000", "iadd 11110000", "whileloop 11110000",
            "iadd 11110000", "uge 11110000", "break_logicalnz 00000000", "endloop 11111111", "ret 11111111"}}),
     {{"r7", {1, 1, 1, 1, 0, 0, 0, 0}}, {"r4", {2, 2, 2, 2, 1, 1, 1, 1}}},
     ""},
    {"TheLastBreaksAndOthersContinue",
     s_Loop + s_LowerHalf + "continue\nendif\nbreak\nendloop\n",
     Join({s_Pass,
           {"continue 00000000", "endif 00001111", "break 00000000", "whileloop 11110000", "iadd 11110000",
            "uge 11110000", "break_logicalnz 00000000", "endloop 11111111", "ret 11111111"}}),
     {{"r4", {2, 2, 2, 2, 1, 1, 1, 1}}},
     ""},
    {"ABreakInACaseAndNobodyInTheNext",
     "mov r4.x, l2.x\nswitch r4.x\ncase 0\n" + s_LowerHalf +
         "break\nendif\niadd r6.x, r6.x, l1.w\nbreak\ncase 1\nmov r6.x, l2.w\nbreak\nendswitch\n",
     {"mov 11111111", "switch 11111111", "case 11111111", "ult 11111111", "if_logicalnz 11110000", "break 00000000",
      "endif 00001111", "iadd 00001111", "break 00000000", "endswitch 11111111", "ret 11111111"},
     {{"r6", {0, 0, 0, 0, 1, 1, 1, 1}}},
     ""},
    {"LabelsThatNobodyMeansAreNoStops",
     "iand r4.x, r0.x, l1.z\nswitch r4.x\ncase 7\nmov r6.x, l2.w\ncase 1\nmov r6.x, l2.y\ndefault\n"
     "iadd r6.x, r6.x, l2.z\nbreak\ncase 9\nbreak\ncase 2\nmov r6.x, l2.z\nendswitch\n",
     {"iand 11111111", "switch 11111111", "case 01000100", "mov 01000100", "default 11011101", "iadd 11011101",
      "break 00000000", "case 00100010", "mov 00100010", "endswitch 11111111", "ret 11111111"},
     {{"r6", {2, 3, 2, 2, 2, 3, 2, 2}}},
     ""},
    {"ASelectorThatNoLabelMeans",
     "switch r0.x\ncase 3\nmov r6.x, l2.w\nendswitch\n",
     {"switch 11111111", "case 00010000", "mov 00010000", "endswitch 11111111", "ret 11111111"},
     {{"r6", {0, 0, 0, 5, 0, 0, 0, 0}}},
     ""},
    {"SomeOfAnElsePartBreak",
     s_Loop + s_LowerHalf +
         "iadd r6.x, r6.x, l1.w\nelse\nuge r5.x, r0.x, l1.y\nif_logicalnz r5.x\nbreak\nendif\n"
         "iadd r6.x, r6.x, l2.z\nendif\niadd r7.x, r7.x, l1.w\nendloop\n",
     Join({s_Pass,
           {"iadd 11110000", "else 00001111", "uge 00001111", "if_logicalnz 00000011", "break 00000000",
            "endif 00001100", "iadd 00001100", "endif 11111100", "iadd 11111100", "whileloop 11111100", "iadd 11111100",
            "uge 11111100", "break_logicalnz 00000000", "endloop 11111111", "ret 11111111"}}),
     {{"r6", {1, 1, 1, 1, 2, 2, 0, 0}}, {"r7", {1, 1, 1, 1, 1, 1, 0, 0}}},
     ""},
    {"ABreakInTheElsePartOfACase",
     "mov r4.x, l2.x\nswitch r4.x\ncase 0\n" + s_LowerHalf +
         "iadd r6.x, r6.x, l1.w\nbreak\nelse\niadd r6.x, r6.x, l2.z\nendif\niadd r7.x, r7.x, l1.w\nendswitch\n",
     {"mov 11111111", "switch 11111111", "case 11111111", "ult 11111111", "if_logicalnz 11110000", "iadd 11110000",
      "break 00000000", "else 00001111", "iadd 00001111", "endif 00001111", "iadd 00001111", "endswitch 11111111",
      "ret 11111111"},
     {{"r6", {1, 1, 1, 1, 2, 2, 2, 2}}, {"r7", {0, 0, 0, 0, 1, 1, 1, 1}}},
     ""},
    {"AllContinueInAnIfBeforeAConditionalBreak",
     "whileloop\niadd r4.x, r4.x, l1.w\nuge r5.x, r4.x, l1.z\nbreak_logicalnz r5.x\nuge r5.x, r0.x, l2.x\n"
     "if_logicalnz r5.x\niadd r6.x, r6.x, l1.w\ncontinue\nendif\nbreak_logicalnz r5.x\niadd r7.x, r7.x, l1.w\n"
     "endloop\niadd r8.x, r6.x, l1.w\n",
     {"whileloop 11111111", "iadd 11111111",         "uge 11111111",  "break_logicalnz 11111111",
      "uge 11111111",       "if_logicalnz 11111111", "iadd 11111111", "continue 00000000",
      "whileloop 11111111", "iadd 11111111",         "uge 11111111",  "break_logicalnz 11111111",
      "uge 11111111",       "if_logicalnz 11111111", "iadd 11111111", "continue 00000000",
      "whileloop 11111111", "iadd 11111111",         "uge 11111111",  "break_logicalnz 00000000",
      "endloop 11111111",   "iadd 11111111",         "ret 11111111"},
     {{"r6", {2, 2, 2, 2, 2, 2, 2, 2}}, {"r8", {3, 3, 3, 3, 3, 3, 3, 3}}},
     ""},
    {"ACallInAnIfThatBreaksOutOfASwitch",
     "mov r4.x, l2.x\nswitch r4.x\ncase 0\n" + s_LowerHalf +
         "call 1031\nbreak\nendif\niadd r7.x, r7.x, l1.w\nbreak\nendswitch\niadd r7.x, r7.x, l1.w\n",
     {"mov 11111111", "switch 11111111", "case 11111111", "ult 11111111", "if_logicalnz 11110000", "func 11110000",
      "mov 11110000", "ret 11110000", "call 11110000", "break 00000000", "endif 00001111", "iadd 00001111",
      "break 00000000", "endswitch 11111111", "iadd 11111111", "ret 11111111"},
     {{"r6", {5, 5, 5, 5}}, {"r7", {1, 1, 1, 1, 2, 2, 2, 2}}},
     "func 1031\nmov r6.x, l2.w\nret\nendfunc\n"},
    {"AGuard",
     "uge r5.x, r0.x, l1.y\nif_logicalnz r5.x\nmov r6.x, l2.w\nret\nendif\niadd r6.x, r6.x, l1.w\n",
     {"uge 11111111", "if_logicalnz 00000011", "mov 00000011", "ret 00000011", "endif 11111100", "iadd 11111100",
      "ret 11111100"},
     {{"r6", {1, 1, 1, 1, 1, 1, 5, 5}}},
     ""},
    {"AGuardInALoop",
     s_Loop + s_LowerHalf + "iadd r6.x, r6.x, l1.w\nelse\nret\nendif\nendloop\niadd r7.x, r7.x, l1.w\n",
     Join({s_Pass,
           {"iadd 11110000", "else 00001111", "ret 00001111", "endif 11110000", "whileloop 11110000", "iadd 11110000",
            "uge 11110000", "break_logicalnz 00000000", "endloop 11110000", "iadd 11110000", "ret 11110000"}}),
     {{"r4", {2, 2, 2, 2, 1, 1, 1, 1}}, {"r7", {1, 1, 1, 1, 0, 0, 0, 0}}},
     ""},
    {"AStoreThatALaterPassReads",
     "whileloop\niadd r4.x, r4.x, l1.w\nuge r5.x, r4.x, l1.z\nbreak_logicalnz r5.x\n"
     "uav_raw_load_id(10)_addr64 r6.x, r2.xy\nuav_raw_store_id(10)_addr64 mem0.x, r2.xy, r4.x\n"
     "iadd r7.x, r7.x, r6.x\nendloop\n",
     Join({s_StoringPass, s_StoringPass, s_LastPass, {"ret 11111111"}}),
     {{"r6", {1, 1, 1, 1, 1, 1, 1, 1}}, {"r7", {1, 1, 1, 1, 1, 1, 1, 1}}},
     ""},
    {"AReturnInALaterPass",
     "whileloop\niadd r4.x, r4.x, l1.w\nuge r5.x, r4.x, l1.z\nbreak_logicalnz r5.x\nult r5.x, r0.x, r4.x\n"
     "if_logicalnz r5.x\niadd r6.x, r6.x, l1.w\nret\nendif\nendloop\n",
     {"whileloop 11111111",
      "iadd 11111111",
      "uge 11111111",
      "break_logicalnz 11111111",
      "ult 11111111",
      "if_logicalnz 10000000",
      "iadd 10000000",
      "ret 10000000",
      "endif 01111111",
      "whileloop 01111111",
      "iadd 01111111",
      "uge 01111111",
      "break_logicalnz 01111111",
      "ult 01111111",
      "if_logicalnz 01000000",
      "iadd 01000000",
      "ret 01000000",
      "endif 00111111",
      "whileloop 00111111",
      "iadd 00111111",
      "uge 00111111",
      "break_logicalnz 00000000",
      "endloop 00111111",
      "ret 00111111"},
     {{"r4", {1, 2, 3, 3, 3, 3, 3, 3}}, {"r6", {1, 1, 0, 0, 0, 0, 0, 0}}},
     ""},
    {"AReturnInABlockOfACalledFunction",
     "call 1031\niadd r6.x, r6.x, l1.w\n",
     {"func 11111111", "ult 11111111", "if_logicalnz 11110000", "mov 11110000", "ret 11110000", "endif 00001111",
      "mov 00001111", "ret 00001111", "call 11111111", "iadd 11111111", "ret 11111111"},
     {{"r6", {6, 6, 6, 6, 3, 3, 3, 3}}},
     "func 1031\n" + s_LowerHalf + "mov r6.x, l2.w\nret\nendif\nmov r6.x, l2.z\nret\nendfunc\n"},
    {"AllReturnInBlocks",
     s_LowerHalf + "mov r6.x, l2.w\nret\nelse\nmov r6.x, l2.z\nret\nendif\nmov r6.x, l2.y\n",
     {"ult 11111111", "if_logicalnz 11110000", "mov 11110000", "ret 11110000", "else 00001111", "mov 00001111",
      "ret 00001111"},
     {{"r6", {5, 5, 5, 5, 2, 2, 2, 2}}},
     ""},
    {"AMacroThatRunsTwice",
     s_LowerHalf + "mcall(3)_in(0)\nendif\nmov r7.x, r6.x\nmcall(3)_in(0)\n",
     {"ult 11111111", "if_logicalnz 11110000", "iadd 11110000", "mcall 11110000", "endif 11111111", "mov 11111111",
      "iadd 11111111", "mcall 11111111", "ret 11111111"},
     {{"r6", {2, 2, 2, 2, 1, 1, 1, 1}}, {"r7", {1, 1, 1, 1, 0, 0, 0, 0}}},
     "mdef(3)_outline\n;small\niadd r6.x, r6.x, l1.w\nmend\n"},
    {"AMacroInALoop",
     "whileloop\niadd r4.x, r4.x, l1.w\nmcall(3)_in(0)\nuge r5.x, r4.x, l2.z\nbreak_logicalnz r5.x\nendloop\n",
     {"whileloop 11111111",
      "iadd 11111111",
      "uge 11111111",
      "if_logicalnz 01111111",
      "iadd 01111111",
      "ret 01111111",
      "endif 10000000",
      "iadd 10000000",
      "mcall 11111111",
      "uge 11111111",
      "break_logicalnz 11111111",
      "whileloop 11111111",
      "iadd 11111111",
      "uge 11111111",
      "if_logicalnz 00111111",
      "iadd 00111111",
      "ret 00111111",
      "endif 11000000",
      "iadd 11000000",
      "mcall 11111111",
      "uge 11111111",
      "break_logicalnz 00000000",
      "endloop 11111111",
      "ret 11111111"},
     {{"r6", {0, 1, 3, 3, 3, 3, 3, 3}}, {"r8", {2, 1, 0, 0, 0, 0, 0, 0}}},
     "mdef(3)_outline\n;small\nuge r5.x, r0.x, r4.x\nif_logicalnz r5.x\niadd r6.x, r6.x, r4.x\nret\nendif\n"
     "iadd r8.x, r8.x, l1.w\nmend\n"},
    {"OutlineMacrosAfterOthers",
     "mcall(4)_in(0)\nmcall(3)_in(0)\n",
     {"iadd 11111111", "mcall 11111111", "mov 11111111", "mcall 11111111", "ret 11111111"},
     {{"r6", {5, 5, 5, 5, 5, 5, 5, 5}}, {"r7", {2, 3, 4, 5, 6, 7, 8, 9}}},
     "mdef(5)_outline\n;other\nmov r6.x, l2.y\nmend\nmdef(3)_outline\n;small\nmov r6.x, l2.w\nmend\n"
     "mdef(4)_outline\n;small\niadd r7.x, r0.x, l2.z\nmend\n"},
    {"AMacroThatIsPassedBy",
     "mov r6.x, l2.y\nmcall(5)_in(0)\n" + s_LowerHalf + "mcall(6)_in(0)\nendif\niadd r8.x, r6.x, l1.w\n",
     {"mov 11111111", "mcall 11111111", "ult 11111111", "if_logicalnz 11110000", "mcall 11110000", "endif 11111111",
      "iadd 11111111", "ret 11111111"},
     {{"r6", {4, 4, 4, 4, 5, 5, 5, 5}},
      {"r7", {6, 6, 6, 6, 2, 2, 2, 2}},
      {"r8", {5, 5, 5, 5, 6, 6, 6, 6}},
      {"r9", {2, 2, 2, 2, 2, 2, 2, 2}}},
     "mdef(5)_mod(0x0)\nmov r6.x, l2.w\ncall_logicalnz r6.x, 1031\ncall_logicalz l2.x, 1032\nmend\n"
     "mdef(6)_outline\n;other\nmov r6.x, l1.x\nmov r7.x, l1.y\nmend\n"
     "func 1031\nmov r7.x, l2.z\nret\nendfunc\nfunc 1032\nmov r9.x, l2.z\nret\nendfunc\n"},
    {"ACallAndAReturnOnAConditionThatSomeFulfil",
     "ult r5.x, r0.x, l1.x\ncall_logicalnz r5.x, 1031\niadd r6.x, r6.x, l1.w\n",
     {"ult 11111111", "func 11110000", "mov 11110000", "uge 11110000", "ret_logicalnz 11000000", "mov 11000000",
      "ret 11000000", "call_logicalnz 11111111", "iadd 11111111", "ret 11111111"},
     {{"r6", {3, 3, 6, 6, 1, 1, 1, 1}}},
     "func 1031\nmov r6.x, l2.w\nuge r5.x, r0.x, l2.z\nret_logicalnz r5.x\nmov r6.x, l2.z\nret\nendfunc\n"},
    {"ACallOnAConditionThatNobodyFulfils",
     "uge r5.x, r0.x, l2.x\ncall_logicalz r5.x, 1031\nmov r7.x, l2.w\n",
     {"uge 11111111", "call_logicalz 11111111", "mov 11111111", "ret 11111111"},
     {{"r7", {5, 5, 5, 5, 5, 5, 5, 5}}},
     "func 1031\nmov r6.x, l2.w\nret\nendfunc\n"},
    {"AReturnOnAConditionInALoop",
     s_Loop + "uge r5.x, r0.x, l1.x\nret_logicalnz r5.x\niadd r7.x, r7.x, l1.w\nendloop\niadd r6.x, r6.x, l1.w\n",
     {"whileloop 11111111", "iadd 11111111", "uge 11111111", "break_logicalnz 11111111", "uge 11111111",
      "ret_logicalnz 11110000", "iadd 11110000", "whileloop 11110000", "iadd 11110000", "uge 11110000",
      "break_logicalnz 00000000", "endloop 11110000", "iadd 11110000", "ret 11110000"},
     {{"r4", {2, 2, 2, 2, 1, 1, 1, 1}}, {"r6", {1, 1, 1, 1, 0, 0, 0, 0}}},
     ""},
    {"AReturnOnAConditionThatAllFulfil",
     s_LowerHalf + "call 1031\nendif\nuge r5.x, r0.x, l2.x\nret_logicalnz r5.x\nmov r6.x, l2.y\n",
     {"ult 11111111", "if_logicalnz 11110000", "func 11110000", "mov 11110000", "ret_logicalz 00000000",
      "call 11110000", "endif 11111111", "uge 11111111", "ret_logicalnz 00000000"},
     {{"r6", {5, 5, 5, 5}}},
     "func 1031\nmov r6.x, l2.w\nret_logicalz l2.x\nmov r6.x, l2.y\nret\nendfunc\n"},
    {"LiteralsThatAreDeclaredTwice",
     "dcl_literal l3, 3, 4, 0, 0\ncall 1031\ncall 1032\nmov r9.x, l2.w\ndcl_literal l4, 9, 0, 0, 0\n",
     {"func 11111111", "mov 11111111", "mov 11111111", "ret 11111111", "call 11111111", "func 11111111", "mov 11111111",
      "ret 11111111", "call 11111111", "mov 11111111", "ret 11111111"},
     {{"r6", {3, 3, 3, 3, 3, 3, 3, 3}}, {"r7", {9, 9, 9, 9, 9, 9, 9, 9}}, {"r8", {7, 7, 7, 7, 7, 7, 7, 7}}},
     "func 1031\nmov r6.x, l3.x\nmov r7.x, l4.x\nret\nendfunc\n"
     "func 1032\ndcl_literal l3, 7, 8, 9, 9\nmov r8.x, l3.x\nret\nendfunc\n"},
};

std::string StopOf(CSession& session)
{
    const std::string strMnemonic = session.GetListing().GetMnemonic(session.GetExecutedLine());
    std::string strStop = strMnemonic.substr(0, strMnemonic.find('(')) + " ";
    const SMaskView mask = session.GetMask();
    for (size_t i = 0; i < mask.nItems; ++i)
    {
        strStop += mask.pActive[i] != 0 ? '1' : '0';
    }
    return strStop;
}

class TrueStops : public testing::TestWithParam<SStopCase>
{
protected:
    static SLaunchFile File()
    {
        return MakeSmallKernel(GetParam().strBody, s_pszDeclarations, GetParam().strFunctions);
    }

    static void Play(CScriptedClient& client)
    {
        CLaunch launch(GetLibraries(), File());
        EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS) << client.GetError();
    }

    /// Steps through a launch.
    /// \param pvStops  receives the stops as texts, without those of the frame
    /// \param pLines  receives the next lines at the stops
    static std::vector<SSnapshot> Step(std::vector<std::string>* pvStops, std::set<unsigned int>* pLines = nullptr)
    {
        std::vector<SSnapshot> vShown;
        unsigned int nStop = 0;
        CScriptedClient client(AlwaysStep,
                               [&](CSession& session)
                               {
                                   vShown.emplace_back(session);
                                   if (pLines != nullptr)
                                   {
                                       pLines->insert(session.GetNextLine());
                                   }
                                   if (++nStop > 3 && pvStops != nullptr)
                                   {
                                       pvStops->push_back(StopOf(session));
                                   }
                                   return OVKCLDEBUG_COMMAND_STEP;
                               });
        Play(client);
        return vShown;
    }
};

TEST_P(TrueStops, AreWhatTheKernelDoes)
{
    std::vector<std::string> vStops;
    const std::vector<SSnapshot> vShown = Step(&vStops);
    EXPECT_EQ(vStops, GetParam().vStops);
    ASSERT_FALSE(vShown.empty());
    for (const SValues& values : GetParam().vValues)
    {
        const auto it = vShown.back().mapRegisters.find(values.pszRegister);
        ASSERT_NE(it, vShown.back().mapRegisters.end()) << values.pszRegister;
        for (size_t n = 0; n < values.vValues.size(); ++n)
        {
            EXPECT_EQ(it->second[4 * n], values.vValues[n]) << values.pszRegister << " of work-item " << n;
        }
    }
}

TEST_P(TrueStops, AreTheSameByARunAsBySteps)
{
    std::set<unsigned int> setLines;
    const std::vector<SSnapshot> vShown = Step(nullptr, &setLines);
    for (const unsigned int nLine : setLines)
    {
        std::vector<const SSnapshot*> vWanted;
        for (const SSnapshot& shown : vShown)
        {
            if (shown.nNextLine == nLine)
            {
                vWanted.push_back(&shown);
            }
        }
        size_t nStop = 0;
        CScriptedClient client(
            [&](CSession& session)
            {
                GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), nLine, 0, nullptr);
                return OVKCLDEBUG_COMMAND_CONTINUE;
            },
            [&](CSession& session)
            {
                if (nStop < vWanted.size())
                {
                    SSnapshot here(session);
                    // A register that wasn't written is read with the block that would write it.
                    for (auto it = here.mapRegisters.begin(); it != here.mapRegisters.end();)
                    {
                        const bool bWanted = vWanted[nStop]->mapRegisters.count(it->first) != 0;
                        it = bWanted ? std::next(it) : here.mapRegisters.erase(it);
                    }
                    const std::string strDifference = here.CompareWith(*vWanted[nStop]);
                    EXPECT_EQ(strDifference, "") << "stop " << nStop << " in front of line " << nLine << ": "
                                                 << session.GetListing().GetLine(nLine);
                }
                if (++nStop == 100)
                {
                    GetDebugFunctions().ovkclDebugClearAllBreakpoints(session.GetContext());
                }
                return OVKCLDEBUG_COMMAND_CONTINUE;
            });
        Play(client);
        EXPECT_EQ(nStop, vWanted.size()) << "in front of line " << nLine;
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, TrueStops, testing::ValuesIn(s_StopCases),
                         [](const auto& test) { return std::string(test.param.pszName); });

} // namespace
