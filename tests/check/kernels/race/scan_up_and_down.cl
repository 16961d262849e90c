// A tree of sums, up and down again.
// launch: run([N], [L], iota(T, N), local(SIZE * L))
// with: T=uint SIZE=4 N=128 L=64
// with: T=long SIZE=8 N=64 L=32
// with: T=float SIZE=4 N=128 L=128
// bug UP: pair a // L == b // L and a % L in (0, b % L // 2, b % L * 2)
// bug DOWN: pair a // L == b // L
__kernel void scan_up_and_down(__global T* data, __local T* sums)
{
    const int lid = get_local_id(0);
    sums[lid] = data[get_global_id(0)];
    int step = 1;
    for (int active = L / 2; active > 0; active /= 2, step *= 2)
    {
#ifdef UP
        if (step == 1)
#endif
            barrier(CLK_LOCAL_MEM_FENCE);
        if (lid < active)
            sums[step * (2 * lid + 2) - 1] += sums[step * (2 * lid + 1) - 1]; // fault UP: race
    }
    barrier(CLK_LOCAL_MEM_FENCE);
    if (lid == 0)
        sums[L - 1] = 0;
    for (int active = 1; active < L; active *= 2)
    {
        step /= 2;
#ifdef DOWN
        if (active == 1)
#endif
            barrier(CLK_LOCAL_MEM_FENCE);
        __local T* left = &sums[step * (2 * lid + 1) - 1];
        __local T* right = &sums[step * (2 * lid + 2) - 1];
        if (lid < active) { const T kept = *left; *left = *right; *right += kept; } // fault DOWN: race
    }
    barrier(CLK_LOCAL_MEM_FENCE);
    data[get_global_id(0)] = sums[lid];
}
