#include "api/Query.h"

#include <algorithm>
#include <vector>

using namespace Kestrel;

ovkclDebugError ovkclDebugGetKernelBinarySize(ovkclDebugContext debugContext, size_t* debugBinarySize)
{
    TraceCall(__func__, debugContext, debugBinarySize);
    return RunQuery(__func__, debugContext, EAllowedAt::Any, debugBinarySize != nullptr,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        *debugBinarySize = state.m_pShaderDebuggerHost->GetShaderData().size();
                        return OVKCLDEBUG_SUCCESS;
                    });
}

ovkclDebugError ovkclDebugGetKernelBinary(ovkclDebugContext debugContext, void* debugBinary, size_t debugBinarySize)
{
    TraceCall(__func__, debugContext, debugBinary, debugBinarySize);
    return RunQuery(__func__, debugContext, EAllowedAt::Any, debugBinary != nullptr,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        const std::vector<char>& vBinary = state.m_pShaderDebuggerHost->GetShaderData();
                        if (debugBinarySize < vBinary.size())
                        {
                            return OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL;
                        }
                        std::copy(vBinary.begin(), vBinary.end(), static_cast<char*>(debugBinary));
                        return OVKCLDEBUG_SUCCESS;
                    });
}
