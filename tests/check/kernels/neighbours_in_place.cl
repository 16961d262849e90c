// launch: {"global": [64], "local": [16], "args": [{"buffer": {"type": "float", "count": 65, "fill": "zero"}}, {"buffer": {"type": "float", "count": 65, "fill": "zero"}}]}
__kernel void neighbours_in_place(__global float* data, __global float* spare)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    spare[id] = data[id + 1];
#else
    data[id] = data[id + 1]; // fault: race
#endif
}
