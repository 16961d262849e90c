// launch: {"global": [4], "local": [4], "args": [{"buffer": {"type": "int", "count": 4, "fill": "zero"}}]}
__kernel void endless_loop(__global int* data)
{
    int value = data[get_global_id(0)];
#ifdef REPAIRED
    while (value < 3)
#else
    while (value != -1) // fault: barrier
#endif
        value = (value + 2) & 0xFFFF; // fault: barrier
    data[get_global_id(0)] = value;
}
