// Convolution of an RGBA image with a filter of odd width in constant memory.

__constant sampler_t tiles = CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP_TO_EDGE | CLK_FILTER_NEAREST;

__kernel void convolve(read_only image2d_t source, write_only image2d_t target, __constant float* weights, int radius)
{
    const int2 at = (int2)(get_global_id(0), get_global_id(1));
    if (at.x >= get_image_width(target) || at.y >= get_image_height(target))
        return;
    float4 sum = (float4)(0.0f);
    int w = 0;
    for (int dy = -radius; dy <= radius; ++dy)
        for (int dx = -radius; dx <= radius; ++dx)
            sum += weights[w++] * read_imagef(source, tiles, at + (int2)(dx, dy));
    sum.w = 1.0f;
    write_imagef(target, at, sum);
}
