// Global alignment of two sequences: the table is filled along diagonals by one work-group.

#define GAP (-1)

__kernel void needleman_wunsch(__global const char* a, __global const char* b, int n, int m, __global int* table)
{
    const int stride = m + 1;
    for (int i = get_local_id(0); i <= n; i += get_local_size(0))
        table[i * stride] = i * GAP;
    for (int j = get_local_id(0); j <= m; j += get_local_size(0))
        table[j] = j * GAP;
    barrier(CLK_GLOBAL_MEM_FENCE);
    for (int diagonal = 2; diagonal <= n + m; ++diagonal)
    {
        const int first = max(1, diagonal - m);
        const int last = min(n, diagonal - 1);
        for (int i = first + (int)get_local_id(0); i <= last; i += get_local_size(0))
        {
            const int j = diagonal - i;
            const int match = table[(i - 1) * stride + j - 1] + (a[i - 1] == b[j - 1] ? 2 : -1);
            const int up = table[(i - 1) * stride + j] + GAP;
            const int side = table[i * stride + j - 1] + GAP;
            table[i * stride + j] = max(match, max(up, side));
        }
        barrier(CLK_GLOBAL_MEM_FENCE);
    }
}
