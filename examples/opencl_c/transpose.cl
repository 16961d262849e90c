// Transposition of a matrix of any size through a padded tile.

#define TILE 16

__kernel void transpose(__global const int* in, __global int* out, uint width, uint height, uint offset)
{
    __local int tile[TILE * (TILE + 1)];
    uint x = get_global_id(0), y = get_global_id(1);
    if (x < width && y < height)
        tile[get_local_id(1) * (TILE + 1) + get_local_id(0)] = in[offset + y * width + x];
    barrier(CLK_LOCAL_MEM_FENCE);
    x = get_group_id(1) * TILE + get_local_id(0);
    y = get_group_id(0) * TILE + get_local_id(1);
    if (x < height && y < width)
        out[y * height + x] = tile[get_local_id(0) * (TILE + 1) + get_local_id(1)];
}
