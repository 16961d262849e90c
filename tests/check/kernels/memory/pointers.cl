// launch: run([4], [4], zero("int", 4), null)
// bug NULL_ARGUMENT: items [0, 1, 2, 3]
// bug CHOSEN: items [0, 1, 2, 3]
// bug WRAPPED: items [0]
// bug NUMBER: items [0, 1, 2, 3]
__kernel void pointers(__global int* out, __global int* other)
{
    const uint id = get_global_id(0);
#if defined NULL_ARGUMENT
    other[id] = 1; // fault NULL_ARGUMENT: memory
#elif defined CHOSEN
    __global int* chosen = out[0] == 0 ? (__global int*)0 : out;
    chosen[id] = 1; // fault CHOSEN: memory
#elif defined WRAPPED
    out[id - 1] = 1; // fault WRAPPED: memory
#elif defined NUMBER
    *(__global int*)(0x123456780000ul + 4 * id) = 1; // fault NUMBER: memory
#else
    if (!other)
        out[id] = 1;
#endif
}
