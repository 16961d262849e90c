#ifndef KESTREL_INSTRUMENT_PATCHPASS_H
#define KESTREL_INSTRUMENT_PATCHPASS_H

#include "instrument/InstrumentedShaderIL.h"

namespace OVK_ShaderDebugger
{

/// What a pass for a memory kernel has besides.
struct CInstrumentedShaderIL::SMemoryPatch
{
    const std::vector<SLocalBlock>& vBlocks;
    InstructionNumber nMainCut = g_Inst_NULL;          ///< the call with which the main body ends
    bool bReturned = false;                            ///< work-items may have left the main body already
    const std::vector<Register>* pRegisters = nullptr; ///< whose values are stored in place of local memory; or null
    unsigned int nPlane = 0;                           ///< bytes that the values of one of them take
};

/// One pass over the tokens of the kernel, or over those of one function of it. Internal to this folder.
struct CInstrumentedShaderIL::SPass
{
    CSource& src;
    CDest& dest;
    const SCut& cut;
    const std::vector<Register>& vTargetRegs;
    InstructionNumber nCurrentInstruction = 0;
    SMemoryPatch* pMemory = nullptr;          ///< null but for memory kernels
    const std::vector<SCut>* pCuts = nullptr; ///< all cuts, in the pass over the kernel
    bool bCopy = false;                       ///< makes a copy of one function, and nothing of what follows it
    bool bInOutlineMacro = false;
    bool bDone = false; ///< the cut has been reached, and what follows it has been written
};

} // namespace OVK_ShaderDebugger

#endif
