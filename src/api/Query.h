#ifndef KESTREL_API_QUERY_H
#define KESTREL_API_QUERY_H

#include "api/ApiTrace.h"
#include "api/KernelDebugState.h"
#include "device/ShaderDebuggerHostCL.h"

namespace Kestrel
{

/// The events at which a query is allowed.
enum class EAllowedAt
{
    Halted,
    Started,
    Live, ///< anything but finished and error
    Any
};

inline bool IsAllowed(EAllowedAt eAllowedAt, ovkclDebugEvent eEvent)
{
    switch (eAllowedAt)
    {
    case EAllowedAt::Halted:
        return eEvent == OVKCLDEBUG_EVENT_HALTED;
    case EAllowedAt::Started:
        return eEvent == OVKCLDEBUG_EVENT_STARTED;
    case EAllowedAt::Live:
        return eEvent != OVKCLDEBUG_EVENT_FINISHED && eEvent != OVKCLDEBUG_EVENT_ERROR;
    default:
        return true;
    }
}

/// The frame of a query, after the line of its call: lock, context, event, pointers, the work, the line of the result.
/// \param bPointersValid  the query's own test of its pointers
/// \param work            called with the session, gives a code
template <typename Work>
ovkclDebugError RunQuery(const char* pszFunction, ovkclDebugContext debugContext, EAllowedAt eAllowedAt,
                         bool bPointersValid, const Work& work) noexcept
{
    return RunExported<ovkclDebugError>(
        pszFunction, OVKCLDEBUG_ERROR_OUT_OF_MEMORY, OVKCLDEBUG_ERROR_INTERNAL,
        [&]() -> ovkclDebugError
        {
            const CSessionLock lock;
            if (lock.IsNested())
            {
                return OVKCLDEBUG_ERROR_INVALID_STATE;
            }
            CKernelDebugState* pKernelDebugState = static_cast<CKernelDebugState*>(debugContext);
            if (!IsOpenSession(pKernelDebugState))
            {
                return OVKCLDEBUG_ERROR_INVALID_CONTEXT;
            }
            if (!IsAllowed(eAllowedAt, pKernelDebugState->m_debugEvent))
            {
                return OVKCLDEBUG_ERROR_INVALID_STATE;
            }
            return bPointersValid ? work(*pKernelDebugState) : OVKCLDEBUG_ERROR_INVALID_ARGUMENT;
        });
}

/// A result that the engine names by a register's text.
inline OVK_ShaderDebugger::VariableID VariableByName(const std::string& strName)
{
    OVK_ShaderDebugger::VariableID variableID;
    variableID.type = OVK_ShaderDebugger::VID_ByName;
    variableID.strName = strName;
    return variableID;
}

/// Bytes in hexadecimal, each with two digits, divided by blanks.
std::string ToHexadecimal(const unsigned char* pBytes, size_t nCount);

/// The same, made only when a line is written.
struct SHexadecimal
{
    const unsigned char* pBytes;
    size_t nCount;
};

inline std::ostream& operator<<(std::ostream& stream, const SHexadecimal& bytes)
{
    return stream << ToHexadecimal(bytes.pBytes, bytes.nCount);
}

} // namespace Kestrel

#endif
