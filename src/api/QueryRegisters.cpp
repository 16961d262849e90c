#include "api/Query.h"

#include "api/RegisterLocators.h"
#include "core/ShaderDebuggerBuffer.h"

#include <algorithm>
#include <string>
#include <vector>

using namespace Kestrel;
using OVK_ShaderDebugger::CShaderDebuggerBuffer;

namespace
{

const size_t s_nElementSize = 16; // four 32-bit components

/// The mask's work-items alone, for a client that has asked for values on demand.
ovkclDebugError CountActive(const CKernelDebugState& state, size_t& nActive)
{
    if (!state.m_pShaderDebuggerHost->HasValuesOnDemand())
    {
        return OVKCLDEBUG_ERROR_INVALID_ARGUMENT;
    }
    return state.m_pShaderDebuggerHost->CountActive(nActive) ? OVKCLDEBUG_SUCCESS : OVKCLDEBUG_ERROR_INVALID_STATE;
}

} // namespace

ovkclDebugError ovkclDebugGetExecutionMask(ovkclDebugContext debugContext, const cl_bool** executionMask,
                                           size_t* numElements)
{
    TraceCall(__func__, debugContext, executionMask, numElements);
    return RunQuery(__func__, debugContext, EAllowedAt::Halted, numElements != nullptr,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        if (executionMask == nullptr)
                        {
                            return CountActive(state, *numElements);
                        }
                        const CShaderDebuggerBuffer* pMask = state.m_pShaderDebuggerHost->GetExecutionMaskBuffer();
                        if (pMask == nullptr)
                        {
                            return OVKCLDEBUG_ERROR_INVALID_STATE;
                        }
                        *executionMask = reinterpret_cast<const cl_bool*>(pMask->GetData());
                        *numElements = pMask->GetSize() / sizeof(cl_bool);
                        if (*numElements != 0)
                        {
                            CLD_Log("Work item 0 = ", SHexadecimal{pMask->GetData(), sizeof(cl_bool)}, "\n");
                        }
                        return OVKCLDEBUG_SUCCESS;
                    });
}

ovkclDebugError ovkclDebugGetNumberOfActiveRegisters(ovkclDebugContext debugContext, size_t* numActiveRegisters)
{
    TraceCall(__func__, debugContext, numActiveRegisters);
    return RunQuery(__func__, debugContext, EAllowedAt::Halted, numActiveRegisters != nullptr,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        std::vector<std::string> vRegisters;
                        if (!state.m_pShaderDebuggerHost->GetActiveRegisters(&vRegisters))
                        {
                            return OVKCLDEBUG_ERROR_OPERATION_FAILED;
                        }
                        *numActiveRegisters = vRegisters.size();
                        return OVKCLDEBUG_SUCCESS;
                    });
}

ovkclDebugError ovkclDebugGetActiveRegisters(ovkclDebugContext debugContext,
                                             ovkclDebugRegisterLocator* debugRegisterLocators,
                                             size_t numActiveRegisters)
{
    TraceCall(__func__, debugContext, debugRegisterLocators, numActiveRegisters);
    return RunQuery(
        __func__, debugContext, EAllowedAt::Halted, debugRegisterLocators != nullptr || numActiveRegisters == 0,
        [&](CKernelDebugState& state) -> ovkclDebugError
        {
            std::vector<std::string> vRegisters;
            if (!state.m_pShaderDebuggerHost->GetActiveRegisters(&vRegisters))
            {
                return OVKCLDEBUG_ERROR_OPERATION_FAILED;
            }
            if (numActiveRegisters < vRegisters.size())
            {
                return OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL;
            }
            std::transform(vRegisters.begin(), vRegisters.end(), debugRegisterLocators, stringToDebugRegisterLocator);
            return OVKCLDEBUG_SUCCESS;
        });
}

ovkclDebugError ovkclDebugGetRegisterValues(ovkclDebugContext debugContext,
                                            ovkclDebugRegisterLocator debugRegisterLocator, const void** outputBuffer,
                                            size_t* outputStride, size_t* numElements)
{
    TraceCall(__func__, debugContext, debugRegisterLocator, outputBuffer, outputStride, numElements);
    return RunQuery(__func__, debugContext, EAllowedAt::Halted,
                    outputBuffer != nullptr && outputStride != nullptr && numElements != nullptr,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        OVK_ShaderDebugger::VariableID variableID =
                            VariableByName(debugRegisterLocatorToString(debugRegisterLocator));
                        if (variableID.strName.empty())
                        {
                            return OVKCLDEBUG_ERROR_INVALID_LOCATION;
                        }
                        const CShaderDebuggerBuffer* pValues =
                            state.m_pShaderDebuggerHost->GetRegisterResultsBuffer(variableID);
                        if (pValues == nullptr)
                        {
                            return OVKCLDEBUG_ERROR_INVALID_LOCATION;
                        }
                        *outputBuffer = pValues->GetData();
                        *outputStride = s_nElementSize;
                        *numElements = pValues->GetSize() / s_nElementSize;
                        if (*numElements != 0)
                        {
                            CLD_Log(variableID.strName, ", Work item 0 =\n",
                                    SHexadecimal{pValues->GetData(), s_nElementSize}, "\n");
                        }
                        return OVKCLDEBUG_SUCCESS;
                    });
}
