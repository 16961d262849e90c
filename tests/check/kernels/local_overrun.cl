// launch: {"global": [64], "local": [32], "args": [{"buffer": {"type": "int", "count": 64, "fill": "zero"}}, {"local": 128}]}
// items: 31 63
__kernel void local_overrun(__global int* out, __local int* tile)
{
    const int lid = get_local_id(0);
#ifdef REPAIRED
    tile[lid] = lid;
#else
    tile[lid + 1] = lid; // fault: memory
    if (lid == 0)
        tile[0] = 0;
#endif
    barrier(CLK_LOCAL_MEM_FENCE);
    out[get_global_id(0)] = tile[lid];
}
