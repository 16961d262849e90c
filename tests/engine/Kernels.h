#ifndef KESTREL_TESTS_ENGINE_KERNELS_H
#define KESTREL_TESTS_ENGINE_KERNELS_H

#include <ostream>
#include <string>

namespace OVK_ShaderDebugger
{

/// A function body for CTestSession, and the functions that it calls. r0.x is the work-item's number.
struct SKernelCase
{
    const char* pszName;
    std::string strBody;
    std::string strFunctions;
};

inline std::ostream& operator<<(std::ostream& stream, const SKernelCase& kernel)
{
    return stream << kernel.pszName;
}

inline const std::string s_Id = "mov r0, vTidInGrp.xxxx\niadd r9, r0, l21\n";
/// Stores r1.x to the work-item's word.
inline const std::string s_Store = "ishl r8.x, r0.x, l22.x\nmov r8.y, l20.x\ni64add r8.xy, cb1[0].xy, r8.xy\n"
                                   "uav_raw_store_id(10)_addr64 mem0.x, r8.xy, r1.x\n";

inline const SKernelCase s_Kernels[] = {
    {"Straight", s_Id + "iadd r1, r0, l22\n" + s_Store, ""},
    {"IfElse",
     s_Id +
         "ult r2, r0, l23\nif_logicalnz r2.x\niadd r1, r0, l22\niadd r1.x, r1.x, l21.x\nelse\nmov r1, l23\nendif\n"
         "iadd r1, r1, l21\n" +
         s_Store,
     ""},
    {"NobodyInIf", s_Id + "ult r2, r0, l20\nif_logicalnz r2.x\nmov r1, l21\nendif\niadd r1, r0, l22\n" + s_Store, ""},
    {"EverybodyInIf", s_Id + "uge r2, r0, l20\nif_logicalnz r2.x\nmov r1, l21\nelse\nmov r1, l22\nendif\n" + s_Store,
     ""},
    {"LoopOfDifferentLength",
     s_Id +
         "mov r3, l20\nwhileloop\nuge r2, r3, r0\nif_logicalnz r2.x\nbreak\nendif\niadd r1, r1, r3\n"
         "iadd r3, r3, l21\nendloop\niadd r1, r1, l21\n" +
         s_Store,
     ""},
    {"BreakAfterTheWork",
     s_Id +
         "mov r3, l20\nwhileloop\niadd r3, r3, l21\niadd r1, r3, r0\nuge r2, r3, r0\nbreak_logicalnz r2.x\n"
         "iadd r4, r3, l22\nendloop\n" +
         s_Store,
     ""},
    {"NestedLoops",
     s_Id +
         "mov r3, l20\nwhileloop\nuge r2, r3, l23\nbreak_logicalnz r2.x\nmov r4, l20\nwhileloop\nuge r2, r4, r0\n"
         "break_logicalnz r2.x\niadd r1, r1, r4\niadd r4, r4, l22\nendloop\niadd r3, r3, l21\nendloop\n" +
         s_Store,
     ""},
    {"Switch",
     s_Id +
         "iand r5, r0, l23\nswitch r5.x\ncase 0\nmov r1, l21\nbreak\ncase 1\ncase 2\niadd r1, r0, l22\nbreak\n"
         "default\nmov r1, l24\nbreak\nendswitch\niadd r1, r1, l21\n" +
         s_Store,
     ""},
    {"SwitchInLoop",
     s_Id +
         "mov r3, l20\nwhileloop\nuge r2, r3, l23\nbreak_logicalnz r2.x\nswitch r3.x\ncase 0\niadd r1, r1, l21\n"
         "break\ncase 1\nult r2, r0, l22\nif_logicalnz r2.x\nbreak\nendif\niadd r1, r1, l22\nbreak\ndefault\n"
         "iadd r1, r1, l23\nbreak\nendswitch\niadd r3, r3, l21\nendloop\n" +
         s_Store,
     ""},
    {"Continue",
     s_Id +
         "mov r3, l20\nwhileloop\niadd r3, r3, l21\nuge r2, r3, l24\nbreak_logicalnz r2.x\nuge r2, r0, r3\n"
         "if_logicalnz r2.x\niadd r1, r1, l21\ncontinue\nendif\niadd r1, r1, l22\nendloop\n" +
         s_Store,
     ""},
    {"NestedCalls", s_Id + "call 1025\niadd r1, r1, l21\n" + s_Store,
     "func 1025\nmov r6, r0\ncall 1026\niadd r1, r6, r7\nret\nendfunc\nfunc 1026\niadd r7, r0, l23\nret\nendfunc\n"},
    {"DivergentReturn", s_Id + "call 1025\niadd r1, r1, l21\n" + s_Store,
     "func 1025\niadd r1, r0, l22\nult r2, r0, l23\nif_logicalnz r2.x\nret\nendif\niadd r1, r1, l24\nret\nendfunc\n"},
    {"CalledTwice",
     s_Id + "call 1025\nmov r1, r7\niadd r0, r0, l22\ncall 1025\niadd r1, r1, r7\niadd r0, r9, l20\n" + s_Store,
     "func 1025\niadd r7, r0, l23\nult r2, r0, l24\nif_logicalnz r2.x\niadd r7, r7, l21\nendif\nret\nendfunc\n"},
    {"CallInLoop",
     s_Id + "mov r3, l20\nwhileloop\nuge r2, r3, r0\nbreak_logicalnz r2.x\ncall 1025\niadd r3, r3, l21\nendloop\n" +
         s_Store,
     "func 1025\niadd r1, r1, r3\niadd r7, r1, l21\nret\nendfunc\n"},
    {"CallInIf", s_Id + "call 1025\nult r2, r0, l23\nif_logicalnz r2.x\ncall 1025\nendif\n" + s_Store,
     "func 1025\niadd r1, r1, l21\niadd r7, r1, l21\nret\nendfunc\n"},
    {"PrivateStoreInLoopsInCall",
     "dcl_typeless_uav_id(8)_stride(4)_length(48)_access(private)\n" + s_Id + "call 1025\n" + s_Store,
     "func 1025\nmov r3, l20\nwhileloop\nuge r2, r3, l22\nbreak_logicalnz r2.x\niadd r3, r3, l21\nmov r4, l20\n"
     "whileloop\nuge r2, r4, l22\nbreak_logicalnz r2.x\niadd r4, r4, l21\nmov r5, l20\nwhileloop\n"
     "uge r2, r5, l21\nbreak_logicalnz r2.x\niadd r5, r5, l21\nwhileloop\nishl r6.x, r4.x, l24.x\n"
     "uav_raw_store_id(8) mem0.x, r6.x, r0\nuav_raw_load_id(8) r1.x, r6.x\nbreak\nendloop\nendloop\nendloop\n"
     "endloop\nret\nendfunc\n"},
    {"LoopInCallInLoops",
     s_Id +
         "mov r3, l20\nwhileloop\nuge r2, r3, l23\nbreak_logicalnz r2.x\nmov r4, l20\nwhileloop\nuge r2, r4, l22\n"
         "break_logicalnz r2.x\ncall 1025\niadd r1, r1, r7\niadd r4, r4, l21\nendloop\niadd r3, r3, l21\nendloop\n" +
         s_Store,
     "func 1025\nmov r6, r0\nmov r5, l20\nwhileloop\nuge r2, r5, r0\nbreak_logicalnz r2.x\ncall 1026\n"
     "iadd r5, r5, l21\nendloop\nret\nendfunc\nfunc 1026\niadd r7, r6, r5\nult r2, r0, l24\nif_logicalnz r2.x\nret\n"
     "endif\niadd r7, r7, r3\nret\nendfunc\n"},
    {"MacroInIf", s_Id + "ult r2, r0, l23\nif_logicalnz r2.x\nmcall(3)_in(0)\nendif\n" + s_Store,
     "mdef(3)_outline\n;k\niadd r3, r0, l22\niadd r1, r3, l21\nmend\n"},
    {"MacrosInLoopsAndMacros",
     s_Id +
         "mov r3, l20\nwhileloop\nuge r2, r3, l22\nbreak_logicalnz r2.x\nmcall(4)_out(1)_in(2) r1, r1, r3\n"
         "iadd r3, r3, l21\nendloop\nmcall(3)_in(0)\n" +
         s_Store,
     "mdef(3)_outline\n;k\niadd r1, r1, l21\nmend\nfunc 1025\n"
     "iadd r7, r7, l22\nret\nendfunc\nmdef(4)_outline\n;k\nmcall(3)_in(0)\nmov r4, l20\nwhileloop\n"
     "uge r2, r4, r0\nbreak_logicalnz r2.x\niadd r4, r4, l22\ncall 1025\nendloop\niadd out0, in0, in1\nmend\n"},
    {"CallsAndReturnsOnConditions",
     s_Id +
         "mov r3, l20\nwhileloop\nuge r2, r3, l23\nbreak_logicalnz r2.x\nuge r2, r0, r3\n"
         "call_logicalnz r2.x, 1025\ncall_logicalz r2.x, 1026\niadd r3, r3, l21\nendloop\n" +
         s_Store,
     "func 1025\nmov r4, l20\nwhileloop\niadd r4, r4, l21\nuge r2, r4, r0\nret_logicalnz r2.x\n"
     "iadd r1, r1, l21\nuge r2, r4, l22\nbreak_logicalnz r2.x\nendloop\ncall_logicalz r2.x, 1026\n"
     "iadd r1, r1, l22\nret\nendfunc\nfunc 1026\niadd r1, r1, l24\nret_logicalz l21.x\nret\nendfunc\n"},
};

} // namespace OVK_ShaderDebugger

#endif
