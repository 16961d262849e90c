// launch: run([N], [L], iota(T, N), zero(T, N))
// with: T=int N=64 L=16
// with: T=float N=256 L=128
// with: T=uchar N=64 L=64
// bug NO_BARRIER: pair a % L == 0 and b // L == a // L
// bug TWO: unequal, pair a % L == 0 and b == a + 1
// bug TWO_EQUAL: equal, pair a % L == 0 and b == a + 1
__kernel void leader(__global const T* in, __global T* out)
{
    __local T chosen;
    const int lid = get_local_id(0);
#if defined TWO
    if (lid < 2)
        chosen = in[get_global_id(0)]; // fault TWO: race
#elif defined TWO_EQUAL
    if (lid < 2)
        chosen = in[get_group_id(0)]; // fault TWO_EQUAL: race
#else
    if (lid == 0)
        chosen = in[get_global_id(0)]; // fault NO_BARRIER: race
#endif
#ifndef NO_BARRIER
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    out[get_global_id(0)] = chosen; // fault NO_BARRIER: race
}
