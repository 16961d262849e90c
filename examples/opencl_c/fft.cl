// Fast Fourier transform of 2^k points by one work-group: radix 2, decimation in time, in local memory.

float2 complex_mul(float2 a, float2 b)
{
    return (float2)(a.x * b.x - a.y * b.y, a.x * b.y + a.y * b.x);
}

uint reverse_bits(uint v, uint bits)
{
    uint r = 0;
    for (uint i = 0; i < bits; ++i)
    {
        r = (r << 1) | (v & 1);
        v >>= 1;
    }
    return r;
}

__kernel void fft(__global const float2* in, __global float2* out, __local float2* work, uint log2n, float direction)
{
    const uint n = 1u << log2n;
    const uint lid = get_local_id(0);
    const uint base = get_group_id(0) * n;
    for (uint i = lid; i < n; i += get_local_size(0))
        work[reverse_bits(i, log2n)] = in[base + i];

    for (uint half_size = 1; half_size < n; half_size <<= 1)
    {
        barrier(CLK_LOCAL_MEM_FENCE);
        for (uint k = lid; k < n / 2; k += get_local_size(0))
        {
            const uint j = k & (half_size - 1);
            const uint top = ((k - j) << 1) + j;
            const float angle = direction * M_PI_F * (float)j / (float)half_size;
            const float2 twiddle = (float2)(cos(angle), sin(angle));
            const float2 a = work[top];
            const float2 b = complex_mul(twiddle, work[top + half_size]);
            work[top] = a + b;
            work[top + half_size] = a - b;
        }
    }
    barrier(CLK_LOCAL_MEM_FENCE);
    for (uint i = lid; i < n; i += get_local_size(0))
        out[base + i] = work[i];
}
