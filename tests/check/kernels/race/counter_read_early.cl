// launch: run([N], [L], zero("int", N // L))
// with: N=64 L=16
// with: N=256 L=256
// bug: pair a // L == b // L and a % L == 0
__kernel void counter_read_early(__global int* out)
{
    __local int count;
    if (get_local_id(0) == 0)
        count = 0;
    barrier(CLK_LOCAL_MEM_FENCE);
    atomic_add(&count, 2); // fault: race
#ifdef REPAIRED
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    if (get_local_id(0) == 0)
        out[get_group_id(0)] = count; // fault: race
}
