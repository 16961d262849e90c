#ifndef KESTREL_PLATFORM_RUNTIME_APICALL_H
#define KESTREL_PLATFORM_RUNTIME_APICALL_H

#include "platform/runtime/Settings.h"

#include <new>

namespace KestrelPlatform::Runtime
{

/// The common part of entry points that give a code: carries out a failure that a test has ordered, and lets no
/// exception out.
template <class F>
cl_int ApiCall(const char* pszEntryPoint, F&& body)
{
    try
    {
        const cl_int nOrdered = CountCall(pszEntryPoint);
        return nOrdered != CL_SUCCESS ? nOrdered : body();
    }
    catch (const std::bad_alloc&)
    {
        return CL_OUT_OF_HOST_MEMORY;
    }
    catch (...)
    {
        return CL_OUT_OF_RESOURCES;
    }
}

/// The common part of entry points that give a handle or a pointer: the body stores it in its argument and gives the
/// code, which goes to pnError. Gives null with any code but CL_SUCCESS.
template <class H, class F>
H ApiCreate(const char* pszEntryPoint, cl_int* pnError, F&& body)
{
    H result = nullptr;
    const cl_int nError = ApiCall(pszEntryPoint, [&]() -> cl_int { return body(result); });
    if (pnError)
    {
        *pnError = nError;
    }
    return nError == CL_SUCCESS ? result : nullptr;
}

} // namespace KestrelPlatform::Runtime

#endif
