// launch: {"global": [128], "local": [32], "args": [{"buffer": {"type": "int", "count": 128, "fill": "zero"}}, {"buffer": {"type": "int", "count": 1, "fill": "zero"}}, {"buffer": {"type": "int", "count": 128, "fill": "zero"}}]}
__kernel void worklist_plain_counter(__global const int* in, __global int* count, __global int* list)
{
    const int id = get_global_id(0);
    if (in[id] == 0 && id % 3 == 0)
    {
#ifdef REPAIRED
        const int place = atomic_add(count, 1);
#else
        const int place = (*count)++; // fault: race
#endif
        if (place < 0)
            list[id] = id;
    }
}
