// Cheapest way down a grid: several rows a launch, with halos in local memory.

__kernel void pathfinder(__global const int* wall, __global const int* from, __global int* to, int columns, int row,
                         int rows, int halo, __local int* previous, __local int* result)
{
    const int block = get_local_size(0);
    const int small = block - 2 * rows * halo;
    const int first = small * get_group_id(0) - rows * halo;
    const int tx = get_local_id(0);
    const int x = first + tx;
    const int low = max(0, -first);
    const int high = min(block - 1, columns - 1 - first);
    const bool valid = tx >= low && tx <= high;
    if (valid)
        previous[tx] = from[x];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int i = 0; i < rows; ++i)
    {
        const bool active = valid && tx >= i + 1 && tx <= block - i - 2;
        if (active)
        {
            const int west = max(tx - 1, low);
            const int east = min(tx + 1, high);
            const int shortest = min(min(previous[west], previous[tx]), previous[east]);
            result[tx] = shortest + wall[(row + i) * columns + x];
        }
        barrier(CLK_LOCAL_MEM_FENCE);
        if (active)
            previous[tx] = result[tx];
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    if (valid && tx >= rows * halo && tx < block - rows * halo)
        to[x] = previous[tx];
}
