// Tables of constants, arrays of a work-item's own, and what only may be read.
// launch: run([16], [16], zero("int", 16), iota("int", 16))
// bug TABLE: items lowest(range(5, 16))
// bug ARRAY: items lowest(range(8, 16))
// bug ARRAY_WRITE: items lowest(range(8, 16))
// bug CONSTANT: items lowest(range(10, 16))
__constant int numbers[5] = {2, 3, 5, 7, 11};
__kernel void tables(__global int* out, __constant int* given)
{
    const int id = get_global_id(0);
    int own[8] = {id, id + 1, id + 2, id + 3, id + 4, id + 5, id + 6, id + 7};
#if defined TABLE
    out[id] = numbers[id]; // fault TABLE: memory
#elif defined ARRAY
    out[id] = own[given[id]]; // fault ARRAY: memory
#elif defined ARRAY_WRITE
    own[given[id]] = 3; // fault ARRAY_WRITE: memory
    out[id] = own[id % 8];
#elif defined CONSTANT
    out[id] = given[id + 6]; // fault CONSTANT: memory
#else
    out[id] = numbers[id % 5] + own[given[id] % 8];
#endif
}
