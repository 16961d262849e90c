// Lattice Boltzmann method, nine directions in the plane: collide and stream, walls bounce back.

__constant int2 directions[9] = {(int2)(0, 0),  (int2)(1, 0), (int2)(0, 1),   (int2)(-1, 0), (int2)(0, -1),
                                 (int2)(1, 1), (int2)(-1, 1), (int2)(-1, -1), (int2)(1, -1)};
__constant float weights[9] = {4.0f / 9,  1.0f / 9,  1.0f / 9,  1.0f / 9, 1.0f / 9,
                               1.0f / 36, 1.0f / 36, 1.0f / 36, 1.0f / 36};
__constant int opposite[9] = {0, 3, 4, 1, 2, 7, 8, 5, 6};

__kernel void lbm_step(__global const float* f, __global float* f_next, __global const uchar* wall, float omega)
{
    const int2 at = (int2)(get_global_id(0), get_global_id(1));
    const int2 size = (int2)(get_global_size(0), get_global_size(1));
    const int cells = size.x * size.y;
    const int cell = at.y * size.x + at.x;

    float here[9];
    float density = 0.0f;
    float2 momentum = (float2)(0.0f, 0.0f);
    for (int q = 0; q < 9; ++q)
    {
        const int2 from = (at - directions[q] + size) % size;
        const int source = from.y * size.x + from.x;
        here[q] = wall[source] ? f[opposite[q] * cells + cell] : f[q * cells + source];
        density += here[q];
        momentum += here[q] * convert_float2(directions[q]);
    }
    if (wall[cell])
    {
        for (int q = 0; q < 9; ++q)
            f_next[q * cells + cell] = f[q * cells + cell];
        return;
    }
    const float2 u = momentum / density;
    const float u2 = dot(u, u);
    for (int q = 0; q < 9; ++q)
    {
        const float eu = dot(convert_float2(directions[q]), u);
        const float equilibrium = weights[q] * density * (1.0f + 3.0f * eu + 4.5f * eu * eu - 1.5f * u2);
        f_next[q * cells + cell] = here[q] + omega * (equilibrium - here[q]);
    }
}
