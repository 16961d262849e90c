#include "platform/runtime/Dispatch.h"

#include "platform/runtime/ExtensionEntries.h"
#include "platform/runtime/Settings.h"

#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

void StoreInvalidOperation(cl_int* pnError)
{
    if (pnError)
    {
        *pnError = CL_INVALID_OPERATION;
    }
}

template <class T>
void StoreInvalidOperation(T)
{
}

/// Makes a function of a table entry's type that answers that the operation isn't supported.
template <class T>
struct SUnsupported;

template <class... Args>
struct SUnsupported<cl_int(CL_API_CALL*)(Args...)>
{
    static cl_int CL_API_CALL Call(Args...) { return CL_INVALID_OPERATION; }
};

template <class... Args>
struct SUnsupported<void(CL_API_CALL*)(Args...)>
{
    static void CL_API_CALL Call(Args...) {}
};

template <class R, class... Args>
struct SUnsupported<R*(CL_API_CALL*)(Args...)>
{
    static R* CL_API_CALL Call(Args... args)
    {
        (StoreInvalidOperation(args), ...);
        return nullptr;
    }
};

template <class T>
void FillUnsupported(T& pEntry)
{
    if (!pEntry)
    {
        pEntry = &SUnsupported<T>::Call;
    }
}

void FillVersion20(cl_icd_dispatch& table)
{
    FillUnsupported(table.clCreatePipe);
    FillUnsupported(table.clGetPipeInfo);
    FillUnsupported(table.clSVMAlloc);
    FillUnsupported(table.clSVMFree);
    FillUnsupported(table.clEnqueueSVMFree);
    FillUnsupported(table.clEnqueueSVMMemcpy);
    FillUnsupported(table.clEnqueueSVMMemFill);
    FillUnsupported(table.clEnqueueSVMMap);
    FillUnsupported(table.clEnqueueSVMUnmap);
    FillUnsupported(table.clCreateSamplerWithProperties);
    FillUnsupported(table.clSetKernelArgSVMPointer);
    FillUnsupported(table.clSetKernelExecInfo);
    FillUnsupported(table.clGetKernelSubGroupInfoKHR);
}

cl_icd_dispatch MakeTable()
{
    cl_icd_dispatch table{};
#define KP_EXPORTED(name) table.name = &::name;
#define KP_LOADER(name)
#define KP_TABLE_ONLY(name) table.name = &::name;
#define KP_EXTENSION(name, extension)
#include "platform/runtime/EntryPoints.def"
#undef KP_EXPORTED
#undef KP_LOADER
#undef KP_TABLE_ONLY
#undef KP_EXTENSION
    FillVersion20(table);
    return table;
}

struct SExtensionFunction
{
    const char* m_pszName;
    const char* m_pszExtension; ///< null: always there
    void* m_pFunction;
};

} // namespace

const cl_icd_dispatch& GetDispatchTable()
{
    static const cl_icd_dispatch& s_table = *new cl_icd_dispatch(MakeTable());
    return s_table;
}

void* FindExtensionFunction(const char* pszName)
{
    static const SExtensionFunction s_functions[] = {
#define KP_EXPORTED(name)
#define KP_LOADER(name) {#name, nullptr, reinterpret_cast<void*>(&::name)},
#define KP_TABLE_ONLY(name)
#define KP_EXTENSION(name, extension) {#name, extension, reinterpret_cast<void*>(&::name)},
#include "platform/runtime/EntryPoints.def"
#undef KP_EXPORTED
#undef KP_LOADER
#undef KP_TABLE_ONLY
#undef KP_EXTENSION
        {KESTREL_PLATFORM_CONTROL, nullptr, reinterpret_cast<void*>(&kestrelPlatformControl)},
    };
    for (const SExtensionFunction& function : s_functions)
    {
        if (std::strcmp(function.m_pszName, pszName) == 0)
        {
            return !function.m_pszExtension || IsExtensionEnabled(function.m_pszExtension) ? function.m_pFunction
                                                                                           : nullptr;
        }
    }
    return nullptr;
}

} // namespace KestrelPlatform::Runtime
