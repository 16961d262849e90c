// launch: run([N], [L], filled("int", S, -1))
// with: N=64 L=32 S=16
// with: N=96 L=96 S=48
// bug: pair a % S == b % S
__kernel void hash_table(__global int* slots)
{
    const int key = get_global_id(0);
#ifdef REPAIRED
    atomic_cmpxchg(&slots[key % S], -1, key);
#else
    if (slots[key % S] < key) slots[key % S] = key; // fault: race
#endif
}
