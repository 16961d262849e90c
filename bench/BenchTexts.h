#ifndef KESTREL_BENCH_BENCHTEXTS_H
#define KESTREL_BENCH_BENCHTEXTS_H

/// The kernels in IL. Pointers are 64-bit addresses in constant buffer 1, one in each element. The texts are the body
/// of function 1024, after the lines that put the global id in r0.xyz.
namespace KestrelBench::Texts
{

extern const char* const g_pszVectorAdd;
extern const char* const g_pszSaxpy;
extern const char* const g_pszMandelbrot;
extern const char* const g_pszMatrixProduct;
extern const char* const g_pszReduction;
extern const char* const g_pszHistogram;
extern const char* const g_pszBodyStep;
extern const char* const g_pszArrayOfTemps;
extern const char* const g_pszArrayInMemory;

} // namespace KestrelBench::Texts

#endif
