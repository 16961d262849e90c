// The weighted mean of each group of values.
__kernel void means(__global const float* values, __global const float* weights, __global float* out,
                    __local float* sums, __local float* parts)
{
    const int id = get_global_id(0);
    const int lid = get_local_id(0);
    sums[lid] = values[id + 1] * weights[id];
    if (lid > 0)
        parts[lid] = weights[id];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int s = get_local_size(0) / 2; s > 0; s /= 2)
    {
        if (lid < s)
            sums[lid] += sums[lid + s];
    }
    barrier(CLK_LOCAL_MEM_FENCE);
    if (lid == 0)
    {
        float weight = 0;
        for (int n = 0; n < (int)get_local_size(0); ++n)
            weight += parts[n];
        out[get_group_id(0)] = sums[0] / weight;
    }
}
