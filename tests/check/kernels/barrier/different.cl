// Two barriers, of which each has some of a group.
// launch: run([N], [L], zero("int", N))
// with: N=64 L=32
// with: N=256 L=128
// bug: items lowest(range(L // 2, N, L))
__kernel void different(__global int* out)
{
    const int lid = get_local_id(0);
#ifdef REPAIRED
    barrier(CLK_GLOBAL_MEM_FENCE);
    out[get_global_id(0)] = lid < L / 2;
#else
    if (lid < L / 2)
    {
        out[get_global_id(0)] = 1;
        barrier(CLK_GLOBAL_MEM_FENCE); // fault: barrier
    }
    else
        barrier(CLK_GLOBAL_MEM_FENCE); // any fault: barrier
#endif
}
