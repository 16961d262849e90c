#include "Programs.h"

/// Sources that don't build: the log says why and where, and the process continues.
namespace
{

using namespace KestrelTest;

struct SFaultyCase
{
    const char* pszWhat;
    std::string strSource;
    std::string strLog; ///< a part of it
    /// The compilation is aborted from within, and its memory leaks, which a leak checker reports.
    bool bEnds = false;
};

std::string Repeat(const std::string& strText, size_t nTimes)
{
    std::string strAll;
    for (size_t n = 0; n < nTimes; ++n)
    {
        strAll += strText;
    }
    return strAll;
}

/// Functions that each call the previous one twice.
std::string Doubling(unsigned int nFunctions)
{
    std::string strSource = "int f0(int x) { return x * x + 1; }\n";
    for (unsigned int n = 1; n <= nFunctions; ++n)
    {
        const std::string strBefore = "f" + std::to_string(n - 1);
        strSource +=
            "int f" + std::to_string(n) + "(int x) { return " + strBefore + "(x) + " + strBefore + "(x + 1); }\n";
    }
    return strSource + "kernel void k(global int* a) { a[0] = f" + std::to_string(nFunctions) + "(a[1]); }\n";
}

const SFaultyCase s_FaultyCases[] = {
    {"nothing of the language", "what is this", "kernel.cl:1:1: error: unknown type name 'what'"},
    {"a caret below the place", "kernel void k(global int* a) {\n  a[0] = b;\n}\n",
     "kernel.cl:2:10: error: use of undeclared identifier 'b'\n  a[0] = b;\n         ^\n"},
    {"the user's file and line", "#line 70 \"mine.cl\"\nkernel void k(global int* a) { a = 1.5; }\n", "mine.cl:70:"},
    {"#error", "#error not like this\n", "error: not like this"},
    {"a header that isn't there", "#include \"nowhere.h\"\n", "'nowhere.h' file not found"},
    {"a header that includes itself", "#include __FILE__\n", "file not found"},
    {"brackets without end",
     "kernel void k(global int* a) { a[0] = " + Repeat("(", 5000) + "1" + Repeat(")", 5000) + "; }",
     "bracket nesting level exceeded"},
    {"a chain of operators without end", "kernel void k(global int* a) { a[0] = " + Repeat("- ", 4'000'000) + "1; }",
     "error: ", true},
    {"macros without end",
     "#define A a[0]++; a[0]++; a[0]++; a[0]++; a[0]++; a[0]++; a[0]++; a[0]++;\n#define B A A A A A A A A\n"
     "#define C B B B B B B B B\n#define D C C C C C C C C\n#define E D D D D D D D D\n#define F E E E E E E E E\n"
     "#define G F F F F F F F F\nkernel void k(global int* a) { G G }\n",
     "tokens", true},
    {"arguments of macros without end",
     "#define A(x) x x x x x x x x x x\n#define B(x) A(A(A(A(x))))\nkernel void k(global int* a) { B(B(a[0]++;)) }\n",
     "memory", true},
    {"calls without end", Doubling(40), "kernel k would have more than"},
    {"recursion", "int f(int n) { return n < 2 ? n : f(n - 1); }\nkernel void k(global int* a) {\n a[0] = f(a[1]); }\n",
     "kernel.cl:1:35: error: function 'f' calls itself"},
    {"a function that is nowhere", "int f(int n);\nkernel void k(global int* a) {\n  a[0] = f(1);\n}\n",
     "kernel.cl:3:10: error: function 'f' is called and nowhere defined"},
    {"assembly", "kernel void k(global int* a) { __asm__(\"hlt\"); }\n", "error: "},
    {"a pointer to a function", "int f(int n) { return n; }\nkernel void k(global int* a) { int (*p)(int) = f; }\n",
     "pointers to functions are not allowed"},
    {"a format that isn't a literal", "kernel void k(constant char* a) { printf(a); }\n",
     "error: the format of printf isn't a string literal"},
    {"half arithmetic, which isn't reported", "kernel void k(global float* a) { half h = 1.0h; a[0] = h; }\n",
     "error: "},
    {"a text that ends in the start of a name", "kernel void k(global int* a) {\n  printf(\"\\N\");\n}\n",
     "kernel.cl:2:11: error: '\\N' must be followed"},
    {"a character of that kind in a directive", "#if 1 // don't\n#if '\\\n\?\?/N' == 0\n#endif\n#endif\n",
     "kernel.cl:3:1: error: '\\N'"},
    {"a text that a macro makes", "#define T(x) #x\nkernel void k(global int* a) { printf(T(\\N)); }\n",
     "kernel.cl:2:41: error: '\\N'"},
    {"a zero byte", std::string("kernel void k() {}\n\0x", 21), "error: line 2: the source holds a zero byte"},
};

class CFaultySourceTest : public testing::TestWithParam<SFaultyCase>
{
};

TEST_P(CFaultySourceTest, FailsAndSaysWhy)
{
    const SFaultyCase& test = GetParam();
#ifdef __SANITIZE_ADDRESS__
    if (test.bEnds)
    {
        GTEST_SKIP() << "what a compilation that is ended leaves behind counts as leaked";
    }
#endif
    COpenCLDevice device("Quench");
    const char* pszSource = test.strSource.c_str();
    const size_t nLength = test.strSource.size();
    const CProgramHandle program(
        device.cl.clCreateProgramWithSource(device.m_context, 1, &pszSource, &nLength, nullptr));
    EXPECT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, "", nullptr, nullptr), CL_BUILD_PROGRAM_FAILURE);
    const std::string strLog = LogOf(device, program);
    EXPECT_NE(strLog.find(test.strLog), std::string::npos) << test.pszWhat << ":\n" << strLog.substr(0, 2000);
    EXPECT_EQ(TypeOf(device, program), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_NONE));

    const CProgramHandle good = FromSource(device, "kernel void k(global int* out) { out[0] = 3; }\n");
    ASSERT_EQ(device.cl.clBuildProgram(good.Get(), 0, nullptr, "", nullptr, nullptr), CL_SUCCESS)
        << "the compiler works after " << test.pszWhat;
    EXPECT_EQ(RunInts(device, good, "k", 1)[0], 3);
}

INSTANTIATE_TEST_SUITE_P(Sources, CFaultySourceTest, testing::ValuesIn(s_FaultyCases));

} // namespace
