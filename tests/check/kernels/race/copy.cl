// launch: run([N], [L], iota(T, N), zero(T, N))
// with: T=int N=64 L=32
// with: T=float N=128 L=128
// bug: pair a // L == b // L
__kernel void copy(__global const T* in, __global T* out)
{
    __local T part[L];
    event_t done = async_work_group_copy(part, in + get_group_id(0) * L, L, 0); // fault: race
#ifdef REPAIRED
    wait_group_events(1, &done);
#endif
    out[get_global_id(0)] = part[L - 1 - get_local_id(0)]; // fault: race
}
