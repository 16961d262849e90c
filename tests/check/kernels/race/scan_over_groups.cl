// Each group adds to the sum that the group in front of it has left.
// launch: run([N], [L], iota(T, N), zero(T, N // L))
// with: T=int N=256 L=64
// with: T=float N=96 L=32
// bug: pair b == a + L and a % L == 0
__kernel void scan_over_groups(__global T* data, __global T* totals)
{
    const int group = get_group_id(0);
    if (get_local_id(0) == 0)
    {
        T sum = 0;
        for (int n = 0; n < L; ++n)
            sum += data[group * L + n];
#ifndef REPAIRED
        if (group > 0)
            sum += totals[group - 1]; // fault: race
#endif
        totals[group] = sum; // fault: race
    }
}
