#ifndef KESTREL_MODULES_CLCALL_H
#define KESTREL_MODULES_CLCALL_H

#include "modules/OpenCLModule.h"

#include <string>
#include <utility>
#include <vector>

/// Calls through a table of OpenCL entry points, any of which a runtime may lack. None of these keeps
/// state; they may be used from any thread.
namespace OVK_ShaderDebugger
{

class CShaderDebuggerHost;

/// The code of a call whose entry the runtime lacks.
constexpr cl_int s_nMissingEntry = CL_INVALID_OPERATION;

/// Calls an entry that gives a code.
template <typename Result, typename... Parameters, typename... Arguments>
cl_int CallCL(Result(CL_API_CALL* pEntry)(Parameters...), Arguments... arguments)
{
    return pEntry != nullptr ? pEntry(arguments...) : s_nMissingEntry;
}

/// Calls an entry that gives an object, or a mapping, and a code through its last parameter.
/// \return null, with the code in nCode, on failure, and also where the entry reports success without an object
template <typename Result, typename... Parameters, typename... Arguments>
Result CreateCL(cl_int& nCode, Result(CL_API_CALL* pEntry)(Parameters...), Arguments... arguments)
{
    nCode = s_nMissingEntry;
    Result result = pEntry != nullptr ? pEntry(arguments..., &nCode) : nullptr;
    if (nCode == CL_SUCCESS && result == nullptr)
    {
        nCode = s_nMissingEntry;
    }
    return nCode == CL_SUCCESS ? result : nullptr;
}

/// Asks an entry of the clGet...Info family for a value of a fixed size. The value is zero on failure.
template <typename Value, typename Entry, typename Object, typename Parameter>
cl_int QueryCL(Entry pEntry, Object object, Parameter parameter, Value& value)
{
    value = Value();
    const cl_int nCode =
        CallCL(pEntry, object, parameter, sizeof(Value), static_cast<void*>(&value), static_cast<size_t*>(nullptr));
    if (nCode != CL_SUCCESS)
    {
        value = Value();
    }
    return nCode;
}

/// Asks for a list, the size first. The list is empty on failure.
template <typename Value, typename Entry, typename Object, typename Parameter>
cl_int QueryListCL(Entry pEntry, Object object, Parameter parameter, std::vector<Value>& vValues)
{
    vValues.clear();
    size_t nSize = 0;
    cl_int nCode = CallCL(pEntry, object, parameter, size_t(0), static_cast<void*>(nullptr), &nSize);
    if (nCode != CL_SUCCESS || nSize == 0)
    {
        return nCode;
    }
    vValues.resize(nSize / sizeof(Value));
    nCode = CallCL(pEntry, object, parameter, vValues.size() * sizeof(Value), static_cast<void*>(vValues.data()),
                   static_cast<size_t*>(nullptr));
    if (nCode != CL_SUCCESS)
    {
        vValues.clear();
    }
    return nCode;
}

/// Asks for a text, the size first. The text ends at its first NUL and is empty on failure.
template <typename Entry, typename Object, typename Parameter>
cl_int QueryTextCL(Entry pEntry, Object object, Parameter parameter, std::string& strText)
{
    std::vector<char> vText;
    const cl_int nCode = QueryListCL(pEntry, object, parameter, vText);
    vText.push_back('\0');
    strText = vText.data();
    return nCode;
}

/// Reads the binary that a program has for a device.
/// \param module  the table to call through
/// \return CL_SUCCESS; CL_INVALID_DEVICE if the program isn't built for the device; the code of a query that failed.
///         The binary is empty then
cl_int QueryProgramBinary(const OpenCLModule& module, cl_program program, cl_device_id device,
                          std::vector<char>& vBinary);

/// Reports a call that failed to the session's log: its text as an assertion, and the code by name, number and words.
/// \return whether the code is that of success
bool CheckCL(CShaderDebuggerHost* pHost, cl_int nCode, const char* pszText) noexcept;

} // namespace OVK_ShaderDebugger

#endif
