// launch: {"global": [64], "local": [64], "args": [{"buffer": {"type": "int", "count": 1, "fill": "zero"}}]}
// equal
__kernel void graph_flag_of_one_value(__global int* changed)
{
#ifdef REPAIRED
    atomic_or(changed, 1);
#else
    *changed = 1; // fault: race
#endif
}
