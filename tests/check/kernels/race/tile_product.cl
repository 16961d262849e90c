// Product of matrices of S times W words, a tile of S by S at a time.
// launch: run([S, S], [S, S], iota(T, S * W), iota(T, S * W), zero(T, S * S))
// with: T=int S=8 W=32
// with: T=float S=4 W=8
// with: T=double S=16 W=32
// bug NO_BARRIER_BEFORE: pair a // S == b // S or a % S == b % S
// bug NO_BARRIER_BEHIND: pair a // S == b // S or a % S == b % S
__kernel void tile_product(__global const T* a, __global const T* b, __global T* c)
{
    __local T left[S * S];
    __local T right[S * S];
    const int x = get_local_id(0);
    const int y = get_local_id(1);
    T sum = 0;
    for (int n = 0; n < W; n += S)
    {
        left[y * S + x] = a[y * W + n + x]; right[y * S + x] = b[(n + y) * S + x]; // fault: race
#ifndef NO_BARRIER_BEFORE
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
        for (int k = 0; k < S; ++k)
            sum += left[y * S + k] * right[k * S + x]; // fault: race
#ifndef NO_BARRIER_BEHIND
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
    }
    c[y * S + x] = sum;
}
