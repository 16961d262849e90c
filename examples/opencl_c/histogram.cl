// Histogram of bytes: a table of a group in local memory, then added to the one of all.

__kernel void histogram(__global const uchar4* data, uint count, __global uint* bins)
{
    __local uint table[256];
    for (uint i = get_local_id(0); i < 256; i += get_local_size(0))
        table[i] = 0;
    barrier(CLK_LOCAL_MEM_FENCE);
    for (uint i = get_global_id(0); i < count; i += get_global_size(0))
    {
        const uchar4 v = data[i];
        atomic_inc(table + v.x);
        atomic_inc(table + v.y);
        atomic_inc(table + v.z);
        atomic_inc(table + v.w);
    }
    barrier(CLK_LOCAL_MEM_FENCE);
    for (uint i = get_local_id(0); i < 256; i += get_local_size(0))
        if (table[i])
            atomic_add(bins + i, table[i]);
}
