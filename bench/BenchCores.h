#ifndef KESTREL_BENCH_BENCHCORES_H
#define KESTREL_BENCH_BENCHCORES_H

#include <vector>

namespace KestrelBench
{

/// Seconds that a cache line takes to the second core and back, a figure for each of some series of passes: what one
/// core gets of another's writes. A virtual machine's cores move, and may have a cache in common or none.
/// \return nothing on a machine with one core, or where threads can't be bound to cores
std::vector<double> TimeCacheLine();

} // namespace KestrelBench

#endif
