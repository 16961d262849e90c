#ifndef KESTREL_BENCH_BENCHHOST_H
#define KESTREL_BENCH_BENCHHOST_H

#include <cstdint>

/// The computations of the benchmark kernels in plain C++, work-item by work-item, with the same operations on the same
/// values. Compiled without vectorisation.
namespace KestrelBench::Host
{

void VectorAdd(uint32_t nCount, const float* a, const float* b, float* pSum);

/// x = a * x + y, 100 times; the last x is the result.
void Saxpy(uint32_t nCount, float a, const float* x, const float* y, float* pResult);

/// The corner of the picture, and the size of a pixel's step.
struct SView
{
    float fStepX;
    float fStepY;
    float fLeft;
    float fTop;
};

void Mandelbrot(uint32_t nWidth, uint32_t nHeight, const SView& view, uint32_t* pPasses);

void MatrixProduct(uint32_t n, const float* a, const float* b, float* pProduct);

/// The sum of each group of 256. As in the kernel, the upper half of the remaining values is added to the lower half.
void Reduction(uint32_t nGroups, const uint32_t* pValues, uint32_t* pSums);

/// The same sums, value by value, which wouldn't suit a kernel of 256 work-items.
void PlainSums(uint32_t nGroups, const uint32_t* pValues, uint32_t* pSums);

/// Counts of the low bytes.
void Histogram(uint32_t nCount, const uint32_t* pValues, uint32_t* pBins);

struct SBody
{
    float x, y, z, w; ///< w: the mass of a position
};

void BodyStep(uint32_t nCount, float fTime, float fSoftening, const SBody* pPlaces, const SBody* pSpeeds,
              SBody* pNewPlaces, SBody* pNewSpeeds);

/// 64 updates of an array of 16; each element read chooses the next one.
void PrivateArray(uint32_t nCount, const uint32_t* pSeeds, uint32_t* pSums);

} // namespace KestrelBench::Host

#endif
