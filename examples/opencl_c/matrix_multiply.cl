// Product of matrices with tiles in local memory.

#ifndef TILE
#define TILE 8
#endif

__kernel __attribute__((reqd_work_group_size(TILE, TILE, 1))) void
matrix_multiply(__global const float* a, __global const float* b, __global float* c, int n, int k)
{
    __local float tile_a[TILE][TILE];
    __local float tile_b[TILE][TILE + 1];
    const int lx = get_local_id(0), ly = get_local_id(1);
    const int row = get_global_id(1), column = get_global_id(0);
    float sum = 0.0f;
    for (int t = 0; t < k; t += TILE)
    {
        tile_a[ly][lx] = a[row * k + t + lx];
        tile_b[ly][lx] = b[(t + ly) * n + column];
        barrier(CLK_LOCAL_MEM_FENCE);
#pragma unroll
        for (int i = 0; i < TILE; ++i)
            sum += tile_a[ly][i] * tile_b[i][lx];
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    c[row * n + column] = sum;
}
