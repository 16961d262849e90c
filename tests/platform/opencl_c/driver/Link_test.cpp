#include "Programs.h"

/// clCompileProgram, clLinkProgram, and objects that are saved and loaded as binaries.
namespace
{

using namespace KestrelTest;

const char* const s_pszMain = "#include \"inc/api.h\"\nkernel void k(global int* out) { size_t i = get_global_id(0); "
                              "out[i] = Twice((int)i) + BASE + g_Table[i & 3]; }\n";
const char* const s_pszHelper = "#include \"inc/api.h\"\nconstant int g_Table[4] = {100, 200, 300, 400};\n"
                                "int Twice(int n) { return 2 * Once(n); }\n";
const char* const s_pszOnce = "int Once(int n) { return n; }\n";
const char* const s_pszHeader =
    "#define BASE 1000\nint Twice(int n);\nint Once(int n);\nextern constant int g_Table[4];\n";

void ExpectRight(COpenCLDevice& device, const CProgramHandle& program)
{
    const std::vector<int> vOut = RunInts(device, program, "k", 8);
    for (int i = 0; i < 8; ++i)
    {
        EXPECT_EQ(vOut[static_cast<size_t>(i)], 2 * i + 1000 + 100 * (i % 4 + 1)) << i;
    }
}

class CLinkTest : public testing::TestWithParam<const char*>
{
protected:
    CProgramHandle Compile(const std::string& strSource, const char* pszOptions = "")
    {
        const CProgramHandle header = FromSource(m_device, s_pszHeader);
        const cl_program headers[] = {header.Get()};
        const char* names[] = {"inc/api.h"};
        CProgramHandle program = FromSource(m_device, strSource);
        EXPECT_EQ(
            m_device.cl.clCompileProgram(program.Get(), 0, nullptr, pszOptions, 1, headers, names, nullptr, nullptr),
            CL_SUCCESS)
            << LogOf(m_device, program);
        return program;
    }

    CProgramHandle Link(const std::vector<CProgramHandle>& vPrograms, const char* pszOptions, cl_int nExpected)
    {
        std::vector<cl_program> vInputs;
        for (const CProgramHandle& program : vPrograms)
        {
            vInputs.push_back(program.Get());
        }
        cl_int nCode = -1;
        CProgramHandle linked(m_device.cl.clLinkProgram(m_device.m_context, 0, nullptr, pszOptions,
                                                        static_cast<cl_uint>(vInputs.size()), vInputs.data(), nullptr,
                                                        nullptr, &nCode));
        EXPECT_EQ(nCode, nExpected) << (linked.Get() ? LogOf(m_device, linked) : "");
        return linked;
    }

    COpenCLDevice m_device{GetParam()};
};

TEST_P(CLinkTest, SeveralObjectsAndALibrary)
{
    const CProgramHandle main = Compile(s_pszMain);
    const CProgramHandle helper = Compile(s_pszHelper);
    const CProgramHandle once = Compile(s_pszOnce);
    EXPECT_EQ(TypeOf(m_device, main), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_COMPILED_OBJECT));
    const CProgramHandle whole = Link({main, helper, once}, "", CL_SUCCESS);
    EXPECT_EQ(TypeOf(m_device, whole), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_EXECUTABLE));
    ExpectRight(m_device, whole);

    const CProgramHandle library = Link({helper, once}, "-create-library -enable-link-options", CL_SUCCESS);
    EXPECT_EQ(TypeOf(m_device, library), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_LIBRARY));
    ExpectRight(m_device, Link({main, library}, "-cl-fast-relaxed-math", CL_SUCCESS));
}

TEST_P(CLinkTest, BinariesKeepTheirType)
{
    const CProgramHandle main = FromBinary(m_device, BinaryOf(m_device, Compile(s_pszMain, "-g")));
    EXPECT_EQ(TypeOf(m_device, main), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_COMPILED_OBJECT));
    const CProgramHandle library = FromBinary(
        m_device, BinaryOf(m_device, Link({Compile(s_pszHelper), Compile(s_pszOnce)}, "-create-library", CL_SUCCESS)));
    EXPECT_EQ(TypeOf(m_device, library), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_LIBRARY));
    const CProgramHandle linked = Link({main, library}, "", CL_SUCCESS);
    ExpectRight(m_device, linked);

    const CProgramHandle program = FromBinary(m_device, BinaryOf(m_device, linked));
    EXPECT_EQ(TypeOf(m_device, program), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_EXECUTABLE));
    ASSERT_EQ(m_device.cl.clBuildProgram(program.Get(), 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
    ExpectRight(m_device, program);
}

TEST_P(CLinkTest, WhatIsMissingOrThereTwiceIsNamed)
{
    const CProgramHandle main = Compile(s_pszMain);
    const CProgramHandle once = Compile(s_pszOnce);
    const std::string strMissing = LogOf(m_device, Link({main, once}, "", CL_LINK_PROGRAM_FAILURE));
    EXPECT_NE(strMissing.find("'Twice' is called and nowhere defined"), std::string::npos) << strMissing;
    const CProgramHandle helper = Compile(s_pszHelper);
    const std::string strTwice = LogOf(m_device, Link({main, helper, once, once}, "", CL_LINK_PROGRAM_FAILURE));
    EXPECT_NE(strTwice.find("Once"), std::string::npos) << strTwice;
    Link({main, helper, once}, "-D A=1", CL_INVALID_LINKER_OPTIONS);
    Link({main, helper, once}, "-enable-link-options", CL_INVALID_LINKER_OPTIONS);
}

/// Damages every place of the object in turn, and cuts it at every length: the result is a refusal or right, never a
/// crash.
TEST_P(CLinkTest, DamagedObjectsAreRefused)
{
    const std::vector<unsigned char> vObject =
        BinaryOf(m_device, Compile("kernel void k(global int* out) { out[0] = 5; }"));
    ASSERT_GT(vObject.size(), 500u);
    for (size_t n = 0; n < vObject.size(); n += 97)
    {
        for (const bool bCut : {false, true})
        {
            std::vector<unsigned char> vDamaged = vObject;
            bCut ? vDamaged.resize(n) : (vDamaged[n] ^= 0x24, void());
            const CProgramHandle program = FromBinary(m_device, vDamaged);
            if (program.Get() == nullptr)
            {
                continue;
            }
            const cl_int nCode = m_device.cl.clBuildProgram(program.Get(), 0, nullptr, "", nullptr, nullptr);
            EXPECT_TRUE(nCode == CL_SUCCESS || nCode == CL_BUILD_PROGRAM_FAILURE) << n;
            if (nCode == CL_SUCCESS)
            {
                EXPECT_EQ(RunInts(m_device, program, "k", 1)[0], 5) << n;
            }
            else
            {
                EXPECT_NE(LogOf(m_device, program), "") << n;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Devices, CLinkTest, testing::Values("Quench", "Kiln"));

TEST(Link, AnObjectForOtherAddressesIsRefused)
{
    COpenCLDevice wide("Quench");
    COpenCLDevice narrow("Kiln");
    const CProgramHandle program = FromSource(wide, "kernel void k(global int* out) { out[0] = 5; }");
    ASSERT_EQ(wide.cl.clCompileProgram(program.Get(), 0, nullptr, "", 0, nullptr, nullptr, nullptr, nullptr),
              CL_SUCCESS);
    const CProgramHandle moved = FromBinary(narrow, BinaryOf(wide, program));
    EXPECT_EQ(narrow.cl.clBuildProgram(moved.Get(), 0, nullptr, "", nullptr, nullptr), CL_BUILD_PROGRAM_FAILURE);
    EXPECT_NE(LogOf(narrow, moved).find("addresses of another width"), std::string::npos);
}

} // namespace
