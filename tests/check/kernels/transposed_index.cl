// launch: {"global": [8, 4], "local": [8, 1], "args": [{"buffer": {"type": "int", "count": 32, "fill": "zero"}}]}
__kernel void transposed_index(__global int* out)
{
    const int x = get_global_id(0);
    const int y = get_global_id(1);
#ifdef REPAIRED
    out[x * 4 + y] = x;
#else
    out[x * 8 + y] = x; // fault: memory
#endif
}
