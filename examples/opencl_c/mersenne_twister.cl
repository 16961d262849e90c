// MT19937, a generator a work-item, its state in private memory.

#define MT_N 624
#define MT_M 397

__kernel void mersenne_twister(__global const uint* seeds, __global uint* out, int count)
{
    const int id = get_global_id(0);
    uint mt[MT_N];
    mt[0] = seeds[id];
    for (int i = 1; i < MT_N; i++)
        mt[i] = 1812433253u * (mt[i - 1] ^ (mt[i - 1] >> 30)) + i;

    int index = MT_N;
    for (int n = 0; n < count; n++)
    {
        if (index >= MT_N)
        {
            for (int i = 0; i < MT_N; i++)
            {
                uint y = (mt[i] & 0x80000000u) | (mt[(i + 1) % MT_N] & 0x7fffffffu);
                mt[i] = mt[(i + MT_M) % MT_N] ^ (y >> 1) ^ ((y & 1) ? 0x9908b0dfu : 0);
            }
            index = 0;
        }
        uint y = mt[index++];
        y ^= y >> 11;
        y ^= (y << 7) & 0x9d2c5680u;
        y ^= (y << 15) & 0xefc60000u;
        y ^= y >> 18;
        out[id * count + n] = y;
    }
}
