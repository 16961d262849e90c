// launch: {"global": [4], "local": [4], "args": [{"buffer": {"type": "int", "count": 4, "fill": "zero"}}]}
// items: 0 1 2 3
__kernel void null_pointer(__global int* out)
{
#ifdef REPAIRED
    __global int* chosen = out;
#else
    __global int* chosen = out[0] == 0 ? (__global int*)0 : out;
#endif
    chosen[get_global_id(0)] = 1; // fault: memory
}
