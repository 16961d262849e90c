// Counts the solutions of the n queens problem below each pair of first rows, without recursion.

__kernel void nqueens(__global uint* counts, int n)
{
    const int first = get_global_id(0) / n;
    const int second = get_global_id(0) % n;
    const uint all = (1u << n) - 1;
    uint solutions = 0;
    uint columns[32], left[32], right[32], free_places[32];

    uint bit = 1u << first;
    uint c = bit, l = bit << 1, r = bit >> 1;
    bit = 1u << second;
    if ((bit & (c | l | r)) == 0)
    {
        int row = 2;
        columns[2] = c | bit;
        left[2] = (l | bit) << 1;
        right[2] = (r | bit) >> 1;
        free_places[2] = all & ~(columns[2] | left[2] | right[2]);
        while (row >= 2)
        {
            if (columns[row] == all)
            {
                solutions++;
                row--;
                continue;
            }
            const uint place = free_places[row] & (0u - free_places[row]);
            if (!place)
            {
                row--;
                continue;
            }
            free_places[row] ^= place;
            columns[row + 1] = columns[row] | place;
            left[row + 1] = (left[row] | place) << 1;
            right[row + 1] = (right[row] | place) >> 1;
            row++;
            free_places[row] = all & ~(columns[row] | left[row] | right[row]);
        }
    }
    counts[get_global_id(0)] = solutions;
}
