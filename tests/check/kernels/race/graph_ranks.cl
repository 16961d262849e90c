// Vertices give to their neighbours in a ring, where they should take from them.
// launch: run([N], [L], zero(T, N), zero(T, N))
// with: T=float N=64 L=64
// with: T=double N=64 L=32
// with: T=int N=130 L=65
// bug PUSH: pair b == a + 2 or b == a + N - 2
// bug IN_PLACE: pair b == a + 1 or b == a + N - 1
__kernel void graph_ranks(__global T* ranks, __global T* next)
{
    const int v = get_global_id(0);
    const int before = (v + N - 1) % N;
    const int after = (v + 1) % N;
#if defined PUSH
    next[after] += ranks[v] / 2; next[before] += ranks[v] / 2; // fault PUSH: race
#elif defined IN_PLACE
    ranks[v] = (ranks[before] + ranks[after]) / 2; // fault IN_PLACE: race
#else
    next[v] = (ranks[before] + ranks[after]) / 2;
#endif
}
