#ifndef KESTREL_INSTRUMENT_TARGETSCOPE_H
#define KESTREL_INSTRUMENT_TARGETSCOPE_H

#include "instrument/InstrumentedShaderIL.h"

namespace OVK_ShaderDebugger
{

/// For its lifetime patched kernels are made for targets in a certain call, and read at certain jumps as well.
class CInstrumentedShaderIL::CTargetScope
{
public:
    CTargetScope(CInstrumentedShaderIL& kernel, const CCallPath& calls, const std::set<InstructionNumber>& leaving)
        : m_Kernel(kernel), m_Calls(calls), m_Leaving(leaving)
    {
        Swap();
    }
    ~CTargetScope() { Swap(); }
    CTargetScope(const CTargetScope&) = delete;
    CTargetScope& operator=(const CTargetScope&) = delete;

private:
    void Swap()
    {
        m_Kernel.m_CallStack.swap(m_Calls);
        m_Kernel.m_Leaving.swap(m_Leaving);
    }

    CInstrumentedShaderIL& m_Kernel;
    CCallPath m_Calls;
    std::set<InstructionNumber> m_Leaving;
};

} // namespace OVK_ShaderDebugger

#endif
