// Planar YUV 4:2:0 to packed RGB, in integers with saturation, a block of 2 x 2 pixels a work-item.

__kernel void yuv_to_rgb(__global const uchar* y_plane, __global const uchar* u_plane, __global const uchar* v_plane,
                         __global uchar* rgb, uint width)
{
    const uint bx = get_global_id(0), by = get_global_id(1);
    const short u = u_plane[by * (width / 2) + bx] - 128;
    const short v = v_plane[by * (width / 2) + bx] - 128;
    const int3 chroma = (int3)(359 * v, -88 * u - 183 * v, 454 * u);
    for (uint j = 0; j < 2; ++j)
    {
        const uint at = (2 * by + j) * width + 2 * bx;
        const uchar2 y = vload2(0, y_plane + at);
        vstore3(convert_uchar3_sat((chroma + (int)y.x * 256 + 128) >> 8), at, rgb);
        vstore3(convert_uchar3_sat((chroma + (int)y.y * 256 + 128) >> 8), at + 1, rgb);
    }
}
