#include "api/Query.h"

#include "api/RegisterLocators.h"

#include <set>
#include <string>

using namespace Kestrel;

ovkclDebugError ovkclDebugSetTrackingRegisters(ovkclDebugContext debugContext,
                                               const ovkclDebugRegisterLocator* debugRegisterLocators,
                                               size_t numDebugRegisterLocators)
{
    TraceCall(__func__, debugContext, debugRegisterLocators, numDebugRegisterLocators);
    if (debugContext == nullptr && debugRegisterLocators != nullptr && numDebugRegisterLocators == 1 &&
        *debugRegisterLocators == OVKCLDEBUG_EXT_VALUES_ON_DEMAND)
    {
        AskForValuesOnDemand();
        return TraceReturn(__func__, OVKCLDEBUG_SUCCESS);
    }
    return RunQuery(__func__, debugContext, EAllowedAt::Started,
                    debugRegisterLocators != nullptr || numDebugRegisterLocators == 0,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        const bool bOnDemand =
                            numDebugRegisterLocators == 1 && *debugRegisterLocators == OVKCLDEBUG_EXT_VALUES_ON_DEMAND;
                        if (debugRegisterLocators == nullptr || bOnDemand)
                        {
                            state.m_pShaderDebuggerHost->SetEnableTrackingVariables(false);
                            state.m_pShaderDebuggerHost->SetValuesOnDemand(bOnDemand);
                            return OVKCLDEBUG_SUCCESS;
                        }
                        std::set<std::string> variables;
                        if (state.m_bTrackPrivateMemory)
                        {
                            variables.insert(state.GetPrivateMemoryRegister());
                        }
                        for (size_t i = 0; i < numDebugRegisterLocators; ++i)
                        {
                            const std::string strName = debugRegisterLocatorToString(debugRegisterLocators[i]);
                            if (strName.empty())
                            {
                                return OVKCLDEBUG_ERROR_INVALID_LOCATION;
                            }
                            variables.insert(strName);
                            // The engine tests a register by its name without index.
                            variables.insert(strName.substr(0, strName.find('[')));
                        }
                        if (!state.m_pShaderDebuggerHost->SetTrackingVariables(variables))
                        {
                            return OVKCLDEBUG_ERROR_INVALID_LOCATION;
                        }
                        state.m_pShaderDebuggerHost->SetEnableTrackingVariables(true);
                        state.m_pShaderDebuggerHost->SetValuesOnDemand(false);
                        return OVKCLDEBUG_SUCCESS;
                    });
}

ovkclDebugError ovkclDebugSetTrackPrivateMemory(ovkclDebugContext debugContext, cl_bool track)
{
    TraceCall(__func__, debugContext, track);
    return RunQuery(__func__, debugContext, EAllowedAt::Started, true,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        if (state.m_pShaderDebuggerHost->GetEnableTrackingVariables())
                        {
                            std::set<std::string> variables = state.m_pShaderDebuggerHost->GetTrackingVariables();
                            if (track == CL_TRUE)
                            {
                                variables.insert(state.GetPrivateMemoryRegister());
                            }
                            else
                            {
                                variables.erase(state.GetPrivateMemoryRegister());
                            }
                            if (!state.m_pShaderDebuggerHost->SetTrackingVariables(variables))
                            {
                                return OVKCLDEBUG_ERROR_INTERNAL;
                            }
                        }
                        state.m_bTrackPrivateMemory = track != 0;
                        return OVKCLDEBUG_SUCCESS;
                    });
}
