// Included in an anonymous namespace: converts words of rows to values of the rules' types and back, and
// has the loops. Every file that is compiled for its own instruction set includes it. So nothing here may call an
// inline function of the standard library: the linker keeps a single copy, from any of these files.

inline float AsFloat(uint32_t n)
{
    float f;
    __builtin_memcpy(&f, &n, sizeof f);
    return f;
}

inline uint32_t AsWord(float f)
{
    uint32_t n;
    __builtin_memcpy(&n, &f, sizeof n);
    return n;
}

inline double AsDouble(uint64_t n)
{
    double d;
    __builtin_memcpy(&d, &n, sizeof d);
    return d;
}

inline uint64_t AsLong(double d)
{
    uint64_t n;
    __builtin_memcpy(&n, &d, sizeof n);
    return n;
}

inline uint32_t Mask(bool b)
{
    return b ? 0xFFFFFFFFu : 0u;
}
inline uint64_t Mask64(bool b)
{
    return b ? ~0ull : 0ull;
}

/// If one operand is NaN, the result is the other one.
template <class T>
inline T MinOf(T a, T b)
{
    const T r = a < b ? a : b;
    return b != b ? a : r;
}

template <class T>
inline T MaxOf(T a, T b)
{
    const T r = a > b ? a : b;
    return b != b ? a : r;
}

inline float Saturate(float a)
{
    const float r = a > 0.0f ? a : 0.0f;
    return r < 1.0f ? r : 1.0f;
}

inline float SignOf(float a)
{
    return a > 0.0f ? 1.0f : (a < 0.0f ? -1.0f : a == a ? a : 0.0f);
}

template <class T>
inline T MinOf3(T a, T b, T c)
{
    const T r = a < b ? a : b;
    return r < c ? r : c;
}

template <class T>
inline T MaxOf3(T a, T b, T c)
{
    const T r = a > b ? a : b;
    return r > c ? r : c;
}

template <class T>
inline T MedOf3(T a, T b, T c)
{
    const T nLow = a < b ? a : b;
    const T nHigh = a < b ? b : a;
    const T r = nHigh < c ? nHigh : c;
    return nLow > r ? nLow : r;
}

/// The low 24 bits, sign-extended.
inline uint32_t Sign24(uint32_t a)
{
    return static_cast<uint32_t>(static_cast<int32_t>(a << 8) >> 8);
}

/// Rounds toward zero. A value out of range gives the nearest limit, NaN gives 0.
inline int32_t ToInt(float a)
{
    const float fInRange = a >= -2147483648.0f && a < 2147483648.0f ? a : 0.0f;
    const int32_t n = static_cast<int32_t>(fInRange);
    const int32_t nHigh = a >= 2147483648.0f ? 0x7FFFFFFF : n;
    return a < -2147483648.0f ? static_cast<int32_t>(0x80000000u) : nHigh;
}

inline uint32_t ToUint(float a)
{
    const bool bUpper = a >= 2147483648.0f;
    const float fLow = bUpper ? a - 2147483648.0f : a;
    const float fInRange = fLow >= 0.0f && fLow < 2147483648.0f ? fLow : 0.0f;
    const uint32_t n = static_cast<uint32_t>(static_cast<int32_t>(fInRange)) + (bUpper ? 0x80000000u : 0u);
    return a >= 4294967296.0f ? 0xFFFFFFFFu : n;
}

struct N
{
    typedef uint32_t Type;
    static const bool bPair = false;
    static Type Get(uint32_t, uint32_t) { return 0; }
};
struct U
{
    typedef uint32_t Type;
    static const bool bPair = false;
    static Type Get(uint32_t n, uint32_t) { return n; }
    static uint32_t Put(Type v) { return v; }
};
struct I
{
    typedef int32_t Type;
    static const bool bPair = false;
    static Type Get(uint32_t n, uint32_t) { return static_cast<int32_t>(n); }
    static uint32_t Put(Type v) { return static_cast<uint32_t>(v); }
};
struct F
{
    typedef float Type;
    static const bool bPair = false;
    static Type Get(uint32_t n, uint32_t) { return AsFloat(n); }
    static uint32_t Put(Type v) { return AsWord(v); }
};
struct L
{
    typedef uint64_t Type;
    static const bool bPair = true;
    static Type Get(uint32_t n, uint32_t m) { return n | (static_cast<uint64_t>(m) << 32); }
    static uint64_t Put(Type v) { return v; }
};
struct S
{
    typedef int64_t Type;
    static const bool bPair = true;
    static Type Get(uint32_t n, uint32_t m) { return static_cast<int64_t>(n | (static_cast<uint64_t>(m) << 32)); }
    static uint64_t Put(Type v) { return static_cast<uint64_t>(v); }
};
struct D
{
    typedef double Type;
    static const bool bPair = true;
    static Type Get(uint32_t n, uint32_t m) { return AsDouble(n | (static_cast<uint64_t>(m) << 32)); }
    static uint64_t Put(Type v) { return AsLong(v); }
};

inline uint32_t Blend(uint32_t nNew, uint32_t nOld, uint32_t nMask)
{
    return (nNew & nMask) | (nOld & ~nMask);
}

/// Applies one rule to rows. A result row either is a source row or doesn't overlap it, so
/// lane i never depends on another lane.
template <class TRule>
void RunRule(SLaneRow* pRows, const SLaneRows& rows, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd)
{
    typedef typename TRule::Out Out;
    typedef typename TRule::A A;
    typedef typename TRule::B B;
    typedef typename TRule::C C;
    uint32_t* const d0 = pRows[rows.d[0]].w;
    uint32_t* const d1 = pRows[rows.d[1]].w;
    const uint32_t* const a0 = pRows[rows.s[0]].w;
    const uint32_t* const a1 = pRows[rows.s[1]].w;
    const uint32_t* const b0 = pRows[rows.s[2]].w;
    const uint32_t* const b1 = pRows[rows.s[3]].w;
    const uint32_t* const c0 = pRows[rows.s[4]].w;
    const uint32_t* const c1 = pRows[rows.s[5]].w;
    const uint32_t nCount = (nEnd - nBegin) & ~(s_nGranule - 1);
#define KESTREL_LANE(i)                                                                                                \
    TRule::Do(A::Get(a0[i], A::bPair ? a1[i] : 0), B::Get(b0[i], B::bPair ? b1[i] : 0),                                \
              C::Get(c0[i], C::bPair ? c1[i] : 0))
    if constexpr (!Out::bPair)
    {
        if (!pMask)
        {
#pragma GCC ivdep
            for (uint32_t i = nBegin; i < nBegin + nCount; ++i)
            {
                d0[i] = Out::Put(KESTREL_LANE(i));
            }
            return;
        }
#pragma GCC ivdep
        for (uint32_t i = nBegin; i < nBegin + nCount; ++i)
        {
            d0[i] = Blend(Out::Put(KESTREL_LANE(i)), d0[i], pMask[i]);
        }
    }
    else
    {
        if (!pMask)
        {
#pragma GCC ivdep
            for (uint32_t i = nBegin; i < nBegin + nCount; ++i)
            {
                const uint64_t n = Out::Put(KESTREL_LANE(i));
                d0[i] = static_cast<uint32_t>(n);
                d1[i] = static_cast<uint32_t>(n >> 32);
            }
            return;
        }
#pragma GCC ivdep
        for (uint32_t i = nBegin; i < nBegin + nCount; ++i)
        {
            const uint64_t n = Out::Put(KESTREL_LANE(i));
            d0[i] = Blend(static_cast<uint32_t>(n), d0[i], pMask[i]);
            d1[i] = Blend(static_cast<uint32_t>(n >> 32), d1[i], pMask[i]);
        }
    }
#undef KESTREL_LANE
}

/// A rule of two 64-bit operands that works on separate words.
template <class TWords>
void RunWords(SLaneRow* pRows, const SLaneRows& rows, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd)
{
    uint32_t* const d0 = pRows[rows.d[0]].w;
    uint32_t* const d1 = pRows[rows.d[1]].w;
    const uint32_t* const a0 = pRows[rows.s[0]].w;
    const uint32_t* const a1 = pRows[rows.s[1]].w;
    const uint32_t* const b0 = pRows[rows.s[2]].w;
    const uint32_t* const b1 = pRows[rows.s[3]].w;
    const uint32_t nCount = (nEnd - nBegin) & ~(s_nGranule - 1);
    if (!pMask)
    {
#pragma GCC ivdep
        for (uint32_t i = nBegin; i < nBegin + nCount; ++i)
        {
            const uint32_t nLow = TWords::Low(a0[i], a1[i], b0[i], b1[i]);
            const uint32_t nHigh = TWords::High(a0[i], a1[i], b0[i], b1[i], nLow);
            d0[i] = nLow;
            d1[i] = nHigh;
        }
        return;
    }
#pragma GCC ivdep
    for (uint32_t i = nBegin; i < nBegin + nCount; ++i)
    {
        const uint32_t nLow = TWords::Low(a0[i], a1[i], b0[i], b1[i]);
        const uint32_t nHigh = TWords::High(a0[i], a1[i], b0[i], b1[i], nLow);
        d0[i] = Blend(nLow, d0[i], pMask[i]);
        d1[i] = Blend(nHigh, d1[i], pMask[i]);
    }
}

#define KESTREL_RULE(name, form, out, ta, tb, tc, expression)                                                          \
    struct SRule_##name                                                                                                \
    {                                                                                                                  \
        typedef out Out;                                                                                               \
        typedef ta A;                                                                                                  \
        typedef tb B;                                                                                                  \
        typedef tc C;                                                                                                  \
        static typename Out::Type Do(typename A::Type a, typename B::Type b, typename C::Type c)                       \
        {                                                                                                              \
            return expression;                                                                                         \
        }                                                                                                              \
    };
