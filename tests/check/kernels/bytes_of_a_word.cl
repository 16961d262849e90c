// launch: {"global": [64], "local": [16], "args": [{"buffer": {"type": "uchar", "count": 65, "fill": "zero"}}]}
__kernel void bytes_of_a_word(__global uchar* out)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    out[id] = id;
#else
    out[id - id % 2] = id; // fault: race
#endif
}
