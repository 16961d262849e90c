// launch: {"global": [64], "local": [64], "args": [{"buffer": {"type": "int", "count": 64, "fill": "none"}}]}
// items: 0
__kernel void sum_never_started(__global int* out)
{
#ifdef REPAIRED
    int sum = 0;
#else
    int sum;
#endif
    for (int n = 0; n < (int)get_global_id(0); ++n)
        sum = n;
    out[get_global_id(0)] = sum; // fault: init
}
