// launch: run([N], [L], zero(T, N), zero(T, N))
// with: T=int N=64 L=32
// with: T=float N=1024 L=256
// with: T=char N=128 L=64
// with: T=double N=24 L=8
// bug NO_BARRIER: pair a // L == b // L and a % L + b % L == L - 1
// bug NEIGHBOUR: pair b == a + 1
// bug REUSED: pair a // L == b // L and a % L + b % L == L - 1
__kernel void tile(__global const T* in, __global T* out)
{
    __local T part[L + 1];
    const int lid = get_local_id(0);
    const int id = get_global_id(0);
#ifdef NEIGHBOUR
    part[lid] = part[lid + 1] = in[id] + lid; // fault NEIGHBOUR: race
#else
    part[lid] = in[id]; // fault NO_BARRIER: race
#endif
#ifndef NO_BARRIER
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    const T other = part[L - 1 - lid]; // fault NO_BARRIER REUSED: race
#ifdef REUSED
    part[lid] = other; // fault REUSED: race
#endif
    out[id] = other;
}
