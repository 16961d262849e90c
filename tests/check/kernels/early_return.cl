// launch: {"global": [500], "local": [250], "args": [{"buffer": {"type": "int", "count": 500, "fill": "zero"}}]}
__kernel void early_return(__global int* out)
{
    const int lid = get_local_id(0);
    out[get_global_id(0)] = lid;
#ifndef REPAIRED
    if (lid >= 240)
        return;
#endif
    barrier(CLK_GLOBAL_MEM_FENCE); // fault: barrier
    out[get_global_id(0)] += 1;
}
