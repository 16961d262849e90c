// launch: {"global": [128], "local": [64], "args": [{"buffer": {"type": "int", "count": 128, "fill": "zero"}}, {"buffer": {"type": "int", "count": 2, "fill": "zero"}}, {"local": 256}]}
__kernel void reduction_without_barrier(__global const int* in, __global int* out, __local int* sums)
{
    const int lid = get_local_id(0);
    sums[lid] = in[get_global_id(0)];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int part = get_local_size(0) / 2; part > 0; part /= 2)
    {
        if (lid < part)
            sums[lid] += sums[lid + part]; // fault: race
#ifdef REPAIRED
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
    }
    if (lid == 0)
        out[get_group_id(0)] = sums[0];
}
