// launch: run([8], [8], zero("int", 8))
// bug: unequal, pair a < 7 and b == 7
__kernel void equal_then_unequal(__global int* out)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    out[id] = id / 7;
#else
    out[0] = id / 7; // fault: race
#endif
}
