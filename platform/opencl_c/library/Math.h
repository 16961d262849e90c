// Macros for the forms of mathematical functions: vector forms, and forms with a result by pointer.

#ifndef KESTREL_OPENCL_C_MATH_H
#define KESTREL_OPENCL_C_MATH_H

#include "Special.h"

// NAME of the type F with all its vector forms, from an expression of x, or of x and y.
#define MATH_1(F, NAME, expression)                                                                                    \
    LONG_FUNCTION F NAME(F x)                                                                                          \
    {                                                                                                                  \
        return expression;                                                                                             \
    }                                                                                                                  \
    BY_COMPONENT_1(FUNCTION, F, NAME, F)
#define MATH_2(F, NAME, expression)                                                                                    \
    LONG_FUNCTION F NAME(F x, F y)                                                                                     \
    {                                                                                                                  \
        return expression;                                                                                             \
    }                                                                                                                  \
    BY_COMPONENT_2(FUNCTION, F, NAME, F, F)
#define MATH_2_INT(F, NAME, expression)                                                                                \
    LONG_FUNCTION F NAME(F x, int n)                                                                                   \
    {                                                                                                                  \
        return expression;                                                                                             \
    }                                                                                                                  \
    BY_COMPONENT_2(FUNCTION, F, NAME, F, int)

// The forms of a function with a second result of type P by pointer. They call NAME##Of, whose pointer
// leads to a private variable.
#define BY_POINTER(F, P, NAME)                                                                                         \
    STEP F##2 NAME##Of(F##2 x, P##2 * p)                                                                               \
    {                                                                                                                  \
        P first = 0, second = 0;                                                                                       \
        const F##2 result = (F##2)(NAME##Of(x.x, &first), NAME##Of(x.y, &second));                                     \
        *p = (P##2)(first, second);                                                                                    \
        return result;                                                                                                 \
    }                                                                                                                  \
    STEP F##3 NAME##Of(F##3 x, P##3 * p)                                                                               \
    {                                                                                                                  \
        P##2 first = 0;                                                                                                \
        P second = 0;                                                                                                  \
        const F##3 result = (F##3)(NAME##Of(x.xy, &first), NAME##Of(x.z, &second));                                    \
        *p = (P##3)(first, second);                                                                                    \
        return result;                                                                                                 \
    }                                                                                                                  \
    BY_POINTER_OF_HALVES(F, P, NAME, 4, 2)                                                                             \
    BY_POINTER_OF_HALVES(F, P, NAME, 8, 4)                                                                             \
    BY_POINTER_OF_HALVES(F, P, NAME, 16, 8)                                                                            \
    SIZES(TO_SPACES, F, P, NAME)
#define BY_POINTER_OF_HALVES(F, P, NAME, N, HALF)                                                                      \
    STEP F##N NAME##Of(F##N x, P##N* p)                                                                                \
    {                                                                                                                  \
        P##HALF first = 0, second = 0;                                                                                 \
        const F##N result = (F##N)(NAME##Of(x.lo, &first), NAME##Of(x.hi, &second));                                   \
        *p = (P##N)(first, second);                                                                                    \
        return result;                                                                                                 \
    }
#define TO_SPACES(N, F, P, NAME)                                                                                       \
    TO_SPACE(F##N, P##N, NAME, __global)                                                                               \
    TO_SPACE(F##N, P##N, NAME, __local)                                                                                \
    TO_SPACE(F##N, P##N, NAME, __private)
#define TO_SPACE(F, P, NAME, SPACE)                                                                                    \
    EFFECT F NAME(F x, SPACE P* p)                                                                                     \
    {                                                                                                                  \
        P second = 0;                                                                                                  \
        const F result = NAME##Of(x, &second);                                                                         \
        *p = second;                                                                                                   \
        return result;                                                                                                 \
    }

// The same for functions of two arguments.
#define BY_POINTER_2(F, P, NAME)                                                                                       \
    STEP F##2 NAME##Of(F##2 x, F##2 y, P##2 * p)                                                                       \
    {                                                                                                                  \
        P first = 0, second = 0;                                                                                       \
        const F##2 result = (F##2)(NAME##Of(x.x, y.x, &first), NAME##Of(x.y, y.y, &second));                           \
        *p = (P##2)(first, second);                                                                                    \
        return result;                                                                                                 \
    }                                                                                                                  \
    STEP F##3 NAME##Of(F##3 x, F##3 y, P##3 * p)                                                                       \
    {                                                                                                                  \
        P##2 first = 0;                                                                                                \
        P second = 0;                                                                                                  \
        const F##3 result = (F##3)(NAME##Of(x.xy, y.xy, &first), NAME##Of(x.z, y.z, &second));                         \
        *p = (P##3)(first, second);                                                                                    \
        return result;                                                                                                 \
    }                                                                                                                  \
    BY_POINTER_2_OF_HALVES(F, P, NAME, 4, 2)                                                                           \
    BY_POINTER_2_OF_HALVES(F, P, NAME, 8, 4)                                                                           \
    BY_POINTER_2_OF_HALVES(F, P, NAME, 16, 8)                                                                          \
    SIZES(TO_SPACES_2, F, P, NAME)
#define BY_POINTER_2_OF_HALVES(F, P, NAME, N, HALF)                                                                    \
    STEP F##N NAME##Of(F##N x, F##N y, P##N* p)                                                                        \
    {                                                                                                                  \
        P##HALF first = 0, second = 0;                                                                                 \
        const F##N result = (F##N)(NAME##Of(x.lo, y.lo, &first), NAME##Of(x.hi, y.hi, &second));                       \
        *p = (P##N)(first, second);                                                                                    \
        return result;                                                                                                 \
    }
#define TO_SPACES_2(N, F, P, NAME)                                                                                     \
    TO_SPACE_2(F##N, P##N, NAME, __global)                                                                             \
    TO_SPACE_2(F##N, P##N, NAME, __local)                                                                              \
    TO_SPACE_2(F##N, P##N, NAME, __private)
#define TO_SPACE_2(F, P, NAME, SPACE)                                                                                  \
    EFFECT F NAME(F x, F y, SPACE P* p)                                                                                \
    {                                                                                                                  \
        P second = 0;                                                                                                  \
        const F result = NAME##Of(x, y, &second);                                                                      \
        *p = second;                                                                                                   \
        return result;                                                                                                 \
    }

#endif
