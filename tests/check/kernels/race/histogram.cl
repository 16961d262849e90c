// launch: run([N], [L], iota(T, N), zero("uint", B))
// with: T=uint N=256 L=64 B=4
// with: T=uchar N=256 L=128 B=16
// with: T=ulong N=96 L=32 B=8
// bug PLAIN: pair a // L == b // L and a % B == b % B
// bug NO_BARRIER_BEFORE: pair a // L == b // L and a % L % B == b % L % B
// bug NO_BARRIER_BEHIND: pair a // L == b // L and a % L % B == b % L % B
// bug PLAIN_BETWEEN_GROUPS: pair a // L != b // L and a % L == b % L
__kernel void histogram(__global const T* values, __global uint* bins)
{
    __local uint part[B];
    const uint lid = get_local_id(0);
    if (lid < B)
        part[lid] = 0; // fault NO_BARRIER_BEFORE: race
#ifndef NO_BARRIER_BEFORE
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    const uint bin = values[get_global_id(0)] % B;
#ifdef PLAIN
    part[bin] += 1; // fault PLAIN: race
#else
    atomic_inc(&part[bin]); // fault NO_BARRIER_BEFORE NO_BARRIER_BEHIND: race
#endif
#ifndef NO_BARRIER_BEHIND
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    if (lid < B)
    {
#ifdef PLAIN_BETWEEN_GROUPS
        bins[lid] += part[lid]; // fault PLAIN_BETWEEN_GROUPS: race
#else
        atomic_add(&bins[lid], part[lid]); // fault NO_BARRIER_BEHIND: race
#endif
    }
}
