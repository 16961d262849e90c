// launch: run([64], [16], zero("int", 65), zero("int", 64))
// bug: pair b == a + 1 and b % 16 == 0
__kernel void border_between_groups(__global int* data, __global int* out)
{
    const int id = get_global_id(0);
    data[id] = id; // fault: race
    barrier(CLK_GLOBAL_MEM_FENCE);
    int next = 0;
#ifdef REPAIRED
    if (get_local_id(0) + 1 < get_local_size(0))
#endif
        next = data[id + 1]; // fault: race
    out[id] = next;
}
