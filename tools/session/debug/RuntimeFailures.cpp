#include "tools/session/debug/RuntimeFailures.h"

#include <mutex>
#include <tuple>

namespace KestrelTool
{

namespace
{

// Global, since calls of the runtime have no parameter for it.
struct SNotes
{
    std::mutex mutex;
    const cl_icd_dispatch_table* pTable = nullptr;
    SRuntimeFailure last;
};

SNotes& Notes()
{
    static SNotes s_Notes;
    return s_Notes;
}

void Note(const char* pszCall, cl_int nCode)
{
    if (nCode != CL_SUCCESS)
    {
        const std::lock_guard<std::mutex> lock(Notes().mutex);
        Notes().last = {pszCall, nCode};
    }
}

template <auto Entry>
const char* s_pszName = nullptr;

/// Replaces a call that returns its code, or one that returns a handle and stores the code in its last argument.
template <auto Entry, typename Function>
struct TNoted;

template <auto Entry, typename... Arguments>
struct TNoted<Entry, cl_int(CL_API_CALL*)(Arguments...)>
{
    static cl_int CL_API_CALL Call(Arguments... arguments)
    {
        const cl_int nCode = (Notes().pTable->*Entry)(arguments...);
        Note(s_pszName<Entry>, nCode);
        return nCode;
    }
};

template <auto Entry, typename Handle, typename... Arguments>
struct TNoted<Entry, Handle(CL_API_CALL*)(Arguments...)>
{
    static Handle CL_API_CALL Call(Arguments... arguments)
    {
        const Handle handle = (Notes().pTable->*Entry)(arguments...);
        cl_int* const pCode = std::get<sizeof...(Arguments) - 1>(std::tie(arguments...));
        Note(s_pszName<Entry>, handle == nullptr && pCode != nullptr ? *pCode : CL_SUCCESS);
        return handle;
    }
};

template <auto Entry, typename Function>
void Replace(Function& entry, const char* pszName)
{
    s_pszName<Entry> = pszName;
    entry = entry != nullptr ? &TNoted<Entry, Function>::Call : entry;
}

} // namespace

#define KESTREL_NOTED_CALLS(X)                                                                                         \
    X(clCreateBuffer)                                                                                                  \
    X(clCreateCommandQueue)                                                                                            \
    X(clCreateKernel)                                                                                                  \
    X(clCreateProgramWithBinary)                                                                                       \
    X(clBuildProgram)                                                                                                  \
    X(clEnqueueCopyBuffer)                                                                                             \
    X(clEnqueueCopyImage)                                                                                              \
    X(clEnqueueMapBuffer)                                                                                              \
    X(clEnqueueNDRangeKernel)                                                                                          \
    X(clEnqueueReadBuffer)                                                                                             \
    X(clEnqueueUnmapMemObject)                                                                                         \
    X(clEnqueueWriteBuffer)                                                                                            \
    X(clFinish)                                                                                                        \
    X(clSetKernelArg)                                                                                                  \
    X(clWaitForEvents)

cl_icd_dispatch_table NoteFailures(const cl_icd_dispatch_table& table)
{
    ForgetFailures();
    Notes().pTable = &table;
    cl_icd_dispatch_table noting = table;
#define KESTREL_NOTE(name) Replace<&cl_icd_dispatch_table::name>(noting.name, #name);
    KESTREL_NOTED_CALLS(KESTREL_NOTE)
#undef KESTREL_NOTE
    return noting;
}

SRuntimeFailure GetLastFailure()
{
    const std::lock_guard<std::mutex> lock(Notes().mutex);
    return Notes().last;
}

void ForgetFailures()
{
    const std::lock_guard<std::mutex> lock(Notes().mutex);
    Notes().last = SRuntimeFailure();
}

} // namespace KestrelTool
