#include "api/Query.h"

#include <algorithm>
#include <set>

using namespace Kestrel;

// Program counter and breakpoints. Both are lines of the IL text.

ovkclDebugError ovkclDebugGetProgramCounter(ovkclDebugContext debugContext, ovkclDebugPC* programCounter)
{
    TraceCall(__func__, debugContext, programCounter);
    return RunQuery(__func__, debugContext, EAllowedAt::Halted, programCounter != nullptr,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        *programCounter = state.m_pShaderDebuggerHost->GetNextLine();
                        return OVKCLDEBUG_SUCCESS;
                    });
}

ovkclDebugError ovkclDebugSetBreakpoint(ovkclDebugContext debugContext, ovkclDebugPC programCounter, cl_uint lookAhead,
                                        ovkclDebugPC* actualPC)
{
    TraceCall(__func__, debugContext, programCounter, lookAhead, actualPC);
    return RunQuery(
        __func__, debugContext, EAllowedAt::Live, true,
        [&](CKernelDebugState& state) -> ovkclDebugError
        {
            OVK_ShaderDebugger::LineNumber outputLine = 0;
            if (!state.m_pShaderDebuggerHost->AddBreakPointAtLineNumber(programCounter, lookAhead, &outputLine))
            {
                return OVKCLDEBUG_ERROR_OPERATION_FAILED;
            }
            CLD_Log("Breakpont at program counter = ", outputLine, "\n");
            if (actualPC != nullptr)
            {
                *actualPC = outputLine;
            }
            return OVKCLDEBUG_SUCCESS;
        });
}

ovkclDebugError ovkclDebugClearBreakpoint(ovkclDebugContext debugContext, ovkclDebugPC programCounter)
{
    TraceCall(__func__, debugContext, programCounter);
    return RunQuery(__func__, debugContext, EAllowedAt::Live, true,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        return state.m_pShaderDebuggerHost->RemoveBreakPointAtLineNumber(programCounter)
                                   ? OVKCLDEBUG_SUCCESS
                                   : OVKCLDEBUG_ERROR_OPERATION_FAILED;
                    });
}

ovkclDebugError ovkclDebugClearAllBreakpoints(ovkclDebugContext debugContext)
{
    TraceCall(__func__, debugContext);
    return RunQuery(__func__, debugContext, EAllowedAt::Live, true,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        state.m_pShaderDebuggerHost->RemoveAllBreakPoints();
                        return OVKCLDEBUG_SUCCESS;
                    });
}

ovkclDebugError ovkclDebugGetNumBreakpoints(ovkclDebugContext debugContext, size_t* numBreakpoints)
{
    TraceCall(__func__, debugContext, numBreakpoints);
    return RunQuery(__func__, debugContext, EAllowedAt::Live, numBreakpoints != nullptr,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        *numBreakpoints = state.m_pShaderDebuggerHost->GetBreakPointsAsLineNumbers(nullptr);
                        return OVKCLDEBUG_SUCCESS;
                    });
}

ovkclDebugError ovkclDebugGetAllBreakpoints(ovkclDebugContext debugContext, ovkclDebugPC* breakpointList,
                                            size_t listLength)
{
    TraceCall(__func__, debugContext, breakpointList, listLength);
    return RunQuery(__func__, debugContext, EAllowedAt::Live, breakpointList != nullptr,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        std::set<unsigned int> breakpoints;
                        state.m_pShaderDebuggerHost->GetBreakPointsAsLineNumbers(&breakpoints);
                        std::copy_n(breakpoints.begin(), std::min(listLength, breakpoints.size()), breakpointList);
                        return listLength < breakpoints.size() ? OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL : OVKCLDEBUG_SUCCESS;
                    });
}
