// launch: run([N], [L], iota("int", N), zero("int", N // L))
// with: N=64 L=32
// with: N=256 L=128
// bug ATOMIC: items lowest(g * L for g in range(N // L))
// bug TAIL: items lowest(g * L for g in range(N // L))
__kernel void local_sums(__global const int* in, __global int* out)
{
    __local int sum;
    __local int parts[L];
    const int lid = get_local_id(0);
#ifndef ATOMIC
    if (lid == 0)
        sum = 0;
#endif
#ifdef TAIL
    if (lid < L - 3)
#endif
        parts[lid] = in[get_global_id(0)];
    barrier(CLK_LOCAL_MEM_FENCE);
    atomic_add(&sum, in[get_global_id(0)]); // fault ATOMIC: init
    barrier(CLK_LOCAL_MEM_FENCE);
    if (lid == 0)
    {
        int all = 0;
        for (int n = 0; n < L; ++n)
            all += parts[n];
        out[get_group_id(0)] = all + sum; // fault TAIL: init
    }
}
