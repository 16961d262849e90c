// Edges of a grey image, read by normalised coordinates, written as unsigned bytes.

float grey(read_only image2d_t image, sampler_t sampler, float2 at)
{
    return read_imagef(image, sampler, at).x;
}

__kernel void sobel(read_only image2d_t image, sampler_t sampler, write_only image2d_t edges)
{
    const int2 at = (int2)(get_global_id(0), get_global_id(1));
    const int2 size = get_image_dim(image);
    const float2 step = 1.0f / convert_float2(size);
    const float2 centre = (convert_float2(at) + 0.5f) * step;
    float p[3][3];
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i)
            p[j][i] = grey(image, sampler, centre + step * (float2)(i - 1, j - 1));
    const float gx = p[0][2] + 2.0f * p[1][2] + p[2][2] - p[0][0] - 2.0f * p[1][0] - p[2][0];
    const float gy = p[2][0] + 2.0f * p[2][1] + p[2][2] - p[0][0] - 2.0f * p[0][1] - p[0][2];
    write_imageui(edges, at, (uint4)(convert_uint_sat(hypot(gx, gy) * 255.0f), 0, 0, 0));
}
