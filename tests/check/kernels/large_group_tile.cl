// launch: {"global": [1024], "local": [256], "args": [{"buffer": {"type": "int", "count": 1024, "fill": "zero"}}]}
__kernel void large_group_tile(__global int* data)
{
    __local int tile[256];
    const int lid = get_local_id(0);
    tile[lid] = data[get_global_id(0)]; // fault: race
#ifdef REPAIRED
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    data[get_global_id(0)] = tile[255 - lid]; // fault: race
}
