// launch: {"global": [40], "local": [8], "args": [{"buffer": {"type": "float", "count": 40, "fill": "zero"}}, {"buffer": {"type": "float", "count": 40, "fill": "zero"}}]}
// items: 0
__kernel void read_before_start(__global const float* in, __global float* out)
{
    const int id = get_global_id(0);
    float left = 0;
#ifdef REPAIRED
    if (id > 0)
#endif
        left = in[id - 1]; // fault: memory
    out[id] = left + in[id];
}
