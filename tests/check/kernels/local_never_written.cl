// launch: {"global": [64], "local": [64], "args": [{"buffer": {"type": "int", "count": 64, "fill": "none"}}]}
// items: 63
__kernel void local_never_written(__global int* out)
{
    __local int tile[64];
    const int lid = get_local_id(0);
#ifndef REPAIRED
    if (lid > 0)
#endif
        tile[lid] = lid;
    barrier(CLK_LOCAL_MEM_FENCE);
    out[get_global_id(0)] = tile[(lid + 1) % 64]; // fault: init
}
