#ifndef KESTREL_TESTS_API_ALLOCATIONS_ALLOCATIONFAULTS_H
#define KESTREL_TESTS_API_ALLOCATIONS_ALLOCATIONFAULTS_H

#include <CL/cl_icd.h>

#include <cstdint>

/// Allocations that fail on demand. The program that holds this has its own operator new, plain and no-throw, which the
/// debugger library binds to, and the library's own calls of malloc and calloc come here too. What a thread allocates
/// counts while it is inside the library, and nowhere else.
namespace AllocationFaults
{

/// Sends the library's calls of malloc and calloc here. \return false if it has none
bool CatchMalloc();

/// The nAllocation-th allocation from now fails; with bForEver so does every later one. 0 ends it.
void Fail(uint64_t nAllocation, bool bForEver);

/// Allocations inside the library since the last Fail.
uint64_t CountAllocations();

/// Those of them that failed.
uint64_t CountFailed();

/// What operator new has given inside the library and nobody has deleted yet.
uint64_t CountAlive();

/// This thread is inside the library for the life of the object, or outside of it.
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

/// A table whose entries call those of another one from outside the library. The hook that the library puts into a
/// context's properties is inside again, and so is what it hangs on an event. Only one at a time.
cl_icd_dispatch MakeTable(const cl_icd_dispatch& real);

} // namespace AllocationFaults

#endif
