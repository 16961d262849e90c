// A tile with a halo, over several steps of time.
// launch: run([N], [L], zero(T, N + 2))
// with: T=float N=64 L=32
// with: T=int N=256 L=256
// bug NO_BARRIER_BEFORE: pair b == a + 1
// bug NO_BARRIER_BETWEEN: pair b == a + 1
// bug NO_BARRIER_IN_LOOP: pair b == a + 1
// bug TWICE: equal, pair a % L == 0 and b == a + 1
__kernel void stencil_tile(__global T* data)
{
    __local T tile[L + 2];
    const int lid = get_local_id(0) + 1;
    const int id = get_group_id(0) * L + lid;
#ifdef TWICE
    if (lid <= 2)
#else
    if (lid == 1)
#endif
        tile[0] = tile[L + 1] = (T)0; // fault TWICE: race
    barrier(CLK_LOCAL_MEM_FENCE);
    tile[lid] = data[id]; // fault NO_BARRIER_BEFORE: race
#ifndef NO_BARRIER_BEFORE
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    for (int n = 0; n < 3; ++n)
    {
        const T sum = tile[lid - 1] + tile[lid + 1]; // fault NO_BARRIER_BEFORE NO_BARRIER_BETWEEN NO_BARRIER_IN_LOOP: race
#ifndef NO_BARRIER_BETWEEN
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
        tile[lid] = sum; // fault NO_BARRIER_BETWEEN NO_BARRIER_IN_LOOP: race
#ifndef NO_BARRIER_IN_LOOP
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
    }
    data[id] = tile[lid];
}
