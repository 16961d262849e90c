// Common functions.

#include "Builtins.h"

#define COMMON(N, F)                                                                                                   \
    FUNCTION F##N min(F##N x, F##N y) { return __builtin_elementwise_min(x, y); }                                      \
    FUNCTION F##N max(F##N x, F##N y) { return __builtin_elementwise_max(x, y); }                                      \
    FUNCTION F##N clamp(F##N x, F##N least, F##N largest) { return min(max(x, least), largest); }                      \
    FUNCTION F##N degrees(F##N x) { return x * (F)57.29577951308232; }                                                 \
    FUNCTION F##N radians(F##N x) { return x * (F)0.017453292519943295; }                                              \
    FUNCTION F##N mix(F##N x, F##N y, F##N a) { return x + (y - x) * a; }                                              \
    FUNCTION F##N step(F##N edge, F##N x) { return x < edge ? (F##N)0 : (F##N)1; }                                     \
    FUNCTION F##N smoothstep(F##N from, F##N to, F##N x)                                                               \
    {                                                                                                                  \
        const F##N t = clamp((x - from) / (to - from), (F##N)0, (F##N)1);                                              \
        return t * t * ((F)3 - (F)2 * t);                                                                              \
    }                                                                                                                  \
    FUNCTION F##N sign(F##N x)                                                                                         \
    {                                                                                                                  \
        const F##N zero = x == x ? x : (F##N)0;                                                                        \
        return x > (F##N)0 ? (F##N)1 : (x < (F##N)0 ? (F##N) - 1 : zero);                                              \
    }
SIZES(COMMON, float)
SIZES(COMMON, double)

#define SCALAR_FORMS(N, F)                                                                                             \
    FUNCTION F##N min(F##N x, F y) { return min(x, (F##N)y); }                                                         \
    FUNCTION F##N max(F##N x, F y) { return max(x, (F##N)y); }                                                         \
    FUNCTION F##N clamp(F##N x, F least, F largest) { return clamp(x, (F##N)least, (F##N)largest); }                   \
    FUNCTION F##N mix(F##N x, F##N y, F a) { return mix(x, y, (F##N)a); }                                              \
    FUNCTION F##N step(F edge, F##N x) { return step((F##N)edge, x); }                                                 \
    FUNCTION F##N smoothstep(F from, F to, F##N x) { return smoothstep((F##N)from, (F##N)to, x); }
VECTORS(SCALAR_FORMS, float)
VECTORS(SCALAR_FORMS, double)
