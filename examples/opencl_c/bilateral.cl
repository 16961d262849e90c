// Bilateral filter of a grey image: neighbours count by distance and by how alike they are.

__kernel void bilateral(__global const uchar* in, __global uchar* out, int width, int height, int radius,
                        float sigma_space, float sigma_range)
{
    int x = get_global_id(0);
    int y = get_global_id(1);
    float centre = in[y * width + x];
    float sum = 0.0f, norm = 0.0f;
    for (int j = -radius; j <= radius; j++)
    {
        for (int i = -radius; i <= radius; i++)
        {
            int px = clamp(x + i, 0, width - 1);
            int py = clamp(y + j, 0, height - 1);
            float value = in[py * width + px];
            float d2 = (float)(i * i + j * j);
            float r = value - centre;
            float weight = exp(-d2 / (2.0f * sigma_space * sigma_space) - r * r / (2.0f * sigma_range * sigma_range));
            sum += weight * value;
            norm += weight;
        }
    }
    out[y * width + x] = convert_uchar_sat_rte(sum / norm);
}
