#include "bench/BenchSources.h"

namespace KestrelBench
{
namespace
{

const char* const s_pszVectorAdd = R"(
__kernel void run(__global const float* a, __global const float* b, __global float* c)
{
    size_t i = get_global_id(0);
    c[i] = a[i] + b[i];
}
)";

const char* const s_pszSaxpy = R"(
__kernel void run(__global const float* x, __global const float* y, __global float* result, float a)
{
    const int i = get_global_id(0);
    float value = x[i];
    for (int n = 0; n < 100; n++)
        value = a * value + y[i];
    result[i] = value;
}
)";

const char* const s_pszMandelbrot = R"(
__kernel void run(__global uint* passes, float4 view)
{
    const int px = get_global_id(0), py = get_global_id(1);
    const float cx = px * view.x + view.z, cy = py * view.y + view.w;
    float x = 0.0f, y = 0.0f;
    uint n;
    for (n = 0; n < 256; ++n)
    {
        float xx = x * x, yy = y * y;
        if (xx + yy > 4.0f)
            break;
        float xy = x * y;
        x = xx - yy + cx;
        y = xy * 2.0f + cy;
    }
    passes[py * get_global_size(0) + px] = n;
}
)";

const char* const s_pszMatrixProduct = R"(
__kernel void run(__global const float* a, __global const float* b, __global float* c, uint n)
{
    const uint row = get_global_id(1), column = get_global_id(0);
    float sum = 0.0f;
    for (uint k = 0; k < n; k++)
        sum += a[row * n + k] * b[k * n + column];
    c[row * n + column] = sum;
}
)";

const char* const s_pszReduction = R"(
__kernel void run(__global const uint* values, __global uint* sums)
{
    __local uint left[256];
    const uint lid = get_local_id(0);
    left[lid] = values[get_global_id(0)];
    barrier(CLK_LOCAL_MEM_FENCE);
    for (uint s = get_local_size(0) / 2; s > 0; s >>= 1)
    {
        if (lid < s)
            left[lid] += left[lid + s];
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    if (lid == 0)
        sums[get_group_id(0)] = left[0];
}
)";

const char* const s_pszHistogram = R"(
__kernel void run(__global const uint* values, __global uint* bins)
{
    __local uint counts[256];
    const uint lid = get_local_id(0);
    counts[lid] = 0;
    barrier(CLK_LOCAL_MEM_FENCE);
    atomic_inc(&counts[values[get_global_id(0)] & 0xff]);
    barrier(CLK_LOCAL_MEM_FENCE);
    atomic_add(&bins[lid], counts[lid]);
}
)";

const char* const s_pszBodyStep = R"(
__kernel void run(__global const float4* places, __global const float4* speeds, __global float4* new_places,
                  __global float4* new_speeds, uint count, float time, float softening)
{
    const size_t i = get_global_id(0);
    const float4 place = places[i];
    float3 pull = (float3)(0.0f, 0.0f, 0.0f);
    for (uint n = 0; n < count; ++n)
    {
        const float4 other = places[n];
        const float3 d = other.xyz - place.xyz;
        const float square = d.x * d.x + d.y * d.y + d.z * d.z + softening;
        const float inverse = rsqrt(square);
        pull += d * (inverse * inverse * inverse * other.w);
    }
    float4 speed = speeds[i];
    speed.xyz += pull * time;
    new_speeds[i] = speed;
    new_places[i] = (float4)(place.xyz + speed.xyz * time, place.w);
}
)";

const char* const s_pszPrivateArray = R"(
__kernel void run(__global const uint* seeds, __global uint* sums)
{
    uint cells[16];
    uint state = seeds[get_global_id(0)];
    for (uint n = 0; n < 16; ++n)
        cells[n] = n * state + n;
    for (uint n = 0; n < 64; ++n)
    {
        const uint at = (state >> 24) & 15;
        const uint old = cells[at];
        cells[at] = old + n;
        state = state * 1664525 + old;
    }
    uint sum = 0;
    for (uint n = 0; n < 16; ++n)
        sum = sum * 3 + cells[n];
    sums[get_global_id(0)] = sum;
}
)";

SSourceArgument Buffer(size_t nIndex)
{
    return {true, nIndex, 0};
}

SSourceArgument Words(size_t nFirst, size_t nWords)
{
    return {false, nFirst, nWords};
}

} // namespace

std::vector<SBenchSource> MakeBenchSources()
{
    return {
        {"vector add", s_pszVectorAdd, {Buffer(0), Buffer(1), Buffer(2)}, 5, 5},
        {"saxpy, 100 passes", s_pszSaxpy, {Buffer(0), Buffer(1), Buffer(2), Words(12, 1)}, 0.3f, 0.5f},
        {"mandelbrot", s_pszMandelbrot, {Buffer(0), Words(4, 4)}, 0.45f, 0.8f},
        {"matrix product", s_pszMatrixProduct, {Buffer(0), Buffer(1), Buffer(2), Words(12, 1)}, 1.5f, 1.5f},
        {"reduction", s_pszReduction, {Buffer(0), Buffer(1)}, 12, 12},
        {"histogram", s_pszHistogram, {Buffer(0), Buffer(1)}, 12, 12},
        {"n-body step",
         s_pszBodyStep,
         {Buffer(0), Buffer(1), Buffer(2), Buffer(3), Words(16, 1), Words(17, 1), Words(18, 1)},
         0.55f,
         0.9f},
        {"private array, indexed temps", s_pszPrivateArray, {Buffer(0), Buffer(1)}, 1.5f, 1.5f},
    };
}

} // namespace KestrelBench
