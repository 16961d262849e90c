#include "tests/api/allocations/AllocationFaults.h"

#include "tests/api/allocations/OwnCalls.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace AllocationFaults
{

namespace
{

std::atomic<uint64_t> s_nAllocations{0};
std::atomic<uint64_t> s_nFailed{0};
std::atomic<uint64_t> s_nFailing{0};
std::atomic<uint64_t> s_nAlive{0};
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
    const char szLibrary[] = "libOVKKestrel.so.1";
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

uint64_t CountAlive()
{
    return s_nAlive;
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

/// Precedes the memory from operator new, and keeps it aligned.
struct alignas(std::max_align_t) SHeader
{
    bool bInside;
};

void* Allocate(size_t nSize) noexcept
{
    SHeader* pHeader = Strikes() ? nullptr : static_cast<SHeader*>(std::malloc(sizeof(SHeader) + nSize));
    if (pHeader == nullptr)
    {
        return nullptr;
    }
    pHeader->bInside = s_bInside;
    s_nAlive += s_bInside;
    return pHeader + 1;
}

void Free(void* pMemory) noexcept
{
    if (pMemory != nullptr)
    {
        SHeader* pHeader = static_cast<SHeader*>(pMemory) - 1;
        s_nAlive -= pHeader->bInside;
        std::free(pHeader);
    }
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
    AllocationFaults::Free(pMemory);
}

void operator delete[](void* pMemory) noexcept
{
    AllocationFaults::Free(pMemory);
}

void operator delete(void* pMemory, size_t) noexcept
{
    AllocationFaults::Free(pMemory);
}

void operator delete[](void* pMemory, size_t) noexcept
{
    AllocationFaults::Free(pMemory);
}

void operator delete(void* pMemory, const std::nothrow_t&) noexcept
{
    AllocationFaults::Free(pMemory);
}

void operator delete[](void* pMemory, const std::nothrow_t&) noexcept
{
    AllocationFaults::Free(pMemory);
}
