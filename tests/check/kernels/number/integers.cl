// launch: run([N], [L], iota("int", N), zero(T, N))
// with: T=int BITS=32 N=64 L=64
// with: T=ulong BITS=64 N=48 L=16
// bug DIVISION: items lowest(range(0, N, 5))
// bug REMAINDER: items lowest(range(0, N, 3))
// bug RANGE: items [9]
// bug SHIFT: items [7, 8]
// bug SHIFT_OF_VECTOR: items [N - 1]
#define JOIN(t, n) t##n
#define VECTOR(t, n) JOIN(t, n)
__kernel void integers(__global const int* in, __global T* out)
{
    const int id = get_global_id(0);
    const int given = in[id];
#if defined DIVISION
    out[id] = (T)100 / (T)(given % 5); // fault DIVISION: nan
#elif defined REMAINDER
    out[id] = (T)100 % (T)(given % 3); // fault REMAINDER: nan
#elif defined RANGE
    out[id] = (T)(given == 9 ? 1e30f : 1.0f); // fault RANGE: nan
#elif defined SHIFT
    out[id] = (T)1 << (given == 7 ? BITS : given == 8 ? -1 : given % BITS); // fault SHIFT: nan
#elif defined SHIFT_OF_VECTOR
    const VECTOR(T, 4) amount = given == N - 1 ? BITS + 3 : 3;
    out[id] = ((VECTOR(T, 4))(4) >> amount).z; // fault SHIFT_OF_VECTOR: nan
#else
    out[id] = (T)100 / (T)(given % 5 + 1) + ((T)1 << (given * 7 & (BITS - 1))) + rotate((T)given, (T)(given * 5));
#endif
}
