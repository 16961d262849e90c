// launch: run([N], [N], zero(T, N), zero("int", 1))
// with: T=int N=32
// with: T=uint N=64
// bug OUTSIDE: items [N - 1]
// bug LOCAL: items [N - 1]
// bug EXCHANGE: items [0]
__kernel void atomics(__global T* bins, __global int* spare)
{
    __local T part[N];
    const int id = get_global_id(0);
    part[id] = 0;
    barrier(CLK_LOCAL_MEM_FENCE);
#if defined OUTSIDE
    atomic_inc(&bins[id + 1]); // fault OUTSIDE: memory
#elif defined LOCAL
    atomic_inc(&part[id + 1]); // fault LOCAL: memory
#elif defined EXCHANGE
    atomic_cmpxchg(&bins[id - 1], 0, 1); // fault EXCHANGE: memory
#else
    atomic_inc(&part[id]);
#endif
}
