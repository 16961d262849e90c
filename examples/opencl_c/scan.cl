// Exclusive prefix sum, work-efficient: up-sweep and down-sweep in local memory, two elements a work-item.

__kernel void scan_blocks(__global const uint* in, __global uint* out, __global uint* sums, __local uint* temp, uint n)
{
    const uint lid = get_local_id(0);
    const uint size = get_local_size(0) * 2;
    const uint base = get_group_id(0) * size;
    temp[2 * lid] = base + 2 * lid < n ? in[base + 2 * lid] : 0;
    temp[2 * lid + 1] = base + 2 * lid + 1 < n ? in[base + 2 * lid + 1] : 0;

    uint offset = 1;
    for (uint d = size >> 1; d > 0; d >>= 1)
    {
        barrier(CLK_LOCAL_MEM_FENCE);
        if (lid < d)
        {
            uint ai = offset * (2 * lid + 1) - 1;
            uint bi = offset * (2 * lid + 2) - 1;
            temp[bi] += temp[ai];
        }
        offset <<= 1;
    }
    if (lid == 0)
    {
        sums[get_group_id(0)] = temp[size - 1];
        temp[size - 1] = 0;
    }
    for (uint d = 1; d < size; d <<= 1)
    {
        offset >>= 1;
        barrier(CLK_LOCAL_MEM_FENCE);
        if (lid < d)
        {
            uint ai = offset * (2 * lid + 1) - 1;
            uint bi = offset * (2 * lid + 2) - 1;
            uint t = temp[ai];
            temp[ai] = temp[bi];
            temp[bi] += t;
        }
    }
    barrier(CLK_LOCAL_MEM_FENCE);
    if (base + 2 * lid < n)
        out[base + 2 * lid] = temp[2 * lid];
    if (base + 2 * lid + 1 < n)
        out[base + 2 * lid + 1] = temp[2 * lid + 1];
}

__kernel void add_sums(__global uint* out, __global const uint* offsets, uint n)
{
    const uint i = get_group_id(0) * get_local_size(0) * 2 + get_local_id(0);
    const uint add = offsets[get_group_id(0)];
    if (i < n)
        out[i] += add;
    if (i + get_local_size(0) < n)
        out[i + get_local_size(0)] += add;
}
