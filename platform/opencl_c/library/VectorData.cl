// Vector loads and stores, at addresses aligned to a component. Halves are stored as 16-bit words,
// rounded by the conversions.

#include "Builtins.h"

INSTRUCTION float __il_f162f(uint nHalf);
INSTRUCTION uint __il_f2f16(float x);
INSTRUCTION uint __il_f2f16_near(float x);
INSTRUCTION uint __il_f2f16_neg_inf(float x);
INSTRUCTION uint __il_f2f16_plus_inf(float x);

// A vector of three is read as two and one, so that nothing after it is read.
#define LOAD(N, T, SPACE)                                                                                              \
    EFFECT __attribute__((pure)) T##N vload##N(size_t nOffset, const SPACE T* p)                                       \
    {                                                                                                                  \
        typedef T##N UNALIGNED __attribute__((aligned(sizeof(T))));                                                    \
        return *(const SPACE UNALIGNED*)(p + nOffset * N);                                                             \
    }
#define STORE(N, T, SPACE)                                                                                             \
    EFFECT void vstore##N(T##N value, size_t nOffset, SPACE T* p)                                                      \
    {                                                                                                                  \
        typedef T##N UNALIGNED __attribute__((aligned(sizeof(T))));                                                    \
        *(SPACE UNALIGNED*)(p + nOffset * N) = value;                                                                  \
    }
#define LOADS(T, SPACE)                                                                                                \
    LOAD(2, T, SPACE)                                                                                                  \
    LOAD(4, T, SPACE)                                                                                                  \
    LOAD(8, T, SPACE)                                                                                                  \
    LOAD(16, T, SPACE)                                                                                                 \
    EFFECT __attribute__((pure)) T##3 vload3(size_t nOffset, const SPACE T* p)                                         \
    {                                                                                                                  \
        return (T##3)(vload2(0, p + nOffset * 3), p[nOffset * 3 + 2]);                                                 \
    }
#define STORES(T, SPACE)                                                                                               \
    STORE(2, T, SPACE)                                                                                                 \
    STORE(4, T, SPACE)                                                                                                 \
    STORE(8, T, SPACE)                                                                                                 \
    STORE(16, T, SPACE)                                                                                                \
    EFFECT void vstore3(T##3 value, size_t nOffset, SPACE T* p)                                                        \
    {                                                                                                                  \
        vstore2(value.xy, 0, p + nOffset * 3);                                                                         \
        p[nOffset * 3 + 2] = value.z;                                                                                  \
    }
#define VECTOR_DATA(T)                                                                                                 \
    LOADS(T, __global)                                                                                                 \
    LOADS(T, __local)                                                                                                  \
    LOADS(T, __private)                                                                                                \
    LOADS(T, __constant)                                                                                               \
    STORES(T, __global)                                                                                                \
    STORES(T, __local)                                                                                                 \
    STORES(T, __private)
ALL_TYPES(VECTOR_DATA)

// Half from float in each rounding mode. A double is first rounded to odd, to a float whose last bit is
// set if anything was lost, so that the second rounding is right.
HELPER uint HalfNearest(float x)
{
    return __il_f2f16_near(x);
}

HELPER uint HalfToZero(float x)
{
    return __il_f2f16(x);
}

HELPER uint HalfUp(float x)
{
    return __il_f2f16_plus_inf(x);
}

HELPER uint HalfDown(float x)
{
    return __il_f2f16_neg_inf(x);
}

HELPER float RoundedToOdd(double x)
{
    const float nearest = (float)x;
    const uint nAway = __builtin_fabs((double)nearest) > __builtin_fabs(x) ? 1 : 0;
    const uint nLost = (double)nearest != x && x == x ? 1 : 0;
    return BITS(float, (BITS(uint, nearest) - nAway) | nLost);
}

#define HALF_OF_DOUBLE(NAME)                                                                                           \
    HELPER uint NAME(double x) { return NAME(RoundedToOdd(x)); }
HALF_OF_DOUBLE(HalfNearest)
HALF_OF_DOUBLE(HalfToZero)
HALF_OF_DOUBLE(HalfUp)
HALF_OF_DOUBLE(HalfDown)

HELPER float FloatOf(ushort nHalf)
{
    return __il_f162f(nHalf);
}
BY_COMPONENT_1(HELPER, float, FloatOf, ushort)

#define HALF_FORMS(NAME, F)                                                                                            \
    HELPER ushort NAME##Bits(F x) { return NAME(x); }                                                                  \
    BY_COMPONENT_1(HELPER, ushort, NAME##Bits, F)
#define EACH_ROUNDING(M, ...)                                                                                          \
    M(, HalfNearest, __VA_ARGS__)                                                                                      \
    M(_rte, HalfNearest, __VA_ARGS__)                                                                                  \
    M(_rtz, HalfToZero, __VA_ARGS__)                                                                                   \
    M(_rtp, HalfUp, __VA_ARGS__)                                                                                       \
    M(_rtn, HalfDown, __VA_ARGS__)
HALF_FORMS(HalfNearest, float)
HALF_FORMS(HalfToZero, float)
HALF_FORMS(HalfUp, float)
HALF_FORMS(HalfDown, float)
HALF_FORMS(HalfNearest, double)
HALF_FORMS(HalfToZero, double)
HALF_FORMS(HalfUp, double)
HALF_FORMS(HalfDown, double)

// The _a forms access vectors of three like vectors of four.
#define LOAD_HALF(N, SPACE)                                                                                            \
    EFFECT __attribute__((pure)) float##N vload_half##N(size_t nOffset, const SPACE half* p)                           \
    {                                                                                                                  \
        return FloatOf(vload##N(nOffset, (const SPACE ushort*)p));                                                     \
    }                                                                                                                  \
    EFFECT __attribute__((pure)) float##N vloada_half##N(size_t nOffset, const SPACE half* p)                          \
    {                                                                                                                  \
        return FloatOf(*((const SPACE ushort##N*)p + nOffset));                                                        \
    }
#define STORE_HALF(SUFFIX, NAME, N, SPACE, F)                                                                          \
    EFFECT void vstore_half##N##SUFFIX(F##N value, size_t nOffset, SPACE half* p)                                      \
    {                                                                                                                  \
        vstore##N(NAME##Bits(value), nOffset, (SPACE ushort*)p);                                                       \
    }                                                                                                                  \
    EFFECT void vstorea_half##N##SUFFIX(F##N value, size_t nOffset, SPACE half* p)                                     \
    {                                                                                                                  \
        *((SPACE ushort##N*)p + nOffset) = NAME##Bits(value);                                                          \
    }
#define STORE_ONE_HALF(SUFFIX, NAME, SPACE, F)                                                                         \
    EFFECT void vstore_half##SUFFIX(F value, size_t nOffset, SPACE half* p)                                            \
    {                                                                                                                  \
        ((SPACE ushort*)p)[nOffset] = NAME##Bits(value);                                                               \
    }
#define STORES_OF_HALVES(N, SPACE)                                                                                     \
    EACH_ROUNDING(STORE_HALF, N, SPACE, float)                                                                         \
    EACH_ROUNDING(STORE_HALF, N, SPACE, double)
#define LOADS_OF_HALVES(SPACE)                                                                                         \
    EFFECT __attribute__((pure)) float vload_half(size_t nOffset, const SPACE half* p)                                 \
    {                                                                                                                  \
        return FloatOf(((const SPACE ushort*)p)[nOffset]);                                                             \
    }                                                                                                                  \
    VECTORS(LOAD_HALF, SPACE)
#define HALVES_IN(SPACE)                                                                                               \
    EACH_ROUNDING(STORE_ONE_HALF, SPACE, float)                                                                        \
    EACH_ROUNDING(STORE_ONE_HALF, SPACE, double)                                                                       \
    VECTORS(STORES_OF_HALVES, SPACE)
LOADS_OF_HALVES(__global)
LOADS_OF_HALVES(__local)
LOADS_OF_HALVES(__private)
LOADS_OF_HALVES(__constant)
HALVES_IN(__global)
HALVES_IN(__local)
HALVES_IN(__private)
