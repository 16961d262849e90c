#ifndef KESTREL_BENCH_BENCHTEXTS_H
#define KESTREL_BENCH_BENCHTEXTS_H

/// The kernels in IL. Pointers are 64-bit addresses in constant buffer 1, an element each. The texts
/// stand in function 1024, after the lines that give r0.xyz the global id.
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
