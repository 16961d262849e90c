// Shorter ways along edges: edge e leads from vertex e to vertex e * 3 modulo V.
// launch: run([N], [L], filled(T, V, 9), filled(T, V, 9))
// with: T=int N=64 L=32 V=64
// with: T=uint N=192 L=64 V=64
// bug PLAIN: pair a * 3 % V // 2 == b * 3 % V // 2
// bug IN_PLACE: pair a * 3 % V == b % V or b * 3 % V == a % V
__kernel void graph_relax(__global T* distance, __global T* next)
{
    const int e = get_global_id(0);
    const int to = e * 3 % V;
    const int from = e % V;
#if defined IN_PLACE
    atomic_min(&distance[to], distance[from] + 1); // fault IN_PLACE: race
#elif defined PLAIN
    next[to / 2] = min(next[to / 2], distance[from] + 1); // fault PLAIN: race
#else
    atomic_min(&next[to], distance[from] + 1);
#endif
}
