// launch: run([64], [64], zero("int", 1))
// bug: equal, pair a != b
__kernel void graph_flag_of_one_value(__global int* changed)
{
#ifdef REPAIRED
    atomic_or(changed, 1);
#else
    *changed = 1; // fault: race
#endif
}
