// launch: {"global": [64], "local": [16], "args": [{"buffer": {"type": "int", "count": 65, "fill": "zero"}}, {"buffer": {"type": "int", "count": 64, "fill": "zero"}}]}
__kernel void border_between_groups(__global int* data, __global int* out)
{
    const int id = get_global_id(0);
    data[id] = id; // fault: race
    barrier(CLK_GLOBAL_MEM_FENCE);
    int next = 0;
#ifdef REPAIRED
    if (get_local_id(0) + 1 < get_local_size(0))
#endif
        next = data[id + 1]; // fault: race
    out[id] = next;
}
