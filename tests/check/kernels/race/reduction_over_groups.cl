// Groups leave their sums to one that adds them, which doesn't wait for them.
// launch: run([N], [L], iota("int", N), zero("int", N // L), zero("int", 1))
// with: N=128 L=32
// with: N=512 L=128
// bug: pair a % L == 0 and b == a + L * (b // L - a // L) and b > a
__kernel void reduction_over_groups(__global const int* in, __global int* sums, __global int* total)
{
    __local int sum;
    if (get_local_id(0) == 0)
        sum = 0;
    barrier(CLK_LOCAL_MEM_FENCE);
    atomic_add(&sum, in[get_global_id(0)]);
    barrier(CLK_LOCAL_MEM_FENCE);
    const int group = get_group_id(0);
    if (get_local_id(0) == 0)
        sums[group] = sum; // fault: race
#ifndef REPAIRED
    if (group == 0 && get_local_id(0) == 0)
    {
        for (int n = 1; n < N / L; ++n)
            *total += sums[n]; // fault: race
    }
#endif
}
