// Keeps what isn't 0, at places that a scan gives.
// launch: run([L], [L], zero("int", L), zero("int", L))
// with: L=32
// with: L=128
// bug INCLUSIVE: pair b == a + 1 and a % 2 == 1
// bug NO_BARRIER: pair a < b
__kernel void compaction(__global const int* in, __global int* out)
{
    __local int places[L];
    const int lid = get_local_id(0);
    places[lid] = lid % 2 == 0; // fault NO_BARRIER: race
#ifndef NO_BARRIER
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    int place = 0;
    for (int n = 0; n < lid; ++n)
        place += places[n]; // fault NO_BARRIER: race
#if defined INCLUSIVE
    out[(lid + 1) / 2] = in[lid] + lid; // fault INCLUSIVE: race
#else
    if (lid % 2 == 0)
        out[place] = in[lid] + lid;
#endif
}
