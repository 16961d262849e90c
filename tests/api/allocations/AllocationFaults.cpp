#include "tests/api/allocations/AllocationFaults.h"

#include "tests/api/allocations/OwnCalls.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace AllocationFaults
{

namespace
{

std::atomic<uint64_t> s_nAllocations{0};
std::atomic<uint64_t> s_nFailed{0};
std::atomic<uint64_t> s_nFailing{0};
std::atomic<bool> s_bForEver{false};
thread_local bool s_bInside = false;

bool Strikes()
{
    if (!s_bInside)
    {
        return false;
    }
    const uint64_t nAllocation = ++s_nAllocations;
    const bool bStrikes = s_nFailing != 0 && (nAllocation == s_nFailing || (s_bForEver && nAllocation > s_nFailing));
    s_nFailed += bStrikes;
    return bStrikes;
}

void* Malloc(size_t nSize)
{
    return Strikes() ? nullptr : std::malloc(nSize);
}

void* Calloc(size_t nCount, size_t nSize)
{
    return Strikes() ? nullptr : std::calloc(nCount, nSize);
}

} // namespace

bool CatchMalloc()
{
    const char szLibrary[] = "libOVKKestrel.so";
    const bool bMalloc = RedirectOwnCalls(szLibrary, "malloc", reinterpret_cast<void*>(&Malloc));
    const bool bCalloc = RedirectOwnCalls(szLibrary, "calloc", reinterpret_cast<void*>(&Calloc));
    return bMalloc && bCalloc;
}

void Fail(uint64_t nAllocation, bool bForEver)
{
    s_nFailing = 0;
    s_nAllocations = 0;
    s_nFailed = 0;
    s_bForEver = bForEver;
    s_nFailing = nAllocation;
}

uint64_t CountAllocations()
{
    return s_nAllocations;
}

uint64_t CountFailed()
{
    return s_nFailed;
}

CInside::CInside(bool bInside) : m_bBefore(s_bInside)
{
    s_bInside = bInside;
}

CInside::~CInside()
{
    s_bInside = m_bBefore;
}

namespace
{

void* Allocate(size_t nSize) noexcept
{
    return Strikes() ? nullptr : std::malloc(nSize != 0 ? nSize : 1);
}

void* AllocateOrThrow(size_t nSize)
{
    void* pMemory = Allocate(nSize);
    if (pMemory == nullptr)
    {
        throw std::bad_alloc();
    }
    return pMemory;
}

} // namespace

} // namespace AllocationFaults

void* operator new(size_t nSize)
{
    return AllocationFaults::AllocateOrThrow(nSize);
}

void* operator new[](size_t nSize)
{
    return AllocationFaults::AllocateOrThrow(nSize);
}

void* operator new(size_t nSize, const std::nothrow_t&) noexcept
{
    return AllocationFaults::Allocate(nSize);
}

void* operator new[](size_t nSize, const std::nothrow_t&) noexcept
{
    return AllocationFaults::Allocate(nSize);
}

void operator delete(void* pMemory) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory) noexcept
{
    std::free(pMemory);
}

void operator delete(void* pMemory, size_t) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory, size_t) noexcept
{
    std::free(pMemory);
}

void operator delete(void* pMemory, const std::nothrow_t&) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory, const std::nothrow_t&) noexcept
{
    std::free(pMemory);
}
