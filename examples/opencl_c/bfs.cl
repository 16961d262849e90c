// Breadth-first search, a level a launch, with a queue that grows by an atomic counter.

typedef struct
{
    int first_edge;
    int edge_count;
} node_t;

__kernel void bfs_level(__global const node_t* nodes, __global const int* edges, __global volatile int* levels,
                        __global const int* frontier, int frontier_size, __global int* next,
                        __global volatile int* next_size, int level)
{
    const int tid = get_global_id(0);
    if (tid >= frontier_size)
        return;
    const node_t node = nodes[frontier[tid]];
    for (int e = node.first_edge; e < node.first_edge + node.edge_count; e++)
    {
        const int to = edges[e];
        if (levels[to] != -1)
            continue;
        if (atomic_cmpxchg(&levels[to], -1, level + 1) == -1)
        {
            const int slot = atomic_inc(next_size);
            next[slot] = to;
        }
    }
}
