// The cost of building OpenCL C: the first build of a process, later ones, and ones from the cache on disk; how the
// time grows with the source; and the compiler's memory. Each first build is made in a new process.

#include "bench/BenchReport.h"
#include "tools/session/launch/Libraries.h"

#include <CL/cl.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KestrelBench;

namespace
{

const unsigned int s_nProcesses = 7;
const unsigned int s_nBuilds = 9;

/// 15 ordinary lines.
const char* const s_pszSmall = R"(
float weight(float d, float h)
{
    float q = d / h;
    return q < 1.0f ? exp(-q * q) : 0.0f;
}

kernel void smooth(global const float* in, global float* out, int n, float h)
{
    int i = get_global_id(0);
    float sum = 0.0f, total = 0.0f;
    for (int j = max(0, i - 8); j <= min(n - 1, i + 8); ++j) {
        float w = weight((float)abs(i - j), h);
        sum += w * in[j]; total += w;
    }
    out[i] = sum / total;
}
)";

/// A kernel of about nLines lines, like generated code.
std::string MakeLongSource(unsigned int nLines)
{
    std::string strSource =
        "kernel void generated(global float* a, int n)\n{\n    float x = a[0], y = a[1], z = a[2];\n";
    for (unsigned int n = 0; n < nLines; n += 5)
    {
        const std::string strNumber = std::to_string(n + 3);
        strSource += "    x = x * 1.25f + y - " + strNumber + ".0f;\n    if (x > z) {\n        y = fmin(y, x) + a[" +
                     strNumber + "];\n    }\n    z = z - x * y;\n";
    }
    return strSource + "    a[0] = x + y + z;\n}\n";
}

/// The runtime, opened on first use.
class CRuntime
{
public:
    CRuntime()
    {
        const std::string strPath = KestrelTool::GetLibraryFolder() + "/kestrel-platform/libOpenCL.so";
        m_pLibrary = dlopen(strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (m_pLibrary == nullptr)
        {
            throw std::runtime_error(dlerror());
        }
        cl_platform_id platform = nullptr;
        Get<decltype(&clGetPlatformIDs)>("clGetPlatformIDs")(1, &platform, nullptr);
        Get<decltype(&clGetDeviceIDs)>("clGetDeviceIDs")(platform, CL_DEVICE_TYPE_DEFAULT, 1, &m_device, nullptr);
        m_context =
            Get<decltype(&clCreateContext)>("clCreateContext")(nullptr, 1, &m_device, nullptr, nullptr, nullptr);
    }

    void Build(const std::string& strSource)
    {
        const char* pszSource = strSource.c_str();
        const cl_program program = Get<decltype(&clCreateProgramWithSource)>("clCreateProgramWithSource")(
            m_context, 1, &pszSource, nullptr, nullptr);
        const cl_int nCode =
            Get<decltype(&clBuildProgram)>("clBuildProgram")(program, 0, nullptr, "", nullptr, nullptr);
        Get<decltype(&clReleaseProgram)>("clReleaseProgram")(program);
        if (nCode != CL_SUCCESS)
        {
            throw std::runtime_error("a kernel of the benchmark doesn't build: " + std::to_string(nCode));
        }
    }

private:
    template <class F>
    F Get(const char* pszName)
    {
        return reinterpret_cast<F>(dlsym(m_pLibrary, pszName));
    }

    void* m_pLibrary = nullptr;
    cl_device_id m_device = nullptr;
    cl_context m_context = nullptr;
};

/// The resident memory of the process, in megabytes.
double ResidentMegabytes()
{
    std::ifstream stream("/proc/self/statm");
    double fTotal = 0;
    double fResident = 0;
    stream >> fTotal >> fResident;
    return fResident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024 * 1024);
}

struct SFirstBuild
{
    double fMilliseconds = 0;
    double fMegabytes = 0;
};

/// The first build of a new process.
SFirstBuild BuildInNewProcess(const std::string& strSource)
{
    int pipes[2] = {};
    if (pipe(pipes) != 0)
    {
        throw std::runtime_error("no pipe");
    }
    const pid_t nChild = fork();
    if (nChild == 0)
    {
        SFirstBuild first;
        try
        {
            CRuntime runtime;
            const double fBefore = ResidentMegabytes();
            first.fMilliseconds = 1000 * TimeOnce([&] { runtime.Build(strSource); });
            first.fMegabytes = ResidentMegabytes() - fBefore;
        }
        catch (const std::exception& error)
        {
            std::fprintf(stderr, "%s\n", error.what());
            _exit(1);
        }
        _exit(write(pipes[1], &first, sizeof(first)) == sizeof(first) ? 0 : 1);
    }
    SFirstBuild first;
    close(pipes[1]);
    const bool bRead = read(pipes[0], &first, sizeof(first)) == sizeof(first);
    close(pipes[0]);
    int nStatus = 0;
    waitpid(nChild, &nStatus, 0);
    if (!bRead || nStatus != 0)
    {
        throw std::runtime_error("a process that should build failed");
    }
    return first;
}

struct SFirstBuilds
{
    std::vector<double> vMilliseconds;
    std::vector<double> vMegabytes;
};

SFirstBuilds MeasureFirst(const std::string& strSource)
{
    BuildInNewProcess(strSource); // loads the library into the page cache, and fills the program cache if it is on
    SFirstBuilds builds;
    for (unsigned int n = 0; n < s_nProcesses; ++n)
    {
        const SFirstBuild first = BuildInNewProcess(strSource);
        builds.vMilliseconds.push_back(first.fMilliseconds);
        builds.vMegabytes.push_back(first.fMegabytes);
    }
    return builds;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        CReport report("compile", argc, argv);
        setenv("KESTREL_CACHE", "off", 1);
        const SFirstBuilds first = MeasureFirst(s_pszSmall);
        report.Add("15 lines, first build of a process, ms", first.vMilliseconds, 60);
        report.Add("15 lines, memory of the first build, MB", first.vMegabytes, 60);

        const std::string strCache =
            std::filesystem::temp_directory_path() / ("kestrel-bench-" + std::to_string(getpid()));
        setenv("XDG_CACHE_HOME", strCache.c_str(), 1);
        setenv("KESTREL_CACHE", "on", 1);
        report.Add("15 lines, first build, from the disk cache, ms", MeasureFirst(s_pszSmall).vMilliseconds, 3);
        std::filesystem::remove_all(strCache);
        setenv("KESTREL_CACHE", "off", 1);

        CRuntime runtime;
        const std::string strThousand = MakeLongSource(1000);
        const std::string strTenThousand = MakeLongSource(10000);
        report.Add("15 lines, later builds, ms", Scaled(Time(s_nBuilds, [&] { runtime.Build(s_pszSmall); }), 1000), 15);
        const std::vector<double> vThousand = Scaled(Time(s_nBuilds, [&] { runtime.Build(strThousand); }), 1000);
        report.Add("1,000 lines, ms", vThousand, 250);
        const std::vector<double> vTenThousand = Scaled(Time(s_nBuilds, [&] { runtime.Build(strTenThousand); }), 1000);
        report.Add("10,000 lines over 1,000", Ratios(vTenThousand, vThousand), 11);
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
