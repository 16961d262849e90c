// Included in an anonymous namespace: the mask operations of SLaneTable.

/// One or two bits for each active lane of a granule. \param nBits how many
uint32_t GranuleBits(const uint32_t* pMask, uint32_t& nBits)
{
#if defined(__AVX512DQ__)
    nBits = 1;
    return _mm512_movepi32_mask(*reinterpret_cast<const __m512i*>(pMask));
#elif defined(__AVX2__)
    const __m256i* const p = reinterpret_cast<const __m256i*>(pMask);
    nBits = 2;
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_packs_epi32(p[0], p[1])));
#else
    const __m128i* const p = reinterpret_cast<const __m128i*>(pMask);
    nBits = 1;
    return static_cast<uint32_t>(
        _mm_movemask_epi8(_mm_packs_epi16(_mm_packs_epi32(p[0], p[1]), _mm_packs_epi32(p[2], p[3]))));
#endif
}

/// A summary of a mask by granules.
struct SGranules
{
    uint32_t nGranules = 0; ///< one bit for each granule with an active lane
    uint32_t nCount = 0;
    uint32_t nPerLane = 1;

    void Add(const uint32_t* pMask, uint32_t nFirst)
    {
        const uint32_t nBits = GranuleBits(pMask + nFirst, nPerLane);
        nCount += static_cast<uint32_t>(__builtin_popcount(nBits));
        nGranules |= (nBits ? 1u : 0u) << (nFirst / s_nGranule);
    }

    SLaneSpan Span() const
    {
        SLaneSpan span;
        if (nGranules == 0)
        {
            return span;
        }
        span.nActive = nCount / nPerLane;
        span.nBegin = static_cast<uint32_t>(__builtin_ctz(nGranules)) * s_nGranule;
        span.nEnd = (32 - static_cast<uint32_t>(__builtin_clz(nGranules))) * s_nGranule;
        return span;
    }
};

/// The span of a mask that has no active lane outside of lanes nBegin to nEnd.
SLaneSpan Span(const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd)
{
    SGranules granules;
    for (uint32_t i = nBegin; i < nEnd; i += s_nGranule)
    {
        granules.Add(pMask, i);
    }
    return granules.Span();
}

SLaneSpan Split(const SLaneSpan& span, uint32_t* pMask, uint32_t* pRest, const uint32_t* pCondition, uint32_t bInvert)
{
    const Words flip = Words{} - (bInvert ? 1u : 0u);
    SGranules granules;
    for (uint32_t nFirst = span.nBegin; nFirst < span.nEnd; nFirst += s_nGranule)
    {
        for (uint32_t i = nFirst; i < nFirst + s_nGranule; i += s_nVectorWords)
        {
            const Words condition = reinterpret_cast<Words>(*WordsAt(pCondition + i) != 0) ^ flip;
            const Words mask = *WordsAt(pMask + i);
            *WordsAt(pRest + i) = mask & ~condition;
            *WordsAt(pMask + i) = mask & condition;
        }
        granules.Add(pMask, nFirst);
    }
    return granules.Span();
}

/// In most passes of a loop no lane leaves, so this is tested first, without a store.
SLaneSpan Leave(const SLaneSpan& span, uint32_t* pMask, uint32_t* pOut, const uint32_t* pCondition, uint32_t bInvert)
{
    const uint32_t nFlip = bInvert ? 0xFFFFFFFFu : 0;
    // Copies, so that the compiler knows that the stores don't change them.
    const uint32_t nBegin = span.nBegin;
    const uint32_t nEnd = span.nEnd;
    uint32_t nAny = 0;
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        nAny |= pMask[i] & (Mask(pCondition[i] != 0) ^ nFlip);
    }
    if (nAny == 0)
    {
        return span;
    }
#pragma GCC ivdep
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        const uint32_t c = Mask(pCondition[i] != 0) ^ nFlip;
        const uint32_t m = pMask[i];
        pOut[i] |= m & c;
        pMask[i] = m & ~c;
    }
    return Span(pMask, nBegin, nEnd);
}

SLaneSpan Join(const SLaneSpan& span, uint32_t* pMask, const uint32_t* pOther)
{
    uint32_t nAny = 0;
    for (uint32_t i = 0; i < s_nLanes; ++i)
    {
        nAny |= pOther[i];
    }
    if (nAny == 0)
    {
        return span;
    }
#pragma GCC ivdep
    for (uint32_t i = 0; i < s_nLanes; ++i)
    {
        pMask[i] |= pOther[i];
    }
    return Span(pMask, 0, s_nLanes);
}

void Merge(const SLaneSpan& span, uint32_t* pMask, const uint32_t* pOther)
{
    const uint32_t nEnd = span.nEnd;
#pragma GCC ivdep
    for (uint32_t i = span.nBegin; i < nEnd; ++i)
    {
        pMask[i] |= pOther[i];
    }
}

SLaneSpan Swap(const SLaneSpan& span, uint32_t* pMask, uint32_t* pOther)
{
    const uint32_t nBegin = span.nBegin;
    const uint32_t nEnd = span.nEnd;
#pragma GCC ivdep
    for (uint32_t i = nBegin; i < nEnd; ++i)
    {
        const uint32_t m = pOther[i];
        pOther[i] = pMask[i];
        pMask[i] = m;
    }
    return Span(pMask, nBegin, nEnd);
}

SLaneSpan Case(uint32_t* pMask, uint32_t* pPending, const uint32_t* pSelector, uint32_t nValue)
{
#pragma GCC ivdep
    for (uint32_t i = 0; i < s_nLanes; ++i)
    {
        const uint32_t c = Mask(pSelector[i] == nValue) & pPending[i];
        pPending[i] &= ~c;
        pMask[i] |= c;
    }
    return Span(pMask, 0, s_nLanes);
}
