// What all files of the built-in functions share: the types of OpenCL C, the IL instructions that the
// functions are made of, and macros that make the vector forms.
//
// The files are compiled without the compiler's headers and declarations. So each function's mangled name
// follows from its parameters alone, as it does for a kernel's call of it.

#ifndef KESTREL_OPENCL_C_BUILTINS_H
#define KESTREL_OPENCL_C_BUILTINS_H

#pragma OPENCL EXTENSION cl_khr_fp64 : enable

typedef unsigned char uchar;
typedef unsigned short ushort;
typedef unsigned int uint;
typedef unsigned long ulong;
typedef __SIZE_TYPE__ size_t;

#define VECTOR_TYPES(T)                                                                                                \
    typedef T T##2 __attribute__((ext_vector_type(2)));                                                                \
    typedef T T##3 __attribute__((ext_vector_type(3)));                                                                \
    typedef T T##4 __attribute__((ext_vector_type(4)));                                                                \
    typedef T T##8 __attribute__((ext_vector_type(8)));                                                                \
    typedef T T##16 __attribute__((ext_vector_type(16)));
VECTOR_TYPES(char)
VECTOR_TYPES(uchar)
VECTOR_TYPES(short)
VECTOR_TYPES(ushort)
VECTOR_TYPES(int)
VECTOR_TYPES(uint)
VECTOR_TYPES(long)
VECTOR_TYPES(ulong)
VECTOR_TYPES(float)
VECTOR_TYPES(double)
#undef VECTOR_TYPES

// Kinds of functions: a built-in that reads memory or has an effect; one that depends on its arguments
// alone; a long one of these, which vector forms call instead of repeating it; and a function for this
// folder only, without and with results by pointers.
#define EFFECT __attribute__((overloadable, always_inline))
#define FUNCTION __attribute__((overloadable, always_inline, const))
#define LONG_FUNCTION __attribute__((overloadable, noinline, const))
#define HELPER static inline __attribute__((overloadable, always_inline, const))
#define STEP static inline __attribute__((overloadable, always_inline))

// An instruction of IL: the arguments are its sources, the result is its destination. A suffix after a
// double underscore distinguishes the forms of one instruction for several types.
#define INSTRUCTION __attribute__((const))

// M for scalars and each vector size. M's first argument is the suffix of the type's name.
#define VECTORS(M, ...) M(2, __VA_ARGS__) M(3, __VA_ARGS__) M(4, __VA_ARGS__) M(8, __VA_ARGS__) M(16, __VA_ARGS__)
#define SIZES(M, ...) M(, __VA_ARGS__) VECTORS(M, __VA_ARGS__)

// M(type, unsigned type, signed type, minimum, maximum) for each integer type.
#define SIGNED_TYPES(M)                                                                                                \
    M(char, uchar, char, -128, 127)                                                                                    \
    M(short, ushort, short, -32768, 32767)                                                                             \
    M(int, uint, int, -2147483647 - 1, 2147483647)                                                                     \
    M(long, ulong, long, -9223372036854775807L - 1, 9223372036854775807L)
#define UNSIGNED_TYPES(M)                                                                                              \
    M(uchar, uchar, char, 0, 255)                                                                                      \
    M(ushort, ushort, short, 0, 65535)                                                                                 \
    M(uint, uint, int, 0, 4294967295U)                                                                                 \
    M(ulong, ulong, long, 0, 18446744073709551615UL)
#define INTEGER_TYPES(M) SIGNED_TYPES(M) UNSIGNED_TYPES(M)

// M(type) for each type that vectors are made of.
#define ALL_TYPES(M) M(char) M(uchar) M(short) M(ushort) M(int) M(uint) M(long) M(ulong) M(float) M(double)

#define BITS(T, value) __builtin_astype(value, T)

// The vector forms of a function of one, two or three arguments, component by component. They call the
// scalar form up to four components, and the form for each half above that.
#define BY_COMPONENT_1(KIND, R, NAME, A)                                                                               \
    KIND R##2 NAME(A##2 a)                                                                                             \
    {                                                                                                                  \
        return (R##2)(NAME(a.x), NAME(a.y));                                                                           \
    }                                                                                                                  \
    KIND R##3 NAME(A##3 a)                                                                                             \
    {                                                                                                                  \
        return (R##3)(NAME(a.x), NAME(a.y), NAME(a.z));                                                                \
    }                                                                                                                  \
    KIND R##4 NAME(A##4 a)                                                                                             \
    {                                                                                                                  \
        return (R##4)(NAME(a.x), NAME(a.y), NAME(a.z), NAME(a.w));                                                     \
    }                                                                                                                  \
    KIND R##8 NAME(A##8 a)                                                                                             \
    {                                                                                                                  \
        return (R##8)(NAME(a.lo), NAME(a.hi));                                                                         \
    }                                                                                                                  \
    KIND R##16 NAME(A##16 a)                                                                                           \
    {                                                                                                                  \
        return (R##16)(NAME(a.lo), NAME(a.hi));                                                                        \
    }
#define BY_COMPONENT_2(KIND, R, NAME, A, B)                                                                            \
    KIND R##2 NAME(A##2 a, B##2 b)                                                                                     \
    {                                                                                                                  \
        return (R##2)(NAME(a.x, b.x), NAME(a.y, b.y));                                                                 \
    }                                                                                                                  \
    KIND R##3 NAME(A##3 a, B##3 b)                                                                                     \
    {                                                                                                                  \
        return (R##3)(NAME(a.x, b.x), NAME(a.y, b.y), NAME(a.z, b.z));                                                 \
    }                                                                                                                  \
    KIND R##4 NAME(A##4 a, B##4 b)                                                                                     \
    {                                                                                                                  \
        return (R##4)(NAME(a.x, b.x), NAME(a.y, b.y), NAME(a.z, b.z), NAME(a.w, b.w));                                 \
    }                                                                                                                  \
    KIND R##8 NAME(A##8 a, B##8 b)                                                                                     \
    {                                                                                                                  \
        return (R##8)(NAME(a.lo, b.lo), NAME(a.hi, b.hi));                                                             \
    }                                                                                                                  \
    KIND R##16 NAME(A##16 a, B##16 b)                                                                                  \
    {                                                                                                                  \
        return (R##16)(NAME(a.lo, b.lo), NAME(a.hi, b.hi));                                                            \
    }
#define BY_COMPONENT_3(KIND, R, NAME, A, B, C)                                                                         \
    KIND R##2 NAME(A##2 a, B##2 b, C##2 c)                                                                             \
    {                                                                                                                  \
        return (R##2)(NAME(a.x, b.x, c.x), NAME(a.y, b.y, c.y));                                                       \
    }                                                                                                                  \
    KIND R##3 NAME(A##3 a, B##3 b, C##3 c)                                                                             \
    {                                                                                                                  \
        return (R##3)(NAME(a.x, b.x, c.x), NAME(a.y, b.y, c.y), NAME(a.z, b.z, c.z));                                  \
    }                                                                                                                  \
    KIND R##4 NAME(A##4 a, B##4 b, C##4 c)                                                                             \
    {                                                                                                                  \
        return (R##4)(NAME(a.x, b.x, c.x), NAME(a.y, b.y, c.y), NAME(a.z, b.z, c.z), NAME(a.w, b.w, c.w));             \
    }                                                                                                                  \
    KIND R##8 NAME(A##8 a, B##8 b, C##8 c)                                                                             \
    {                                                                                                                  \
        return (R##8)(NAME(a.lo, b.lo, c.lo), NAME(a.hi, b.hi, c.hi));                                                 \
    }                                                                                                                  \
    KIND R##16 NAME(A##16 a, B##16 b, C##16 c)                                                                         \
    {                                                                                                                  \
        return (R##16)(NAME(a.lo, b.lo, c.lo), NAME(a.hi, b.hi, c.hi));                                                \
    }

// The same where an argument may also be a scalar that serves all components.
#define WITH_SCALAR_SECOND(N, R, NAME, A, B)                                                                           \
    FUNCTION R##N NAME(A##N a, B b)                                                                                    \
    {                                                                                                                  \
        return NAME(a, (B##N)(b));                                                                                     \
    }

#endif
