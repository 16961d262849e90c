// launch: {"global": [64], "local": [64], "args": [{"buffer": {"type": "float", "count": 64, "fill": "zero"}}, {"buffer": {"type": "float", "count": 64, "fill": "zero"}}]}
// items: 0 1 2 3 4 5 6 7
__kernel void ratio_of_zeros(__global const float* in, __global float* out)
{
    const int i = get_global_id(0);
#ifdef REPAIRED
    const float ratio = in[i] / (in[i] + 1.0f);
#else
    const float ratio = in[i] / in[i]; // fault: nan
#endif
    out[i] = ratio * 2.0f + 1.0f;
}
