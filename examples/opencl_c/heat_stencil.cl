// Heat equation in three dimensions, seven points, the z axis marched with three planes in registers.

#define IDX(x, y, z) (((z) * ny + (y)) * nx + (x))

__kernel void heat(__global const float* restrict in, __global float* restrict out, int nx, int ny, int nz, float c)
{
    const int x = get_global_id(0);
    const int y = get_global_id(1);
    if (x >= nx || y >= ny)
        return;
    const bool border = x == 0 || y == 0 || x == nx - 1 || y == ny - 1;
    float below = in[IDX(x, y, 0)];
    float here = below;
    float above = in[IDX(x, y, nz > 1 ? 1 : 0)];
    out[IDX(x, y, 0)] = below;
    for (int z = 1; z < nz - 1; ++z)
    {
        below = here;
        here = above;
        above = in[IDX(x, y, z + 1)];
        if (border)
        {
            out[IDX(x, y, z)] = here;
            continue;
        }
        const float around = in[IDX(x - 1, y, z)] + in[IDX(x + 1, y, z)] + in[IDX(x, y - 1, z)] + in[IDX(x, y + 1, z)];
        out[IDX(x, y, z)] = here + c * (around + below + above - 6.0f * here);
    }
    if (nz > 1)
        out[IDX(x, y, nz - 1)] = in[IDX(x, y, nz - 1)];
}
