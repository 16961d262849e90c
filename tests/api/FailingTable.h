#ifndef KESTREL_TESTS_API_FAILINGTABLE_H
#define KESTREL_TESTS_API_FAILINGTABLE_H

#include <CL/cl_icd.h>

#include <cstdint>

namespace FailingTable
{

/// A table whose entries call those of another table, or fail on demand. Only one at a time.
cl_icd_dispatch Make(const cl_icd_dispatch& real);

/// Makes the nCall-th call from now fail with a code, without effect; with bForEver every later one too. Releases and
/// unmappings always take effect. 0 ends it.
void Fail(uint64_t nCall, cl_int nCode, bool bForEver);

/// Calls since the last Fail.
uint64_t CountCalls();

} // namespace FailingTable

#endif
