// Included in an anonymous namespace: tests of addresses and indices, and moves between rows and memory, as in
// SLaneTable.

/// As many words as a vector of the instruction set holds. Vectors are requested explicitly, since the compiler rarely
/// vectorises a loop over a single granule, whose length it knows.
#if defined(__AVX512F__)
const uint32_t s_nVectorWords = 16;
#elif defined(__AVX2__)
const uint32_t s_nVectorWords = 8;
#else
const uint32_t s_nVectorWords = 4;
#endif
typedef uint32_t Words __attribute__((vector_size(s_nVectorWords * 4), may_alias));
typedef uint32_t UnalignedWords __attribute__((vector_size(s_nVectorWords * 4), aligned(4), may_alias));

const Words* WordsAt(const uint32_t* pWords)
{
    return reinterpret_cast<const Words*>(pWords);
}
Words* WordsAt(uint32_t* pWords)
{
    return reinterpret_cast<Words*>(pWords);
}

void Range(const uint32_t* pValues, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd, uint32_t& nLow,
           uint32_t& nHigh)
{
    uint32_t nMin = 0xFFFFFFFFu;
    uint32_t nMax = 0;
    if (!pMask)
    {
        for (uint32_t i = nBegin; i < nEnd; ++i)
        {
            nMin = pValues[i] < nMin ? pValues[i] : nMin;
            nMax = pValues[i] > nMax ? pValues[i] : nMax;
        }
    }
    else
    {
        for (uint32_t i = nBegin; i < nEnd; ++i)
        {
            const uint32_t nForMin = pValues[i] | ~pMask[i];
            const uint32_t nForMax = pValues[i] & pMask[i];
            nMin = nForMin < nMin ? nForMin : nMin;
            nMax = nForMax > nMax ? nForMax : nMax;
        }
    }
    nLow = nMin;
    nHigh = nMax;
}

uint32_t AnyBits(const uint32_t* pValues, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd)
{
    uint32_t nBits = 0;
    if (!pMask)
    {
        for (uint32_t i = nBegin; i < nEnd; ++i)
        {
            nBits |= pValues[i];
        }
        return nBits;
    }
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        nBits |= pValues[i] & pMask[i];
    }
    return nBits;
}

void Fill(uint32_t* pRow, uint32_t nValue, uint32_t nBegin, uint32_t nEnd)
{
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        pRow[i] = nValue;
    }
}

void Scale(uint32_t* pRow, const uint32_t* pValues, uint32_t nBase, uint32_t nScale, uint32_t nBegin, uint32_t nEnd)
{
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        pRow[i] = (pValues[i] - nBase) * nScale;
    }
}

uint32_t WordAt(const unsigned char* p)
{
    uint32_t n;
    __builtin_memcpy(&n, p, sizeof n);
    return n;
}

/// Uses an intrinsic: the compiler would extract the vector's words one by one.
bool IsZero(const Words& words)
{
#if defined(__AVX512F__)
    const auto vector = reinterpret_cast<__m512i>(words);
    return _mm512_test_epi32_mask(vector, vector) == 0;
#elif defined(__AVX2__)
    const auto vector = reinterpret_cast<__m256i>(words);
    return _mm256_testz_si256(vector, vector) != 0;
#else
    const auto vector = reinterpret_cast<__m128i>(words);
    return _mm_testz_si128(vector, vector) != 0;
#endif
}

alignas(64) const uint32_t s_nLaneNumbers[s_nGranule] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

/// Comparing the two ends rules out most rows that aren't a sequence. Each vector is the last one plus a stride, where the
/// compiler would multiply, which takes longer than all the rest.
bool IsSequence(const uint32_t* pValues, uint32_t nBegin, uint32_t nEnd, uint32_t nStride)
{
    const uint32_t nZero = pValues[nBegin] - nBegin * nStride;
    if (pValues[nEnd - 1] != nZero + (nEnd - 1) * nStride)
    {
        return false;
    }
    Words expected = *WordsAt(s_nLaneNumbers) * nStride + pValues[nBegin];
    Words difference = {};
    const UnalignedWords* pNext = reinterpret_cast<const UnalignedWords*>(pValues + nBegin);
    uint32_t i = nBegin;
    for (; i + s_nGranule <= nEnd; i += s_nGranule)
    {
        for (uint32_t k = 0; k < s_nGranule; k += s_nVectorWords)
        {
            difference |= *pNext++ ^ expected;
            expected += s_nVectorWords * nStride;
        }
    }
    uint32_t nDifference = 0;
    for (; i < nEnd; ++i)
    {
        nDifference |= pValues[i] ^ (nZero + i * nStride);
    }
    return nDifference == 0 && IsZero(difference);
}

bool IsPlane(const uint32_t* pValues, uint32_t nBegin, uint32_t nEnd, const SPieces& pieces)
{
    const uint32_t nSecond = nBegin + pieces.nWidth;
    if (!IsSequence(pValues, nBegin, nSecond, pieces.nStride))
    {
        return false;
    }
    const uint32_t* const pBefore = pValues + nBegin;
    const uint32_t* const pAfter = pValues + nSecond;
    const uint32_t nPieceStride = pieces.nPieceStride;
    uint32_t nDifference = 0;
    for (uint32_t i = 0; i < nEnd - nSecond; ++i)
    {
        nDifference |= pAfter[i] - pBefore[i] - nPieceStride;
    }
    return nDifference == 0;
}

/// True if the granule's values are its first one plus nStride each.
bool IsGranuleSequence(const uint32_t* pValues, uint32_t nStride)
{
    Words difference = {};
    for (uint32_t k = 0; k < s_nGranule; k += s_nVectorWords)
    {
        difference |= *WordsAt(pValues + k) ^ (*WordsAt(s_nLaneNumbers + k) * nStride + pValues[0]);
    }
    return IsZero(difference);
}

/// Whether the scaled offsets are a word apart.
bool IsGranuleOfWords(const uint32_t* pOffsets, uint32_t nScale)
{
    const uint32_t nStep = pOffsets[1] - pOffsets[0];
    return (nScale == 1 && nStep == 4 && IsGranuleSequence(pOffsets, 4)) ||
           (nScale == 4 && nStep == 1 && IsGranuleSequence(pOffsets, 1));
}

/// Work-items in a row of a two-dimensional group often load consecutive words, or the same word.
void GatherGranule(uint32_t* pRow, const unsigned char* pBase, const uint32_t* pOffsets, uint32_t nBase,
                   uint32_t nScale)
{
    const auto offsetOf = [&](uint32_t k) { return static_cast<size_t>(pOffsets[k] - nBase) * nScale; };
    const unsigned char* const pFirst = pBase + offsetOf(0);
    if (IsGranuleOfWords(pOffsets, nScale))
    {
        __builtin_memcpy(pRow, pFirst, s_nGranule * 4);
        return;
    }
    if (pOffsets[1] == pOffsets[0] && IsGranuleSequence(pOffsets, 0))
    {
        const Words all = Words{} + WordAt(pFirst);
        for (uint32_t k = 0; k < s_nGranule; k += s_nVectorWords)
        {
            *WordsAt(pRow + k) = all;
        }
        return;
    }
    for (uint32_t k = 0; k < s_nGranule; ++k)
    {
        pRow[k] = WordAt(pBase + offsetOf(k));
    }
}

void Gather(uint32_t* pRow, const unsigned char* pBase, const uint32_t* pOffsets, uint32_t nBase, uint32_t nScale,
            const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd)
{
    uint32_t i = nBegin;
    if (pMask)
    {
        for (; i < nEnd; ++i)
        {
            pRow[i] = Blend(WordAt(pBase + ((pOffsets[i] - nBase) & pMask[i])), pRow[i], pMask[i]);
        }
        return;
    }
    for (; i + s_nGranule <= nEnd; i += s_nGranule)
    {
        GatherGranule(pRow + i, pBase, pOffsets + i, nBase, nScale);
    }
    for (; i < nEnd; ++i)
    {
        pRow[i] = WordAt(pBase + static_cast<size_t>(pOffsets[i] - nBase) * nScale);
    }
}

void Scatter(const uint32_t* pRow, unsigned char* pBase, const uint32_t* pOffsets, uint32_t nBase,
             const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd)
{
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        if (!pMask || pMask[i])
        {
            __builtin_memcpy(pBase + (pOffsets[i] - nBase), pRow + i, 4);
        }
    }
}

/// A word at any address.
typedef uint32_t UnalignedWord __attribute__((aligned(1), may_alias));

/// The number of rows is a template argument so that the compiler can turn the loop into shuffles.
template <size_t nRows>
void InterleaveRows(const uint32_t* const* ppRows, unsigned char* pTo, uint32_t nBegin, uint32_t nEnd)
{
    UnalignedWord* const __restrict pWords = reinterpret_cast<UnalignedWord*>(pTo);
    const uint32_t* const __restrict p0 = ppRows[0] + nBegin;
    const uint32_t* const __restrict p1 = ppRows[1] + nBegin;
    const uint32_t* const __restrict p2 = ppRows[nRows - 2] + nBegin;
    const uint32_t* const __restrict p3 = ppRows[nRows - 1] + nBegin;
    const size_t nCount = nEnd - nBegin;
    for (size_t i = 0; i < nCount; ++i)
    {
        pWords[i * nRows] = p0[i];
        pWords[i * nRows + 1] = p1[i];
        if (nRows > 3)
        {
            pWords[i * nRows + 2] = p2[i];
        }
        if (nRows > 2)
        {
            pWords[i * nRows + nRows - 1] = p3[i];
        }
    }
}

void Interleave(const uint32_t* const* ppRows, uint32_t nRows, unsigned char* pTo, uint32_t nBegin, uint32_t nEnd)
{
    if (nRows == 2)
    {
        InterleaveRows<2>(ppRows, pTo, nBegin, nEnd);
    }
    else if (nRows == 3)
    {
        InterleaveRows<3>(ppRows, pTo, nBegin, nEnd);
    }
    else
    {
        InterleaveRows<4>(ppRows, pTo, nBegin, nEnd);
    }
}

template <size_t nRows>
void SeparateRows(uint32_t* const* ppRows, const unsigned char* pFrom, uint32_t nBegin, uint32_t nEnd)
{
    const UnalignedWord* const pWords = reinterpret_cast<const UnalignedWord*>(pFrom);
    for (size_t k = 0; k < nRows; ++k)
    {
        uint32_t* const __restrict pRow = ppRows[k];
        for (size_t i = nBegin; i < nEnd; ++i)
        {
            pRow[i] = pWords[(i - nBegin) * nRows + k];
        }
    }
}

void Separate(uint32_t* const* ppRows, uint32_t nRows, const unsigned char* pFrom, uint32_t nBegin, uint32_t nEnd)
{
    if (nRows == 2)
    {
        SeparateRows<2>(ppRows, pFrom, nBegin, nEnd);
    }
    else if (nRows == 3)
    {
        SeparateRows<3>(ppRows, pFrom, nBegin, nEnd);
    }
    else
    {
        SeparateRows<4>(ppRows, pFrom, nBegin, nEnd);
    }
}

void LoadRows(uint32_t* pRow, const uint32_t* pFirst, const uint32_t* pIndices, uint32_t nScale, const uint32_t* pMask,
              uint32_t nBegin, uint32_t nEnd)
{
    if (!pMask)
    {
        for (uint32_t i = nBegin; i < nEnd; ++i)
        {
            pRow[i] = pFirst[pIndices[i] * nScale + i];
        }
        return;
    }
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        pRow[i] = Blend(pFirst[(pIndices[i] & pMask[i]) * nScale + i], pRow[i], pMask[i]);
    }
}

void StoreRows(const uint32_t* pRow, uint32_t* pFirst, const uint32_t* pIndices, uint32_t nScale, const uint32_t* pMask,
               uint32_t nBegin, uint32_t nEnd)
{
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        if (!pMask || pMask[i])
        {
            pFirst[pIndices[i] * nScale + i] = pRow[i];
        }
    }
}
