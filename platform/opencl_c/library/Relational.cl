// Relational functions. True is 1 for scalars, and all ones for components of vectors. For conditions of
// select in vectors, and of any and all in vectors and scalars, only the top bit counts.

#include "Builtins.h"

#define COMPARE(N, NAME, F, I, condition)                                                                              \
    FUNCTION I##N NAME(F##N x, F##N y) { return (I##N)(condition); }
#define COMPARISON(NAME, condition)                                                                                    \
    FUNCTION int NAME(float x, float y) { return condition; }                                                          \
    FUNCTION int NAME(double x, double y) { return condition; }                                                        \
    VECTORS(COMPARE, NAME, float, int, condition)                                                                      \
    VECTORS(COMPARE, NAME, double, long, condition)
COMPARISON(isequal, x == y)
COMPARISON(isnotequal, x != y)
COMPARISON(isgreater, x > y)
COMPARISON(isgreaterequal, x >= y)
COMPARISON(isless, x < y)
COMPARISON(islessequal, x <= y)
COMPARISON(islessgreater, (x < y) | (x > y))
COMPARISON(isordered, (x == x) & (y == y))
COMPARISON(isunordered, (x != x) | (y != y))

// Tests the bits without the sign: up to infinity's they are numbers.
#define CLASSIFY(N, F, I, infinity, normal)                                                                            \
    HELPER I##N Magnitude(F##N x) { return BITS(I##N, x) & (I)((((ulong)1 << (sizeof(F) * 8 - 1)) - 1)); }             \
    FUNCTION RESULT##N(I) isfinite(F##N x) { return (RESULT##N(I))(Magnitude(x) < infinity); }                         \
    FUNCTION RESULT##N(I) isinf(F##N x) { return (RESULT##N(I))(Magnitude(x) == infinity); }                           \
    FUNCTION RESULT##N(I) isnan(F##N x) { return (RESULT##N(I))(Magnitude(x) > infinity); }                            \
    FUNCTION RESULT##N(I) isnormal(F##N x)                                                                             \
    {                                                                                                                  \
        return (RESULT##N(I))((Magnitude(x) < infinity) & (Magnitude(x) >= normal));                                   \
    }                                                                                                                  \
    FUNCTION RESULT##N(I) signbit(F##N x) { return (RESULT##N(I))(BITS(I##N, x) < (I)0); }
#define RESULT(I) int
#define RESULT2(I) I##2
#define RESULT3(I) I##3
#define RESULT4(I) I##4
#define RESULT8(I) I##8
#define RESULT16(I) I##16
SIZES(CLASSIFY, float, int, 0x7F800000, 0x00800000)
SIZES(CLASSIFY, double, long, 0x7FF0000000000000L, 0x0010000000000000L)

// All components combined by OP, for their top bits.
#define JOINED(T, OP)                                                                                                  \
    HELPER T Joined##OP(T##2 a) { return OP(a.x, a.y); }                                                               \
    HELPER T Joined##OP(T##3 a) { return OP(OP(a.x, a.y), a.z); }                                                      \
    HELPER T Joined##OP(T##4 a) { return OP(OP(a.x, a.y), OP(a.z, a.w)); }                                             \
    HELPER T Joined##OP(T##8 a) { return Joined##OP(OP(a.lo, a.hi)); }                                                 \
    HELPER T Joined##OP(T##16 a) { return Joined##OP(OP(a.lo, a.hi)); }
#define OR(a, b) ((a) | (b))
#define AND(a, b) ((a) & (b))
#define ANY_ALL(N, T)                                                                                                  \
    FUNCTION int any(T##N x) { return JoinedOR(x) < 0; }                                                               \
    FUNCTION int all(T##N x) { return JoinedAND(x) < 0; }
#define ANY_ALL_FORMS(T, U, S, least, largest)                                                                         \
    JOINED(T, OR)                                                                                                      \
    JOINED(T, AND)                                                                                                     \
    FUNCTION int any(T x) { return x < 0; }                                                                            \
    FUNCTION int all(T x) { return x < 0; }                                                                            \
    VECTORS(ANY_ALL, T)
SIGNED_TYPES(ANY_ALL_FORMS)

#define BITSELECT(N, T, S)                                                                                             \
    FUNCTION T##N bitselect(T##N a, T##N b, T##N c)                                                                    \
    {                                                                                                                  \
        const S##N bits = BITS(S##N, c);                                                                               \
        return BITS(T##N, (S##N)((BITS(S##N, a) & ~bits) | (BITS(S##N, b) & bits)));                                   \
    }
#define SELECT(N, T, S, U)                                                                                             \
    FUNCTION T##N select(T##N a, T##N b, S##N c) { return c ? b : a; }                                                 \
    FUNCTION T##N select(T##N a, T##N b, U##N c) { return BITS(S##N, c) ? b : a; }
#define SELECTION_OF(T, S, U)                                                                                          \
    SIZES(BITSELECT, T, S)                                                                                             \
    SIZES(SELECT, T, S, U)
#define SELECTION(T, U, S, least, largest) SELECTION_OF(T, S, U)
INTEGER_TYPES(SELECTION)
SELECTION_OF(float, int, uint)
SELECTION_OF(double, long, ulong)
