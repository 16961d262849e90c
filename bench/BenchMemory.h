#ifndef KESTREL_BENCH_BENCHMEMORY_H
#define KESTREL_BENCH_BENCHMEMORY_H

namespace KestrelBench
{

/// Forgets the peak so far. \return what this process holds in memory now, KiB
/// \throws std::runtime_error if the system doesn't tell, or doesn't forget
double StartMemoryPeak();

/// The most that this process has held since then, KiB.
double MemoryPeak();

} // namespace KestrelBench

#endif
