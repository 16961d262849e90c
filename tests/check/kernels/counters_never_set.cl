// launch: {"global": [64], "local": [64], "args": [{"buffer": {"type": "int", "count": 64, "fill": "none"}}]}
// items: 0 1 2 3 4 5 6 7
__kernel void counters_never_set(__global int* counters)
{
#ifdef REPAIRED
    counters[get_global_id(0)] = 0;
#endif
    atomic_inc(&counters[get_global_id(0)]); // fault: init
}
