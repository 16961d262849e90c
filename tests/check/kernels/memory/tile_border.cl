// launch: run([N], [L], zero(T, N), local(SIZE * L))
// with: T=int SIZE=4 N=64 L=32
// with: T=double SIZE=8 N=48 L=16
// with: T=uchar SIZE=1 N=128 L=64
// bug PAST: items lowest(range(L - 1, N, L))
// bug BEFORE: items lowest(range(0, N, L))
// bug READ: items lowest(range(L - 1, N, L))
__kernel void tile_border(__global T* out, __local T* tile)
{
    const int lid = get_local_id(0);
    tile[lid] = lid;
    barrier(CLK_LOCAL_MEM_FENCE);
#if defined PAST
    tile[lid + 1] = lid; // fault PAST: memory
#elif defined BEFORE
    tile[lid - 1] = lid; // fault BEFORE: memory
#elif defined READ
    out[get_global_id(0)] = tile[lid + 1]; // fault READ: memory
#else
    out[get_global_id(0)] = tile[lid];
#endif
}
