// launch: {"global": [64], "local": [32], "args": [{"buffer": {"type": "int", "count": 64, "fill": "zero"}}]}
// items: 20 52
__kernel void barrier_in_a_branch(__global int* out)
{
    const int lid = get_local_id(0);
    out[get_global_id(0)] = lid;
#ifndef REPAIRED
    if (lid < 20)
#endif
        barrier(CLK_GLOBAL_MEM_FENCE); // fault: barrier
}
