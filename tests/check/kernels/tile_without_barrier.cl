// launch: {"global": [64], "local": [32], "args": [{"buffer": {"type": "int", "count": 64, "fill": "zero"}}, {"buffer": {"type": "int", "count": 64, "fill": "zero"}}]}
__kernel void tile_without_barrier(__global const int* in, __global int* out)
{
    __local int tile[32];
    const int lid = get_local_id(0);
    tile[lid] = in[get_global_id(0)]; // fault: race
#ifdef REPAIRED
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    out[get_global_id(0)] = tile[31 - lid]; // fault: race
}
