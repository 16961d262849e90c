// One step of k-means in three dimensions: assignment, then sums by atomics in fixed point.

#define SCALE 1024.0f

__kernel void assign(__global const float3* points, __global const float3* centres, __global int* cluster, int k)
{
    const size_t i = get_global_id(0);
    const float3 p = points[i];
    int best = 0;
    float best_distance = FLT_MAX;
    for (int c = 0; c < k; ++c)
    {
        const float3 d = p - centres[c];
        const float distance = dot(d, d);
        if (distance < best_distance)
        {
            best_distance = distance;
            best = c;
        }
    }
    cluster[i] = best;
}

__kernel void accumulate(__global const float3* points, __global const int* cluster, __global int* sums,
                         __global uint* counts)
{
    const size_t i = get_global_id(0);
    const int c = cluster[i];
    const int3 fixed = convert_int3_rte(points[i] * SCALE);
    atomic_add(&sums[3 * c], fixed.x);
    atomic_add(&sums[3 * c + 1], fixed.y);
    atomic_add(&sums[3 * c + 2], fixed.z);
    atomic_inc(&counts[c]);
}

__kernel void update(__global float3* centres, __global const int* sums, __global const uint* counts)
{
    const size_t c = get_global_id(0);
    if (counts[c] > 0)
        centres[c] = convert_float3(vload3(c, sums)) / (SCALE * (float)counts[c]);
}
