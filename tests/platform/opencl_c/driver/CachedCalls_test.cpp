#include "Programs.h"

#include <filesystem>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

/// What each way to build a program stores in the disk cache. The cache is chosen at the first build of a process, so
/// each case runs in a process of its own: this program again, with one test.
namespace
{

using namespace KestrelTest;
namespace fs = std::filesystem;

bool IsCompilerLoaded()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string strLine; std::getline(maps, strLine);)
    {
        if (strLine.find("libkestrel-opencl-c.so") != std::string::npos)
        {
            return true;
        }
    }
    return false;
}

CProgramHandle Compile(COpenCLDevice& device, const char* pszSource, const char* pszOptions = "")
{
    CProgramHandle program = FromSource(device, pszSource);
    EXPECT_EQ(device.cl.clCompileProgram(program.Get(), 0, nullptr, pszOptions, 0, nullptr, nullptr, nullptr, nullptr),
              CL_SUCCESS);
    return program;
}

CProgramHandle Link(COpenCLDevice& device, std::vector<cl_program> vInputs, const char* pszOptions)
{
    cl_int nCode = -1;
    CProgramHandle program(device.cl.clLinkProgram(device.m_context, 0, nullptr, pszOptions,
                                                   static_cast<cl_uint>(vInputs.size()), vInputs.data(), nullptr,
                                                   nullptr, &nCode));
    EXPECT_EQ(nCode, CL_SUCCESS);
    return program;
}

/// A source is compiled with "-g", put into a library, linked and run.
void MakeAProgramOfParts()
{
    COpenCLDevice device("Quench");
    const CProgramHandle main =
        Compile(device, "int f(int);\nkernel void k(global int* out) { out[0] = f(20); }\n", "-g");
    const CProgramHandle part = Compile(device, "int f(int n) { return n + 1; }\n");
    const CProgramHandle library = Link(device, {part.Get()}, "-create-library");
    EXPECT_EQ(TypeOf(device, library), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_LIBRARY));
    EXPECT_EQ(TypeOf(device, part), static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_COMPILED_OBJECT));
    EXPECT_EQ(RunInts(device, Link(device, {main.Get(), library.Get()}, ""), "k", 1)[0], 21);
    const char* const pszFolder = std::getenv("KESTREL_TEST_HEADERS");
    if (pszFolder != nullptr)
    {
        const CProgramHandle includes =
            Compile(device, "#include \"number.h\"\nkernel void k(global int* out) { out[0] = NUMBER; }\n", pszFolder);
        EXPECT_EQ(RunInts(device, Link(device, {includes.Get()}, ""), "k", 1)[0],
                  std::stoi(std::getenv("KESTREL_TEST_NUMBER")));
    }
    EXPECT_EQ(IsCompilerLoaded(), std::getenv("KESTREL_TEST_LOADS") != nullptr);
}

class CPartsTest : public testing::Test
{
    void TestBody() override { MakeAProgramOfParts(); }
};

/// Only processes started by the tests below have this test.
const char* const s_pszInChild = "KESTREL_TEST_PARTS";
const testing::TestInfo* const s_pParts =
    std::getenv(s_pszInChild) != nullptr
        ? testing::RegisterTest("Parts", "BecomeAProgram", nullptr, nullptr, __FILE__, __LINE__,
                                []() -> testing::Test* { return new CPartsTest; })
        : nullptr;

class CCachedCallsTest : public testing::Test
{
protected:
    CCachedCallsTest() { fs::create_directories(m_strFolder + "/headers"); }
    ~CCachedCallsTest() override { fs::remove_all(m_strFolder); }

    /// \return whether the process's test passed
    bool RunInNewProcess(const std::vector<std::pair<std::string, std::string>>& vVariables) const
    {
        const pid_t nChild = fork();
        if (nChild == 0)
        {
            setenv("XDG_CACHE_HOME", m_strFolder.c_str(), 1);
            setenv("KESTREL_CACHE", "on", 1);
            for (const auto& [strName, strValue] : vVariables)
            {
                setenv(strName.c_str(), strValue.c_str(), 1);
            }
            setenv(s_pszInChild, "1", 1);
            execl("/proc/self/exe", "parts", "--gtest_filter=Parts.*", nullptr);
            _exit(127);
        }
        int nStatus = -1;
        waitpid(nChild, &nStatus, 0);
        return nStatus == 0;
    }

    size_t CountFiles() const
    {
        const fs::directory_iterator files(m_strFolder + "/kestrel");
        return static_cast<size_t>(std::distance(begin(files), end(files)));
    }

    void WriteNumber(const char* pszNumber) const
    {
        std::ofstream(m_strFolder + "/headers/number.h") << "#define NUMBER " << pszNumber << "\n";
    }

    const std::string m_strFolder = testing::TempDir() + "kestrel-calls-" + std::to_string(getpid());
};

TEST_F(CCachedCallsTest, ObjectsLibrariesAndLinkedProgramsAreKept)
{
    EXPECT_TRUE(RunInNewProcess({{"KESTREL_TEST_LOADS", "1"}}));
    EXPECT_EQ(CountFiles(), 4u); // two objects, a library, a program
    EXPECT_TRUE(RunInNewProcess({})) << "the second process needs no compiler";
    EXPECT_EQ(CountFiles(), 4u);
}

/// An object that depends on files isn't cached. A program linked from it is, since the key contains the object.
TEST_F(CCachedCallsTest, ChangesOfIncludedFilesAreSeen)
{
    const std::pair<std::string, std::string> headers{"KESTREL_TEST_HEADERS", "-I " + m_strFolder + "/headers"};
    const std::pair<std::string, std::string> loads{"KESTREL_TEST_LOADS", "1"};
    WriteNumber("7");
    EXPECT_TRUE(RunInNewProcess({headers, loads, {"KESTREL_TEST_NUMBER", "7"}}));
    EXPECT_EQ(CountFiles(), 5u);
    WriteNumber("8");
    EXPECT_TRUE(RunInNewProcess({headers, loads, {"KESTREL_TEST_NUMBER", "8"}}));
    EXPECT_EQ(CountFiles(), 6u);
}

} // namespace
