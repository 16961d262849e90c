#include <CL/cl.h>

#include <cmath>

#include "platform/simt/Texel.h"
#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

using namespace KestrelPlatform;

/// A one-channel float image of the given sizes whose texel (x, y, z) is x + 10 y + 100 z + 1.
struct SFloatImage
{
    SFloatImage(uint32_t nType, uint32_t nWidth, uint32_t nHeight, uint32_t nDepth) : vTexels(nWidth * nHeight * nDepth)
    {
        for (uint32_t n = 0; n < vTexels.size(); ++n)
        {
            const uint32_t nValue = n % nWidth + n / nWidth % nHeight * 10 + n / nWidth / nHeight * 100 + 1;
            vTexels[n] = static_cast<float>(nValue);
        }
        binding.pData = reinterpret_cast<unsigned char*>(vTexels.data());
        binding.nChannelOrder = CL_R;
        binding.nChannelType = CL_FLOAT;
        binding.nType = nType;
        binding.nWidth = nWidth;
        binding.nHeight = nHeight;
        binding.nDepth = nType == CL_MEM_OBJECT_IMAGE3D ? nDepth : 1;
        binding.nArraySize = nType == CL_MEM_OBJECT_IMAGE3D ? 1 : nDepth;
        if (nType == CL_MEM_OBJECT_IMAGE1D_ARRAY)
        {
            binding.nArraySize = nHeight;
        }
        binding.nRowPitch = nWidth * 4;
        binding.nSlicePitch = nType == CL_MEM_OBJECT_IMAGE1D_ARRAY ? nWidth * 4 : nWidth * nHeight * 4;
    }

    std::vector<float> vTexels;
    SImageBinding binding;
};

/// The x component of one sample at the given coordinates.
float Sample(const SImageBinding& image, const SSamplerBinding& sampler, float x, float y = 0, float z = 0,
             bool bUnnormalized = false)
{
    CKernelRun run("sample_resource(3)_sampler(2) r0, l0\nuav_raw_store_id(11) mem0, cb1[0].x, r0\n",
                   std::string("dcl_resource_id(3)_type(2d)") + (bUnnormalized ? "_unnorm" : "") + " 0x0\n" +
                       "dcl_literal l0, " + std::to_string(Bits(x)) + ", " + std::to_string(Bits(y)) + ", " +
                       std::to_string(Bits(z)) + ", 0\n");
    run.launch.mapResources[3] = image;
    run.launch.mapSamplers[2] = sampler;
    run.vOutput.assign(4, 0xCDCDCDCD);
    EXPECT_EQ(run.Run().nBadAccesses, 0u);
    return Float(run.vOutput[0]);
}

TEST(Images, NearestAddressing)
{
    const SFloatImage line(CL_MEM_OBJECT_IMAGE1D, 4, 1, 1);
    struct SCase
    {
        uint32_t nAddressing;
        bool bNormalized;
        float fCoordinate;
        float fExpected;
    };
    const SCase cases[] = {
        {CL_ADDRESS_CLAMP_TO_EDGE, false, 2.9f, 3},
        {CL_ADDRESS_CLAMP_TO_EDGE, false, -3, 1},
        {CL_ADDRESS_CLAMP_TO_EDGE, false, 9, 4},
        {CL_ADDRESS_CLAMP_TO_EDGE, true, 0.5f, 3},
        {CL_ADDRESS_CLAMP, false, 4, 0},
        {CL_ADDRESS_CLAMP, false, -0.1f, 0},
        {CL_ADDRESS_CLAMP, false, 3.9f, 4},
        {CL_ADDRESS_REPEAT, true, 1.3f, 2},
        {CL_ADDRESS_REPEAT, true, -0.1f, 4},
        {CL_ADDRESS_MIRRORED_REPEAT, true, 1.1f, 4},
        {CL_ADDRESS_MIRRORED_REPEAT, true, -0.3f, 2},
        {CL_ADDRESS_CLAMP_TO_EDGE, false, NAN, 1},
        {CL_ADDRESS_CLAMP_TO_EDGE, false, 1e30f, 4},
        {CL_ADDRESS_CLAMP, false, -INFINITY, 0},
        {CL_ADDRESS_REPEAT, true, INFINITY, 1},
    };
    for (const SCase& test : cases)
    {
        EXPECT_EQ(Sample(line.binding, {test.bNormalized, test.nAddressing, CL_FILTER_NEAREST}, test.fCoordinate),
                  test.fExpected)
            << test.nAddressing << " at " << test.fCoordinate;
    }
    EXPECT_EQ(Sample(line.binding, {true, CL_ADDRESS_CLAMP_TO_EDGE, CL_FILTER_NEAREST}, 2.0f, 0, 0, true), 3.0f);
}

TEST(Images, LinearFilter)
{
    const SFloatImage line(CL_MEM_OBJECT_IMAGE1D, 4, 1, 1);
    const SFloatImage plane(CL_MEM_OBJECT_IMAGE2D, 4, 4, 1);
    const SFloatImage volume(CL_MEM_OBJECT_IMAGE3D, 4, 4, 4);
    const SSamplerBinding edge = {false, CL_ADDRESS_CLAMP_TO_EDGE, CL_FILTER_LINEAR};
    EXPECT_FLOAT_EQ(Sample(line.binding, edge, 1.25f), 1.75f);
    EXPECT_FLOAT_EQ(Sample(line.binding, edge, 0.25f), 1.0f);
    EXPECT_FLOAT_EQ(Sample(line.binding, {false, CL_ADDRESS_CLAMP, CL_FILTER_LINEAR}, 0.25f), 0.75f);
    EXPECT_FLOAT_EQ(Sample(line.binding, {true, CL_ADDRESS_REPEAT, CL_FILTER_LINEAR}, 0.0f), 2.5f);
    EXPECT_FLOAT_EQ(Sample(line.binding, {true, CL_ADDRESS_MIRRORED_REPEAT, CL_FILTER_LINEAR}, 1.0f), 4.0f);
    EXPECT_FLOAT_EQ(Sample(plane.binding, edge, 1.5f, 2.75f), 2 + 20 + 2.5f);
    EXPECT_FLOAT_EQ(Sample(volume.binding, edge, 2.0f, 1.0f, 2.0f), 1 + 1.5f + 5 + 150);
}

TEST(Images, Layers)
{
    const SFloatImage lines(CL_MEM_OBJECT_IMAGE1D_ARRAY, 4, 3, 1);
    const SFloatImage planes(CL_MEM_OBJECT_IMAGE2D_ARRAY, 4, 2, 3);
    const SSamplerBinding sampler = {false, CL_ADDRESS_CLAMP_TO_EDGE, CL_FILTER_NEAREST};
    EXPECT_EQ(Sample(lines.binding, sampler, 2, 1.4f), 13.0f);
    EXPECT_EQ(Sample(lines.binding, sampler, 2, 77), 23.0f);
    EXPECT_EQ(Sample(planes.binding, sampler, 1, 1, 1.6f), 212.0f);
    EXPECT_EQ(Sample(planes.binding, sampler, 1, 1, -5), 12.0f);
}

/// Copies an image with a kernel, texel by texel, from resource 0 to UAV 1.
std::vector<unsigned char> CopyThroughKernel(uint32_t nOrder, uint32_t nType, std::vector<unsigned char>& vSource)
{
    CKernelRun run("mov r0.x, vAbsTidFlat.x\nload_resource(0) r2, r0.x000\nuav_store_id(1) r0.x000, r2\n",
                   "dcl_resource_id(0)_type(1d) 0x0\ndcl_typed_uav_id(1)_access(wo) 0x1\n");
    const size_t nTexel = TexelBytes(nOrder, nType);
    std::vector<unsigned char> vCopy(vSource.size(), 0x77);
    SImageBinding image;
    image.nChannelOrder = nOrder;
    image.nChannelType = nType;
    image.nType = CL_MEM_OBJECT_IMAGE1D;
    image.nWidth = static_cast<uint32_t>(vSource.size() / nTexel);
    image.nRowPitch = vSource.size();
    image.pData = vSource.data();
    run.launch.mapResources[0] = image;
    image.pData = vCopy.data();
    run.launch.mapUavImages[1] = image;
    run.SetSize(image.nWidth, 1);
    EXPECT_EQ(run.Run().nBadAccesses, 0u);
    return vCopy;
}

TEST(Images, EveryFormatSurvivesACopy)
{
    const uint32_t types[] = {CL_SNORM_INT8,     CL_SNORM_INT16,    CL_UNORM_INT8,   CL_UNORM_INT16,
                              CL_SIGNED_INT8,    CL_SIGNED_INT16,   CL_SIGNED_INT32, CL_UNSIGNED_INT8,
                              CL_UNSIGNED_INT16, CL_UNSIGNED_INT32, CL_HALF_FLOAT,   CL_FLOAT};
    for (const uint32_t nOrder : {CL_R, CL_A, CL_RG, CL_RA, CL_RGBA, CL_BGRA, CL_ARGB, CL_INTENSITY, CL_LUMINANCE})
    {
        for (const uint32_t nType : types)
        {
            std::vector<unsigned char> vSource(96);
            for (size_t n = 0; n < vSource.size(); ++n)
            {
                vSource[n] = static_cast<unsigned char>(n % 2 ? 0x3C + n / 24 : n * 5);
            }
            EXPECT_EQ(CopyThroughKernel(nOrder, nType, vSource), vSource) << std::hex << nOrder << " " << nType;
        }
    }
    for (const uint32_t nType : {CL_UNORM_SHORT_565, CL_UNORM_INT_101010})
    {
        std::vector<unsigned char> vSource = {0x34, 0x12, 0xCD, 0x2B, 0, 0, 0xFF, 0x3F};
        EXPECT_EQ(CopyThroughKernel(CL_RGB, nType, vSource), vSource);
    }
}

TEST(Images, ComponentsAndClamping)
{
    const unsigned char bytes[] = {255, 0, 128, 64};
    const STexel bgra = ReadTexel(bytes, CL_BGRA, CL_UNORM_INT8);
    EXPECT_EQ(Float(bgra.w[0]), 128 / 255.0f);
    EXPECT_EQ(Float(bgra.w[2]), 1.0f);
    EXPECT_EQ(Float(bgra.w[3]), 64 / 255.0f);
    const STexel red = ReadTexel(bytes, CL_R, CL_SIGNED_INT8);
    EXPECT_EQ(std::vector<uint32_t>(red.w, red.w + 4), (std::vector<uint32_t>{0xFFFFFFFF, 0, 0, 1}));
    EXPECT_EQ(Float(ReadTexel(bytes + 2, CL_R, CL_SNORM_INT8).w[0]), -1.0f);
    unsigned char out[4] = {9, 9, 9, 9};
    WriteTexel(out, CL_RGBA, CL_UNORM_INT8, {{Bits(2.0f), Bits(-1.0f), Bits(NAN), Bits(0.5f)}});
    EXPECT_EQ(std::vector<int>(out, out + 4), (std::vector<int>{255, 0, 0, 128}));
    WriteTexel(out, CL_RGBA, CL_SIGNED_INT8, {{200, 0xFFFFFF00, 5, 0xFFFFFFFF}});
    EXPECT_EQ(std::vector<int>(out, out + 4), (std::vector<int>{127, 128, 5, 255}));
}

TEST(Images, NullOutsideAndInfo)
{
    SFloatImage plane(CL_MEM_OBJECT_IMAGE2D, 4, 3, 1);
    CKernelRun run("resinfo_resource(0) r1, l0.x\nuav_raw_store_id(11) mem0, cb1[0].x, r1\n"
                   "mov r2, l0.w\nload_resource(0) r2, l0.zxxx\nload_resource(5) r3, l0.x\n"
                   "uav_store_id(0) l0.zxxx, l0.w\nuav_store_id(9) l0.x, l0.w\niadd r2.y, r2.x, r3.x\n"
                   "uav_raw_store_id(11) mem0.x, cb1[0].y, r2.y\n",
                   "dcl_literal l0, 0, 1, 4, 77\n");
    run.launch.mapResources[0] = plane.binding;
    run.launch.mapUavImages[0] = plane.binding;
    run.vOutput.assign(8, 55);
    run.launch.vConstantBuffer1 = {0, CKernelRun::s_nOutput + 16};
    const SLaunchResult result = run.Run();
    EXPECT_EQ(std::vector<uint32_t>(run.vOutput.begin(), run.vOutput.begin() + 5),
              (std::vector<uint32_t>{4, 3, 1, 1, 0}));
    EXPECT_EQ(result.nBadAccesses, 2u); // the load and the store at x = 4; a null image has none
    EXPECT_EQ(plane.vTexels[4], 11.0f);
}

} // namespace
} // namespace KestrelPlatformTest
