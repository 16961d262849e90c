// Joins trees: each edge hangs the larger root under the smaller one.
// launch: run([N], [L], iota("int", N + 1))
// with: N=64 L=64
// with: N=256 L=64
// bug PLAIN: pair a // 4 == b // 4
__kernel void graph_components(__global int* parent)
{
    const int e = get_global_id(0);
    const int u = e / 4;
    const int v = e / 4 + 1;
    if (e % 4 < 3)
    {
#ifdef PLAIN
        parent[max(u, v)] = min(u, v) - e; // fault: race
#else
        atomic_min(&parent[max(u, v)], min(u, v));
#endif
    }
}
