// launch: {"global": [64], "local": [16], "args": [{"buffer": {"type": "int", "count": 64, "fill": "zero"}}]}
// items: 63
__kernel void write_past_end(__global int* out)
{
    const size_t id = get_global_id(0);
#ifdef REPAIRED
    out[id] = 7;
#else
    out[id + 1] = 7; // fault: memory
#endif
}
