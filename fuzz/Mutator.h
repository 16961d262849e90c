#ifndef KESTREL_FUZZ_MUTATOR_H
#define KESTREL_FUZZ_MUTATOR_H

#include <cstddef>
#include <cstdint>

namespace KestrelFuzz
{

typedef size_t (*MutateBytes)(uint8_t* pData, size_t nSize, size_t nMaxSize);

/// Changes a token stream item by item: swaps, removes, duplicates, moves and inserts items, and changes register
/// numbers, masks, controls and words. The result usually decodes. The bytes after the last whole word stay. Some
/// changes are left to pfnMutateBytes, and so are all changes of an input that isn't a stream. \return the new size, at
/// most nMaxSize
size_t MutateTokens(uint8_t* pData, size_t nSize, size_t nMaxSize, unsigned int nSeed, MutateBytes pfnMutateBytes);

} // namespace KestrelFuzz

#endif
