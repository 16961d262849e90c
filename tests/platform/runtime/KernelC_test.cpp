#include "Runtime.h"

#include <functional>

/// Kernels written in C, run on every device and compared with the host.
namespace
{

constexpr size_t s_nItems = 40;

class CKernelCTest : public CRuntimeTest, public testing::WithParamInterface<const char*>
{
protected:
    CKernelCTest() : CRuntimeTest(GetParam()) {}

    cl_kernel Build(const std::string& strSource, const char* pszName)
    {
        const char* pszSource = strSource.c_str();
        m_program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
        EXPECT_EQ(cl.clBuildProgram(m_program, 0, nullptr, "-cl-kernel-arg-info", nullptr, nullptr), CL_SUCCESS)
            << InfoString(
                   [&](size_t nSize, void* pValue, size_t* pnSize) {
                       return cl.clGetProgramBuildInfo(m_program, m_device, CL_PROGRAM_BUILD_LOG, nSize, pValue,
                                                       pnSize);
                   });
        return cl.clCreateKernel(m_program, pszName, nullptr);
    }

    cl_program m_program = nullptr;
};

/// The EXPRESSION in `int i = get_global_id(0); out[i] = EXPRESSION;` where a[i] and b[i] are ints and f[i] is a float.
struct SExpression
{
    const char* pszText;
    std::function<cl_int(cl_int i, cl_int a, cl_int b, cl_float f)> m_host;
};

const SExpression s_expressions[] = {
    {"a[i] + b[i] * 3 - i", [](cl_int i, cl_int a, cl_int b, cl_float) { return a + b * 3 - i; }},
    {"(a[i] - b[i]) / 7 % 5", [](cl_int, cl_int a, cl_int b, cl_float) { return (a - b) / 7 % 5; }},
    {"-a[i] >> 2 | b[i] << 1 ^ 0x55 & ~i",
     [](cl_int i, cl_int a, cl_int b, cl_float) { return (-a >> 2) | ((b * 2) ^ (0x55 & ~i)); }},
    {"(uint)a[i] >> 28", [](cl_int, cl_int a, cl_int, cl_float) { return static_cast<cl_int>(cl_uint(a) >> 28); }},
    {"a[i] / 2u", [](cl_int, cl_int a, cl_int, cl_float) { return static_cast<cl_int>(cl_uint(a) / 2u); }},
    // NOLINTNEXTLINE(bugprone-incorrect-roundings)
    {"f[i] * 2 + .5f", [](cl_int, cl_int, cl_int, cl_float f) { return static_cast<cl_int>(f * 2 + .5f); }},
    {"(int)-f[i] + 1e1", [](cl_int, cl_int, cl_int, cl_float f) { return static_cast<cl_int>(-f) + 10; }},
    {"n * 1.5f / f[i]", [](cl_int, cl_int, cl_int, cl_float f) { return static_cast<cl_int>(9 * 1.5f / f); }},
    {"get_local_id(0) + 10 * get_group_id(0) + 100 * get_local_size(0) + 1000 * get_num_groups(0)",
     [](cl_int i, cl_int, cl_int, cl_float) { return i % 8 + 10 * (i / 8) + 100 * 8 + 1000 * 5; }},
    {"get_global_size(0) + get_global_size(2) * 1000 + get_global_offset(0) + get_local_id(1) + 010",
     [](cl_int, cl_int, cl_int, cl_float) { return 40 + 1000 + 8; }},
};

TEST_P(CKernelCTest, ExpressionsGiveWhatTheHostGets)
{
    std::vector<cl_int> vA, vB;
    std::vector<cl_float> vF;
    for (cl_int i = 0; i < static_cast<cl_int>(s_nItems); ++i)
    {
        vA.push_back(i * 977 - 20000);
        vB.push_back(i * i - 300);
        vF.push_back(static_cast<cl_float>(i) * 0.75f - 10.25f);
    }
    const cl_int n = 9;
    for (const SExpression& expression : s_expressions)
    {
        SCOPED_TRACE(expression.pszText);
        cl_kernel kernel = Build(std::string("kernel void k(global int* out, const global int* a, constant int* b,\n"
                                             "__global const float* restrict f, int n)\n"
                                             "{ int i = get_global_id(0); out[i] = ") +
                                     expression.pszText + "; }",
                                 "k");
        ASSERT_NE(kernel, nullptr);
        cl_mem buffers[] = {MakeBuffer(s_nItems * 4), MakeBuffer(s_nItems * 4, vA.data()),
                            MakeBuffer(s_nItems * 4, vB.data()), MakeBuffer(s_nItems * 4, vF.data())};
        for (cl_uint i = 0; i < 4; ++i)
        {
            EXPECT_EQ(cl.clSetKernelArg(kernel, i, sizeof(cl_mem), &buffers[i]), CL_SUCCESS);
        }
        EXPECT_EQ(cl.clSetKernelArg(kernel, 4, sizeof(n), &n), CL_SUCCESS);
        const size_t nLocal = 8;
        EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &s_nItems, &nLocal, 0, nullptr, nullptr),
                  CL_SUCCESS);
        const std::vector<cl_int> vOut = ReadAll<cl_int>(buffers[0], s_nItems);
        for (cl_int i = 0; i < static_cast<cl_int>(s_nItems); ++i)
        {
            const auto nIndex = static_cast<size_t>(i);
            EXPECT_EQ(vOut[nIndex], expression.m_host(i, vA[nIndex], vB[nIndex], vF[nIndex])) << "at " << i;
        }
        for (cl_mem buffer : buffers)
        {
            cl.clReleaseMemObject(buffer);
        }
        cl.clReleaseKernel(kernel);
        cl.clReleaseProgram(m_program);
    }
}

TEST_P(CKernelCTest, StatementsAndSeveralKernels)
{
    cl_kernel kernel = Build("#define STEP(v) v += 2; v *= 3; v--\n"
                             "kernel void other(uint n) { ; return; }\n"
                             "kernel void steps(global float* p, uint n) {\n"
                             "  int i = get_global_id(0), j, k = -1; j = i; i++; STEP(j);\n"
                             "  p[i + k] -= j; p[i + k] /= 2; p[i + k]++; n = n + 1; p[0 + i + k] += n; }\n",
                             "steps");
    ASSERT_NE(kernel, nullptr);
    EXPECT_EQ(InfoString([&](size_t nSize, void* pValue, size_t* pnSize)
                         { return cl.clGetKernelArgInfo(kernel, 0, CL_KERNEL_ARG_TYPE_NAME, nSize, pValue, pnSize); }),
              "float*");
    std::vector<cl_float> vValues(s_nItems, 100.0f);
    cl_mem buffer = MakeBuffer(s_nItems * 4, vValues.data());
    const cl_uint n = 6;
    cl.clSetKernelArg(kernel, 0, sizeof(buffer), &buffer);
    cl.clSetKernelArg(kernel, 1, sizeof(n), &n);
    EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &s_nItems, nullptr, 0, nullptr, nullptr),
              CL_SUCCESS);
    vValues = ReadAll<cl_float>(buffer, s_nItems);
    for (size_t i = 0; i < s_nItems; ++i)
    {
        EXPECT_EQ(vValues[i], (100.0f - (static_cast<cl_float>(i + 2) * 3 - 1)) / 2 + 1 + 7) << i;
    }
    cl.clReleaseMemObject(buffer);
    cl.clReleaseKernel(kernel);
    cl.clReleaseProgram(m_program);
}

INSTANTIATE_TEST_SUITE_P(Devices, CKernelCTest, testing::Values("Quench", "Kiln", "Host"));

} // namespace
