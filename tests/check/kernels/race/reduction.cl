// launch: run([N], [L], zero(T, N), zero(T, N // L), local(SIZE * L))
// with: T=int SIZE=4 N=128 L=64
// with: T=float SIZE=4 N=256 L=128
// with: T=long SIZE=8 N=96 L=32
// with: T=short SIZE=2 N=64 L=64
// bug NO_BARRIER_IN_LOOP: pair a // L == b // L and b - a in (1, 2, 4, 8, 16, 32) and a % L < b - a
// bug NO_BARRIER_BEFORE: pair b == a + L // 2
// bug TOO_MANY: pair a % L == 0 and b - a in (1, 2, 4, 8, 16, 32)
__kernel void reduction(__global const T* in, __global T* out, __local T* sums)
{
    const int lid = get_local_id(0);
    sums[lid] = in[get_global_id(0)]; // fault NO_BARRIER_BEFORE: race
#ifndef NO_BARRIER_BEFORE
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    for (int part = L / 2; part > 0; part /= 2)
    {
#ifdef TOO_MANY
        if (lid <= part && lid + part < L)
#else
        if (lid < part)
#endif
            sums[lid] += sums[lid + part]; // fault: race
#ifndef NO_BARRIER_IN_LOOP
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
    }
    if (lid == 0)
        out[get_group_id(0)] = sums[0];
}
