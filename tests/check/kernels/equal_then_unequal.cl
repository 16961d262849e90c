// launch: {"global": [8], "local": [8], "args": [{"buffer": {"type": "int", "count": 8, "fill": "zero"}}]}
// unequal
__kernel void equal_then_unequal(__global int* out)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    out[id] = id / 7;
#else
    out[0] = id / 7; // fault: race
#endif
}
