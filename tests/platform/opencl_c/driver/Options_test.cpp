#include "Programs.h"

#include <filesystem>

/// Build options have the effect that OpenCL describes, and predefined macros match what the device reports.
namespace
{

using namespace KestrelTest;

struct SOptionCase
{
    const char* pszOptions;
    const char* pszExpression; ///< of an int, for `out[0] = ...`
    int nExpected;
};

const SOptionCase s_OptionCases[] = {
    {"-D A=7", "A", 7},
    {"-DA", "A", 1},
    {"-D A=1 -D A=2 -w", "A", 2},
    {"-D \"A=3 + 4\"", "A * 2", 11},
    {"-DA=\"3 + 4\"", "A * 2", 11},
    {"'-DA=(5 - 2)' -DB=A", "B", 3},
    {"-D TEXT=\\\"four\\\"", "sizeof(TEXT)", 5},
    {"-DF(x)=x*x", "F(5)", 25},
    {"", "sizeof(1.0)", 8},
    {"-cl-single-precision-constant", "sizeof(1.0f * 1.0)", 4},
    {"", "__OPENCL_C_VERSION__", 120},
    {"-cl-std=CL1.1", "__OPENCL_C_VERSION__", 110},
    {"-cl-std=CL1.2", "__OPENCL_C_VERSION__", 120},
    {"", "__OPENCL_VERSION__", 120},
    {"", "CL_VERSION_1_2 + __ENDIAN_LITTLE__ + __IMAGE_SUPPORT__", 122},
    {"-cl-fast-relaxed-math", "__FAST_RELAXED_MATH__", 1},
    {"-cl-mad-enable -cl-no-signed-zeros -cl-unsafe-math-optimizations -cl-finite-math-only", "1", 1},
    {"-cl-denorms-are-zero -cl-fp32-correctly-rounded-divide-sqrt -cl-strict-aliasing", "2", 2},
    {"-cl-opt-disable", "3", 3},
    {"-cl-kernel-arg-info -Werror -g", "4", 4},
    {"", "__LINE__ * 0 + __kernel_exec_is_no_macro", 5},
};

class COptionsTest : public testing::TestWithParam<SOptionCase>
{
};

TEST_P(COptionsTest, HaveTheirEffect)
{
    const SOptionCase& test = GetParam();
    for (const char* pszDevice : {"Quench", "Kiln"})
    {
        COpenCLDevice device(pszDevice);
        const CProgramHandle program =
            FromSource(device, "enum { __kernel_exec_is_no_macro = 5 };\nkernel void k(global int* out) { out[0] = " +
                                   std::string(test.pszExpression) + "; }\n");
        ASSERT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, test.pszOptions, nullptr, nullptr), CL_SUCCESS)
            << LogOf(device, program);
        EXPECT_EQ(RunInts(device, program, "k", 1)[0], test.nExpected) << test.pszExpression;
    }
}

INSTANTIATE_TEST_SUITE_P(Options, COptionsTest, testing::ValuesIn(s_OptionCases));

TEST(Options, WrongOnesAreRefused)
{
    COpenCLDevice device("Quench");
    const CProgramHandle program = FromSource(device, "kernel void k(global int* out) { out[0] = 1; }\n");
    for (const char* pszOptions : {"-fno-builtin", "-cl-std=CL9.9", "-D", "-D 5=6", "-I", "--help", "k.cl", "-cl-fast",
                                   "-create-library", "-Wl,-x"})
    {
        EXPECT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, pszOptions, nullptr, nullptr),
                  CL_INVALID_BUILD_OPTIONS)
            << pszOptions;
        EXPECT_EQ(
            device.cl.clCompileProgram(program.Get(), 0, nullptr, pszOptions, 0, nullptr, nullptr, nullptr, nullptr),
            CL_INVALID_COMPILER_OPTIONS)
            << pszOptions;
    }
}

TEST(Options, WarningsAreTold)
{
    COpenCLDevice device("Quench");
    const std::string strSource = "kernel void k(global int* out) { int n = 1.5; out[0] = n; }\n";
    struct SCase
    {
        const char* pszOptions;
        cl_int nCode;
        const char* pszLog; ///< null: the log is empty
    };
    for (const SCase& test : {SCase{"", CL_SUCCESS, "kernel.cl:1:42: warning: "}, SCase{"-w", CL_SUCCESS, nullptr},
                              SCase{"-Werror", CL_BUILD_PROGRAM_FAILURE, "kernel.cl:1:42: error: "}})
    {
        const CProgramHandle program = FromSource(device, strSource);
        EXPECT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, test.pszOptions, nullptr, nullptr), test.nCode);
        const std::string strLog = LogOf(device, program);
        EXPECT_TRUE(test.pszLog == nullptr ? strLog.empty() : strLog.find(test.pszLog) == 0) << strLog;
    }
}

TEST(Options, FoldersOfHeadersOnDisk)
{
    const std::string strFolder = testing::TempDir() + "kestrel headers";
    std::filesystem::create_directories(strFolder + "/sub");
    std::ofstream(strFolder + "/sub/value.h") << "#define VALUE 42\n";
    COpenCLDevice device("Quench");
    const CProgramHandle program =
        FromSource(device, "#include <sub/value.h>\nkernel void k(global int* out) { out[0] = VALUE; }\n");
    EXPECT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, "", nullptr, nullptr), CL_BUILD_PROGRAM_FAILURE);
    const std::string strOptions = "-I \"" + strFolder + "\"";
    ASSERT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, strOptions.c_str(), nullptr, nullptr), CL_SUCCESS)
        << LogOf(device, program);
    EXPECT_EQ(RunInts(device, program, "k", 1)[0], 42);
    std::filesystem::remove_all(strFolder);
}

/// Each extension that the device reports has its macro, and no other extension has.
TEST(Options, ExtensionsAreWhatTheDeviceReports)
{
    COpenCLDevice device("Kiln");
    char extensions[1024] = {};
    device.cl.clGetDeviceInfo(device.m_device, CL_DEVICE_EXTENSIONS, sizeof extensions - 1, extensions, nullptr);
    const std::string strReported = std::string(" ") + extensions + " ";
    std::string strSource = "kernel void k(global int* out) {\n";
    const std::vector<std::string> vNames = {"cl_khr_fp64",
                                             "cl_khr_fp16",
                                             "cl_khr_byte_addressable_store",
                                             "cl_khr_global_int32_base_atomics",
                                             "cl_khr_global_int32_extended_atomics",
                                             "cl_khr_local_int32_base_atomics",
                                             "cl_khr_local_int32_extended_atomics",
                                             "cl_khr_int64_base_atomics",
                                             "cl_khr_int64_extended_atomics",
                                             "cl_khr_3d_image_writes",
                                             "cl_khr_subgroups",
                                             "cl_khr_gl_msaa_sharing",
                                             "cl_khr_depth_images"};
    for (size_t n = 0; n < vNames.size(); ++n)
    {
        strSource += "#ifdef " + vNames[n] + "\nout[" + std::to_string(n) + "] = 1;\n#else\nout[" + std::to_string(n) +
                     "] = 0;\n#endif\n";
    }
    const CProgramHandle program = FromSource(device, strSource + "}\n");
    ASSERT_EQ(device.cl.clBuildProgram(program.Get(), 0, nullptr, "", nullptr, nullptr), CL_SUCCESS)
        << LogOf(device, program);
    const std::vector<int> vDefined = RunInts(device, program, "k", vNames.size());
    for (size_t n = 0; n < vNames.size(); ++n)
    {
        EXPECT_EQ(vDefined[n] != 0, strReported.find(" " + vNames[n] + " ") != std::string::npos) << vNames[n];
    }
}

} // namespace
