// Breadth first, a level a launch: vertex v leads to v / 2 + H and to the next one.
// launch: run([N], [L], zero("int", 2 * N), zero("int", 2 * N), zero("int", 1))
// with: N=64 L=64 H=0
// with: N=128 L=32 H=64
// bug PLAIN_MARK: pair b == a + 1 and a % 2 == 0
// bug IN_PLACE: pair b // 2 + H == a or a // 2 + H == b
// bug PLAIN_FLAG: equal
__kernel void graph_levels(__global int* levels, __global int* next, __global int* changed)
{
    const int v = get_global_id(0);
    const int target = v / 2 + H;
#if defined PLAIN_MARK
    next[target] = levels[v] + v; // fault PLAIN_MARK: race
#elif defined IN_PLACE
    atomic_max(&levels[target], levels[v] + 1); // fault IN_PLACE: race
#else
    atomic_max(&next[target], levels[v] + 1);
#endif
#ifdef PLAIN_FLAG
    *changed = 1; // fault PLAIN_FLAG: race
#else
    atomic_xchg(changed, 1);
#endif
}
