// Where variables are placed: at addresses of any alignment, and never at null's.

#include "tests/platform/opencl_c/lowering/EachWay.h"

using namespace KestrelTest;

namespace
{

#pragma pack(push, 1)
struct SPacked
{
    char c;
    int i;
    short s;
    float v[4];
    long l;
    char t[3];
    double d;
    short pair[2];
};
#pragma pack(pop)

const SPacked s_Table[3] = {{1, 0x11223344, -5, {1, 2, 3, 4}, 0x1122334455667788, {7, 8, 9}, 2.5, {-30000, 3}},
                            {2, -7, 6, {5, 6, 7, 8}, -3, {1, 2, 3}, -1.25, {5, 30000}},
                            {3, 99, 1234, {9, 10, 11, 12}, 77L << 40, {4, 5, 6}, 1e8, {-1, 0x1234}}};

const char* const s_pszPackedSource = R"(
typedef struct __attribute__((packed)) {
    char c; int i; short s; float4 v; long l; char t[3]; double d; short pair[2];
} packed_t;
__constant packed_t table[3] = {
    {1, 0x11223344, -5, (float4)(1, 2, 3, 4), 0x1122334455667788, {7, 8, 9}, 2.5, {-30000, 3}},
    {2, -7, 6, (float4)(5, 6, 7, 8), -3, {1, 2, 3}, -1.25, {5, 30000}},
    {3, 99, 1234, (float4)(9, 10, 11, 12), 77L << 40, {4, 5, 6}, 1e8, {-1, 0x1234}}};
__constant uchar bytes[20] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
#define SHOW(q) show[0] = (q).c; show[1] = (q).i; show[2] = (q).s; show[3] = (int)((q).v.x + (q).v.w * 100); \
    show[4] = (int)((q).l >> 32) ^ (int)(q).l; show[5] = (q).t[2]; show[6] = (int)((q).d * 4); \
    show[7] = (q).pair[0] ^ (q).pair[1]; show += 8;
__kernel void k(__global int* show, int w, int fromBuffer, __global packed_t* buffer, __constant packed_t* given,
                packed_t value, __local packed_t* scratch)
{
    __local packed_t own[2];
    SHOW(table[2])
    SHOW(table[w])
    packed_t p = table[w];
    SHOW(p)
    buffer[0] = table[w];
    SHOW(buffer[0])
    SHOW(buffer[w])
    scratch[1] = table[w];
    SHOW(scratch[1])
    own[1] = buffer[w];
    SHOW(own[1])
    SHOW(given[w])
    p = given[w];
    SHOW(p)
    __constant packed_t* any = fromBuffer ? given : table;
    SHOW(any[w])
    p = any[w];
    SHOW(p)
    packed_t both[2];
    both[w & 1] = p;
    both[1 - (w & 1)] = table[1];
    SHOW(both[w & 1])
    SHOW(value)
    uchar4 some = vload4(w, bytes + 1);
    ushort3 halves = vload3(0, (__constant ushort*)(bytes + w + 2));
    show[0] = some.x + some.w * 256;
    show[1] = halves.x + halves.z;
}
)";

const char* const s_pszNamesSource = R"(
typedef struct { int id; __constant char* name; } entry_t;
__constant char* __constant names[] = {"one", "three"};
__constant entry_t entries[] = {{1, "a"}, {2, "bcd"}};
__constant int numbers[] = {7, 8, 9};
__constant int* __constant last = numbers + 2;
__constant int* __constant* __constant further = &last;
int length(__constant char* s) { int n = 0; while (*s++) { ++n; } return n; }
__kernel void array(__global int* out, int n) { out[0] = length(names[n]); }
__kernel void structs(__global int* out, int n) { entry_t e = entries[n]; out[0] = length(e.name) + e.id; }
__kernel void twice(__global int* out, int n) { out[0] = (*further)[-n]; }
)";

std::array<int, 8> Shown(const SPacked& packed)
{
    return {packed.c,
            packed.i,
            packed.s,
            static_cast<int>(packed.v[0] + packed.v[3] * 100),
            static_cast<int>(packed.l >> 32) ^ static_cast<int>(packed.l),
            packed.t[2],
            static_cast<int>(packed.d * 4),
            packed.pair[0] ^ packed.pair[1]};
}

const char* const s_pszNullSource = R"(
__local int* choose(__local int* p, int n) { return n ? p : 0; }
__kernel void variables(__global int* out, int n)
{
    __local int first[4], second[4];
    struct { int x; __local int* p; } s = {1, 0};
    out[0] = choose(first, n) == 0;
    out[1] = choose(first, n) == first;
    out[2] = s.p == 0;
    s.p = n ? first : second;
    out[3] = s.p != 0;
    int count = 0;
    for (__local int* w = n ? first : (__local int*)0; w; w = w == first ? second : (__local int*)0) { ++count; }
    out[4] = count;
}
__kernel void argument(__global int* out, int n, __local int* given)
{
    out[0] = choose(given, n) == 0;
    out[1] = !given;
    out[2] = (size_t)given == 0;
}
__kernel void number(__global int* out, int n)
{
    __local int only[4];
    only[n] = 1;
    out[0] = (size_t)only == 0;
    out[1] = (n ? (ulong)(size_t)(only + n) : 0) < 4;
}
)";

} // namespace

TEST(LoweringPlaces, PackedStructsAreReadWhereverTheyLie)
{
    EachWay(
        [](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, s_pszPackedSource, strOptions);
            for (const int nFromBuffer : {0, 1})
            {
                const std::vector<SPacked> vTable(std::begin(s_Table), std::end(s_Table));
                const CDeviceBuffer show = device.Buffer(std::vector<int>(13 * 8 + 2));
                const CDeviceBuffer buffer = device.Buffer(vTable), given = device.Buffer(vTable);
                program.Run("k", {{1}, {}, {}}, show, 2, nFromBuffer, buffer, given, s_Table[1],
                            SLocalBytes{sizeof s_Table});
                std::vector<int> vExpected;
                for (int n = 0; n < 13; ++n)
                {
                    const std::array<int, 8> shown = Shown(s_Table[n == 12 ? 1 : 2]);
                    vExpected.insert(vExpected.end(), shown.begin(), shown.end());
                }
                vExpected.insert(vExpected.end(), {9 + 12 * 256, 4 + 5 * 256 + 8 + 9 * 256});
                EXPECT_EQ(device.Read<int>(show), vExpected) << nFromBuffer;
                SPlatformFault fault = {};
                Control().GetLastFault(&fault);
                EXPECT_EQ(fault.nBadAccesses, 0U);
            }
        });
}

TEST(LoweringPlaces, NullIsNoPlaceInLocalMemory)
{
    EachWay(
        [](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, s_pszNullSource, strOptions);
            const CDeviceBuffer out = device.Buffer(std::vector<int>(5));
            program.Run("variables", {{1}, {}, {}}, out, 0);
            EXPECT_EQ(device.Read<int>(out), (std::vector<int>{1, 0, 1, 1, 0}));
            program.Run("variables", {{1}, {}, {}}, out, 1);
            EXPECT_EQ(device.Read<int>(out), (std::vector<int>{0, 1, 1, 1, 2}));
            program.Run("argument", {{1}, {}, {}}, out, 0, SLocalBytes{16});
            EXPECT_EQ(device.Read<int>(out), (std::vector<int>{1, 0, 0, 1, 2}));
            program.Run("argument", {{1}, {}, {}}, out, 1, SLocalBytes{16});
            EXPECT_EQ(device.Read<int>(out), (std::vector<int>{0, 0, 0, 1, 2}));
            program.Run("number", {{1}, {}, {}}, out, 1);
            EXPECT_EQ(device.Read<int>(out), (std::vector<int>{0, 0, 0, 1, 2}));
        });
}

TEST(LoweringPlaces, ConstantsHoldPointersToConstants)
{
    EachWay(
        [](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, s_pszNamesSource, strOptions);
            const CDeviceBuffer out = device.Buffer(std::vector<int>(1));
            const std::pair<const char*, std::array<int, 2>> kernels[] = {
                {"array", {3, 5}}, {"structs", {2, 5}}, {"twice", {9, 8}}};
            for (const auto& [pszKernel, results] : kernels)
            {
                for (const int n : {0, 1})
                {
                    program.Run(pszKernel, {{1}, {}, {}}, out, n);
                    EXPECT_EQ(device.Read<int>(out)[0], results[n]) << pszKernel << " " << n;
                }
            }
        });
}
