// A group gathers what it has found, and its first work-item reserves room for all of it.
// launch: run([N], [L], iota("int", N), zero("int", 1), zero("int", N))
// with: N=128 L=64
// with: N=96 L=32
// bug NO_START: pair a % L == 0 and a // L == b // L
// bug NO_BARRIER_BEFORE: pair a % L == 0 and a // L == b // L
// bug NO_BARRIER_BEHIND: pair a % L == 0 and a // L == b // L
__kernel void worklist_in_local_memory(__global const int* in, __global int* count, __global int* list)
{
    __local int found;
    __local int start;
    const int id = get_global_id(0);
    if (get_local_id(0) == 0)
        found = 0; // fault NO_START: race
#ifndef NO_START
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    int place = -1;
    if (in[id] % 3 != 1)
        place = atomic_inc(&found); // fault NO_START NO_BARRIER_BEFORE: race
#ifndef NO_BARRIER_BEFORE
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    if (get_local_id(0) == 0)
        start = atomic_add(count, found); // fault NO_BARRIER_BEFORE NO_BARRIER_BEHIND: race
#ifndef NO_BARRIER_BEHIND
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    if (place >= 0)
        list[start + place] = id; // fault NO_BARRIER_BEHIND: race
}
