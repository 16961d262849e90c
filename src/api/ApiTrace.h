#ifndef KESTREL_API_APITRACE_H
#define KESTREL_API_APITRACE_H

#include "OVKKestrel.h"
#include "core/CLLogger.h"

#include <new>
#include <sstream>
#include <string>
#include <type_traits>

/// The frame of every exported function: writes the line of the call and the line of its result, and lets no exception
/// out. Logging never makes a call fail.
namespace Kestrel
{

using OVK_ShaderDebugger::CLD_Log;
using OVK_ShaderDebugger::GetLogger;

std::string toString(ovkclDebugEvent eEvent);
std::string toString(ovkclDebugCommand eCommand);

/// A value that the trace shows as toString's text, which is made only when a line is written.
template <typename T>
struct STraced
{
    T value;
};

template <typename T>
std::ostream& operator<<(std::ostream& stream, const STraced<T>& traced)
{
    return stream << toString(traced.value);
}

/// Numbers as numbers, every pointer as an address.
template <typename T>
void TraceArgument(std::ostream& stream, const T& value)
{
    if constexpr (std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>)
    {
        stream << reinterpret_cast<const void*>(value);
    }
    else if constexpr (std::is_pointer_v<T>)
    {
        stream << static_cast<const void*>(value);
    }
    else
    {
        stream << value;
    }
}

/// Does what only the trace needs, if it is on.
template <typename Body>
void Trace(const Body& body) noexcept
{
    try
    {
        if (GetLogger().IsLogging())
        {
            body();
        }
    }
    catch (...)
    {
    }
}

/// Writes "name( argument, argument )" if the trace is on.
template <typename First, typename... Rest>
void TraceCall(const char* pszFunction, const First& first, const Rest&... rest) noexcept
{
    Trace(
        [&]
        {
            std::ostringstream line;
            line << pszFunction << "( ";
            TraceArgument(line, first);
            ((line << ", ", TraceArgument(line, rest)), ...);
            line << " )\n";
            GetLogger() << line.str();
        });
}

/// Writes the result's line and gives the result back.
template <typename T>
T TraceReturn(const char* pszFunction, T result) noexcept
{
    try
    {
        OVK_ShaderDebugger::LogReturn(pszFunction, result);
    }
    catch (...)
    {
    }
    return result;
}

/// Runs the body of an exported function.
/// \param outOfMemory  the function's code for exhausted memory
/// \param failure      its code for any other exception
template <typename T, typename Body>
T RunExported(const char* pszFunction, T outOfMemory, T failure, const Body& body) noexcept
{
    T result = failure;
    try
    {
        result = body();
    }
    catch (const std::bad_alloc&)
    {
        result = outOfMemory;
    }
    catch (...)
    {
    }
    return TraceReturn(pszFunction, result);
}

/// The same for a function that gives an object, and its code through errcode_ret, which may be null. The
/// body stores its code in the reference that it gets.
template <typename T, typename Body>
T RunExportedCreate(const char* pszFunction, cl_int* errcode_ret, const Body& body) noexcept
{
    T result = nullptr;
    cl_int nCode = CL_OUT_OF_HOST_MEMORY;
    try
    {
        result = body(nCode);
    }
    catch (...)
    {
        nCode = CL_OUT_OF_HOST_MEMORY;
    }
    if (errcode_ret != nullptr)
    {
        *errcode_ret = nCode;
    }
    return TraceReturn(pszFunction, result);
}

} // namespace Kestrel

#endif
