#ifndef KESTREL_TESTS_API_ALLOCATIONS_ALLOCATIONFAULTS_H
#define KESTREL_TESTS_API_ALLOCATIONS_ALLOCATIONFAULTS_H

#include <CL/cl_icd.h>

#include <cstdint>

/// Allocations that fail on demand. The test program has its own operator new, plain and no-throw, which the debugger
/// library binds to; the library's calls of malloc and calloc are redirected here too. A thread's allocations count
/// only while it is inside the library.
namespace AllocationFaults
{

/// Redirects the library's calls of malloc and calloc. \return false if it has none
bool CatchMalloc();

/// Makes the nAllocation-th allocation from now fail; with bForEver every later one too. 0 ends it.
void Fail(uint64_t nAllocation, bool bForEver);

/// Allocations inside the library since the last Fail.
uint64_t CountAllocations();

/// How many of them failed.
uint64_t CountFailed();

/// Memory from operator new inside the library that wasn't deleted yet.
uint64_t CountAlive();

/// While it exists, this thread counts as inside the library, or as outside of it.
class CInside
{
public:
    explicit CInside(bool bInside = true);
    ~CInside();
    CInside(const CInside&) = delete;
    CInside& operator=(const CInside&) = delete;

private:
    const bool m_bBefore;
};

/// A table whose entries call those of another table, outside the library. The hook that the library sets in a
/// context's properties counts as inside again, and so do its event callbacks. Only one at a time.
cl_icd_dispatch MakeTable(const cl_icd_dispatch& real);

} // namespace AllocationFaults

#endif
