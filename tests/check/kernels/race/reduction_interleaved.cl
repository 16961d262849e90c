// launch: run([N], [L], iota(T, N), zero(T, N // L), local(SIZE * L))
// with: T=uint SIZE=4 N=64 L=32
// with: T=double SIZE=8 N=128 L=128
// with: T=char SIZE=1 N=128 L=64
// bug NO_BARRIER: pair a // L == b // L and b - a in (1, 2, 4, 8, 16, 32, 64) and (a % L) % (b - a) == 0
__kernel void reduction_interleaved(__global const T* in, __global T* out, __local T* sums)
{
    const int lid = get_local_id(0);
    sums[lid] = in[get_global_id(0)];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int step = 1; step < L; step *= 2)
    {
        if (lid % (2 * step) == 0)
            sums[lid] += sums[lid + step]; // fault: race
#ifdef REPAIRED
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
    }
    if (lid == 0)
        out[get_group_id(0)] = sums[0];
}
