// launch: run([L], [L], zero("int", L))
// with: L=4
// with: L=64
// bug MISSED: items [0]
// bug WRAPPED: items [0]
// bug WAITING: items [0]
__kernel void endless(__global int* data)
{
    const int id = get_global_id(0);
#if defined MISSED
    int value = data[id];
    while (value != -1) // any fault MISSED: barrier
        value = (value + 2) & 0xFFFF; // any fault MISSED: barrier
    data[id] = value;
#elif defined WRAPPED
    for (uint n = 3; n >= 0; --n) // any fault WRAPPED: barrier
        data[id] += n; // any fault WRAPPED: barrier
#elif defined WAITING
    if (id == 0)
        while (atomic_add(&data[1], 0) == 0) // any fault WAITING: barrier
            data[2] = 0; // any fault WAITING: barrier
    else if (id == 1)
        atomic_add(&data[1], 1);
#else
    int value = data[id];
    while (value < 3)
        value = (value + 2) & 0xFFFF;
    data[id] = value;
#endif
}
