#ifndef KESTREL_BENCH_BENCHKERNELS_H
#define KESTREL_BENCH_BENCHKERNELS_H

#include "platform/simt/WideLaunch.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace KestrelBench
{

/// Assembles and decodes a kernel. \throws std::runtime_error with the reason
std::shared_ptr<const KestrelPlatform::CProgram> Compile(const std::string& strText);

/// A kernel's buffers. Buffer n is argument n: constant buffer 1 holds its 64-bit address in element n.
class CKernelBuffers
{
public:
    /// Adds a writable buffer with these words.
    std::vector<uint32_t>& Add(std::vector<uint32_t> vWords);
    std::vector<uint32_t>& operator[](size_t n) { return *m_vBuffers[n]; }
    float* Floats(size_t n) { return reinterpret_cast<float*>(m_vBuffers[n]->data()); }

    /// Sets the launch's memory and addresses; the buffers must outlive it.
    void Bind(KestrelPlatform::SLaunch& launch);

private:
    std::vector<std::unique_ptr<std::vector<uint32_t>>> m_vBuffers;
};

/// One of the eight kernels with its data, and the same computation in plain C++.
struct SBenchKernel
{
    std::string strName;
    KestrelPlatform::SLaunch launch;
    CKernelBuffers buffers;
    std::vector<size_t> vOutputs;   ///< buffers that the kernel writes
    std::vector<size_t> vExpected;  ///< what the host computes for them
    std::function<void()> runOther; ///< another way to compute the host's results, or null
    std::string strOther;
    std::function<void()> runHost; ///< fills vExpected
    float fReach512 = 0;           ///< limit relative to the host's time, with 512-bit vectors
    float fReach256 = 0;           ///< with 256-bit vectors
    bool bScales = true;           ///< should be nearly twice as fast on twice as many cores

    /// Runs the kernel once. \param nThreads 0 for one for each core
    void Run(uint32_t nThreads);
    /// Runs both and compares the results. \throws std::runtime_error if a word differs
    void Check();
};

/// The eight kernels; private arrays appear in both possible forms.
std::vector<std::unique_ptr<SBenchKernel>> MakeBenchKernels();

/// A launch of nItems work-items in groups of 256.
void SetSize(KestrelPlatform::SLaunch& launch, size_t nItems);

/// c = a + b over the first three buffers.
std::string VectorAddText();

/// A straight-line kernel with this many instructions, in which each work-item writes one word.
std::string StraightText(uint32_t nInstructions);

} // namespace KestrelBench

#endif
