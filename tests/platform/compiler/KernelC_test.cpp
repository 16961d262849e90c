#include "Modules.h"

#include "platform/compiler/CTokens.h"

/// Kernels in C: what the preprocessor makes of macros, and what is refused where. That the values are right is tested
/// by running them, with the runtime.
namespace
{

using namespace KestrelPlatform;

/// Preprocessed text, a blank between tokens, or the fault.
std::string Preprocess(const std::string& strText)
{
    std::vector<SCToken> vTokens;
    SDiagnostic diag;
    if (!PreprocessC(SplitC(strText), vTokens, diag))
    {
        return diag.ToString();
    }
    std::string strResult;
    for (const SCToken& token : vTokens)
    {
        strResult += (strResult.empty() || token.eKind == SCToken::End ? "" : " ") + token.strText;
    }
    return strResult;
}

TEST(KernelC, Macros)
{
    struct SCase
    {
        const char* pText;
        const char* pExpected;
    };
    const SCase cases[] = {
        {"a /* b */ c // d\ne", "a c e"},
        {"#define N 3\nN N2 \"N\"", "3 N2 \" 3 \""},
        {"#define A B\n#define B A\nA B", "A B"},
        {"#define F(x) (x+x)\nF(1) F (2) F", "( 1 + 1 ) ( 2 + 2 ) F"},
        {"#define F(x, y) x-y\nF((1,2), F(3,4))", "( 1 , 2 ) - 3 - 4"},
        {"#define F(x) a##x##b\n#define N 1\nF(N) F() F(+)", "aNb ab a + b"},
        {"#define F (x)\nF", "( x )"},
        {"#define F() z\nF() F( )", "z z"},
        {"#define G(t) t*\n#define K(t, n) k##n(G(t##n))\n#define J(n) K(f, n)\nJ() J(2)", "k ( f * ) k2 ( f2 * )"},
        {"#define A 1 \\\n 2\nA", "1 2"},
        {"#ifdef A\nx\n#ifndef B\ny\n#endif\n#else\nz\n#endif", "z"},
        {"#define A\n#ifdef A\nx\n#undef A\n#endif\n#ifdef A\ny\n#endif\n#pragma OPENCL EXTENSION all : enable\nz",
         "x z"},
        {"#if 1\n#endif", "line 1, column 1: the directive '#if' isn't known here"},
        {"\n #define F(x\nF(1)", "line 2, column 12: expected ')' behind the macro's parameters"},
        {"#define F(x) x\n F(1, 2)", "line 2, column 2: the macro 'F' takes 1 arguments"},
        {"#define F(x) x\n F(1", "line 2, column 2: expected ')' behind the arguments of the macro 'F'"},
        {"#ifdef A", "line 1, column 9: expected '#endif'"},
        {"#endif", "line 1, column 2: '#endif' closes nothing"},
    };
    for (const SCase& test : cases)
    {
        EXPECT_EQ(Preprocess(test.pText), test.pExpected) << test.pText;
    }
}

TEST(KernelC, MacrosThatGrowAreStopped)
{
    std::string strDouble = "#define M0 x\n";
    std::string strChain = "#define N0 x\n";
    std::string strNested = "#define T(x) x x\n";
    std::string strEmpty = "#define E(x) x x\n";
    for (int n = 1; n < 300; ++n)
    {
        const std::string strLast = std::to_string(n - 1);
        strDouble += "#define M" + std::to_string(n) + " M" + strLast + " M" + strLast + "\n";
        strChain += "#define N" + std::to_string(n) + " N" + strLast + "\n";
        strNested += "T(";
        strEmpty += "E(";
    }
    EXPECT_NE(Preprocess(strDouble + "M60").find("expand to more"), std::string::npos);
    EXPECT_NE(Preprocess(strChain + "N299").find("too deeply"), std::string::npos);
    EXPECT_EQ(Preprocess(strChain + "N99"), "x");
    EXPECT_NE(Preprocess(strNested + "x" + std::string(299, ')')).find("too deeply"), std::string::npos);
    EXPECT_NE(Preprocess(strEmpty + std::string(299, ')')).find("too deeply"), std::string::npos);
    EXPECT_EQ(Preprocess(strEmpty.substr(0, 17 + 2 * 60) + std::string(60, ')')), "");
}

TEST(KernelC, RefusalsNameTheirPlace)
{
    struct SCase
    {
        const char* pBody;
        const char* pFault;
    };
    const SCase cases[] = {
        {"int i = 1", "column 42: expected ';'"},
        {"j = 1;", "column 32: 'j' isn't declared"},
        {"int a; int a;", "column 43: the name 'a' stands twice"},
        {"if (1) { }", "column 32: the statement 'if' isn't known here"},
        {"p = 0;", "column 34: expected '['"},
        {"p[0] + 1;", "column 37: expected an assignment"},
        {"p[1.0f] = 2;", "column 33: an index isn't a float"},
        {"float x = 1.0f % 2;", "column 47: '%' isn't for floats"},
        {"int x = sin(0);", "column 40: the function 'sin' isn't known here"},
        {"int x = get_global_id(3);", "column 54: expected a dimension"},
        {"int x = 12abc;", "column 40: '12abc' isn't a number"},
        {"int x = 4294967296;", "column 40: the number doesn't fit 32 bits"},
        {"double x;", "column 32: 'double' isn't declared"},
        {"return 1;", "column 39: expected ';'"},
        {"return; p[0] = 1;", "column 40: expected '}' behind 'return'"},
    };
    for (const SCase& test : cases)
    {
        const std::string strSource = std::string("kernel void f(global int* p) { ") + test.pBody + " }";
        const SBuildResult result = BuildFromSource(strSource, SBuildOptions(), Modules::Newer());
        EXPECT_FALSE(result.bOk) << test.pBody;
        EXPECT_NE(result.strLog.find(test.pFault), std::string::npos) << test.pBody << ": " << result.strLog;
    }
    const SCase heads[] = {
        {"kernel void f(float4 x) { }", "column 15: expected one of the types"},
        {"kernel void f(int* p) { }", "expected a pointer to global"},
        {"kernel void f(global int p) { }", "expected '*'"},
        {"kernel void f(int a, int a) { }", "column 26: the name 'a' stands twice"},
        {"kernel int f() { }", "column 8: expected 'void'"},
        {"kernel void f(constant int* p) { p[0] = 1; }", "column 39: what the pointer points to is constant"},
        {"kernel void f() {", "column 18: expected"},
        {"void f() { }", "column 1: expected '__kernel'"},
        {"kernel void f() { } kernel void f() { }", "f"},
    };
    for (const SCase& test : heads)
    {
        const SBuildResult result = BuildFromSource(test.pBody, SBuildOptions(), Modules::Newer());
        EXPECT_FALSE(result.bOk) << test.pBody;
        EXPECT_NE(result.strLog.find(test.pFault), std::string::npos) << test.pBody << ": " << result.strLog;
    }
}

TEST(KernelC, DeepExpressionsAndCutSources)
{
    const std::string strDeep = "kernel void f() { int x = " + std::string(100000, '(') + "1; }";
    EXPECT_NE(BuildFromSource(strDeep, SBuildOptions(), Modules::Newer()).strLog.find("too deeply"), std::string::npos);
    const std::string strMinus = "kernel void f() { int x = " + std::string(100000, '-') + "1; }";
    EXPECT_FALSE(BuildFromSource(strMinus, SBuildOptions(), Modules::Newer()).bOk);
    const std::string strWhole = "#define S(n) sum##n\n kernel void S(2)(global float* restrict out, const int n)\n"
                                 "{ uint i = get_global_id(0); out[i - 1] += (float)n * -2.5e-1f; }";
    ASSERT_TRUE(BuildFromSource(strWhole, SBuildOptions(), Modules::Older()).bOk);
    for (size_t n = 0; n < strWhole.size(); ++n)
    {
        EXPECT_FALSE(BuildFromSource(strWhole.substr(0, n), SBuildOptions(), Modules::Older()).bOk) << n;
    }
}

} // namespace
