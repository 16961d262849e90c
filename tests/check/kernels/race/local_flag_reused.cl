// launch: run([64], [16], zero("int", 64))
// bug: pair a // 16 == b // 16 and a % 16 in (0, 1, 2)
__kernel void local_flag_reused(__global int* out)
{
    __local int leader;
    for (int n = 0; n < 3; ++n)
    {
        if (get_local_id(0) == n)
            leader = n * 5; // fault: race
        barrier(CLK_LOCAL_MEM_FENCE);
        out[get_global_id(0)] += leader; // fault: race
#ifdef REPAIRED
        barrier(CLK_LOCAL_MEM_FENCE);
#endif
    }
}
