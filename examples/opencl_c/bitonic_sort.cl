// Bitonic sort of pairs inside one work-group, the comparison chosen by a macro.

typedef struct
{
    float key;
    int index;
} item_t;

#define BEFORE(a, b) ((a).key < (b).key || ((a).key == (b).key && (a).index < (b).index))

__kernel void bitonic_sort(__global item_t* items, __local item_t* tile)
{
    const int lid = (int)get_local_id(0);
    const int size = (int)get_local_size(0);
    const int base = (int)get_group_id(0) * size;
    tile[lid] = items[base + lid];
    barrier(CLK_LOCAL_MEM_FENCE);

    for (int length = 2; length <= size; length <<= 1)
    {
        for (int inc = length >> 1; inc > 0; inc >>= 1)
        {
            const int partner = lid ^ inc;
            const item_t mine = tile[lid];
            const item_t other = tile[partner];
            const bool up = (lid & length) == 0;
            const bool keep = up == ((lid < partner) == (bool)BEFORE(mine, other));
            barrier(CLK_LOCAL_MEM_FENCE);
            tile[lid] = keep ? mine : other;
            barrier(CLK_LOCAL_MEM_FENCE);
        }
    }
    items[base + lid] = tile[lid];
}
