// Median of 3 x 3 neighbours for four channels at once, by a network of minima and maxima.

#define SORT(a, b)                                                                                                     \
    {                                                                                                                  \
        const uchar4 low = min(a, b);                                                                                  \
        b = max(a, b);                                                                                                 \
        a = low;                                                                                                       \
    }

__kernel void median_filter(__global const uchar4* in, __global uchar4* out)
{
    const int x = get_global_id(0), y = get_global_id(1);
    const int width = get_global_size(0), height = get_global_size(1);
    uchar4 v[9];
    int n = 0;
    for (int j = max(y - 1, 0); j <= y + 1; ++j)
    {
        const int row = min(j, height - 1);
        for (int i = x - 1; i <= x + 1; ++i)
            v[n++] = in[row * width + clamp(i, 0, width - 1)];
    }
    for (; n < 9; ++n)
        v[n] = in[y * width + x];
    for (int i = 0; i < 5; ++i)
        for (int j = i + 1; j < 9; ++j)
            SORT(v[i], v[j]);
    out[y * width + x] = v[4];
}
