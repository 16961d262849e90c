// launch: {"global": [64], "local": [32], "args": [{"buffer": {"type": "int", "count": 1, "fill": "zero"}}, {"buffer": {"type": "int", "count": 64, "fill": "zero"}}]}
__kernel void atomic_and_plain(__global int* total, __global int* out)
{
    const int id = get_global_id(0);
    const int before = atomic_add(total, id); // fault: race
#ifdef REPAIRED
    out[id] = before;
#else
    out[id] = before + *total; // fault: race
#endif
}
