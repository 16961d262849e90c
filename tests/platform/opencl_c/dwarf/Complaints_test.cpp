// The system's readers of debug data accept the compiler's output for any program.

#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/support/Folders.h"
#include "tests/support/OpenCLProgram.h"

#include <filesystem>
#include <map>

using namespace KestrelTests;
using namespace KestrelTest;

namespace
{

const std::map<std::string, const char*> s_Sources = {
    {"NothingInIt", "__kernel void nothing(void) {}\n"},
    {"Library", R"(
__kernel void library(__global float4* f, __global int4* i, __global double2* d)
{
    size_t item = get_global_id(0);
    float4 v = f[item];
    float4 whole;
    int4 power;
    v = sin(v) + lgamma(v) + fract(v, &whole) + frexp(v, &power) + pow(v, whole) + normalize(v) + smoothstep(0, 1, v);
    i[item] = power + convert_int4_sat_rte(v * 3.0f) + rotate(i[item], 3) + mul_hi(i[item], power) + isnan(v);
    d[item] = exp(d[item]) + tgamma(d[item]) + (double2)(vload_half(item, (__global half*)i), 1.0);
    f[item] = select(v, whole, power < 3) + shuffle(v, (uint4)(3, 2, 1, 0));
    vstore_half4_rtz(v, item, (__global half*)i);
}
)"},
    {"Images", R"(
__constant sampler_t s = CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP | CLK_FILTER_LINEAR;
__kernel void images(read_only image2d_t from, write_only image2d_t to, read_only image3d_t deep, sampler_t own,
                     read_only image2d_array_t layers)
{
    int2 at = (int2)(get_global_id(0), get_global_id(1));
    float4 texel = read_imagef(from, s, convert_float2(at)) + read_imagef(deep, own, (float4)(0.5f));
    texel += read_imagef(layers, own, (int4)(at, get_image_array_size(layers), 0));
    if (at.x < get_image_width(to))
    {
        write_imagef(to, at, texel);
    }
}
)"},
    {"Types", R"(
typedef struct { char c; struct { short s; int3 v; } in[2]; union { float f; uchar b[4]; } u; } deep_t;
typedef enum { RED = -1, GREEN, BLUE = 7 } colour_t;
struct list { struct list* next; int value; };
__constant deep_t s_deep = {1, {{2, (int3)(3, 4, 5)}, {6, (int3)(7, 8, 9)}}, {1.5f}};
__constant char s_text[] = "text";
static colour_t turn(colour_t colour) { return colour == BLUE ? RED : GREEN; }
static int sum(struct list* list)
{
    int total = 0;
    for (; list; list = list->next) { total += list->value; }
    return total;
}
__kernel void types(__global deep_t* all, deep_t one, __local float* scratch, __constant int* table, colour_t colour)
{
    __local int words[8][3];
    struct list last = {0, table[0]};
    struct list first = {&last, 5};
    words[get_local_id(0) & 7][1] = sum(&first) + turn(colour);
    barrier(CLK_LOCAL_MEM_FENCE);
    scratch[0] = words[0][1] + s_text[2];
    all[get_global_id(0)] = one.c ? s_deep : one;
    bool seen = one.u.b[2] == 1;
    long16 wide = (long16)(seen);
    all[0].in[1].v = convert_int3(wide.s012);
}
)"},
    {"SeveralKernels", R"(
#line 700 "folder/other file.h"
inline int both(int a) { if (a > 3) { int b = a * 2; return b; } return a; }
#line 12 "kernels.cl"
__kernel void first(__global int* data) { data[0] = both(data[1]); }
#define SECOND(name) __kernel void name(__global int* data) { for (int i = 0; i < data[0]; ++i) { data[i] = both(i) + both(data[i]); } }
SECOND(second) SECOND(third)
__kernel void says(int a) { printf("%d %s\n", both(a), "word"); }
)"},
};

/// Device and options.
class DebugDataOfPrograms : public testing::TestWithParam<std::tuple<const char*, const char*>>
{
protected:
    static std::string Check(const std::string& strSource)
    {
        COpenCLDevice device(std::get<0>(GetParam()));
        const COpenCLProgram program(device, strSource, std::get<1>(GetParam()));
        return Complaints(device.Binary(program.Get()));
    }
};

} // namespace

TEST_P(DebugDataOfPrograms, HasNothingToComplainOf)
{
    for (const auto& [strName, pszSource] : s_Sources)
    {
        EXPECT_EQ(Check(pszSource), "") << strName;
    }
}

TEST_P(DebugDataOfPrograms, HasNothingToComplainOfInExamples)
{
    size_t nExamples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KestrelTest::SourceFile("examples/opencl_c")))
    {
        if (entry.path().extension() == ".cl")
        {
            const std::string strFile = "examples/opencl_c/" + entry.path().filename().string();
            EXPECT_EQ(Check(ReadProjectFile(strFile)), "") << strFile;
            ++nExamples;
        }
    }
    EXPECT_GT(nExamples, 0U);
}

INSTANTIATE_TEST_SUITE_P(Ways, DebugDataOfPrograms,
                         testing::Combine(testing::Values("Quench", "Kiln"),
                                          testing::Values("", "-g", "-g -cl-opt-disable")));
