#include "instrument/InstrumentedShaderIL.h"

namespace OVK_ShaderDebugger
{

/// Makes the mask that of the target's pass. A work-item that left a loop in an earlier pass still has the flag that it
/// got there, but its pass counter hasn't come to 0.
void CInstrumentedShaderIL::WriteMaskOfPass(CDest& dest, InstructionNumber nTarget)
{
    const Register flag(RT_Temp, GetExecMaskTempRegister(), COMP_All);
    for (const CIL_FCConstruct* p = ConstructOf(nTarget); p != nullptr; p = p->GetParent())
    {
        const CIL_Loop* pLoop = p->AsLoop();
        if (pLoop != nullptr && pLoop->IsInsideLoop(nTarget))
        {
            CMovDestSrcSrcSrc(dest, flag, Register(RT_Temp, pLoop->GetCountRegister(), pLoop->GetCountComponent()),
                              Register(RT_LITERAL, GetLiteralRegister0(), COMP_All), flag);
        }
    }
}

void CInstrumentedShaderIL::WriteOutputs(CDest& dest, InstructionNumber nCurrentInstruction)
{
    WriteMaskOfPass(dest, nCurrentInstruction);
    WriteStores(dest, nCurrentInstruction);
    if (!IsInMain(nCurrentInstruction))
    {
        // A flag that one call has set must not still be set in the next.
        WriteExecMaskTempReg(dest, false);
    }
}

} // namespace OVK_ShaderDebugger
