#ifndef KESTREL_BENCH_BENCHHOST_H
#define KESTREL_BENCH_BENCHHOST_H

#include <cstdint>

/// The benchmark kernels' computations in plain C++, one work-item after the other, with the same
/// operations on the same values. Compiled without vectors.
namespace KestrelBench::Host
{

void VectorAdd(uint32_t nCount, const float* a, const float* b, float* pSum);

/// x = a * x + y, 100 times; the last x is the result.
void Saxpy(uint32_t nCount, float a, const float* x, const float* y, float* pResult);

/// Where, and how large a step a pixel is.
struct SView
{
    float fStepX;
    float fStepY;
    float fLeft;
    float fTop;
};

void Mandelbrot(uint32_t nWidth, uint32_t nHeight, const SView& view, uint32_t* pPasses);

void MatrixProduct(uint32_t n, const float* a, const float* b, float* pProduct);

/// The sum of each group of 256: the upper half of what is left is added to the lower one, as the kernel does.
void Reduction(uint32_t nGroups, const uint32_t* pValues, uint32_t* pSums);

/// The same sums, value after value, which a kernel of 256 work-items has no use for.
void PlainSums(uint32_t nGroups, const uint32_t* pValues, uint32_t* pSums);

/// Counts of the low bytes.
void Histogram(uint32_t nCount, const uint32_t* pValues, uint32_t* pBins);

struct SBody
{
    float x, y, z, w; ///< w: the mass of a position
};

void BodyStep(uint32_t nCount, float fTime, float fSoftening, const SBody* pPlaces, const SBody* pSpeeds,
              SBody* pNewPlaces, SBody* pNewSpeeds);

/// 64 updates of places of an array of 16, each chosen by what the one before it has read.
void PrivateArray(uint32_t nCount, const uint32_t* pSeeds, uint32_t* pSums);

} // namespace KestrelBench::Host

#endif
