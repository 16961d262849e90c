// The debugger's cost for a program in which no launch is debugged: the same program with and without the layer, in
// alternation. It is this program itself, called with --program, which opens the machine's loader of OpenCL drivers.

#include "bench/BenchReport.h"

#include <CL/cl.h>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

using namespace KestrelBench;

namespace
{

const unsigned int s_nLaunches = 1000;
const unsigned int s_nRuns = 10;

const char* const s_pszSource = "kernel void add(global float* out, global const float* in, float factor) {\n"
                                "  size_t i = get_global_id(0);\n"
                                "  out[i] += in[i] * factor;\n"
                                "}\n";

template <class Function>
Function* Find(void* pLoader, const char* pszName)
{
    void* const pFound = dlsym(pLoader, pszName);
    if (pFound == nullptr)
    {
        throw std::runtime_error(std::string("the loader has no ") + pszName);
    }
    return reinterpret_cast<Function*>(pFound);
}

void Check(cl_int nCode, const char* pszWhat)
{
    if (nCode != CL_SUCCESS)
    {
        throw std::runtime_error(std::string(pszWhat) + " gives " + std::to_string(nCode));
    }
}

/// Makes the launches, and prints the time that they took, in seconds.
void RunProgram(size_t nItems)
{
    void* const pLoader = dlopen("libOpenCL.so.1", RTLD_NOW);
    if (pLoader == nullptr)
    {
        throw std::runtime_error("there is no loader of OpenCL drivers");
    }
#define KESTREL_FIND(name) const auto p##name = Find<decltype(cl##name)>(pLoader, "cl" #name)
    KESTREL_FIND(GetPlatformIDs);
    KESTREL_FIND(GetDeviceIDs);
    KESTREL_FIND(CreateContext);
    KESTREL_FIND(CreateCommandQueue);
    KESTREL_FIND(CreateProgramWithSource);
    KESTREL_FIND(BuildProgram);
    KESTREL_FIND(CreateKernel);
    KESTREL_FIND(CreateBuffer);
    KESTREL_FIND(SetKernelArg);
    KESTREL_FIND(EnqueueNDRangeKernel);
    KESTREL_FIND(Finish);
#undef KESTREL_FIND
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    cl_int nCode = CL_SUCCESS;
    Check(pGetPlatformIDs(1, &platform, nullptr), "clGetPlatformIDs");
    Check(pGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr), "clGetDeviceIDs");
    const cl_context context = pCreateContext(nullptr, 1, &device, nullptr, nullptr, &nCode);
    Check(nCode, "clCreateContext");
    const cl_command_queue queue = pCreateCommandQueue(context, device, 0, &nCode);
    Check(nCode, "clCreateCommandQueue");
    const char* pszSource = s_pszSource;
    const cl_program program = pCreateProgramWithSource(context, 1, &pszSource, nullptr, &nCode);
    Check(nCode, "clCreateProgramWithSource");
    Check(pBuildProgram(program, 1, &device, "", nullptr, nullptr), "clBuildProgram");
    const cl_kernel kernel = pCreateKernel(program, "add", &nCode);
    Check(nCode, "clCreateKernel");
    std::vector<float> vValues(nItems, 1.0f);
    for (cl_uint n = 0; n < 2; ++n)
    {
        const cl_mem buffer = pCreateBuffer(context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, nItems * sizeof(float),
                                            vValues.data(), &nCode);
        Check(nCode, "clCreateBuffer");
        Check(pSetKernelArg(kernel, n, sizeof(buffer), &buffer), "clSetKernelArg");
    }
    const auto launch = [&](unsigned int nTurn)
    {
        const float fFactor = static_cast<float>(nTurn);
        Check(pSetKernelArg(kernel, 2, sizeof(fFactor), &fFactor), "clSetKernelArg");
        Check(pEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &nItems, nullptr, 0, nullptr, nullptr),
              "clEnqueueNDRangeKernel");
    };
    launch(0);
    Check(pFinish(queue), "clFinish");
    const double fSeconds = TimeOnce(
        [&]
        {
            for (unsigned int n = 1; n < s_nLaunches; ++n)
            {
                launch(n);
            }
            Check(pFinish(queue), "clFinish");
        });
    std::printf("%.9f\n", fSeconds);
}

/// The last line that a command prints, apart from the debugger's, as seconds.
double Measure(const std::string& strCommand)
{
    FILE* const pOutput = popen((strCommand + " 2> /dev/null < /dev/null").c_str(), "r");
    char szLine[256] = {};
    double fSeconds = 0;
    while (pOutput != nullptr && std::fgets(szLine, sizeof(szLine), pOutput) != nullptr)
    {
        char* pEnd = szLine;
        const double fNumber = std::strtod(szLine, &pEnd);
        fSeconds = *pEnd == '\n' && pEnd != szLine ? fNumber : fSeconds;
    }
    if (pOutput == nullptr || pclose(pOutput) != 0 || fSeconds <= 0)
    {
        throw std::runtime_error("no figure from " + strCommand);
    }
    return fSeconds;
}

void Compare(CReport& report, const std::string& strSelf, size_t nItems, double fReach)
{
    const std::string strProgram = "'" + strSelf + "/bench_exec' --program " + std::to_string(nItems);
    const std::string strPlain = "env OCL_ICD_VENDORS='" + strSelf + "/../lib/kestrel-platform/icd' " + strProgram;
    const std::string strDebugged = "'" + strSelf + "/kestrel' exec -batch -- " + strProgram;
    std::vector<double> vPlain;
    std::vector<double> vDebugged;
    for (unsigned int n = 0; n < s_nRuns; ++n)
    {
        vPlain.push_back(Measure(strPlain));
        vDebugged.push_back(Measure(strDebugged));
    }
    std::vector<double> vMore;
    for (unsigned int n = 0; n < s_nRuns; ++n)
    {
        vMore.push_back((vDebugged[n] - vPlain[n]) / s_nLaunches * 1e6);
    }
    const std::string strItems = std::to_string(nItems) + " work-items";
    report.Add("a launch of " + strItems + ", us", Scaled(vPlain, 1e6 / s_nLaunches), 0);
    report.Add("what the debugger adds to it, us", vMore, 20);
    report.Add("1,000 launches of " + strItems + " over the same without the debugger", Ratios(vDebugged, vPlain),
               fReach);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        if (argc == 3 && std::strcmp(argv[1], "--program") == 0)
        {
            RunProgram(std::strtoul(argv[2], nullptr, 10));
            return 0;
        }
        CReport report("exec", argc, argv);
        char szSelf[4096] = {};
        if (readlink("/proc/self/exe", szSelf, sizeof(szSelf) - 1) < 0)
        {
            throw std::runtime_error("the program doesn't find itself");
        }
        const std::string strSelf = std::string(szSelf, std::strrchr(szSelf, '/') - szSelf);
        Compare(report, strSelf, 64, 0);
        Compare(report, strSelf, 65536, 1.05);
        Compare(report, strSelf, 1048576, 1.05);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "bench_exec: %s\n", error.what());
        return 1;
    }
    return 0;
}
