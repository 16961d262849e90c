#ifndef KESTREL_TESTS_API_FAILINGTABLE_H
#define KESTREL_TESTS_API_FAILINGTABLE_H

#include <CL/cl_icd.h>

#include <cstdint>

namespace FailingTable
{

/// A table whose entries call those of another one, and fail on demand. Only one at a time.
cl_icd_dispatch Make(const cl_icd_dispatch& real);

/// The nCall-th call from now, of whatever entry, gives a code and does nothing, but a release or unmapping, which is
/// done all the same; with bForEver so does every later one. 0 ends it.
void Fail(uint64_t nCall, cl_int nCode, bool bForEver);

/// Calls since the last Fail.
uint64_t CountCalls();

} // namespace FailingTable

#endif
