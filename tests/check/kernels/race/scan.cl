// launch: run([N], [L], iota(T, N), local(SIZE * L))
// with: T=int SIZE=4 N=32 L=32
// with: T=float SIZE=4 N=128 L=64
// with: T=ulong SIZE=8 N=256 L=256
// bug NO_BARRIER: pair a // L == b // L and b - a in (1, 2, 4, 8, 16, 32, 64, 128)
// bug OFF_BY_ONE: items lowest(g * L + 2 ** n - 1 for g in range(N // L) for n in range(8) if 2 ** n < L)
__kernel void scan(__global T* data, __local T* sums)
{
    const int lid = get_local_id(0);
    sums[lid] = data[get_global_id(0)];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int step = 1; step < L; step *= 2)
    {
        T left = 0;
#ifdef OFF_BY_ONE
        if (lid >= step - 1)
#else
        if (lid >= step)
#endif
            left = sums[lid - step]; // fault NO_BARRIER: race // fault OFF_BY_ONE: memory
#ifndef NO_BARRIER
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
        sums[lid] += left; // fault NO_BARRIER: race
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    data[get_global_id(0)] = sums[lid];
}
