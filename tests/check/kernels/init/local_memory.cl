// Local memory of which something isn't written; FIRST_GROUP is right in the first group.
// launch: run([N], [L], iota(T, N), zero(T, N))
// with: T=int N=128 L=64
// with: T=float N=32 L=8
// with: T=uchar N=512 L=256
// bug SOME: items lowest(g * L + L - 1 for g in range(N // L))
// bug FIRST_GROUP: items lowest(range(L, N))
// bug LAST: items lowest(g * L + L - 2 for g in range(N // L))
__kernel void local_memory(__global const T* in, __global T* out)
{
    __local T tile[L];
    const int lid = get_local_id(0);
#if defined SOME
    if (lid > 0)
#elif defined FIRST_GROUP
    if (get_group_id(0) == 0)
#elif defined LAST
    if (lid + 1 < (int)get_local_size(0))
#endif
        tile[lid] = in[get_global_id(0)];
    barrier(CLK_LOCAL_MEM_FENCE);
    out[get_global_id(0)] = tile[(lid + 1) % L]; // fault: init
}
