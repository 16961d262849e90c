#include "tests/api/FailingTable.h"

#include "tests/api/WrapTable.h"

#include <atomic>
#include <cstring>
#include <tuple>
#include <type_traits>

namespace FailingTable
{

namespace
{

cl_icd_dispatch s_Real;
std::atomic<uint64_t> s_nCalls{0};
std::atomic<uint64_t> s_nFailing{0};
std::atomic<bool> s_bForEver{false};
std::atomic<cl_int> s_nCode{CL_SUCCESS};

bool Strikes()
{
    const uint64_t nCall = ++s_nCalls;
    return s_nFailing != 0 && (nCall == s_nFailing || (s_bForEver && nCall > s_nFailing));
}

/// Stores the code in the last parameter, if the entry has one for it.
template <typename... Parameters>
void SetCode(Parameters... parameters)
{
    const auto last = std::get<sizeof...(Parameters) - 1>(std::make_tuple(parameters...));
    if constexpr (std::is_same_v<std::decay_t<decltype(last)>, cl_int*>)
    {
        if (last != nullptr)
        {
            *last = s_nCode;
        }
    }
}

template <auto pEntry, typename Function>
struct SFailing;

template <auto pEntry, typename Result, typename... Parameters>
struct SFailing<pEntry, Result(CL_API_CALL*)(Parameters...)>
{
    static Result CL_API_CALL Call(Parameters... parameters)
    {
        if (!Strikes())
        {
            return (s_Real.*pEntry)(parameters...);
        }
        if constexpr (std::is_same_v<Result, cl_int>)
        {
            if (s_bRelease)
            {
                (s_Real.*pEntry)(parameters...);
            }
            return s_nCode;
        }
        else
        {
            SetCode(parameters...);
            return Result();
        }
    }

    static void Prepare(const char* pszName)
    {
        s_bRelease = std::strncmp(pszName, "Release", 7) == 0 || std::strcmp(pszName, "EnqueueUnmapMemObject") == 0;
    }

    static inline bool s_bRelease = false;
};

} // namespace

cl_icd_dispatch Make(const cl_icd_dispatch& real)
{
    s_Real = real;
    return WrapTable::Wrap<SFailing>(real);
}

void Fail(uint64_t nCall, cl_int nCode, bool bForEver)
{
    s_nFailing = 0;
    s_nCalls = 0;
    s_nCode = nCode;
    s_bForEver = bForEver;
    s_nFailing = nCall;
}

uint64_t CountCalls()
{
    return s_nCalls;
}

} // namespace FailingTable
