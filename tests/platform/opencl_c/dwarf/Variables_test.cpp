#include "tests/platform/opencl_c/dwarf/ProbedKernel.h"

#include <algorithm>

#include <gtest/gtest.h>

using namespace KestrelTests;

namespace
{

const size_t s_nItems = 24;

const SProbedKernel s_Kernels[] = {
    {"Scalars", R"(
__kernel void run(__global int* data, int scale)
{
    size_t item = get_global_id(0);
    P(scale) P(item) int i = data[item];
    P(i) char c = (char)(i * 7);
    P(c) uchar u = (uchar)c;
    P(u) short s = (short)(i * 1001);
    P(s) ushort t = (ushort)s;
    P(t) long l = (long)i * 0x123456789L;
    P(l) ulong m = (ulong)l >> 3;
    P(m) float f = i * 0.25f;
    P(f) double d = f * 3.0 + c;
    P(d) bool b = i > 11;
    P(b) P(c) P(u) P(s) P(t) P(l) P(m) P(f) P(d) c = (char)(c - scale);
    P(c) P(i) i += b ? (int)d : s;
    P(i) u++;
    P(u) s = t = (ushort)(u * 300);
    P(s) P(t) l -= m;
    P(l) data[item] = i + c + u + s + t + (int)l;
}
)"},
    {"Loops", R"(
__kernel void run(__global int* data, int scale)
{
    int item = (int)get_global_id(0);
    int total = 0;
    for (int i = 0; i < scale + (item & 3); ++i)
    {
        P(total) P(i) P(item) int square = i * i;
        if (square > 20 && (item & 1))
        {
            P(square) P(i) total += 1000;
            continue;
        }
        P(square) int inner = item;
        while (inner > 0)
        {
            P(inner) P(total) total += inner;
            P(total) inner -= 5;
            if (total > 3000)
            {
                break;
            }
        }
        do
        {
            P(inner) int total = inner * 2;
            P(total) inner += total + 3;
        } while (inner < 0);
        P(inner) P(total) total ^= inner;
    }
    P(total) P(scale) data[item] = total;
}
)"},
    {"Calls", R"(
int clampTo(int value, int low, int high)
{
    P(value) P(low) P(high) int result = value;
    if (result < low)
    {
        P(result) result = low;
        P(result) return result;
    }
    P(result) result = result > high ? high : result;
    P(result) return result;
}
int weigh(int value, int depth)
{
    int sum = depth;
    for (int i = 0; i < depth; ++i)
    {
        P(sum) P(i) int part = clampTo(value + i, 2, 9) + clampTo(sum, -5, depth * 4);
        P(part) sum += part;
    }
    return sum;
}
__kernel void run(__global int* data, int scale)
{
    int item = (int)get_global_id(0);
    int value = data[item];
    P(value) P(item) int a = weigh(value, scale);
    P(a) int b = weigh(a & 7, item & 3);
    P(a) P(b) value = clampTo(a, b, b + 10);
    P(value) data[item] = value + a * b;
}
)"},
    {"Switches", R"(
__kernel void run(__global int* data, int scale)
{
    int item = (int)get_global_id(0);
    int state = item % 7;
    int steps = 0;
    while (steps < 12)
    {
        P(state) P(steps) int before = state;
        switch (state)
        {
        case 0:
            P(before) state = 3;
        case 1:
            P(state) P(before) state += scale;
            break;
        case 2:
        case 5:
            P(state) steps += 2;
            state = 6;
            continue;
        case 6:
            P(before) goto done;
        default:
        {
            int extra = state - 1;
            P(extra) P(state) state = extra % 7;
            break;
        }
        }
        P(state) P(before) steps++;
        P(steps) state = state < 0 ? -state % 7 : state % 7;
    }
    P(state) steps += 100;
done:
    P(steps) P(state) data[item] = steps * 8 + state;
}
)"},
    {"Aggregates", R"(
typedef struct { int first; float weights[3]; short tag; short other; } record_t;
typedef union { float f; uint bits; } pun_t;
float total(const record_t* record)
{
    float sum = 0;
    for (int i = 0; i < 3; ++i)
    {
        P(sum) P(i) sum += record->weights[i] * record->tag;
    }
    return sum;
}
void swap(int* a, int* b)
{
    int keep = *a;
    P(keep) *a = *b;
    P(keep) *b = keep;
}
__kernel void run(__global int* data, int scale)
{
    int item = (int)get_global_id(0);
    int table[8];
    for (int i = 0; i < 8; ++i)
    {
        table[i] = (item * 5 + i * 3) & 15;
    }
    P(table) record_t record = {item, {0.5f, item * 1.0f, 2.0f}, (short)scale, 7};
    P(record) record.weights[item % 3] = 9.0f;
    P(record) for (int i = 1; i < 8; ++i)
    {
        for (int j = i; j > 0; --j)
        {
            if (table[j - 1] > table[j])
            {
                P(table) P(i) P(j) swap(&table[j - 1], &table[j]);
            }
        }
    }
    P(table) float sum = total(&record);
    pun_t pun;
    P(sum) pun.f = sum;
    P(pun) pun.bits ^= 0x80000000u;
    P(pun) record_t copy = record;
    P(copy) copy.first = table[7];
    P(copy) P(record) data[item] = copy.first + (int)pun.f + table[item & 7];
}
)"},
    {"Vectors", R"(
__kernel void run(__global int* data, int scale)
{
    int item = (int)get_global_id(0);
    float4 v = (float4)(0.0f);
    P(v) v.x = item * 1.5f;
    P(v) v.zw = v.xy + scale;
    P(v) int2 p = {item, data[item]};
    P(p) p = p.yx * 3;
    P(p) uchar4 c = {1, 2, 3, (uchar)item};
    P(c) c += (uchar)250;
    P(c) short2 s = {(short)-item, 300};
    P(s) s = s * (short)111;
    P(s) long2 l = {item, -item};
    P(l) l.y = l.x * 0x100000000L + 5;
    P(l) double2 d = {item / 3.0, scale};
    P(d) d = d.yx - 1.0;
    P(d) P(v) P(p) P(c) P(s) P(l) data[item] = (int)(v.x + v.w + d.x) + p.x + c.w + s.y + (int)l.y;
}
)"},
};

struct SDeviceKernel
{
    const char* pszDevice;
    const SProbedKernel* pKernel;
};

std::vector<SDeviceKernel> All()
{
    std::vector<SDeviceKernel> vAll;
    for (const char* pszDevice : {"Quench", "Kiln"})
    {
        for (const SProbedKernel& kernel : s_Kernels)
        {
            vAll.push_back({pszDevice, &kernel});
        }
    }
    return vAll;
}

class Variables : public testing::TestWithParam<SDeviceKernel>
{
};

} // namespace

TEST_P(Variables, HaveTheValuesOfAHostRun)
{
    const SProbedKernel& kernel = *GetParam().pKernel;
    const int nScale = 3;
    std::vector<int32_t> vHost;
    for (size_t n = 0; n < s_nItems; ++n)
    {
        vHost.push_back(static_cast<int32_t>(n * 37 % 23) - 4);
    }
    std::vector<int32_t> vDevice = vHost;
    const CVisits expected = RunOnHost(kernel, s_nItems, vHost, nScale);
    const CVisits got = RunOnDevice(kernel, GetParam().pszDevice, s_nItems, vDevice, nScale, expected);
    EXPECT_EQ(vDevice, vHost);
    size_t nValues = 0;
    for (const auto& [key, vExpected] : expected)
    {
        SCOPED_TRACE("work-item " + std::to_string(key.first) + ", line " + std::to_string(key.second));
        const auto it = got.find(key);
        ASSERT_NE(it, got.end());
        ASSERT_EQ(it->second.size(), vExpected.size());
        for (size_t n = 0; n < vExpected.size(); ++n)
        {
            for (const auto& [strName, strBytes] : vExpected[n])
            {
                const std::string& strGot = it->second[n].at(strName);
                // Addresses and sizes have the device's width, not the host's.
                const size_t nBytes = strName == "item" ? 4 : strBytes.size();
                ASSERT_EQ(Hex(strGot.substr(0, nBytes)), Hex(strBytes.substr(0, nBytes)))
                    << strName << ", visit " << n << ", got " << strGot;
                ++nValues;
            }
        }
    }
    EXPECT_GT(nValues, s_nItems * 10);
}

INSTANTIATE_TEST_SUITE_P(Kernels, Variables, testing::ValuesIn(All()),
                         [](const auto& test)
                         { return std::string(test.param.pszDevice) + test.param.pKernel->pszName; });
