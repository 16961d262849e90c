#ifndef KESTREL_FUZZ_MUTATOR_H
#define KESTREL_FUZZ_MUTATOR_H

#include <cstddef>
#include <cstdint>

namespace KestrelFuzz
{

typedef size_t (*MutateBytes)(uint8_t* pData, size_t nSize, size_t nMaxSize);

/// Changes a token stream item by item: items are swapped, left out, doubled, moved and put in front of others,
/// register numbers, masks, controls and words changed. The result mostly decodes. The bytes after the last whole word
/// stay. One change in some is left to pfnMutateBytes, and every change of what is no stream. \return the new size, at
/// most nMaxSize
size_t MutateTokens(uint8_t* pData, size_t nSize, size_t nMaxSize, unsigned int nSeed, MutateBytes pfnMutateBytes);

} // namespace KestrelFuzz

#endif
