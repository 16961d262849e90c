#include "api/ApiTrace.h"
#include "api/KernelDebugState.h"
#include "device/ShaderDebuggerHostCL.h"

#include <cstring>

using namespace Kestrel;

// Outside the frame of the queries: this one is allowed at every event, and also from within a call that the library
// itself makes, where this thread already holds the lock.
ovkclDebugError ovkclDebugUtilGetLastError(ovkclDebugContext debugContext, size_t bufferSize, char* buffer,
                                           size_t* bufferSizeRet)
{
    TraceCall(__func__, debugContext, bufferSize, buffer, bufferSizeRet);
    return RunExported<ovkclDebugError>(__func__, OVKCLDEBUG_ERROR_OUT_OF_MEMORY, OVKCLDEBUG_ERROR_INTERNAL,
                                        [&]() -> ovkclDebugError
                                        {
                                            if (debugContext == nullptr || (bufferSize != 0 && buffer == nullptr))
                                            {
                                                return OVKCLDEBUG_ERROR_INVALID_ARGUMENT;
                                            }
                                            const CSessionLock lock;
                                            CKernelDebugState* pKernelDebugState =
                                                static_cast<CKernelDebugState*>(debugContext);
                                            if (!IsOpenSession(pKernelDebugState))
                                            {
                                                return OVKCLDEBUG_ERROR_INVALID_CONTEXT;
                                            }
                                            std::string strError;
                                            pKernelDebugState->m_pShaderDebuggerHost->GetLastError(strError);
                                            const size_t strLen = strError.size() + 1;
                                            if (bufferSizeRet != nullptr)
                                            {
                                                *bufferSizeRet = strError.empty() ? 0 : strLen;
                                            }
                                            if (buffer == nullptr)
                                            {
                                                return OVKCLDEBUG_SUCCESS;
                                            }
                                            if (bufferSize < strLen)
                                            {
                                                return OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL;
                                            }
                                            if (!strError.empty())
                                            {
                                                std::memcpy(buffer, strError.c_str(), strLen);
                                            }
                                            return OVKCLDEBUG_SUCCESS;
                                        });
}
