// The last steps of a reduction, in the belief that work-items of a wave keep in step.
// launch: run([N], [L], zero("int", N), zero("int", N // L), local(4 * L))
// with: N=256 L=128
// with: N=64 L=64
// bug: pair a // L == b // L and b - a in (1, 2, 4, 8, 16) and a % L < 32 and b % L < 64
__kernel void reduction_last_wave(__global const int* in, __global int* out, __local int* sums)
{
    const int lid = get_local_id(0);
    sums[lid] = in[get_global_id(0)];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int part = L / 2; part > 32; part /= 2)
    {
        if (lid < part)
            sums[lid] += sums[lid + part];
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    for (int part = 32; part > 0; part /= 2)
    {
        if (lid < part)
            sums[lid] += sums[lid + part]; // fault: race
#ifdef REPAIRED
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
    }
    if (lid == 0)
        out[get_group_id(0)] = sums[0];
}
