#ifndef KESTREL_BENCH_BENCHCALLS_H
#define KESTREL_BENCH_BENCHCALLS_H

#include <CL/cl_icd.h>

#include <array>

namespace KestrelBench
{

/// The purpose of OpenCL calls during a stop.
enum ECallKind
{
    CALL_Build,    ///< programs and kernels
    CALL_Transfer, ///< copies and mappings in both directions; a mapping waits for the kernel
    CALL_Run,      ///< the launch
    CALL_Other,
    CALL_Kinds
};

/// The time in seconds spent in the runtime since the last call, by kind, summed over all threads.
std::array<double, CALL_Kinds> TakeCallTimes();

/// A table that measures the time of each call and passes it on to another table. Only one at a time.
cl_icd_dispatch MakeTimedTable(const cl_icd_dispatch& table);

} // namespace KestrelBench

#endif
