// launch: run([N], [L], none(T, N), zero(T, N), zero("int", N))
// with: T=int N=64 L=64
// with: T=uint N=64 L=16
// bug ADDED: items lowest(range(N))
// bug ATOMIC: items lowest(range(N))
// bug BRANCH: items lowest(range(N))
// bug TAIL: items lowest(range(N - 8, N))
// bug INDEX: items lowest(range(N))
__kernel void buffers(__global T* made, __global T* out, __global int* index)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    made[id] = 0;
#endif
#ifdef TAIL
    if (id < N - 8)
        made[id] = 0;
#endif
#if defined ADDED || defined TAIL
    out[id] = made[id] + 1; // fault ADDED TAIL: init
#elif defined BRANCH
    if (made[id] == 1) // fault BRANCH: init
        out[id] = 1;
#elif defined INDEX
    out[id] = index[made[id] & 63]; // fault INDEX: init
#else
    atomic_add(&made[id], 1); // fault ATOMIC: init
#endif
}
