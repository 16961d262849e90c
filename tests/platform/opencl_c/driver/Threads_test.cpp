#include "Programs.h"

#include <atomic>
#include <thread>

/// Builds, compilations, links, failures and unloads on several threads at once.
namespace
{

using namespace KestrelTest;

TEST(Threads, BuildLinkFailAndUnloadAtOnce)
{
    std::vector<std::thread> vThreads;
    std::atomic<int> nRight{0};
    constexpr int nThreads = 4;
    constexpr int nRounds = 3;
    for (int nThread = 0; nThread < nThreads; ++nThread)
    {
        vThreads.emplace_back(
            [&nRight, nThread]
            {
                COpenCLDevice device(nThread % 2 == 0 ? "Quench" : "Kiln");
                for (int nRound = 0; nRound < nRounds; ++nRound)
                {
                    const std::string strNumber = std::to_string(nThread * 100 + nRound);
                    const CProgramHandle whole =
                        FromSource(device, "kernel void k(global int* out) { out[0] = (int)sqrt(" + strNumber +
                                               ".0f * " + strNumber + ".0f); }\n");
                    const CProgramHandle wrong = FromSource(device, "kernel void k( {\n");
                    const CProgramHandle main =
                        FromSource(device, "int f(void);\nkernel void k(global int* out) { out[0] = f(); }\n");
                    const CProgramHandle part = FromSource(device, "int f(void) { return " + strNumber + "; }\n");
                    SRuntimeEntries& cl = device.cl;
                    const bool bBuilt =
                        cl.clBuildProgram(whole.Get(), 0, nullptr, "-cl-opt-disable", nullptr, nullptr) == CL_SUCCESS;
                    const bool bRefused =
                        cl.clBuildProgram(wrong.Get(), 0, nullptr, "", nullptr, nullptr) == CL_BUILD_PROGRAM_FAILURE;
                    cl.clCompileProgram(main.Get(), 0, nullptr, "", 0, nullptr, nullptr, nullptr, nullptr);
                    cl.clCompileProgram(part.Get(), 0, nullptr, "", 0, nullptr, nullptr, nullptr, nullptr);
                    const cl_program inputs[] = {main.Get(), part.Get()};
                    const CProgramHandle linked(
                        cl.clLinkProgram(device.m_context, 0, nullptr, "", 2, inputs, nullptr, nullptr, nullptr));
                    cl.clUnloadCompiler();
                    const int nExpected = nThread * 100 + nRound;
                    nRight += bBuilt && bRefused && RunInts(device, whole, "k", 1)[0] == nExpected &&
                              RunInts(device, linked, "k", 1)[0] == nExpected;
                }
            });
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    EXPECT_EQ(nRight, nThreads * nRounds);
}

} // namespace
