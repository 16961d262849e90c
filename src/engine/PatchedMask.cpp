#include "engine/ShaderDebuggerShaderIL.h"

namespace OVK_ShaderDebugger
{

/// Makes the mask that a patched kernel stores the mask of the target's pass and call. A work-item that leaves a loop
/// in an earlier pass takes the flag along that it got there: its pass counter hasn't come to 0. And a flag that one
/// call has set must not last into the next.
void CShaderDebuggerShaderIL::WriteOutputs(CDest& dest, InstructionNumber nCurrentInstruction)
{
    const Register flag(RT_Temp, GetExecMaskTempRegister(), COMP_All);
    for (const CIL_FCConstruct* p = ConstructOf(nCurrentInstruction); p != nullptr; p = p->GetParent())
    {
        const CIL_Loop* pLoop = p->AsLoop();
        if (pLoop != nullptr && pLoop->IsInsideLoop(nCurrentInstruction))
        {
            CMovDestSrcSrcSrc(dest, flag, Register(RT_Temp, pLoop->GetCountRegister(), pLoop->GetCountComponent()),
                              Register(RT_LITERAL, GetLiteralRegister0(), COMP_All), flag);
        }
    }
    CInstrumentedShaderIL::WriteOutputs(dest, nCurrentInstruction);
    if (!IsInMain(nCurrentInstruction))
    {
        WriteExecMaskTempReg(dest, false);
    }
}

} // namespace OVK_ShaderDebugger
