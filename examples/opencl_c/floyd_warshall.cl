// Shortest ways between all pairs, a launch for each intermediate node.

__kernel void floyd_warshall(__global uint* distance, __global uint* via, const uint n, const uint k)
{
    const uint x = get_global_id(0);
    const uint y = get_global_id(1);
    const uint old = distance[y * n + x];
    const uint way = add_sat(distance[y * n + k], distance[k * n + x]);
    if (way < old)
    {
        distance[y * n + x] = way;
        via[y * n + x] = k;
    }
}
