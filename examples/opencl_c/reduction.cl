// Sum, least and largest of an array, the last step by atomics on integers.

__kernel void reduce(__global const int* in, uint n, __local int4* scratch, __global volatile int* result)
{
    int4 mine = (int4)(0, INT_MAX, INT_MIN, 0);
    for (size_t i = get_global_id(0); i < n; i += get_global_size(0))
    {
        const int v = in[i];
        mine.x += v;
        mine.y = min(mine.y, v);
        mine.z = max(mine.z, v);
        mine.w += popcount(v);
    }
    const size_t lid = get_local_id(0);
    scratch[lid] = mine;
    for (size_t s = get_local_size(0) / 2; s > 0; s /= 2)
    {
        barrier(CLK_LOCAL_MEM_FENCE);
        if (lid < s)
        {
            const int4 other = scratch[lid + s];
            scratch[lid].xw += other.xw;
            scratch[lid].y = min(scratch[lid].y, other.y);
            scratch[lid].z = max(scratch[lid].z, other.z);
        }
    }
    if (lid == 0)
    {
        atomic_add(result, scratch[0].x);
        atomic_min(result + 1, scratch[0].y);
        atomic_max(result + 2, scratch[0].z);
        atomic_add(result + 3, scratch[0].w);
    }
}
