// launch: run([64], [32], zero("int", 1), zero("int", 64))
// bug: pair a != b
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
