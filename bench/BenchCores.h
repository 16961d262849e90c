#ifndef KESTREL_BENCH_BENCHCORES_H
#define KESTREL_BENCH_BENCHCORES_H

#include <vector>

namespace KestrelBench
{

/// The time in seconds that a cache line takes to another core and back, one figure for each series of passes. The
/// cores of a virtual machine move, and may or may not share a cache.
/// \return nothing on a machine with one core, or if threads can't be bound to cores
std::vector<double> TimeCacheLine();

} // namespace KestrelBench

#endif
