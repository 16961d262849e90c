// Mandelbrot set with smooth colours through a table in constant memory.

__constant uchar4 palette[8] = {(uchar4)(66, 30, 15, 255),   (uchar4)(25, 7, 26, 255),    (uchar4)(9, 1, 47, 255),
                                (uchar4)(4, 4, 73, 255),     (uchar4)(0, 7, 100, 255),    (uchar4)(12, 44, 138, 255),
                                (uchar4)(24, 82, 177, 255),  (uchar4)(57, 125, 209, 255)};

__kernel void mandelbrot(__global uchar4* image, __global int* passes, float2 centre, float scale, int limit)
{
    const int2 at = {get_global_id(0), get_global_id(1)};
    const int2 size = {get_global_size(0), get_global_size(1)};
    const float2 c = centre + scale * (convert_float2(at) - 0.5f * convert_float2(size));
    float2 z = 0;
    int n = 0;
    while (n < limit && z.x * z.x + z.y * z.y < 4.0f)
    {
        z = (float2)(z.x * z.x - z.y * z.y, 2.0f * z.x * z.y) + c;
        ++n;
    }
    const int index = at.y * size.x + at.x;
    passes[index] = n;
    image[index] = n == limit ? (uchar4)(0, 0, 0, 255) : palette[n & 7];
}
