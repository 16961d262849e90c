// Discrete cosine transform of 8 x 8 blocks, a row or a column a work-item.

#define C(i) cospi((i) / 16.0f)

void dct8(const float* in, float* out)
{
    for (int u = 0; u < 8; ++u)
    {
        float sum = 0.0f;
        for (int x = 0; x < 8; ++x)
            sum += in[x] * C((2 * x + 1) * u);
        out[u] = sum * (u == 0 ? M_SQRT1_2_F : 1.0f) * 0.5f;
    }
}

__kernel __attribute__((reqd_work_group_size(8, 1, 1))) void dct8x8(__global const short* in, __global float* out,
                                                                   int stride)
{
    __local float block[8][8];
    const int lane = get_local_id(0);
    const int base = get_group_id(1) * 8 * stride + get_group_id(0) * 8;
    float row[8], result[8];
    for (int x = 0; x < 8; ++x)
        row[x] = in[base + lane * stride + x];
    dct8(row, result);
    for (int x = 0; x < 8; ++x)
        block[lane][x] = result[x];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int y = 0; y < 8; ++y)
        row[y] = block[y][lane];
    dct8(row, result);
    for (int y = 0; y < 8; ++y)
        out[base + y * stride + lane] = result[y];
}
