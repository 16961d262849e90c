// launch: {"global": [8], "local": [8], "args": [{"buffer": {"type": "uchar", "count": 64, "fill": "zero"}}]}
// items: 0 1 2 3 4 5 6 7
__kernel void misaligned(__global uchar* bytes)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    __global uint* word = (__global uint*)(bytes + id * 4);
#else
    __global uint* word = (__global uint*)(bytes + id * 4 + 2);
#endif
    *word = id; // fault: alignment
}
