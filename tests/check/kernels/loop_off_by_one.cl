// launch: {"global": [8], "local": [4], "args": [{"buffer": {"type": "int", "count": 80, "fill": "zero"}}, {"buffer": {"type": "int", "count": 8, "fill": "zero"}}]}
// items: 7
__kernel void loop_off_by_one(__global const int* rows, __global int* sums)
{
    const int id = get_global_id(0);
    int sum = 0;
#ifdef REPAIRED
    for (int n = 0; n < 10; ++n)
#else
    for (int n = 0; n <= 10; ++n)
#endif
        sum += rows[id * 10 + n]; // fault: memory
    sums[id] = sum;
}
