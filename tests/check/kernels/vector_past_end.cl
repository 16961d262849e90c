// launch: {"global": [17], "local": [17], "args": [{"buffer": {"type": "float", "count": 64, "fill": "zero"}}]}
// items: 16
__kernel void vector_past_end(__global float4* out)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    if (id < 16)
#endif
        out[id] = (float4)(1.0f, 2.0f, 3.0f, 4.0f); // fault: memory
}
