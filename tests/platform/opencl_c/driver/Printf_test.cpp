#include "Programs.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

/// Compares the output of kernels with that of the host's C library.
namespace
{

using namespace KestrelTest;

struct SPrintCase
{
    const char* pszStatement;
    std::string strExpected;
};

std::string Host(const char* pszFormat, ...)
{
    char text[256] = {};
    va_list arguments;
    va_start(arguments, pszFormat);
    std::vsnprintf(text, sizeof text, pszFormat, arguments);
    va_end(arguments);
    return text;
}

const SPrintCase s_PrintCases[] = {
    {R"(printf("plain: 100%%;\n"))", "plain: 100%;\n"},
    {R"(printf("%d %i %u %x %X %o|", -5, 6, 7u, 255, 255, 8))", Host("%d %i %u %x %X %o|", -5, 6, 7u, 255, 255, 8)},
    {R"(printf("%5d|%-5d|%05d|%+d|% d|%#x|%.3d", 42, 42, 42, 42, 42, 42, 7))",
     Host("%5d|%-5d|%05d|%+d|% d|%#x|%.3d", 42, 42, 42, 42, 42, 42, 7)},
    {R"(printf("%ld %lu %lx", -1L << 40, 1UL << 63, 1L << 36))",
     Host("%ld %lu %lx", -1L * (1L << 40), 1UL << 63, 1L << 36)},
    {R"(printf("%hhd %hd %hhu", (char)-3, (short)-300, (uchar)200))", Host("%hhd %hd %hhu", -3, -300, 200)},
    {R"(printf("%f %e %g %a %.2f %10.3e|%-8g|", 1.5f, 2.5f, 0.1f, 1.0f, 3.14159f, 12345.678f, 2.0f))",
     Host("%f %e %g %a %.2f %10.3e|%-8g|", 1.5, 2.5, double(0.1f), 1.0, double(3.14159f), double(12345.678f), 2.0)},
    {R"(printf("%f %g", 1.0 / 3.0, 1e300))", Host("%f %g", 1.0 / 3.0, 1e300)},
    {R"(printf("%f %F", INFINITY, -INFINITY))", Host("%f %F", double(INFINITY), double(-INFINITY))},
    {R"(printf("%c%c%3c", 'a', 98, 'c'))", "ab  c"},
    {R"(printf("%s|%8s|%-4s|%.2s", "word", "right", "l", "cut"))", "word|   right|l   |cu"},
    {R"(printf("%v4d", (int4)(1, -2, 3, -4)))", "1,-2,3,-4"},
    {R"(printf("%v2hlf|%v4hlx|%v2ld", (float2)(1.5f, 2.5f), (uint4)(10, 11, 12, 255), (long2)(-1, 1L << 40)))",
     "1.500000,2.500000|a,b,c,ff|-1,1099511627776"},
    {R"(printf("%v8hhd %v3hd", (char8)(1, -2, 3, -4, 5, -6, 7, -8), (short3)(-1, 2, -3)))",
     "1,-2,3,-4,5,-6,7,-8 -1,2,-3"},
    {R"(printf("%5.1v2hlf|", (float2)(1.25f, 2.0f)))", Host("%5.1f,%5.1f|", 1.25, 2.0)},
    {R"(printf("%v2lf", (double2)(0.5, -0.25)))", "0.500000,-0.250000"},
    {R"(printf("%d %y %s", 3))", "3 %y %s"},
    {R"(printf("%f|%s|%v4d", 3, 4, 5))", "%f|%s|%v4d"},
    {R"(int n = printf("x"); printf("%d", n))", "x0"},
    {R"(for (int i = 0; i < 3; ++i) { printf("%d ", i); })", "0 1 2 "},
    {R"(printf("%s", out[0] > 5 ? "large" : "small"))", "small"},
};

class CPrintfTest : public testing::TestWithParam<SPrintCase>
{
};

TEST_P(CPrintfTest, PrintsAsTheHostDoes)
{
    const SPrintCase& test = GetParam();
    const std::string strSource =
        "kernel void k(global int* out) { " + std::string(test.pszStatement) + "; out[0] = 1; }\n";
    for (const char* pszDevice : {"Quench", "Kiln"})
    {
        for (const char* pszOptions : {"-w", "-w -g"})
        {
            COpenCLDevice device(pszDevice);
            const CProgramHandle program = FromSource(device, strSource);
            ASSERT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, pszOptions, nullptr, nullptr), CL_SUCCESS)
                << LogOf(device, program);
            testing::internal::CaptureStdout();
            const int nRun = RunInts(device, program, "k", 1)[0];
            EXPECT_EQ(testing::internal::GetCapturedStdout(), test.strExpected) << pszDevice << pszOptions;
            EXPECT_EQ(nRun, 1);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, CPrintfTest, testing::ValuesIn(s_PrintCases));

TEST(Printf, LaunchesPrintInTheirOrderAndGroupsOneAfterTheOther)
{
    COpenCLDevice device("Quench");
    COpenCLProgram program(device, "kernel void k(int n) { printf(\"%d.%d.%d \", n, (int)get_group_id(0), "
                                   "(int)get_local_id(0)); }\n");
    testing::internal::CaptureStdout();
    std::string strExpected;
    for (int n = 0; n < 3; ++n)
    {
        program.Run("k", {{64}, {8}, {}}, n);
        for (int i = 0; i < 64; ++i)
        {
            strExpected += std::to_string(n) + "." + std::to_string(i / 8) + "." + std::to_string(i % 8) + " ";
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), strExpected);
}

TEST(Printf, WhatDoesntFitIsCounted)
{
    COpenCLDevice device("Quench");
    COpenCLProgram program(device, "kernel void k() { printf(\"%d\\n\", (int)get_global_id(0)); }\n");
    size_t nBuffer = 0;
    device.cl.clGetDeviceInfo(device.m_device, CL_DEVICE_PRINTF_BUFFER_SIZE, sizeof nBuffer, &nBuffer, nullptr);
    ASSERT_GE(nBuffer, size_t{1024} * 1024);
    const size_t nItems = size_t{1} << 17;
    testing::internal::CaptureStdout();
    program.Run("k", {{nItems}, {64}, {}});
    const std::string strText = testing::internal::GetCapturedStdout();
    const auto nLines = static_cast<size_t>(std::count(strText.begin(), strText.end(), '\n'));
    EXPECT_LT(nLines, nItems);
    EXPECT_NE(strText.find("[printf: " + std::to_string(nItems - (nLines - 1)) + " more that didn't fit"),
              std::string::npos)
        << strText.substr(strText.size() - 100);
}

/// A debugger builds its copies of kernels from the binary's text: these compute, but print nothing.
TEST(Printf, CopiesOfADebuggerPrintNothing)
{
    COpenCLDevice device("Quench");
    const CProgramHandle program =
        FromSource(device, "kernel void k(global int* out) { printf(\"hello\"); out[0] = 4; }\n");
    ASSERT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, "-g", nullptr, nullptr), CL_SUCCESS);
    const CProgramHandle copy = FromBinary(device, BinaryOf(device, program));
    for (const char* pszOptions : {"", "-use-debugil"})
    {
        ASSERT_EQ(device.cl.clBuildProgram(copy.Get(), 0, nullptr, pszOptions, nullptr, nullptr), CL_SUCCESS);
        testing::internal::CaptureStdout();
        EXPECT_EQ(RunInts(device, copy, "k", 1)[0], 4);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), pszOptions[0] == '\0' ? "hello" : "");
    }
}

} // namespace
