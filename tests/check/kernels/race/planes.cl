// The wrong width in an index of two or three dimensions.
// launch: run([8, 4, 3], [8, 2, 1], zero(T, 8 * 4 * 3))
// with: T=int
// with: T=float
// bug WIDTH: pair (a % 8 + a // 8 % 4 * 4 == b % 8 + b // 8 % 4 * 4) and a // 32 == b // 32
// bug DEPTH: pair a % 32 == b % 32
__kernel void planes(__global T* out)
{
    const int x = get_global_id(0);
    const int y = get_global_id(1);
    const int z = get_global_id(2);
#if defined WIDTH
    out[z * 32 + y * 4 + x] = x + 10 * y; // fault WIDTH: race
#elif defined DEPTH
    out[y * 8 + x] = z; // fault DEPTH: race
#else
    out[z * 32 + y * 8 + x] = z;
#endif
}
