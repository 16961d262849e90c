#include "platform/simt/Block.h"

#include <cstring>

namespace KestrelPlatform
{

namespace
{

template <class T, class F>
F AsFloating(T n)
{
    F f;
    std::memcpy(&f, &n, sizeof f);
    return f;
}

template <class T>
struct STypes;
template <>
struct STypes<uint32_t>
{
    typedef int32_t Signed;
    typedef float Floating;
};
template <>
struct STypes<uint64_t>
{
    typedef int64_t Signed;
    typedef double Floating;
};

/// The new value of a memory element that holds nOld. In comparing forms, a is compared with and b is the new value; in
/// mskor, a is the mask and b the bits.
template <class T>
T Apply(EAtomic eAtomic, T nOld, T a, T b)
{
    typedef typename STypes<T>::Signed S;
    typedef typename STypes<T>::Floating F;
    switch (eAtomic)
    {
    case ATOMIC_ADD:
        return nOld + a;
    case ATOMIC_SUB:
        return nOld - a;
    case ATOMIC_RSUB:
        return a - nOld;
    case ATOMIC_INC:
        return nOld >= a ? 0 : nOld + 1;
    case ATOMIC_DEC:
        return nOld == 0 || nOld > a ? a : nOld - 1;
    case ATOMIC_MIN:
        return static_cast<S>(a) < static_cast<S>(nOld) ? a : nOld;
    case ATOMIC_MAX:
        return static_cast<S>(a) > static_cast<S>(nOld) ? a : nOld;
    case ATOMIC_UMIN:
        return a < nOld ? a : nOld;
    case ATOMIC_UMAX:
        return a > nOld ? a : nOld;
    case ATOMIC_AND:
        return nOld & a;
    case ATOMIC_OR:
        return nOld | a;
    case ATOMIC_XOR:
        return nOld ^ a;
    case ATOMIC_MSKOR:
        return (nOld & ~a) | b;
    case ATOMIC_XCHG:
        return a;
    case ATOMIC_CMP_XCHG:
        return nOld == a ? b : nOld;
    case ATOMIC_FMIN:
        return AsFloating<T, F>(a) < AsFloating<T, F>(nOld) ? a : nOld;
    case ATOMIC_FMAX:
        return AsFloating<T, F>(a) > AsFloating<T, F>(nOld) ? a : nOld;
    case ATOMIC_FCMP_XCHG:
        return AsFloating<T, F>(nOld) == AsFloating<T, F>(a) ? b : nOld;
    case ATOMIC_WRAP:
        return nOld >= a ? nOld - a : nOld + b;
    case ATOMIC_CONDXCHG:
        break;
    }
    // Each half is exchanged if its new value's top bit is set.
    const uint64_t nNew = a;
    uint64_t nResult = nOld;
    if (nNew & 0x80000000ull)
    {
        nResult = (nResult & 0xFFFFFFFF00000000ull) | (nNew & 0x7FFFFFFFull);
    }
    if (nNew & 0x8000000000000000ull)
    {
        nResult = (nResult & 0xFFFFFFFFull) | (nNew & 0x7FFFFFFF00000000ull);
    }
    return static_cast<T>(nResult);
}

template <class T>
T UpdateShared(EAtomic eAtomic, unsigned char* pData, T a, T b)
{
    T* const p = reinterpret_cast<T*>(pData);
    if (eAtomic == ATOMIC_ADD)
    {
        return __atomic_fetch_add(p, a, __ATOMIC_RELAXED);
    }
    T nOld = __atomic_load_n(p, __ATOMIC_RELAXED);
    while (!__atomic_compare_exchange_n(p, &nOld, Apply(eAtomic, nOld, a, b), true, __ATOMIC_RELAXED, __ATOMIC_RELAXED))
    {
    }
    return nOld;
}

template <class T>
T UpdateOwn(EAtomic eAtomic, unsigned char* pData, T a, T b)
{
    T nOld = 0;
    std::memcpy(&nOld, pData, sizeof nOld);
    const T nNew = Apply(eAtomic, nOld, a, b);
    std::memcpy(pData, &nNew, sizeof nNew);
    return nOld;
}

/// Adds to consecutive words.
void AddSequence(const uint32_t* pValues, unsigned char* pData, uint32_t nCount)
{
    typedef uint32_t Word __attribute__((aligned(1), may_alias));
    Word* const __restrict pWords = reinterpret_cast<Word*>(pData);
    for (uint32_t n = 0; n < nCount; ++n)
    {
        pWords[n] += pValues[n];
    }
}

} // namespace

/// \param pData null for an address without memory: the old value reads as 0
void CBlock::GlobalAtomic(const SAccess& access, uint32_t nLane, unsigned char* pData)
{
    const uint32_t a = Row(access.nValueRows[0])[nLane];
    const uint32_t b = Row(access.nValueRows[2])[nLane];
    const uint32_t nOld = pData ? UpdateShared<uint32_t>(access.eAtomic, pData, a, b) : 0;
    if (access.bReturns)
    {
        Row(access.nRows[0])[nLane] = nOld;
    }
}

/// No lock is needed: local memory belongs to one thread at a time.
void CBlock::LocalAtomic(const SAccess& access, uint32_t nLane, unsigned char* pData)
{
    const uint32_t a = Row(access.nValueRows[0])[nLane];
    const uint32_t b = Row(access.nValueRows[2])[nLane];
    uint64_t nOld = 0;
    if (access.nElementBytes == 4)
    {
        nOld = pData ? UpdateOwn<uint32_t>(access.eAtomic, pData, a, b) : 0;
    }
    else
    {
        const uint64_t a64 = a | (static_cast<uint64_t>(Row(access.nValueRows[1])[nLane]) << 32);
        const uint64_t b64 = b | (static_cast<uint64_t>(Row(access.nValueRows[3])[nLane]) << 32);
        nOld = pData ? UpdateOwn<uint64_t>(access.eAtomic, pData, a64, b64) : 0;
    }
    if (!access.bReturns)
    {
        return;
    }
    Row(access.nRows[0])[nLane] = static_cast<uint32_t>(nOld);
    if (access.nElementBytes == 8)
    {
        Row(access.nRows[1])[nLane] = static_cast<uint32_t>(nOld >> 32);
    }
}

/// All active lanes' 32-bit elements, in lane order. All are aligned and within memory.
void CBlock::AtomicWords(const SAccess& access, unsigned char* pBase, const SOffsets& offsets)
{
    const bool bShared = access.eSpace == SAccess::Global;
    const uint32_t* const a = Row(access.nValueRows[0]);
    const uint32_t* const b = Row(access.nValueRows[2]);
    if (access.eAtomic == ATOMIC_ADD && !access.bReturns)
    {
        if (bShared)
        {
            AddShared(a, pBase, offsets);
        }
        else
        {
            AddOwn(a, pBase, offsets);
        }
        return;
    }
    if (bShared)
    {
        m_Pending.Flush();
    }
    uint32_t* const pOld = access.bReturns ? Row(access.nRows[0]) : nullptr;
    for (uint32_t n = m_nBegin; n < m_nLast; ++n)
    {
        if (!IsActive(n))
        {
            continue;
        }
        unsigned char* const pData = pBase + (offsets.pAddresses[n] - offsets.nLow);
        const uint32_t nOld = bShared ? UpdateShared<uint32_t>(access.eAtomic, pData, a[n], b[n])
                                      : UpdateOwn<uint32_t>(access.eAtomic, pData, a[n], b[n]);
        if (pOld)
        {
            pOld[n] = nOld;
        }
    }
}

/// Adds to global memory where the old values aren't needed. Additions to words that are close together are held back.
/// For others, adding 0 is skipped: it has no visible effect, and an atomic access is expensive.
void CBlock::AddShared(const uint32_t* pValues, unsigned char* pBase, const SOffsets& offsets)
{
    if (unsigned char* const pSums = m_Pending.Hold(pBase, pBase + (offsets.nHigh - offsets.nLow)))
    {
        AddOwn(pValues, pSums, offsets);
        return;
    }
    const uint32_t* const pMask = Row(s_nMaskRow);
    for (uint32_t n = m_nBegin; n < m_nLast; ++n)
    {
        if ((pValues[n] & pMask[n]) == 0)
        {
            continue;
        }
        unsigned char* const pData = pBase + (offsets.pAddresses[n] - offsets.nLow);
        __atomic_fetch_add(reinterpret_cast<uint32_t*>(pData), pValues[n], __ATOMIC_RELAXED);
    }
}

/// The same for memory that belongs to one thread at a time.
void CBlock::AddOwn(const uint32_t* pValues, unsigned char* pBase, const SOffsets& offsets)
{
    if (offsets.bSequence)
    {
        AddSequence(pValues + m_nBegin, pBase, m_nLast - m_nBegin);
        return;
    }
    const uint32_t* const pMask = Row(s_nMaskRow);
    // Copies, so that the compiler knows that the stores don't change them and needn't reload them for each lane.
    const SOffsets own = offsets;
    const uint32_t nLast = m_nLast;
    for (uint32_t n = m_nBegin; n < nLast; ++n)
    {
        // A lane that isn't active adds 0 to the lowest word of the active ones.
        unsigned char* const pData = pBase + ((own.pAddresses[n] - own.nLow) & pMask[n]);
        uint32_t nWord = 0;
        std::memcpy(&nWord, pData, sizeof nWord);
        nWord += pValues[n] & pMask[n];
        std::memcpy(pData, &nWord, sizeof nWord);
    }
}

} // namespace KestrelPlatform
