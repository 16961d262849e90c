#ifndef KESTREL_BENCH_BENCHCALLS_H
#define KESTREL_BENCH_BENCHCALLS_H

#include <CL/cl_icd.h>

#include <array>

namespace KestrelBench
{

/// What the calls of the OpenCL runtime are for, in a stop.
enum ECallKind
{
    CALL_Build,    ///< programs and kernels
    CALL_Transfer, ///< copies and mappings, both ways; a mapping waits for the kernel
    CALL_Run,      ///< the launch
    CALL_Other,
    CALL_Kinds
};

/// Seconds inside the runtime since the last call, by kind, summed over all threads.
std::array<double, CALL_Kinds> TakeCallTimes();

/// A table whose entries take the time of those of another one, which it calls. Only one at a time.
cl_icd_dispatch MakeTimedTable(const cl_icd_dispatch& table);

} // namespace KestrelBench

#endif
