// Length and peak of the Collatz sequence of each start, in 64 bits, giving up at an overflow.

__kernel void collatz(__global uint* steps, __global ulong* peaks, ulong first)
{
    const size_t id = get_global_id(0);
    ulong n = first + id;
    ulong peak = n;
    uint count = 0;
    for (;;)
    {
        if (n <= 1)
            break;
        if (n & 1)
        {
            if (n > (ULONG_MAX - 1) / 3)
            {
                count = UINT_MAX;
                break;
            }
            n = 3 * n + 1;
            peak = max(peak, n);
        }
        else
        {
            n >>= 1;
        }
        ++count;
    }
    steps[id] = count;
    peaks[id] = peak;
}
