#ifndef KESTREL_BENCH_BENCHMEMORY_H
#define KESTREL_BENCH_BENCHMEMORY_H

namespace KestrelBench
{

/// Resets the peak. \return this process's current memory use, in KiB
/// \throws std::runtime_error if the system doesn't support it
double StartMemoryPeak();

/// The peak memory use since then, in KiB.
double MemoryPeak();

} // namespace KestrelBench

#endif
