// launch: {"global": [256], "local": [64], "args": [{"buffer": {"type": "uint", "count": 256, "fill": "zero"}}, {"buffer": {"type": "uint", "count": 4, "fill": "zero"}}]}
__kernel void histogram_without_atomics(__global const uint* values, __global uint* bins)
{
    const uint bin = values[get_global_id(0)] & 3;
#ifdef REPAIRED
    atomic_inc(&bins[bin]);
#else
    bins[bin] += 1; // fault: race
#endif
}
