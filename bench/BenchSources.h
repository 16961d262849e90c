#ifndef KESTREL_BENCH_BENCHSOURCES_H
#define KESTREL_BENCH_BENCHSOURCES_H

#include <string>
#include <vector>

namespace KestrelBench
{

/// An argument of an OpenCL C kernel: a buffer of the benchmark kernel, or words that the IL form finds in constant
/// buffer 1.
struct SSourceArgument
{
    bool bBuffer;
    size_t nFirst; ///< index of the buffer, or of the first word
    size_t nWords; ///< for a value
};

/// A benchmark kernel in ordinary OpenCL C, not tuned for this platform.
struct SBenchSource
{
    std::string strName; ///< of the kernel in MakeBenchKernels that computes the same
    std::string strText;
    std::vector<SSourceArgument> vArguments;
    float fReach512; ///< limit relative to the host's time, with 512-bit vectors
    float fReach256; ///< with 256-bit vectors
};

/// The kernel in each text is named "run".
std::vector<SBenchSource> MakeBenchSources();

} // namespace KestrelBench

#endif
