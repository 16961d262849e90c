#define CL_HPP_ENABLE_EXCEPTIONS
#define CL_HPP_TARGET_OPENCL_VERSION 120
#define CL_HPP_MINIMUM_OPENCL_VERSION 120
#include "tests/support/Folders.h"

#include <CL/opencl.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>

/// A program with the C++ bindings, linked to the system's loader, with this runtime as the loader's only
/// driver.
namespace
{

class CBindingsTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { setenv("OCL_ICD_VENDORS", KestrelTest::PlatformFile("icd").c_str(), 1); }

    static std::string ReadSource(const char* pszPath)
    {
        std::ifstream file(KestrelTest::SourceFile(pszPath));
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    cl::Platform m_platform = cl::Platform::getDefault();
    cl::Context m_context{CL_DEVICE_TYPE_DEFAULT};
    cl::CommandQueue m_queue{m_context, CL_QUEUE_PROFILING_ENABLE};
};

TEST_F(CBindingsTest, FindsThePlatformAndItsDevices)
{
    EXPECT_EQ(m_platform.getInfo<CL_PLATFORM_VENDOR>(), "Oberon Vector Kinetics, Inc.");
    std::vector<cl::Device> vDevices;
    m_platform.getDevices(CL_DEVICE_TYPE_ALL, &vDevices);
    ASSERT_EQ(vDevices.size(), 3u);
    EXPECT_EQ(vDevices[1].getInfo<CL_DEVICE_NAME>(), "Kiln");
    EXPECT_EQ(m_context.getInfo<CL_CONTEXT_DEVICES>().front().getInfo<CL_DEVICE_NAME>(), "Quench");
    EXPECT_THROW(cl::Context(CL_DEVICE_TYPE_ACCELERATOR), cl::Error);
}

TEST_F(CBindingsTest, RunsBothKernelsOfAProgram)
{
    cl::Program program(m_context, ReadSource("examples/two_kernels/two_kernels.il"));
    program.build("-g");
    std::vector<cl::Kernel> vKernels;
    program.createKernels(&vKernels);
    ASSERT_EQ(vKernels.size(), 2u);
    EXPECT_EQ(vKernels[1].getInfo<CL_KERNEL_FUNCTION_NAME>(), "shift");

    std::vector<cl_float> vFloats = {1, 2, 3, 4, 5, 6, 7, 8};
    std::vector<cl_int> vInts(8);
    std::iota(vInts.begin(), vInts.end(), 1);
    cl::Buffer floats(m_context, vFloats.begin(), vFloats.end(), false, true);
    cl::Buffer ints(m_context, vInts.begin(), vInts.end(), false);
    auto scale = cl::KernelFunctor<cl::Buffer, cl_float>(program, "scale");
    auto shift = cl::KernelFunctor<cl::Buffer, cl_int>(program, "shift");
    cl::Event scaled = scale(cl::EnqueueArgs(m_queue, cl::NDRange(8), cl::NDRange(4)), floats, 0.5f);
    cl::Event shifted = shift(cl::EnqueueArgs(m_queue, scaled, cl::NDRange(8)), ints, 4);
    shifted.wait();
    EXPECT_LE(scaled.getProfilingInfo<CL_PROFILING_COMMAND_END>(),
              shifted.getProfilingInfo<CL_PROFILING_COMMAND_START>());
    EXPECT_EQ(shifted.getInfo<CL_EVENT_COMMAND_EXECUTION_STATUS>(), CL_COMPLETE);
    cl::copy(m_queue, ints, vInts.begin(), vInts.end());
    EXPECT_EQ(vInts, (std::vector<cl_int>{16, 32, 48, 64, 80, 96, 112, 128}));
    EXPECT_EQ(vFloats, (std::vector<cl_float>{0.5f, 1, 1.5f, 2, 2.5f, 3, 3.5f, 4})) << "the host's own memory is used";
    EXPECT_NE(m_queue.getInfo<CL_QUEUE_CONTEXT>()(), nullptr);
}

TEST_F(CBindingsTest, MapsBuffersAndRunsAKernelOfItsOwnSource)
{
    cl::Program program(m_context, "kernel void add(global int* out, global const int* a, int n)\n"
                                   "{ int i = get_global_id(0); out[i] = a[i] * n + i; }");
    program.build();
    auto add = cl::KernelFunctor<cl::Buffer, cl::Buffer, cl_int>(program, "add");
    cl::Buffer source(m_context, CL_MEM_READ_WRITE, 64 * sizeof(cl_int));
    cl::Buffer target(m_context, CL_MEM_READ_WRITE, 64 * sizeof(cl_int));
    auto* pSource =
        static_cast<cl_int*>(m_queue.enqueueMapBuffer(source, CL_TRUE, CL_MAP_WRITE, 0, 64 * sizeof(cl_int)));
    std::iota(pSource, pSource + 64, -30);
    m_queue.enqueueUnmapMemObject(source, pSource);

    // The target is a part of the buffer; the other half is filled meanwhile.
    const cl_buffer_region region = {128, 128};
    cl::Buffer part = target.createSubBuffer(CL_MEM_READ_WRITE, CL_BUFFER_CREATE_TYPE_REGION, &region);
    cl::Event filled;
    m_queue.enqueueFillBuffer(target, cl_int{-1}, 0, 128, nullptr, &filled);
    cl::Event added = add(cl::EnqueueArgs(m_queue, filled, cl::NDRange(32)), part, source, 10);
    std::vector<cl::Event> vAdded = {added};
    cl::Event mapped;
    const auto* pTarget = static_cast<const cl_int*>(
        m_queue.enqueueMapBuffer(target, CL_FALSE, CL_MAP_READ, 0, 64 * sizeof(cl_int), &vAdded, &mapped));
    mapped.wait();
    for (cl_int n = 0; n < 64; ++n)
    {
        EXPECT_EQ(pTarget[n], n < 32 ? -1 : (n - 32 - 30) * 10 + n - 32);
    }
    m_queue.enqueueUnmapMemObject(target, const_cast<cl_int*>(pTarget));
    m_queue.finish();

    cl::Program broken(m_context, "kernel void broken() { nothing; }");
    EXPECT_THROW(broken.build(), cl::BuildError);
    EXPECT_NE(broken.getBuildInfo<CL_PROGRAM_BUILD_LOG>().front().second.find("'nothing'"), std::string::npos);
}

TEST_F(CBindingsTest, MapsImagesAndSetsUserEvents)
{
    cl::Image2D image(m_context, CL_MEM_READ_WRITE, cl::ImageFormat(CL_RGBA, CL_UNSIGNED_INT8), 5, 3);
    cl::UserEvent gate(m_context);
    std::vector<cl::Event> vGate = {gate};
    cl::Event filled;
    m_queue.enqueueFillImage(image, cl_uint4{{1, 2, 3, 4}}, {0, 0, 0}, {5, 3, 1}, &vGate, &filled);
    EXPECT_NE(filled.getInfo<CL_EVENT_COMMAND_EXECUTION_STATUS>(), CL_COMPLETE);
    gate.setStatus(CL_COMPLETE);
    size_t nRowPitch = 0;
    auto* pTexels = static_cast<cl_uchar*>(
        m_queue.enqueueMapImage(image, CL_TRUE, CL_MAP_READ, {1, 1, 0}, {3, 2, 1}, &nRowPitch, nullptr));
    EXPECT_EQ(nRowPitch, 20u);
    EXPECT_EQ(pTexels[nRowPitch + 10], 3);
    m_queue.enqueueUnmapMemObject(image, pTexels);
    m_queue.finish();
    EXPECT_EQ(image.getImageInfo<CL_IMAGE_HEIGHT>(), 3u);
}

} // namespace
