// Barriers to which only some of a group come.
// launch: run([N], [L], zero("int", N))
// with: N=64 L=32
// with: N=500 L=250
// with: N=40 L=8
// bug BRANCH: items lowest(range(5, N, L))
// bug RETURN: items lowest(range(6, N, L))
// bug LOOP: items lowest(range(0, N, L))
// bug SWITCH: items lowest(range(1, N, L))
// bug LAST: items lowest(range(L - 1, N, L))
__kernel void partial(__global int* out)
{
    const int lid = get_local_id(0);
    out[get_global_id(0)] = lid;
#if defined BRANCH
    if (lid < 5)
        barrier(CLK_GLOBAL_MEM_FENCE); // fault BRANCH: barrier
#elif defined RETURN
    if (lid >= 6)
        return;
    barrier(CLK_GLOBAL_MEM_FENCE); // fault RETURN: barrier
#elif defined LOOP
    for (int n = 0; n < lid % 4; ++n)
        barrier(CLK_GLOBAL_MEM_FENCE); // fault LOOP: barrier
#elif defined SWITCH
    switch (lid % 3)
    {
    case 0:
        barrier(CLK_GLOBAL_MEM_FENCE); // fault SWITCH: barrier
        break;
    default:
        out[get_global_id(0)] = 1;
    }
#elif defined LAST
    if (lid + 1 < L)
        barrier(CLK_GLOBAL_MEM_FENCE); // fault LAST: barrier
#else
    barrier(CLK_GLOBAL_MEM_FENCE);
#endif
    out[get_global_id(0)] += 1;
}
