#ifndef KESTREL_TESTS_API_WRAPTABLE_H
#define KESTREL_TESTS_API_WRAPTABLE_H

#include <CL/cl_icd.h>

/// Wraps every entry of a dispatch table. The wrapper is a template over the entry and its type, with a static member
/// `Call`, and a static `Prepare(name)` that is called once for each entry:
///
///     template <auto pEntry, typename Function> struct SWrapper;
///     template <auto pEntry, typename Result, typename... Parameters>
///     struct SWrapper<pEntry, Result(CL_API_CALL*)(Parameters...)>
namespace WrapTable
{

/// Entries that aren't OpenCL's own have no type here.
template <template <auto, typename> class Wrapper, auto pEntry, typename Other>
void WrapEntry(cl_icd_dispatch&, const char*, Other cl_icd_dispatch::*)
{
}

template <template <auto, typename> class Wrapper, auto pEntry, typename Result, typename... Parameters>
void WrapEntry(cl_icd_dispatch& table, const char* pszName, Result (CL_API_CALL* cl_icd_dispatch::*)(Parameters...))
{
    typedef Wrapper<pEntry, Result(CL_API_CALL*)(Parameters...)> Wrapped;
    Wrapped::Prepare(pszName);
    if (table.*pEntry != nullptr)
    {
        table.*pEntry = &Wrapped::Call;
    }
}

/// The wrapped version of another table. Null entries stay null.
template <template <auto, typename> class Wrapper>
cl_icd_dispatch Wrap(const cl_icd_dispatch& real)
{
    cl_icd_dispatch table = real;
#define CL_ICD_ENTRY(family, name)                                                                                     \
    WrapEntry<Wrapper, &cl_icd_dispatch::cl##name>(table, #name, &cl_icd_dispatch::cl##name);
#include "modules/CLEntryPoints.def"
    return table;
}

} // namespace WrapTable

#endif
