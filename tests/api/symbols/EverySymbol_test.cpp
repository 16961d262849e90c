#include "modules/QRLModules.h"
#include "modules/ZCCTypes.h"
#include "tests/api/PlatformFixture.h"
#include "tests/api/Scripts.h"
#include "tests/api/symbols/LackingLibrary.h"
#include "tests/support/Folders.h"
#include "tests/support/Stride.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace
{

const char s_szOpenCL[] = "libOpenCL.so";
const char s_szCompiler[] = "libovkocl12cl64.so";
const char s_szRuntime[] = "libovkqrlrt.so";

/// How many symbols are skipped after each missing one. KESTREL_SYMBOL_STRIDE=1 skips none.
size_t Stride()
{
    return ReadStride("KESTREL_SYMBOL_STRIDE", s_bSanitized ? 9 : 1);
}

const unsigned int s_nHangSeconds = 60;

std::string Ask(const char* pszVariable)
{
    const char* pszValue = std::getenv(pszVariable);
    return pszValue != nullptr ? pszValue : "";
}

/// Runs in a process whose platform lacks one symbol or library. Before it begins, the debugger has opened its
/// libraries by name, in the folder made by the tests below.
class Lacking : public CPlatformFixture
{
protected:
    void SetUp() override
    {
        alarm(s_nHangSeconds);
        ASSERT_NE(Runtime(), nullptr);
        const std::string strSymbol = Ask("KESTREL_TEST_SYMBOL");
        // The client itself has all functions, as every object points to the complete table.
        const auto pGetPlatforms =
            reinterpret_cast<clIcdGetPlatformIDsKHR_fn>(dlsym(Runtime(), "clIcdGetPlatformIDsKHR"));
        cl_platform_id platform = nullptr;
        ASSERT_NE(pGetPlatforms, nullptr);
        ASSERT_EQ(pGetPlatforms(1, &platform, nullptr), CL_SUCCESS);
        const cl_icd_dispatch& whole = **reinterpret_cast<const cl_icd_dispatch* const*>(platform);
#define CL_ICD_ENTRY(family, name)                                                                                     \
    if (strSymbol == "cl" #name)                                                                                       \
    {                                                                                                                  \
        Cl().cl##name = whole.cl##name;                                                                                \
    }
#include "modules/CLEntryPoints.def"
        Control().Reset();
        m_nNone = CountObjects();
    }

    /// Creates a context and the other objects by the debugger's functions. \return false if one of them failed
    bool TryOpen()
    {
        cl_int nCode = CL_SUCCESS;
        m_device = FindDevice("Quench");
        m_context = ovkclInterceptCreateContext(nullptr, 1, &m_device, nullptr, nullptr, &nCode);
        EXPECT_EQ(m_context == nullptr, nCode != CL_SUCCESS);
        if (m_context == nullptr)
        {
            return false;
        }
        m_queue = ovkclInterceptCreateCommandQueue(m_context, m_device, 0, &nCode);
        EXPECT_EQ(m_queue == nullptr, nCode != CL_SUCCESS);
        if (m_queue == nullptr)
        {
            return false;
        }
        std::ifstream file(KestrelTest::SourceFile("examples/vector_add/vector_add.il"));
        const std::string strSource((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const char* pszSource = strSource.c_str();
        m_program = Cl().clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, &nCode);
        EXPECT_EQ(Cl().clBuildProgram(m_program, 0, nullptr, "-g", nullptr, nullptr), CL_SUCCESS);
        m_kernel = ovkclInterceptCreateKernel(m_program, "vector_add", &nCode);
        EXPECT_EQ(m_kernel == nullptr, nCode != CL_SUCCESS);
        if (m_kernel == nullptr)
        {
            return false;
        }
        for (cl_uint i = 0; i < 3 && nCode == CL_SUCCESS; ++i)
        {
            std::vector<float> vValues(s_nItems);
            for (size_t n = 0; n < s_nItems; ++n)
            {
                vValues[n] = i == 0 ? float(n) : i == 1 ? 0.5f : -1.0f;
            }
            m_buffers[i] = Cl().clCreateBuffer(m_context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR,
                                               sizeof(float) * s_nItems, vValues.data(), nullptr);
            nCode = ovkclInterceptSetKernelArg(m_kernel, i, sizeof(cl_mem), &m_buffers[i]);
        }
        return nCode == CL_SUCCESS;
    }

    /// Runs a stepping session, or notes the code of the failure. \return whether the client has its outputs
    bool TrySession()
    {
        bool bDone = false;
        if (TryOpen())
        {
            const cl_int nCode = Debug(GetScripts()[0].pfnClient);
            Cl().clFinish(m_queue);
            bDone = nCode == CL_SUCCESS;
            EXPECT_EQ(ReadOutput(), bDone ? ExpectedOutput() : std::vector<float>(s_nItems, -1.0f)) << nCode;
            EXPECT_TRUE(m_vEvents.empty() || m_vEvents.back() == OVKCLDEBUG_EVENT_FINISHED ||
                        m_vEvents.back() == OVKCLDEBUG_EVENT_ERROR);
            EXPECT_TRUE(!bDone || !m_vEvents.empty());
            m_bDebugged = !m_vEvents.empty() && m_vEvents.back() == OVKCLDEBUG_EVENT_FINISHED;
        }
        Close();
        EXPECT_TRUE(WaitForObjects(m_nNone)) << CountObjects();
        return bDone;
    }

    uint64_t m_nNone = 0;
    bool m_bDebugged = false; ///< the last session came to its end
};

/// Whatever is missing, the client gets an error code or its outputs, the same twice in a row. With a complete table a
/// session works, unless a compiler is missing.
class LackingIsToldToTheClient : public Lacking
{
    void TestBody() override
    {
        const bool bFirst = TrySession();
        EXPECT_EQ(TrySession(), bFirst);
        ASSERT_EQ(ovkclDebugSetDispatchTable(&Cl()), CL_SUCCESS);
        const bool bAfter = TrySession();
        if (Ask("KESTREL_TEST_LIBRARY") == s_szOpenCL)
        {
            EXPECT_TRUE(bAfter && m_bDebugged);
        }
        std::printf("first session: %s\n", bFirst ? "done" : "refused");
    }
};

/// Only processes with such a platform have this test.
const bool s_bLacking = !Ask("KESTREL_TEST_PLATFORM").empty();
const testing::TestInfo* const s_pLacking =
    s_bLacking ? testing::RegisterTest("Lacking", "IsToldToTheClient", nullptr, nullptr, __FILE__, __LINE__,
                                       []() -> Lacking* { return new LackingIsToldToTheClient; })
               : nullptr;

/// Makes the folder, and starts this program again with it.
class EverySymbol : public testing::Test
{
protected:
    void SetUp() override
    {
        m_folder =
            std::filesystem::path(testing::TempDir()) / ("kestrel_lacking_" + std::to_string(getpid()) + "_" +
                                                         testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(m_folder);
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    /// \param strSymbol  empty to leave out the library itself
    void RunWithout(const std::string& strLibrary, const std::string& strSymbol)
    {
        for (const char* pszLibrary : {s_szOpenCL, s_szCompiler, s_szRuntime})
        {
            const std::filesystem::path copy = m_folder / pszLibrary;
            std::filesystem::remove(copy);
            const std::string strReal = KestrelTest::PlatformFile(pszLibrary);
            if (strLibrary != pszLibrary || strSymbol.empty())
            {
                std::filesystem::create_symlink(strReal, copy);
            }
            else
            {
                ASSERT_TRUE(CopyWithoutSymbol(strReal, copy, strSymbol)) << strSymbol;
            }
        }
        // The client opens its platform by path; the debugger finds what is in a later folder by name.
        const std::filesystem::path found = m_folder / "found";
        std::filesystem::remove_all(found);
        std::filesystem::create_directories(found);
        for (const char* pszLibrary : {s_szOpenCL, s_szCompiler, s_szRuntime})
        {
            if (strLibrary != pszLibrary || !strSymbol.empty())
            {
                std::filesystem::create_symlink(m_folder / pszLibrary, found / pszLibrary);
            }
        }
        const std::string strCommand = "cd '" + m_folder.string() + "' && LD_LIBRARY_PATH='" + found.string() +
                                       "' KESTREL_TEST_PLATFORM='" + m_folder.string() + "' KESTREL_TEST_LIBRARY='" +
                                       strLibrary + "' KESTREL_TEST_SYMBOL='" + strSymbol + "' '" +
                                       std::filesystem::read_symlink("/proc/self/exe").string() +
                                       "' --gtest_filter='Lacking.*' > output 2>&1";
        const int nStatus = std::system(strCommand.c_str());
        ++m_nFaults;
        std::ifstream output(m_folder / "output");
        const std::string strOutput((std::istreambuf_iterator<char>(output)), std::istreambuf_iterator<char>());
        EXPECT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0) << strLibrary << " without " << strSymbol << "\n"
                                                                     << strOutput;
        EXPECT_NE(strOutput.find("first session: "), std::string::npos) << strOutput;
        m_nRefused += strOutput.find("first session: refused") != std::string::npos;
    }

    void RunWithoutEach(const std::string& strLibrary, const std::vector<std::string>& vSymbols)
    {
        for (size_t i = 0; i < vSymbols.size() && !HasFailure(); i += Stride())
        {
            RunWithout(strLibrary, vSymbols[i]);
        }
        std::printf("%zu symbols missing, %zu first sessions refused\n", m_nFaults, m_nRefused);
    }

    std::filesystem::path m_folder;
    size_t m_nFaults = 0;
    size_t m_nRefused = 0;
};

/// The symbols that a library of the platform exports and that begin with a prefix.
std::vector<std::string> ListSymbols(const char* pszLibrary, const std::vector<const char*>& vNames)
{
    std::vector<std::string> vSymbols;
    void* pLibrary = dlopen(KestrelTest::PlatformFile(pszLibrary).c_str(), RTLD_NOW | RTLD_LOCAL);
    for (const char* pszName : vNames)
    {
        if (pLibrary != nullptr && dlsym(pLibrary, pszName) != nullptr)
        {
            vSymbols.push_back(pszName);
        }
    }
    if (pLibrary != nullptr)
    {
        dlclose(pLibrary);
    }
    return vSymbols;
}

} // namespace

TEST_F(EverySymbol, OfTheOpenCLRuntimeCanBeMissing)
{
    const std::vector<std::string> vSymbols = ListSymbols(s_szOpenCL, {
#define CL_ICD_ENTRY(family, name) "cl" #name,
#include "modules/CLEntryPoints.def"
                                                                      });
    EXPECT_EQ(vSymbols.size(), 98u) << "the entries of the versions up to 1.2";
    RunWithoutEach(s_szOpenCL, vSymbols);
}

TEST_F(EverySymbol, OfTheCompilerCanBeMissing)
{
    const std::vector<std::string> vSymbols = ListSymbols(s_szCompiler, {
#define ZCC_NAME(name, result, parameters) "zcc" #name,
                                                                            ZCC_ENTRY_POINTS(ZCC_NAME)});
    EXPECT_EQ(vSymbols.size(), 19u);
    RunWithoutEach(s_szCompiler, vSymbols);
}

TEST_F(EverySymbol, OfTheLowLevelRuntimeCanBeMissing)
{
    const std::vector<std::string> vSymbols = ListSymbols(s_szRuntime, {
#define QRL_NAME(name, type) "qrl" #name,
                                                                           QRL_RT_ENTRY_POINTS(QRL_NAME)});
    EXPECT_EQ(vSymbols.size(), 38u);
    RunWithoutEach(s_szRuntime, vSymbols);
}

TEST_F(EverySymbol, AndEveryLibraryCanBeMissing)
{
    for (const char* pszLibrary : {s_szOpenCL, s_szCompiler, s_szRuntime})
    {
        RunWithout(pszLibrary, "");
    }
    EXPECT_EQ(m_nRefused, 1u) << "a session needs no compiler that the runtime doesn't";
}
