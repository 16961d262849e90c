// launch: run([N], [L], zero("int", N), zero("int", 1), zero("int", 2 * N + 2))
// with: N=128 L=32
// with: N=256 L=256
// with: N=40 L=8
// bug PLAIN_COUNTER: pair a % 4 == 0 and b % 4 == 0
// bug PLAIN_READ: pair a % 4 == 0 or b % 4 == 0
// bug TOO_FEW_RESERVED: pair a % 4 == 0 and b % 4 == 0
// bug SAME_SLOT: pair a % 4 == 0 and b == a + 4
__kernel void worklist(__global const int* done, __global int* count, __global int* list)
{
    const int id = get_global_id(0);
#ifdef PLAIN_READ
    if (*count < 0) // fault PLAIN_READ: race
        return;
#endif
    if (done[id] == 0 && id % 4 == 0)
    {
#if defined PLAIN_COUNTER
        const int place = (*count)++; // fault PLAIN_COUNTER: race
#elif defined TOO_FEW_RESERVED
        const int place = atomic_add(count, 1);
#else
        const int place = atomic_add(count, 2); // fault PLAIN_READ: race
#endif
#if defined SAME_SLOT
        list[id / 8] = place; // fault SAME_SLOT: race
#elif defined PLAIN_COUNTER
        list[id] = place;
#else
        list[place] = id; // fault TOO_FEW_RESERVED: race
        list[place + 1] = id + 1; // fault TOO_FEW_RESERVED: race
#endif
    }
}
