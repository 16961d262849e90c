// launch: {"global": [32], "local": [32], "args": [{"buffer": {"type": "int", "count": 32, "fill": "zero"}}, {"local": 128}]}
__kernel void scan_off_by_one(__global int* data, __local int* sums)
{
    const int lid = get_local_id(0);
    sums[lid] = data[lid];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int step = 1; step < 32; step *= 2)
    {
        int left = 0;
        if (lid >= step)
            left = sums[lid - step]; // fault: race
#ifdef REPAIRED
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
        sums[lid] += left; // fault: race
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    data[lid] = sums[lid];
}
