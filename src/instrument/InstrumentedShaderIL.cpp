#include "instrument/InstrumentedShaderIL.h"

#include <cstdlib>

namespace OVK_ShaderDebugger
{

CInstrumentedShaderIL::CInstrumentedShaderIL(IShaderDebugger* pDebugger, const void* pShaderData, size_t nShaderSize)
    : CAnalyzedShaderIL(pDebugger, pShaderData, nShaderSize), m_pPatchedShader(nullptr), m_nPatchedShaderSize(0)
{
}

CInstrumentedShaderIL::~CInstrumentedShaderIL()
{
    std::free(m_pPatchedShader);
}

void CInstrumentedShaderIL::DropPatchedShader()
{
    std::free(m_pPatchedShader);
    m_pPatchedShader = nullptr;
    m_nPatchedShaderSize = 0;
}

bool CInstrumentedShaderIL::IsPatchedOutputRegister(const Register& reg) const
{
    return reg.reg.type == RT_Output &&
           (reg.reg.number == GetResultsOutputRegister() || reg.reg.number == GetExecMaskOutputRegister());
}

} // namespace OVK_ShaderDebugger
