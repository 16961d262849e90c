#include "engine/ShaderDebuggerShaderIL.h"

namespace OVK_ShaderDebugger
{

/// The flag that one call of the target's function has set must not last into the next.
void CShaderDebuggerShaderIL::WriteOutputs(CDest& dest, InstructionNumber nCurrentInstruction)
{
    CInstrumentedShaderIL::WriteOutputs(dest, nCurrentInstruction);
    if (FunctionOf(nCurrentInstruction) != 0)
    {
        WriteExecMaskTempReg(dest, false);
    }
}

} // namespace OVK_ShaderDebugger
