// Pi by throwing points, a 64-bit linear congruential generator a work-item.

typedef struct
{
    ulong state;
} random_t;

uint random_next(random_t* r)
{
    r->state = r->state * 6364136223846793005UL + 1442695040888963407UL;
    return (uint)(r->state >> 32);
}

__kernel void monte_carlo_pi(__global uint* inside, uint throws, ulong seed)
{
    random_t r = {seed + get_global_id(0) * 0x9E3779B97F4A7C15UL};
    uint count = 0;
    for (uint n = 0; n < throws; ++n)
    {
        const ulong x = random_next(&r) >> 1;
        const ulong y = random_next(&r) >> 1;
        count += x * x + y * y < (1UL << 62) ? 1 : 0;
    }
    inside[get_global_id(0)] = count;
}
