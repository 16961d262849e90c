#include "fuzz/Targets.h"

#include "fuzz/Mutator.h"

/// The entry point for libFuzzer. KESTREL_FUZZ_TARGET is the function of one target, KESTREL_FUZZ_TOKENS whether its
/// inputs are token streams.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    KestrelFuzz::KESTREL_FUZZ_TARGET(pData, nSize);
    return 0;
}

#if KESTREL_FUZZ_TOKENS

extern "C" size_t LLVMFuzzerMutate(uint8_t* pData, size_t nSize, size_t nMaxSize);

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* pData, size_t nSize, size_t nMaxSize, unsigned int nSeed)
{
    return KestrelFuzz::MutateTokens(pData, nSize, nMaxSize, nSeed, LLVMFuzzerMutate);
}

#endif
