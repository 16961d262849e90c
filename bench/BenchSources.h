#ifndef KESTREL_BENCH_BENCHSOURCES_H
#define KESTREL_BENCH_BENCHSOURCES_H

#include <string>
#include <vector>

namespace KestrelBench
{

/// An argument of a kernel in OpenCL C: a buffer of the benchmark kernel, or words that its form in IL finds in
/// constant buffer 1.
struct SSourceArgument
{
    bool bBuffer;
    size_t nFirst; ///< index of the buffer, or of the first word
    size_t nWords; ///< of a value
};

/// One of the benchmark kernels as people write it in OpenCL C, with nothing done for this platform.
struct SBenchSource
{
    std::string strName; ///< that of the kernel in MakeBenchKernels that does the same
    std::string strText;
    std::vector<SSourceArgument> vArguments;
    float fReach512; ///< of the host's time, with 512-bit vectors
    float fReach256; ///< with 256-bit vectors
};

/// The kernel of each text is named "run".
std::vector<SBenchSource> MakeBenchSources();

} // namespace KestrelBench

#endif
