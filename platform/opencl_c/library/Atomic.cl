// Atomic functions on 32-bit words, with the names of OpenCL 1.1 and later and with those of the
// extensions to OpenCL 1.0.

#include "Builtins.h"

#define ATOMICS_IN(PREFIX, SPACE, T, MIN, MAX)                                                                         \
    EFFECT T PREFIX##_add(volatile SPACE T* p, T value) { return __sync_fetch_and_add(p, value); }                     \
    EFFECT T PREFIX##_sub(volatile SPACE T* p, T value) { return __sync_fetch_and_sub(p, value); }                     \
    EFFECT T PREFIX##_inc(volatile SPACE T* p) { return __sync_fetch_and_add(p, (T)1); }                               \
    EFFECT T PREFIX##_dec(volatile SPACE T* p) { return __sync_fetch_and_sub(p, (T)1); }                               \
    EFFECT T PREFIX##_xchg(volatile SPACE T* p, T value) { return __sync_swap(p, value); }                             \
    EFFECT T PREFIX##_and(volatile SPACE T* p, T value) { return __sync_fetch_and_and(p, value); }                     \
    EFFECT T PREFIX##_or(volatile SPACE T* p, T value) { return __sync_fetch_and_or(p, value); }                       \
    EFFECT T PREFIX##_xor(volatile SPACE T* p, T value) { return __sync_fetch_and_xor(p, value); }                     \
    EFFECT T PREFIX##_min(volatile SPACE T* p, T value) { return MIN(p, value); }                                      \
    EFFECT T PREFIX##_max(volatile SPACE T* p, T value) { return MAX(p, value); }                                      \
    EFFECT T PREFIX##_cmpxchg(volatile SPACE T* p, T expected, T value)                                                \
    {                                                                                                                  \
        return __sync_val_compare_and_swap(p, expected, value);                                                        \
    }
#define ATOMICS(PREFIX, SPACE)                                                                                         \
    ATOMICS_IN(PREFIX, SPACE, int, __sync_fetch_and_min, __sync_fetch_and_max)                                         \
    ATOMICS_IN(PREFIX, SPACE, uint, __sync_fetch_and_umin, __sync_fetch_and_umax)
ATOMICS(atomic, __global)
ATOMICS(atomic, __local)
ATOMICS(atom, __global)
ATOMICS(atom, __local)

#define FLOAT_EXCHANGE(SPACE)                                                                                          \
    EFFECT float atomic_xchg(volatile SPACE float* p, float value)                                                     \
    {                                                                                                                  \
        return BITS(float, __sync_swap((volatile SPACE int*)p, BITS(int, value)));                                     \
    }
FLOAT_EXCHANGE(__global)
FLOAT_EXCHANGE(__local)
