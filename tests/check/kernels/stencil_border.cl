// launch: {"global": [16, 8], "local": [8, 8], "args": [{"buffer": {"type": "float", "count": 128, "fill": "zero"}}, {"buffer": {"type": "float", "count": 128, "fill": "zero"}}]}
// items: 0 1 2 3 4 5 6 7
__kernel void stencil_border(__global const float* in, __global float* out)
{
    const int x = get_global_id(0);
    const int y = get_global_id(1);
    const int width = get_global_size(0);
#ifdef REPAIRED
    const int above = max(y - 1, 0);
#else
    const int above = y - 1;
#endif
    float sum = in[y * width + x];
    sum += in[above * width + x]; // fault: memory
    out[y * width + x] = sum;
}
