// The benchmark kernels in OpenCL C, built and launched like in any host program, against the same computations in
// plain C++ and in hand-written IL, on one core; and the number of instructions that debug data costs. Every result is
// compared with the host's, word by word, before it is timed. Ratios are of times measured in alternation.

#include "KestrelPlatform.h"
#include "bench/BenchKernels.h"
#include "bench/BenchReport.h"
#include "bench/BenchSources.h"
#include "platform/simt/LaneOps.h"
#include "tools/session/launch/Libraries.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include <sched.h>

using namespace KestrelBench;
using namespace KestrelTool;

namespace
{

const unsigned int s_nRuns = 9;

/// To be called before any thread is started: the runtime uses as many threads as the process may use cores.
void StayOnOneCore()
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &cores);
    if (sched_setaffinity(0, sizeof cores, &cores) != 0)
    {
        throw std::runtime_error("the process can't be kept on one core");
    }
}

void Need(cl_int nCode, const std::string& strWhat)
{
    if (nCode != CL_SUCCESS)
    {
        throw std::runtime_error(strWhat + " gave " + std::to_string(nCode));
    }
}

/// The default device, with a queue.
class CDevice
{
public:
    explicit CDevice(CLibraries& libraries) : cl(libraries.cl)
    {
        cl_platform_id platform = nullptr;
        cl_int nCode = cl.clGetPlatformIDs(1, &platform, nullptr);
        Need(nCode, "clGetPlatformIDs");
        Need(cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_DEFAULT, 1, &m_device, nullptr), "clGetDeviceIDs");
        m_context = cl.clCreateContext(nullptr, 1, &m_device, nullptr, nullptr, &nCode);
        Need(nCode, "clCreateContext");
        m_queue = cl.clCreateCommandQueue(m_context, m_device, 0, &nCode);
        Need(nCode, "clCreateCommandQueue");
    }
    ~CDevice()
    {
        cl.clReleaseCommandQueue(m_queue);
        cl.clReleaseContext(m_context);
    }
    CDevice(const CDevice&) = delete;
    CDevice& operator=(const CDevice&) = delete;

    const SPlatformControl& Control() const
    {
        using Door = const SPlatformControl* (*)();
        return *reinterpret_cast<Door>(cl.clGetExtensionFunctionAddress("kestrelPlatformControl"))();
    }

    cl_icd_dispatch_table& cl;
    cl_device_id m_device = nullptr;
    cl_context m_context = nullptr;
    cl_command_queue m_queue = nullptr;
};

/// The OpenCL C form of a benchmark kernel, with the data of the IL form in buffers of the device.
class CSourceKernel
{
public:
    CSourceKernel(CDevice& device, const SBenchSource& source, SBenchKernel& kernel, const char* pszOptions)
        : m_Device(device), m_Kernel(kernel), m_Source(source)
    {
        Build(pszOptions);
        for (cl_uint n = 0; n < source.vArguments.size(); ++n)
        {
            SetArgument(n, source.vArguments[n]);
        }
    }
    ~CSourceKernel()
    {
        for (const auto& [nBuffer, buffer] : m_vBuffers)
        {
            m_Device.cl.clReleaseMemObject(buffer);
        }
        m_Device.cl.clReleaseKernel(m_kernel);
        m_Device.cl.clReleaseProgram(m_program);
    }
    CSourceKernel(const CSourceKernel&) = delete;
    CSourceKernel& operator=(const CSourceKernel&) = delete;

    /// \param nGroups  how many work-groups in each dimension; 0 for all
    void Run(size_t nGroups = 0)
    {
        const KestrelPlatform::SLaunch& launch = m_Kernel.launch;
        size_t global[3] = {}, local[3] = {};
        for (cl_uint n = 0; n < launch.nDimensions; ++n)
        {
            local[n] = launch.nLocalSize[n];
            global[n] = nGroups ? nGroups * local[n] : launch.nGlobalSize[n];
        }
        Need(m_Device.cl.clEnqueueNDRangeKernel(m_Device.m_queue, m_kernel, launch.nDimensions, nullptr, global, local,
                                                0, nullptr, nullptr),
             "clEnqueueNDRangeKernel");
        Need(m_Device.cl.clFinish(m_Device.m_queue), "clFinish");
    }

    /// Runs it on cleared outputs and compares them with the host's. \throws std::runtime_error
    void Check()
    {
        for (const size_t nOutput : m_Kernel.vOutputs)
        {
            const std::vector<uint32_t> vZeros(m_Kernel.buffers[nOutput].size());
            Transfer(nOutput, const_cast<uint32_t*>(vZeros.data()), true);
        }
        for (const size_t nExpected : m_Kernel.vExpected)
        {
            std::fill(m_Kernel.buffers[nExpected].begin(), m_Kernel.buffers[nExpected].end(), 0);
        }
        m_Kernel.runHost();
        Run();
        for (size_t n = 0; n < m_Kernel.vOutputs.size(); ++n)
        {
            const std::vector<uint32_t>& vWanted = m_Kernel.buffers[m_Kernel.vExpected[n]];
            std::vector<uint32_t> vGot(vWanted.size());
            Transfer(m_Kernel.vOutputs[n], vGot.data(), false);
            if (vGot != vWanted)
            {
                throw std::runtime_error(m_Source.strName + ": the kernel's results differ from the host's");
            }
        }
    }

private:
    void Build(const char* pszOptions)
    {
        cl_int nCode = -1;
        const char* pszText = m_Source.strText.c_str();
        m_program = m_Device.cl.clCreateProgramWithSource(m_Device.m_context, 1, &pszText, nullptr, &nCode);
        Need(nCode, "clCreateProgramWithSource");
        nCode = m_Device.cl.clBuildProgram(m_program, 1, &m_Device.m_device, pszOptions, nullptr, nullptr);
        if (nCode != CL_SUCCESS)
        {
            std::vector<char> vLog(1 << 16);
            m_Device.cl.clGetProgramBuildInfo(m_program, m_Device.m_device, CL_PROGRAM_BUILD_LOG, vLog.size(),
                                              vLog.data(), nullptr);
            throw std::runtime_error(m_Source.strName + ": " + vLog.data());
        }
        m_kernel = m_Device.cl.clCreateKernel(m_program, "run", &nCode);
        Need(nCode, "clCreateKernel");
    }

    void SetArgument(cl_uint nIndex, const SSourceArgument& argument)
    {
        if (!argument.bBuffer)
        {
            Need(m_Device.cl.clSetKernelArg(m_kernel, nIndex, argument.nWords * 4,
                                            &m_Kernel.launch.vConstantBuffer1[argument.nFirst]),
                 "clSetKernelArg");
            return;
        }
        std::vector<uint32_t>& vWords = m_Kernel.buffers[argument.nFirst];
        cl_int nCode = -1;
        const cl_mem buffer = m_Device.cl.clCreateBuffer(m_Device.m_context, CL_MEM_COPY_HOST_PTR, vWords.size() * 4,
                                                         vWords.data(), &nCode);
        Need(nCode, "clCreateBuffer");
        m_vBuffers.emplace_back(argument.nFirst, buffer);
        Need(m_Device.cl.clSetKernelArg(m_kernel, nIndex, sizeof buffer, &buffer), "clSetKernelArg");
    }

    void Transfer(size_t nBuffer, uint32_t* pWords, bool bWrite)
    {
        const auto it = std::find_if(m_vBuffers.begin(), m_vBuffers.end(),
                                     [nBuffer](const auto& buffer) { return buffer.first == nBuffer; });
        const size_t nBytes = m_Kernel.buffers[nBuffer].size() * 4;
        Need(bWrite ? m_Device.cl.clEnqueueWriteBuffer(m_Device.m_queue, it->second, CL_TRUE, 0, nBytes, pWords, 0,
                                                       nullptr, nullptr)
                    : m_Device.cl.clEnqueueReadBuffer(m_Device.m_queue, it->second, CL_TRUE, 0, nBytes, pWords, 0,
                                                      nullptr, nullptr),
             "a transfer");
    }

    CDevice& m_Device;
    SBenchKernel& m_Kernel;
    const SBenchSource& m_Source;
    cl_program m_program = nullptr;
    cl_kernel m_kernel = nullptr;
    std::vector<std::pair<size_t, cl_mem>> m_vBuffers; ///< with the index of the kernel's buffer
};

/// The number of instructions that one work-group executes, from the platform's trace.
double CountInstructions(CDevice& device, CSourceKernel& kernel)
{
    uint64_t nRecords = 0;
    device.Control().SetTrace([](const SPlatformTraceRecord*, void* pUser) { ++*static_cast<uint64_t*>(pUser); },
                              &nRecords);
    kernel.Run(1);
    device.Control().SetTrace(nullptr, nullptr);
    return static_cast<double>(nRecords);
}

float ReachOf(const SBenchSource& source)
{
    const char* const pszVectors = KestrelPlatform::GetLaneTable().pszName;
    return std::strcmp(pszVectors, "AVX-512") == 0 ? source.fReach512
           : std::strcmp(pszVectors, "AVX2") == 0  ? source.fReach256
                                                   : 0;
}

void ReportKernel(CReport& report, CDevice& device, const SBenchSource& source, SBenchKernel& kernel)
{
    kernel.Check();
    CSourceKernel compiled(device, source, kernel, "");
    compiled.Check();
    const unsigned int nTimes =
        static_cast<unsigned int>(std::clamp(0.02 / std::max(TimeOnce(kernel.runHost), 1e-7), 1.0, 1000.0));
    const auto repeated = [nTimes](const std::function<void()>& work)
    {
        return [nTimes, work]
        {
            for (unsigned int i = 0; i < nTimes; ++i)
            {
                work();
            }
        };
    };
    const auto once = repeated([&] { compiled.Run(); });
    report.Add(source.strName + " over plain C++", TimeRatios(s_nRuns, once, repeated(kernel.runHost)),
               ReachOf(source));
    report.Add(source.strName + " over hand-written IL", TimeRatios(s_nRuns, once, repeated([&] { kernel.Run(1); })),
               1.15);
    CSourceKernel debug(device, source, kernel, "-g");
    debug.Check();
    report.Add(source.strName + ", instructions with -g over without",
               {CountInstructions(device, debug) / CountInstructions(device, compiled)}, 3);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        StayOnOneCore();
        // The platform's own copy of the interpreter reads this setting too.
        const char* const pszSettings = std::getenv("KESTREL_PLATFORM");
        if (pszSettings != nullptr && std::strcmp(pszSettings, "vectors=256") == 0)
        {
            KestrelPlatform::ChooseInstructionSet(KestrelPlatform::EInstructionSet::Avx2);
        }
        CReport report("opencl", argc, argv);
        CLibraries libraries(GetLibraryFolder() + "/kestrel-platform", GetLibraryFolder() + "/libOVKKestrel.so.1");
        CDevice device(libraries);
        report.Note(std::string("Vectors: ") + KestrelPlatform::GetLaneTable().pszName);
        const auto vKernels = MakeBenchKernels();
        const std::vector<SBenchSource> vSources = MakeBenchSources();
        for (const SBenchSource& source : vSources)
        {
            const auto it = std::find_if(vKernels.begin(), vKernels.end(),
                                         [&](const auto& pKernel) { return pKernel->strName == source.strName; });
            ReportKernel(report, device, source, **it);
        }
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
