// shuffle and shuffle2: the low bits of each mask component select a component.

#include "Builtins.h"

#define PICK_2(PICK, m) PICK(m.s0), PICK(m.s1)
#define PICK_4(PICK, m) PICK_2(PICK, m), PICK(m.s2), PICK(m.s3)
#define PICK_8(PICK, m) PICK_4(PICK, m), PICK(m.s4), PICK(m.s5), PICK(m.s6), PICK(m.s7)
#define PICK_16(PICK, m)                                                                                               \
    PICK_8(PICK, m), PICK(m.s8), PICK(m.s9), PICK(m.sa), PICK(m.sb), PICK(m.sc), PICK(m.sd), PICK(m.se), PICK(m.sf)

#define OF_ONE(i) x[(i) & nLast]
#define OF_TWO(i) ((i) & (nLast + 1) ? y[(i) & nLast] : x[(i) & nLast])

#define SHUFFLE(N, M, T, U)                                                                                            \
    FUNCTION T##N shuffle(T##M x, U##N mask)                                                                           \
    {                                                                                                                  \
        const U nLast = M - 1;                                                                                         \
        return (T##N)(PICK_##N(OF_ONE, mask));                                                                         \
    }                                                                                                                  \
    FUNCTION T##N shuffle2(T##M x, T##M y, U##N mask)                                                                  \
    {                                                                                                                  \
        const U nLast = M - 1;                                                                                         \
        return (T##N)(PICK_##N(OF_TWO, mask));                                                                         \
    }
#define SHUFFLES_TO(N, T, U) SHUFFLE(N, 2, T, U) SHUFFLE(N, 4, T, U) SHUFFLE(N, 8, T, U) SHUFFLE(N, 16, T, U)
#define SHUFFLES_OF(T, U) SHUFFLES_TO(2, T, U) SHUFFLES_TO(4, T, U) SHUFFLES_TO(8, T, U) SHUFFLES_TO(16, T, U)
#define SHUFFLES(T, U, S, least, largest) SHUFFLES_OF(T, U)
INTEGER_TYPES(SHUFFLES)
SHUFFLES_OF(float, uint)
SHUFFLES_OF(double, ulong)
