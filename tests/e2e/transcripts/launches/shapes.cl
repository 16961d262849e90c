// Images of every shape, a sampler, and parts of one buffer that overlap.
__kernel void shapes(__read_only image1d_t line, __read_only image1d_array_t lines, __read_only image2d_t plane,
                     __read_only image2d_array_t planes, sampler_t sampler, __global int* out)
{
    int i = get_global_id(0);
    out[i] = read_imagei(line, sampler, i).x + read_imagei(lines, sampler, (int2)(i, 1)).x +
             read_imagei(plane, sampler, (int2)(i, 9)).x + read_imagei(planes, sampler, (int4)(i, 0, 1, 0)).x;
}

__kernel void parts(__global int* first, __global int* second, __global const int* whole, __global int* out)
{
    int i = get_global_id(0);
    first[i] += 1000;
    barrier(CLK_GLOBAL_MEM_FENCE);
    second[i] += whole[i];
    out[i] = second[i];
}
