// launch: run([2 * S, S], [S, S], iota(T, 2 * S * S), zero(T, 2 * S * S))
// with: T=int S=8
// with: T=short S=16
// with: T=float S=4
// bug NO_BARRIER: pair a // S % 2 == b // S % 2
// bug NARROW: pair a // S % 2 == b // S % 2 and b == a + 2 * S - (S - 1)
// bug SAME_PLACE: pair b == a + S
__kernel void tile_transpose(__global const T* in, __global T* out)
{
    __local T part[S * S];
    const int x = get_local_id(0);
    const int y = get_local_id(1);
#ifdef NARROW
    part[y * (S - 1) + x] = in[get_global_id(1) * 2 * S + get_global_id(0)]; // fault NARROW: race
#else
    part[y * S + x] = in[get_global_id(1) * 2 * S + get_global_id(0)]; // fault NO_BARRIER: race
#endif
#ifndef NO_BARRIER
    barrier(CLK_LOCAL_MEM_FENCE);
#endif
    const T value = part[x * (S - 1) + y]; // fault NO_BARRIER: race
#ifdef SAME_PLACE
    out[y * 2 * S + x] = value + get_group_id(0); // fault SAME_PLACE: race
#else
    out[(get_group_id(0) * S + y) * S + x] = value;
#endif
}
