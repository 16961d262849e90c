// Conway's game of life, 32 cells in a word, bits counted in parallel.

uint row_word(__global const uint* cells, int x, int y, int words, int height)
{
    return cells[((y + height) % height) * words + (x + words) % words];
}

__kernel void life(__global const uint* in, __global uint* out, int words, int height)
{
    const int x = get_global_id(0), y = get_global_id(1);
    uint ones = 0, twos = 0, fours = 0;
    uint self = 0;
    for (int dy = -1; dy <= 1; ++dy)
    {
        const uint middle = row_word(in, x, y + dy, words, height);
        const uint west = (middle << 1) | (row_word(in, x - 1, y + dy, words, height) >> 31);
        const uint east = (middle >> 1) | (row_word(in, x + 1, y + dy, words, height) << 31);
        if (dy == 0)
            self = middle;
        for (int part = 0; part < 3; ++part)
        {
            if (dy == 0 && part == 1)
                continue;
            uint add;
            switch (part)
            {
            case 0:
                add = west;
                break;
            case 1:
                add = middle;
                break;
            default:
                add = east;
            }
            const uint carry = ones & add;
            ones ^= add;
            fours |= twos & carry;
            twos ^= carry;
        }
    }
    out[y * words + x] = twos & ~fours & (ones | self);
}
