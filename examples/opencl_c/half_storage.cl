// Data kept as half precision, computed in single.

__kernel void blend(__global const half* a, __global const half* b, __global half* out, float t)
{
    const size_t i = get_global_id(0);
    const float4 x = vload_half4(i, a);
    const float4 y = vload_half4(i, b);
    vstore_half4_rtz(mix(x, y, t), i, out);
}

__kernel void normalise(__global half* data, __global const float* scale, uint n)
{
    for (uint i = get_global_id(0); i < n; i += get_global_size(0))
        vstore_half_rte(vload_half(i, data) * scale[0], i, data);
}
