// A host program in C++ with the bindings: a template kernel by build options, functors, images, events with wait
// lists, a program compiled in two parts and linked, and several threads. Ends with 0 if all results are right.

#define CL_HPP_ENABLE_EXCEPTIONS
#define CL_HPP_TARGET_OPENCL_VERSION 120
#define CL_HPP_MINIMUM_OPENCL_VERSION 120
#include <CL/opencl.hpp>

#include <cmath>
#include <iostream>
#include <thread>

namespace
{

const char* const s_pszFilter = R"(
const sampler_t sampler = CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP | CLK_FILTER_NEAREST;

kernel void blur_rows(read_only image2d_t from, write_only image2d_t to)
{
    const int2 at = (int2)(get_global_id(0), get_global_id(1));
    float4 sum = 0;
    for (int i = -RADIUS; i <= RADIUS; ++i)
        sum += read_imagef(from, sampler, at + (int2)(i, 0));
    write_imagef(to, at, sum / (2 * RADIUS + 1));
}

kernel void to_floats(read_only image2d_t from, global float* to)
{
    const int2 at = (int2)(get_global_id(0), get_global_id(1));
    to[at.y * get_image_width(from) + at.x] = read_imagef(from, sampler, at).x;
}
)";

const char* const s_pszHelper = R"(
#include "numbers.h"
NUMBER triple(NUMBER x) { return 3 * x; }
)";
const char* const s_pszCaller = R"(
#include "numbers.h"
NUMBER triple(NUMBER x);
kernel void all_tripled(global NUMBER* data) { data[get_global_id(0)] = triple(data[get_global_id(0)]) + 1; }
)";

bool BlurAndCompare(const cl::Context& context, const cl::Device& device, int nRadius)
{
    const size_t nWidth = 24, nHeight = 8;
    std::vector<float> vPixels(nWidth * nHeight), vResult(nWidth * nHeight);
    for (size_t n = 0; n < vPixels.size(); ++n)
    {
        vPixels[n] = static_cast<float>(n * 7 % 32) / 4;
    }
    cl::Program program(context, s_pszFilter);
    program.build(std::vector<cl::Device>{device}, ("-DRADIUS=" + std::to_string(nRadius) + " -Werror").c_str());
    cl::CommandQueue queue(context, device);
    cl::Image2D source(context, CL_MEM_READ_ONLY | CL_MEM_COPY_HOST_PTR, cl::ImageFormat(CL_R, CL_FLOAT), nWidth,
                       nHeight, 0, vPixels.data());
    cl::Image2D blurred(context, CL_MEM_READ_WRITE, cl::ImageFormat(CL_R, CL_FLOAT), nWidth, nHeight);
    cl::Buffer result(context, CL_MEM_WRITE_ONLY, vResult.size() * sizeof(float));
    cl::KernelFunctor<cl::Image2D, cl::Image2D> blur(program, "blur_rows");
    cl::KernelFunctor<cl::Image2D, cl::Buffer> toFloats(program, "to_floats");
    const cl::NDRange size(nWidth, nHeight);
    const cl::Event done = blur(cl::EnqueueArgs(queue, size), source, blurred);
    toFloats(cl::EnqueueArgs(queue, done, size), blurred, result);
    cl::copy(queue, result, vResult.begin(), vResult.end());
    for (size_t n = 0; n < vResult.size(); ++n)
    {
        float fSum = 0;
        for (int i = -nRadius; i <= nRadius; ++i)
        {
            const long x = static_cast<long>(n % nWidth) + i;
            fSum += x >= 0 && x < static_cast<long>(nWidth) ? vPixels[n - n % nWidth + x] : 0.0f;
        }
        if (std::fabs(vResult[n] - fSum / static_cast<float>(2 * nRadius + 1)) > 1e-5f)
        {
            return false;
        }
    }
    return true;
}

bool LinkAndCompare(const cl::Context& context, const cl::Device& device)
{
    const cl::Program header(context, "#define NUMBER long\n");
    std::vector<cl::Program> vParts;
    for (const char* pszSource : {s_pszHelper, s_pszCaller})
    {
        vParts.emplace_back(context, pszSource);
        cl_program part = vParts.back()();
        const cl_program headers[] = {header()};
        const char* names[] = {"numbers.h"};
        if (clCompileProgram(part, 0, nullptr, "", 1, headers, names, nullptr, nullptr) != CL_SUCCESS)
        {
            std::cerr << vParts.back().getBuildInfo<CL_PROGRAM_BUILD_LOG>(device);
            return false;
        }
    }
    cl::Program linked = cl::linkProgram(vParts);
    std::vector<cl_long> vData = {1, -2, 4000000000, 0};
    cl::Buffer data(context, vData.begin(), vData.end(), false);
    cl::CommandQueue queue(context, device);
    cl::KernelFunctor<cl::Buffer> tripled(linked, "all_tripled");
    tripled(cl::EnqueueArgs(queue, cl::NDRange(4)), data);
    cl::copy(queue, data, vData.begin(), vData.end());
    return vData == std::vector<cl_long>{4, -5, 12000000001, 1};
}

} // namespace

int main()
{
    try
    {
        const cl::Platform platform = cl::Platform::getDefault();
        std::vector<cl::Device> vDevices;
        platform.getDevices(CL_DEVICE_TYPE_ALL, &vDevices);
        bool bRight = !vDevices.empty();
        for (const cl::Device& device : vDevices)
        {
            const cl::Context context(device);
            bool radii[4] = {};
            std::vector<std::thread> vThreads;
            for (int nRadius = 0; nRadius < 4; ++nRadius)
            {
                vThreads.emplace_back([&, nRadius] { radii[nRadius] = BlurAndCompare(context, device, nRadius); });
            }
            for (std::thread& thread : vThreads)
            {
                thread.join();
            }
            const bool bLinked = LinkAndCompare(context, device);
            std::cout << device.getInfo<CL_DEVICE_NAME>() << ": blur " << radii[0] << radii[1] << radii[2] << radii[3]
                      << ", linked " << bLinked << "\n";
            bRight = bRight && radii[0] && radii[1] && radii[2] && radii[3] && bLinked;
        }
        return bRight ? 0 : 1;
    }
    catch (const cl::BuildError& error)
    {
        for (const auto& log : error.getBuildLog())
        {
            std::cerr << log.second;
        }
        return 2;
    }
    catch (const cl::Error& error)
    {
        std::cerr << error.what() << ": " << error.err() << "\n";
        return 2;
    }
}
