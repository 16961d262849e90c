// One pass of a radix sort by four bits: count, scan by the host or one group, scatter in order.

#define BITS 4
#define RADIX (1 << BITS)

__kernel void count_digits(__global const uint* keys, __global uint* counts, __local uint* hist, uint shift, uint n)
{
    const uint lid = get_local_id(0);
    for (uint d = lid; d < RADIX; d += get_local_size(0))
        hist[d] = 0;
    barrier(CLK_LOCAL_MEM_FENCE);
    const uint i = get_global_id(0);
    if (i < n)
        atomic_inc(&hist[(keys[i] >> shift) & (RADIX - 1)]);
    barrier(CLK_LOCAL_MEM_FENCE);
    for (uint d = lid; d < RADIX; d += get_local_size(0))
        counts[d * get_num_groups(0) + get_group_id(0)] = hist[d];
}

__kernel void scan_counts(__global uint* counts, uint n)
{
    if (get_global_id(0) != 0)
        return;
    uint sum = 0;
    for (uint i = 0; i < n; ++i)
    {
        const uint c = counts[i];
        counts[i] = sum;
        sum += c;
    }
}

__kernel void scatter(__global const uint* keys, __global const uint* values, __global uint* keys_out,
                      __global uint* values_out, __global const uint* offsets, __local uchar* digits, uint shift,
                      uint n)
{
    const uint lid = get_local_id(0);
    const uint i = get_global_id(0);
    const uchar digit = i < n ? (uchar)((keys[i] >> shift) & (RADIX - 1)) : (uchar)RADIX;
    digits[lid] = digit;
    barrier(CLK_LOCAL_MEM_FENCE);
    if (i >= n)
        return;
    uint rank = 0;
    for (uint j = 0; j < lid; ++j)
        rank += digits[j] == digit;
    const uint to = offsets[digit * get_num_groups(0) + get_group_id(0)] + rank;
    keys_out[to] = keys[i];
    values_out[to] = values[i];
}
