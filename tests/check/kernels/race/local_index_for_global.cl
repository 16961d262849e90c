// launch: run([N], [L], zero(T, N))
// with: T=int N=64 L=16
// with: T=uchar N=512 L=256
// with: T=double N=21 L=7
// bug: pair a % L == b % L
__kernel void local_index_for_global(__global T* out)
{
#ifdef REPAIRED
    const int id = get_global_id(0);
#else
    const int id = get_local_id(0);
#endif
    out[id] = get_group_id(0) + 1; // fault: race
}
