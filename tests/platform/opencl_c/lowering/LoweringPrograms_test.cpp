#include "tests/platform/opencl_c/lowering/EachWay.h"

#include <algorithm>
#include <numeric>

using namespace KestrelTest;

// Falling through cases is part of the tests, and the text of the bodies goes to the device unchanged.
#pragma GCC diagnostic ignored "-Wimplicit-fallthrough"

namespace
{

/// Statements that mean the same in C++ and in OpenCL C: they compute out[i] from in[0 .. 63] and i.
struct SProgram
{
    const char* pszName;
    const char* pszBody;
    void (*pfnHost)(const int* in, int* out, int i);
};

#define PROGRAM(NAME, ...)                                                                                             \
    {                                                                                                                  \
#NAME, #__VA_ARGS__, [](const int* in, int* out, int i) { __VA_ARGS__ }                                        \
    }

const SProgram s_Programs[] = {
    PROGRAM(
        LoopWithTwoExits, int s = 0; int k; for (k = 0; k < 40; ++k) {
            if (in[k] == i) { s += 1000; break; }
            if (in[k] % 3 == 0) { continue; }
            s += in[k];
            if (s > 500) { break; }
        } out[i] = s * 100 + k;),
    PROGRAM(
        NestedLoops, int s = 0; for (int a = 0; a < in[i] % 7; ++a) {
            int b = 0;
            while (b < 10) {
                b += 1 + (a & 1);
                if (b == 5) { continue; }
                if (b > in[a] % 11) { break; }
                for (int c = b; c > 0; c /= 2) { s += a * b + c; }
            }
            s ^= b;
        } out[i] = s;),
    PROGRAM(
        SwitchWithFallThrough, int s = i; for (int k = 0; k < 8; ++k) {
            switch ((in[k] + i) % 6) {
            case 0: s += 1; break;
            case 1: s *= 3; s &= 0xFFFF;
            case 2: s -= 7; break;
            case 4: if (s & 1) { break; } s += 100; continue;
            default: s ^= 0x55;
            }
            s += 2;
        } out[i] = s;),
    PROGRAM(
        SwitchOverACondition, int s = in[i]; switch ((in[3] != in[i] / 2 * 2) & 7) {
            case 4: s = 1;
            case 1: s = in[in[i] & 63] / (i + 1);
            case 0: s += in[5];
        } out[i] = s;),
    PROGRAM(
        ReturnsFromWithin, if (in[i] < 10) { out[i] = 1; return; } for (int k = 0; k < 64; ++k) {
            if (in[k] == in[i]) { out[i] = k; return; }
        } out[i] = -1;),
    PROGRAM(
        GotoIntoALoop, int s = 0; int k = in[i] % 5; if (k > 2) { goto middle; } again : s += 2; middle : s += k; k++;
        if (k < 6) { goto again; } out[i] = s;),
    PROGRAM(
        SwappedInALoop, int a = 1; int b = in[i] % 9; for (int k = 0; k < in[(i + 1) % 64] % 13; ++k) {
            int t = a; a = b; b = (t + b) % 1000;
        } out[i] = a * 1000 + b;),
    PROGRAM(
        ThreeTurnInALoop, int a = 1; int b = 2; int c = 3; int d = in[i]; do {
            int t = a; a = b; b = c; c = t; d /= 2;
        } while (d > 0); out[i] = a * 100 + b * 10 + c;),
    PROGRAM(
        ShortCircuit, int n = 0; int k = in[i]; int r = (k > 50 && ++n > 0) || (k % 2 == 0 && ++n > 1) || (++n == 1);
        out[i] = r ? n * 10 : k; out[i] += (k & 1 ? (k > 20 ? 1 : 2) : (k > 70 ? 3 : 4));),
    PROGRAM(
        PrivateArray, int x[16]; for (int k = 0; k < 16; ++k) { x[k] = in[k] * k; } int s = 0; for (int k = 0; k < 40; ++k) {
            x[(in[k] + i) & 15] += k; s += x[(k * i) & 15];
        } out[i] = s;),
    PROGRAM(
        ArraysOfSmallTypes, char c[8]; short h[8]; unsigned char u[8]; for (int k = 0; k < 8; ++k) {
            c[k] = (char)(in[k] * 5); h[k] = (short)(in[k] * 1000); u[k] = (unsigned char)(in[k] * 7);
        } int s = 0; for (int k = 0; k < 8; ++k) { s += c[(k + i) & 7] * 3 + h[(k ^ i) & 7] - u[(i - k) & 7]; } out[i] = s;),
    PROGRAM(
        StructsByValue, struct P { int x; char c; short h; float f; }; struct Q { struct P a[3]; int n; }; struct Q q;
        for (int k = 0; k < 3; ++k) { q.a[k].x = in[k + i % 8]; q.a[k].c = (char)in[k]; q.a[k].h = (short)(in[k] * 2); q.a[k].f = in[k] * 0.5f; }
        q.n = i % 3; struct P p = q.a[q.n]; q.a[0] = p; p.x = 7; struct Q r = q; r.a[1].h = 3;
        out[i] = q.a[0].x + q.a[0].c * 2 + q.a[0].h * 3 + (int)(q.a[0].f * 4) + p.x + r.a[1].h + r.a[2].c;),
    PROGRAM(
        Unions, union U { float f; unsigned int u; unsigned char b[4]; unsigned short h[2]; }; union U u; u.f = (float)in[i];
        int s = (int)(u.u >> 20) + u.b[3] + u.h[1]; u.b[1] = (unsigned char)i; out[i] = s + (int)(u.u & 0xFFFF);),
    PROGRAM(
        Pointers, int x[8]; int y[8]; for (int k = 0; k < 8; ++k) { x[k] = in[k]; y[k] = in[k + 8]; }
        int* p = (in[i] & 1) ? x : y; int* q = p + (i & 3); *q += 5; q[1] -= 2; int** r = &q; **r += 1;
        int s = 0; for (p = x; p != x + 8; ++p) { s = s * 3 + *p; } for (int k = 0; k < 8; ++k) { s ^= y[k]; } out[i] = s;),
    PROGRAM(
        SixtyFourBits, long a = in[i]; unsigned long h = 0xcbf29ce484222325ul; for (int k = 0; k < 8; ++k) {
            h ^= (unsigned long)in[(k + i) & 63]; h *= 0x100000001b3ul; a = a * 31 + (long)(h >> 40);
        } out[i] = (int)((unsigned int)(h ^ (h >> 32)) + (unsigned int)(a % 1000003) + (unsigned int)(a / 7919));),
    PROGRAM(
        BigStruct, struct B { int x[40]; }; struct B a; struct B b; for (int k = 0; k < 40; ++k) { a.x[k] = in[k] + k; }
        b = a; b.x[i % 40] = 1000; a = b; int s = 0; for (int k = 0; k < 40; ++k) { s = s * 5 % 10007 + a.x[k]; } out[i] = s;),
    PROGRAM(
        VeryBigStruct, struct B { int x[130]; char c; }; struct B a; struct B b; for (int k = 0; k < 130; ++k) { a.x[k] = in[k % 64] + k; }
        a.c = (char)i; b = a; b.x[i] = 1000; a = b; int s = b.c; for (int k = 0; k < 130; ++k) { s = s * 5 % 10007 + a.x[k]; } out[i] = s;),
    PROGRAM(
        Initialised, int t[6] = {5, 4, 3}; unsigned char u[5] = {1, 2, 3, 4, 250}; float f[3] = {0.5f, 1.5f};
        int zero[70] = {0}; zero[i] = 9; int s = 0; for (int k = 0; k < 70; ++k) { s += zero[k] * k; }
        out[i] = t[i % 6] * 100 + u[i % 5] + (int)(f[i % 3] * 2) + s;),
    PROGRAM(
        ArrayOfThreeWords, struct V { int x; int y; int z; }; struct V v[9]; for (int k = 0; k < 9; ++k) {
            v[k].x = in[k]; v[k].y = in[k + 9] * 3; v[k].z = k;
        } for (int k = 0; k < 20; ++k) {
            struct V w = v[(k * i) % 9]; v[in[k] % 9].y += w.x - w.z; v[k % 8 + 1].z ^= v[k % 8].y;
        } int s = 0; for (int k = 0; k < 9; ++k) { s = s * 7 % 10007 + v[k].x + v[k].y * 2 + v[k].z; } out[i] = s;),
    PROGRAM(
        ArrayOfFiveWordsWithAnArray, struct W { int a; int b[3]; float f; }; struct W w[6]; for (int k = 0; k < 6; ++k) {
            w[k].a = k; w[k].b[0] = in[k]; w[k].b[1] = in[k + 1]; w[k].b[2] = in[k + 2]; w[k].f = 0.5f * in[k];
        } for (int k = 0; k < 30; ++k) { w[in[k] % 6].b[(k + i) % 3] += w[k % 6].a; w[(i + k) % 6] = w[k % 6]; }
        int s = 0; for (int k = 0; k < 18; ++k) { s = s * 3 % 10007 + w[k / 3].b[k % 3] + (int)(w[k / 3].f * 2); } out[i] = s;),
    PROGRAM(
        TwoIndices, int m[5][6]; for (int k = 0; k < 30; ++k) { m[k / 6][k % 6] = in[k]; } for (int k = 0; k < 30; ++k) {
            m[in[k] % 5][in[k + 1] % 6] -= m[(k + i) % 5][5 - k % 6];
        } int s = 0; for (int k = 0; k < 30; ++k) { s = s * 3 % 10007 + m[k % 5][k % 6]; } out[i] = s;),
    PROGRAM(
        PairsByIndicesBelowTheMiddle, unsigned long p[12]; for (int k = 0; k < 12; ++k) { p[k] = (unsigned long)in[k] << (k * 5); }
        unsigned long* q = p + 6; for (signed char k = -6; k < 6; ++k) { q[k] += p[(k + 6 + i) % 12] * 3; q[-k / 2] ^= q[k]; }
        unsigned long s = 0; for (int k = 0; k < 12; ++k) { s = s * 31 + p[k]; } out[i] = (int)(s ^ (s >> 32));),
    PROGRAM(
        CopiesOfArraysThatOverlap, int x[80]; int y[80]; for (int k = 0; k < 80; ++k) { x[k] = in[k % 64] * k; y[k] = 1; }
        for (int k = 79; k > 3; --k) { x[k] = x[k - 3]; } for (int k = 0; k < 70; ++k) { y[k + i % 10] = x[k]; }
        int s = 0; for (int k = 0; k < 80; ++k) { s = s * 3 % 10007 + y[k] + x[79 - k]; } out[i] = s;),
    PROGRAM(
        ProductsOfCounters, int n = in[i] % 5 + 3; int s = 0; for (int k = i % 3; k < n * 2; k += 2) {
            for (int l = n; l >= -2; --l) { s = s * 3 % 10007 + in[(k * n + l * 7 + 20) & 63] - (3 - k) * n; if (l * 5 == k) { break; } }
            if (k & 4) { s += k * i * 2; }
        } unsigned int u = 0; for (unsigned int k = 0; k <= 4294967290u; k += 613566756u) { u ^= k * 12345u + (unsigned int)n; }
        long w = 5; for (long k = -3; k < n; ++k) { w += k * 8589934592 * n + k * w; } out[i] = s + (int)u + (int)(w ^ (w >> 32));),
    PROGRAM(
        CountsThatAreLeft, int k; for (k = 0; k < 30; ++k) { if (in[k] == in[i] + 1) { break; } } int l = 7; while (l != i) {
            if (++l == 40) { break; } l = l & 63;
        } int m = 2; do { if (in[m] < i) { break; } } while (m++ != 12); int s = 0; for (unsigned int h = (unsigned int)in[i]; h > 1; h >>= 1) { s += (int)h * 3; }
        for (unsigned int h = 500; h >= 4; h >>= 2) { s ^= (int)h; } out[i] = k * 1000000 + l * 10000 + m * 100 + s;),
    PROGRAM(
        SumsThatLeaveALoopThatMayBeEmpty, int a = 0; int b = 0; int c = 3; int n = in[i] % 4; for (int k = 0; k < n; ++k) { a += in[k]; b -= k; c = a ^ b; }
        int d = 3; for (int k = n; k < 2; ++k) { int t = d; d = c + k; c = t; } out[i] = a * 1000 + b * 100 + c * 10 + d;),
    PROGRAM(
        IndicesWithKnownParts, int x[4][20]; struct S { short h; int v[9]; } y[7]; for (int k = 0; k < 80; ++k) { x[k / 20][k % 20] = in[k % 64]; }
        for (int k = 0; k < 63; ++k) { y[k / 9].v[k % 9] = k ^ i; y[k / 9].h = (short)k; } int s = 0; for (int k = 1; k < 6; ++k) {
            int r = in[k] & 1; for (int l = 1; l < 8; ++l) {
                s = s * 5 % 10007 + x[r + 1][l - 1] + x[r + 2][l + 3] * x[r][2 * l + 4] + y[k - 1].v[l + 1] - y[k + 1].v[l - 1] + y[k].h;
                x[r][l + 8] += x[r + 1][l + k]; y[k].v[8 - l] ^= s;
            }
        } out[i] = s;),
};

std::string SourceOf()
{
    std::string strSource;
    for (const SProgram& program : s_Programs)
    {
        strSource += "__kernel void " + std::string(program.pszName) +
                     "(__global const int* in, __global int* out)\n{\n    int i = get_global_id(0);\n    " +
                     program.pszBody + "\n}\n";
    }
    return strSource;
}

} // namespace

TEST(LoweringPrograms, FlowAndMemoryGiveWhatCGives)
{
    std::vector<int> vIn(64);
    for (size_t n = 0; n < vIn.size(); ++n)
    {
        vIn[n] = static_cast<int>(n * 37 % 101);
    }
    EachWay(
        [&](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, SourceOf(), strOptions);
            const CDeviceBuffer in = device.Buffer(vIn);
            for (const SProgram& each : s_Programs)
            {
                const CDeviceBuffer out = device.Buffer(std::vector<int>(64, -7));
                program.Run(each.pszName, {{64}, {}, {}}, in, out);
                std::vector<int> vExpected(64, -7);
                for (int i = 0; i < 64; ++i)
                {
                    each.pfnHost(vIn.data(), vExpected.data(), i);
                }
                EXPECT_EQ(device.Read<int>(out), vExpected) << each.pszName;
            }
        });
}

TEST(LoweringPrograms, VectorsOfEverySizeAndTypeAreLoadedChangedAndStored)
{
    const char* const types[] = {"char", "uchar", "short", "ushort", "int", "uint", "long", "ulong"};
    const size_t sizes[] = {1, 1, 2, 2, 4, 4, 8, 8};
    std::vector<uchar> vIn(2048);
    std::iota(vIn.begin(), vIn.end(), static_cast<uchar>(3));
    EachWay(
        [&](COpenCLDevice& device, const std::string& strOptions)
        {
            for (size_t t = 0; t < std::size(types); ++t)
            {
                std::string strSource;
                for (const size_t nCount : {2, 3, 4, 8, 16})
                {
                    const std::string strType = types[t] + std::to_string(nCount);
                    strSource += "__kernel void k" + std::to_string(nCount) + "(__global const " + strType +
                                 "* in, __global " + strType + "* out, int n) { int i = get_global_id(0); " + strType +
                                 " v = in[i]; " + strType + " w = v.s" +
                                 (nCount == 2   ? "10"
                                  : nCount == 3 ? "201"
                                  : nCount == 4 ? "3012"
                                  : nCount == 8 ? "76543210"
                                                : "fedcba9876543210") +
                                 "; w.s1 = v.s0; out[i] = w + v * (" + types[t] + ")3; out[i].s0 ^= v.s1; }\n";
                }
                COpenCLProgram program(device, strSource, strOptions);
                for (const size_t nCount : {2, 3, 4, 8, 16})
                {
                    const size_t nLanes = nCount == 3 ? 4 : nCount;
                    const size_t nItems = 8;
                    const CDeviceBuffer in = device.Buffer(vIn);
                    const CDeviceBuffer out = device.Buffer(std::vector<uchar>(nItems * nLanes * sizes[t]));
                    program.Run("k" + std::to_string(nCount), {{nItems}, {}, {}}, in, out, cl_int{5});
                    const std::vector<uchar> vOut = device.Read<uchar>(out);
                    const auto Get = [&](const std::vector<uchar>& v, size_t nItem, size_t nLane)
                    {
                        ulong nValue = 0;
                        std::memcpy(&nValue, &v[(nItem * nLanes + nLane) * sizes[t]], sizes[t]);
                        return nValue;
                    };
                    const ulong nMask = sizes[t] == 8 ? ~0ul : (1ul << (sizes[t] * 8)) - 1;
                    for (size_t i = 0; i < nItems; ++i)
                    {
                        for (size_t n = 0; n < nCount; ++n)
                        {
                            const size_t nFrom = nCount == 3 ? (n + 2) % 3 : nCount == 4 ? (n + 3) % 4 : nCount - 1 - n;
                            ulong nExpected = Get(vIn, i, n == 1 ? 0 : nFrom) + Get(vIn, i, n) * 3;
                            nExpected ^= n == 0 ? Get(vIn, i, 1) : 0;
                            ASSERT_EQ(Get(vOut, i, n), nExpected & nMask) << types[t] << nCount << " lane " << n;
                        }
                    }
                }
            }
        });
}

TEST(LoweringPrograms, ArgumentsOfEveryKindArrive)
{
    const char* const pszSource = R"(
struct S { int a; float b[3]; char c; short d; };
union V { int i; float f; };
enum E { ONE = 1, TWO };
__kernel void k(__global int* out, char c, uchar uc, short s, ushort us, int i, uint u, long l, ulong ul, float f,
                double d, char4 c4, short2 s2, float3 f3, double2 d2, uchar16 u16, struct S st, union V v, enum E e,
                __global int* nothing, struct S again)
{
    out[0] = c; out[1] = uc; out[2] = s; out[3] = us; out[4] = i; out[5] = (int)u; out[6] = (int)(l >> 32);
    out[7] = (int)ul; out[8] = (int)f; out[9] = (int)d; out[10] = c4.w; out[11] = s2.y; out[12] = (int)f3.z;
    out[13] = (int)d2.y; out[14] = u16.sf; out[15] = st.a + (int)st.b[2] + st.c + st.d; out[16] = (int)v.f; out[17] = e;
    out[18] = nothing == 0; again.a += 1; again.b[st.a & 1] = 4.0f; out[19] = again.a + (int)again.b[0] + again.d;
}
)";
    struct S
    {
        int a;
        float b[3];
        char c;
        short d;
    };
    union V
    {
        int i;
        float f;
    };
    EachWay(
        [&](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, pszSource, strOptions);
            const CDeviceBuffer out = device.Buffer(std::vector<int>(20));
            const S s = {100, {1, 2, 30}, -4, -500};
            V v;
            v.f = 77.5f;
            const cl_char4 c4 = {{1, 2, 3, -4}};
            const cl_short2 s2 = {{5, -6}};
            const cl_float3 f3 = {{1, 2, 33}};
            const cl_double2 d2 = {{1, -44}};
            cl_uchar16 u16 = {};
            u16.s[15] = 250;
            const cl_mem nothing = nullptr;
            program.Run("k", {{1}, {}, {}}, out, cl_char{-1}, cl_uchar{255}, cl_short{-2}, cl_ushort{65535}, cl_int{-3},
                        cl_uint{0xFFFFFFFE}, cl_long{-4294967296}, cl_ulong{7}, cl_float{8.5f}, cl_double{-9.5}, c4, s2,
                        f3, d2, u16, s, v, cl_int{2}, nothing, s);
            const std::vector<int> vExpected = {-1, 255, -2, 65535,        -3, -2,  -1,  7,
                                                8,  -9,  -4, -6,           33, -44, 250, 100 + 30 - 4 - 500,
                                                77, 2,   1,  101 + 4 - 500};
            EXPECT_EQ(device.Read<int>(out), vExpected);
        });
}

TEST(LoweringPrograms, LocalMemoryIsSharedAndArgumentsLieAfterIt)
{
    const char* const pszSource = R"(
__kernel void sum(__global const int* in, __global int* out, __local int* other, __local char* bytes)
{
    __local int part[64];
    __local short small[3];
    int l = get_local_id(0);
    part[l] = in[get_global_id(0)];
    other[l] = l * 2;
    bytes[l] = (char)(l + 1);
    if (l < 3) { small[l] = (short)(l - 1); }
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int n = 32; n > 0; n >>= 1)
    {
        if (l < n) { part[l] += part[l + n]; }
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    out[get_global_id(0)] = part[0] + other[63 - l] * 1000 + bytes[(l + 1) & 63] * 1000000 + small[l % 3];
}
__kernel void atomics(__global int* count, __global uint* most)
{
    __local int here;
    __local uint top;
    if (get_local_id(0) == 0) { here = 0; top = 0; }
    barrier(CLK_LOCAL_MEM_FENCE);
    atomic_inc(&here);
    int old = atomic_add(&here, 2);
    atomic_max(&top, (uint)get_local_id(0) * 3);
    atomic_or(&count[3], 1 << (get_global_id(0) & 31));
    barrier(CLK_LOCAL_MEM_FENCE);
    if (get_local_id(0) == 0) { atomic_add(&count[0], here); atomic_max(most, top); }
    int seen = count[1];
    while (1)
    {
        int before = atomic_cmpxchg(&count[1], seen, seen + 5);
        if (before == seen) { break; }
        seen = before;
    }
    atomic_sub(&count[2], old < 0 ? 0 : 1);
}
)";
    std::vector<int> vIn(128);
    std::iota(vIn.begin(), vIn.end(), 10);
    EachWay(
        [&](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, pszSource, strOptions);
            const CDeviceBuffer in = device.Buffer(vIn);
            const CDeviceBuffer out = device.Buffer(std::vector<int>(128));
            program.Run("sum", {{128}, {64}, {}}, in, out, SLocalBytes{256}, SLocalBytes{64});
            const std::vector<int> vOut = device.Read<int>(out);
            for (int i = 0; i < 128; ++i)
            {
                const int l = i % 64;
                const int nSum = i < 64 ? 64 * 10 + 2016 : 64 * 74 + 2016;
                ASSERT_EQ(vOut[static_cast<size_t>(i)],
                          nSum + (63 - l) * 2000 + (((l + 1) & 63) + 1) * 1000000 + l % 3 - 1)
                    << i;
            }
            const CDeviceBuffer count = device.Buffer(std::vector<int>(4));
            const CDeviceBuffer most = device.Buffer(std::vector<uint>(1));
            program.Run("atomics", {{128}, {64}, {}}, count, most);
            EXPECT_EQ(device.Read<int>(count), (std::vector<int>{128 * 3, 128 * 5, -128, -1}));
            EXPECT_EQ(device.Read<uint>(most), std::vector<uint>{63 * 3});
        });
}

TEST(LoweringPrograms, ConstantsAreReadFromTheProgramAndFromBuffers)
{
    const char* const pszSource = R"(
struct P { char c; int x; short h; };
__constant int words[8] = {3, 1, 4, 1, 5, 9, 2, 6};
__constant uchar bytes[6] = {10, 20, 30, 40, 50, 255};
__constant struct P points[3] = {{1, 2, 3}, {4, 5, 6}, {-7, 8, -9}};
__constant float4 four[2] = {(float4)(1, 2, 3, 4), (float4)(5, 6, 7, 8)};
__constant long longs[2] = {1L << 40, -5};
__constant int* __constant pointed = words;
int pick(__constant int* p, int i) { return p[i & 7]; }
__kernel void k(__constant int* given, __global int* out)
{
    int i = get_global_id(0);
    int r = words[i & 7] + bytes[i % 6] * 10 + points[i % 3].x + points[i % 3].c - points[(i + 1) % 3].h;
    float4 f = four[i & 1];
    r += (int)(f.x + f.w) + (int)(longs[i & 1] >> 38);
    r += pick(i & 2 ? given : words, i) * 7;
    r += pick(given, i + 1) + pick(words, i + 2);
    out[i] = r + "abcdef"[i % 6] + pointed[2];
}
)";
    const int words[8] = {3, 1, 4, 1, 5, 9, 2, 6};
    const uchar bytes[6] = {10, 20, 30, 40, 50, 255};
    const int points[3][3] = {{1, 2, 3}, {4, 5, 6}, {-7, 8, -9}};
    const std::vector<int> vGiven = {100, 200, 300, 400, 500, 600, 700, 800};
    EachWay(
        [&](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, pszSource, strOptions);
            const CDeviceBuffer given = device.Buffer(vGiven);
            const CDeviceBuffer out = device.Buffer(std::vector<int>(32));
            program.Run("k", {{32}, {}, {}}, given, out);
            std::vector<int> vExpected;
            for (int i = 0; i < 32; ++i)
            {
                int r = words[i & 7] + bytes[i % 6] * 10 + points[i % 3][1] + points[i % 3][0] - points[(i + 1) % 3][2];
                r += (i & 1 ? 13 : 5) + static_cast<int>((i & 1 ? -5l : 1l << 40) >> 38);
                r += (i & 2 ? vGiven[static_cast<size_t>(i & 7)] : words[i & 7]) * 7;
                r += vGiven[static_cast<size_t>((i + 1) & 7)] + words[(i + 2) & 7];
                vExpected.push_back(r + "abcdef"[i % 6] + 4);
            }
            EXPECT_EQ(device.Read<int>(out), vExpected);
        });
}

TEST(LoweringPrograms, ImagesAreSampledLoadedWrittenAndAskedFor)
{
    const char* const pszSource = R"(
__constant sampler_t edge = CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP_TO_EDGE | CLK_FILTER_NEAREST;
__kernel void k(read_only image2d_t src, write_only image2d_t dst, sampler_t given, __global int* out)
{
    const sampler_t border = CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP | CLK_FILTER_NEAREST;
    int2 p = (int2)(get_global_id(0), get_global_id(1));
    float4 v = read_imagef(src, edge, p - 1) + read_imagef(src, border, p - 1) + read_imagef(src, p)
             + read_imagef(src, given, (float2)((p.x + 0.5f) / 4, (p.y + 0.5f) / 4));
    write_imagef(dst, p, v);
    out[p.y * 4 + p.x] = get_image_width(src) * 100 + get_image_height(dst);
}
)";
    std::vector<float> vPixels(16 * 4);
    std::iota(vPixels.begin(), vPixels.end(), 1.0f);
    const cl_image_format format = {CL_RGBA, CL_FLOAT};
    EachWay(
        [&](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, pszSource, strOptions);
            const CDeviceBuffer src = device.Image2D(format, 4, 4, vPixels.data());
            const CDeviceBuffer dst = device.Image2D(format, 4, 4, nullptr);
            const CDeviceBuffer out = device.Buffer(std::vector<int>(16));
            cl_int nCode = -1;
            const cl_sampler sampler =
                device.cl.clCreateSampler(device.m_context, CL_TRUE, CL_ADDRESS_REPEAT, CL_FILTER_NEAREST, &nCode);
            ASSERT_EQ(nCode, CL_SUCCESS);
            program.Run("k", {{4, 4}, {}, {}}, src, dst, sampler, out);
            device.cl.clReleaseSampler(sampler);
            const std::vector<float> vResult = device.ReadImage2D<float>(dst, 4, 4, 4);
            for (int y = 0; y < 4; ++y)
            {
                for (int x = 0; x < 4; ++x)
                {
                    for (int c = 0; c < 4; ++c)
                    {
                        const auto At = [&](int u, int w) { return vPixels.at((w * 4 + u) * 4 + c); };
                        const float fBorder = x == 0 || y == 0 ? 0.0f : At(x - 1, y - 1);
                        ASSERT_EQ(vResult[static_cast<size_t>((y * 4 + x) * 4 + c)],
                                  At(std::max(x - 1, 0), std::max(y - 1, 0)) + fBorder + At(x, y) * 2)
                            << x << " " << y << " " << c;
                    }
                }
            }
            EXPECT_EQ(device.Read<int>(out), std::vector<int>(16, 404));
        });
}

TEST(LoweringPrograms, WhatPassesALimitSaysWhichKernelAndHowMuch)
{
    // A number of arguments of a type, and an image to read.
    const auto Many = [](const std::string& strType, const std::string& strUse, int nCount)
    {
        std::string strSource = "__kernel void many(__global float* p";
        for (int n = 0; n < nCount; ++n)
        {
            strSource += ", " + strType + " a" + std::to_string(n);
        }
        return strSource + ", read_only image2d_t i) { " + strUse + " }";
    };
    const std::string strSampler = "p[0] = read_imagef(i, a15, (float2)(0.5f)).x;";
    struct
    {
        std::string strSource;
        const char* pszSays;
    } const cases[] = {
        {Many("write_only image2d_t", "p[0] = get_image_width(a8);", 9),
         "kernel 'many': needs 9 images to write, more than the device's 8"},
        {Many("read_only image2d_t", "p[0] = get_image_width(a127);", 128),
         "kernel 'many': needs 129 images to read, more than the device's 128"},
        {Many("sampler_t", strSampler, 17), "kernel 'many': needs 17 samplers, more than the device's 16"},
        {Many("sampler_t",
              "const sampler_t own = CLK_FILTER_LINEAR; p[1] = read_imagef(i, own, (float2)(0.5f)).x; " + strSampler,
              16),
         "kernel 'many': needs 17 samplers, more than the device's 16"},
        {"__kernel void big(__global int* p) { __local int x[8193]; x[get_local_id(0)] = 1; barrier(1); p[0] = x[5]; }",
         "kernel 'big': needs 32772 bytes of local memory, more than the device's 32768"},
        {"__kernel void deep(__global int* p, int n) { int x[70000]; for (int i = 0; i < 70000; ++i) { x[i] = p[i]; } "
         "p[0] = x[n]; }",
         "kernel 'deep': needs 280016 bytes of private memory"},
    };
    COpenCLDevice device("Quench");
    for (const auto& each : cases)
    {
        try
        {
            COpenCLProgram program(device, each.strSource);
            ADD_FAILURE() << "built: " << each.strSource.substr(0, 200);
        }
        catch (const std::runtime_error& failure)
        {
            EXPECT_NE(std::string(failure.what()).find(each.pszSays), std::string::npos) << failure.what();
        }
    }
    // Programs at the limits build.
    for (const std::string& strSource :
         {Many("write_only image2d_t", "p[0] = get_image_width(a7);", 8),
          Many("read_only image2d_t", "p[0] = get_image_width(a126);", 127), Many("sampler_t", strSampler, 16)})
    {
        COpenCLProgram program(device, strSource);
    }
    COpenCLProgram program(device, "__kernel void all(__global int* p) { __local int x[8192]; x[get_local_id(0)] = 1; "
                                   "barrier(CLK_LOCAL_MEM_FENCE); p[0] = x[5]; }");
}

/// More loops than the compiler's loop passes handle.
TEST(LoweringPrograms, AFunctionMayHaveAnyNumberOfLoops)
{
    const uint nLoops = 250;
    std::string strSource = "kernel void k(global uint* out, uint n) { uint x = out[0];\n";
    uint x = 3;
    for (uint nLoop = 0; nLoop < nLoops; ++nLoop)
    {
        const std::string strLoop = std::to_string(nLoop);
        strSource += "for (uint j = 0; j < n + " + std::to_string(nLoop % 3) + "; ++j) { if (x & 4) x += j * " +
                     strLoop + "; else x ^= " + strLoop + "; }\n";
        for (uint j = 0; j < 5 + nLoop % 3; ++j)
        {
            x = (x & 4) != 0 ? x + j * nLoop : x ^ nLoop;
        }
    }
    EachWay(
        [&](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, strSource + "out[0] = x; }", strOptions);
            const CDeviceBuffer out = device.Buffer(std::vector<uint>{3});
            program.Run("k", {{1}, {}, {}}, out, 5u);
            EXPECT_EQ(device.Read<uint>(out)[0], x);
        });
}
