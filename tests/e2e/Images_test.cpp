#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

typedef std::vector<char> Image;

/// Every image that the debugger passes to the runtime.
std::vector<Image> g_vSubmitted;

cl_program CL_API_CALL NoteBinary(cl_context context, cl_uint nDevices, const cl_device_id* pDevices,
                                  const size_t* pLengths, const unsigned char** ppBinaries, cl_int* pStatus,
                                  cl_int* pCode)
{
    g_vSubmitted.emplace_back(ppBinaries[0], ppBinaries[0] + pLengths[0]);
    return GetLibraries().cl.clCreateProgramWithBinary(context, nDevices, pDevices, pLengths, ppBinaries, pStatus,
                                                       pCode);
}

/// The output of readelf besides its listing, and its exit code if it fails.
std::string ComplaintsOf(const Image& image)
{
    const std::string strPath =
        std::filesystem::temp_directory_path().string() + "/kestrel_image_" + std::to_string(getpid());
    std::ofstream(strPath, std::ios::binary).write(image.data(), static_cast<std::streamsize>(image.size()));
    FILE* pPipe = popen(("readelf -aW " + strPath + " 2>&1").c_str(), "r");
    std::string strOutput;
    char szPart[4096];
    while (pPipe != nullptr && std::fgets(szPart, sizeof(szPart), pPipe) != nullptr)
    {
        const std::string strLine = szPart;
        if (strLine.find("Warning") != std::string::npos || strLine.find("Error") != std::string::npos)
        {
            strOutput += strLine;
        }
    }
    if (pPipe == nullptr || pclose(pPipe) != 0)
    {
        strOutput += "readelf failed";
    }
    std::filesystem::remove(strPath);
    return strOutput;
}

Image BinaryOf(cl_kernel kernel)
{
    const cl_icd_dispatch_table& cl = GetLibraries().cl;
    cl_program program = nullptr;
    size_t nSize = 0;
    cl.clGetKernelInfo(kernel, CL_KERNEL_PROGRAM, sizeof(program), &program, nullptr);
    cl.clGetProgramInfo(program, CL_PROGRAM_BINARY_SIZES, sizeof(nSize), &nSize, nullptr);
    Image image(nSize);
    char* pData = image.data();
    cl.clGetProgramInfo(program, CL_PROGRAM_BINARIES, sizeof(pData), &pData, nullptr);
    return image;
}

} // namespace

TEST(Images, ReadelfReadsEveryStageOfAKernelBinary)
{
    cl_icd_dispatch_table table = GetLibraries().cl;
    table.clCreateProgramWithBinary = &NoteBinary;
    GetLibraries().ovkclDebugSetDispatchTable(&table);
    for (const char* pszLaunch : {"two_kernels/scale", "switch_cases/switch_cases", "older_loop/older_loop"})
    {
        SCOPED_TRACE(pszLaunch);
        g_vSubmitted.clear();
        CLaunch launch(GetLibraries(), ReadLaunchFile(KestrelTest::SourceFile("examples/") + pszLaunch + ".json"));
        EXPECT_EQ(ComplaintsOf(BinaryOf(launch.GetKernel())), "") << "as the runtime gives it";

        CScriptedClient client(
            [&](CSession& session)
            {
                size_t nSize = 0;
                GetLibraries().ovkclDebugGetKernelBinarySize(session.GetContext(), &nSize);
                Image prepared(nSize);
                GetLibraries().ovkclDebugGetKernelBinary(session.GetContext(), prepared.data(), nSize);
                EXPECT_EQ(ComplaintsOf(prepared), "") << "prepared";
                return OVKCLDEBUG_COMMAND_STEP;
            },
            AlwaysStep);
        EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
        ASSERT_GT(g_vSubmitted.size(), 5u);
        for (size_t i = 0; i < g_vSubmitted.size(); i += 7)
        {
            EXPECT_EQ(ComplaintsOf(g_vSubmitted[i]), "") << "submitted, number " << i;
        }
    }
    GetLibraries().ovkclDebugSetDispatchTable(&GetLibraries().cl);
}
