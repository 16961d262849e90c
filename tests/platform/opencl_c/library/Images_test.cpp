#include "tests/platform/opencl_c/library/Elementwise.h"

#include <numeric>

namespace KestrelTest
{
namespace
{

struct SShape
{
    const char* pszName; ///< of the type in OpenCL C
    cl_mem_object_type nType;
    const char* pszAt;      ///< coordinates of x, y, z
    const char* pszFloatAt; ///< the same as numbers within the texel
    const char* pszSizes;   ///< queries of an image's sizes
    bool bTall;             ///< has a height
    bool bDeep;             ///< has a depth or layers
};

const SShape s_Shapes[] = {
    {"image1d_t", CL_MEM_OBJECT_IMAGE1D, "x", "x + 0.25f", "0, 0, 0, 0", false, false},
    {"image1d_array_t", CL_MEM_OBJECT_IMAGE1D_ARRAY, "(int2)(x, z)", "(float2)(x + 0.25f, z + 0.25f)",
     "0, 0, get_image_array_size(image), 0", false, true},
    {"image2d_t", CL_MEM_OBJECT_IMAGE2D, "(int2)(x, y)", "(float2)(x + 0.25f, y + 0.75f)",
     "get_image_height(image), 0, 0, get_image_dim(image).x * 100 + get_image_dim(image).y", true, false},
    {"image2d_array_t", CL_MEM_OBJECT_IMAGE2D_ARRAY, "(int4)(x, y, z, 0)",
     "(float4)(x + 0.25f, y + 0.75f, z + 0.25f, 0)",
     "get_image_height(image), 0, get_image_array_size(image), get_image_dim(image).x * 100 + get_image_dim(image).y",
     true, true},
    {"image3d_t", CL_MEM_OBJECT_IMAGE3D, "(int4)(x, y, z, 0)", "(float4)(x + 0.25f, y + 0.75f, z + 0.25f, 0)",
     "get_image_height(image), get_image_depth(image), 0, get_image_dim(image).x * 100 + get_image_dim(image).z", true,
     true},
};

struct SKind
{
    const char* pszSuffix; ///< of the functions
    const char* pszType;   ///< of a texel
    cl_channel_type nType;
};

const SKind s_Kinds[] = {{"f", "float4", CL_FLOAT}, {"i", "int4", CL_SIGNED_INT32}, {"ui", "uint4", CL_UNSIGNED_INT32}};

constexpr size_t s_nWidth = 5;
constexpr size_t s_nHeight = 4;
constexpr size_t s_nDepth = 3;

/// \param pTexels null for an image without contents
CDeviceBuffer MakeImage(COpenCLDevice& device, const SShape& shape, const SKind& kind, const void* pTexels)
{
    const cl_image_format format = {CL_RGBA, kind.nType};
    cl_image_desc desc = {};
    desc.image_type = shape.nType;
    desc.image_width = s_nWidth;
    desc.image_height = shape.bTall ? s_nHeight : 0;
    desc.image_depth = shape.nType == CL_MEM_OBJECT_IMAGE3D ? s_nDepth : 0;
    desc.image_array_size = shape.bDeep && shape.nType != CL_MEM_OBJECT_IMAGE3D ? s_nDepth : 0;
    cl_int nCode = -1;
    const cl_mem image =
        device.cl.clCreateImage(device.m_context, CL_MEM_READ_WRITE | (pTexels != nullptr ? CL_MEM_COPY_HOST_PTR : 0),
                                &format, &desc, const_cast<void*>(pTexels), &nCode);
    Need(nCode, "clCreateImage");
    return CDeviceBuffer(image);
}

const std::string s_strSource = R"(
#pragma OPENCL EXTENSION cl_khr_3d_image_writes : enable
constant sampler_t s_plain = CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP_TO_EDGE | CLK_FILTER_NEAREST;
#define CAT_(a, b) a##b
#define CAT(a, b) CAT_(a, b)
#define READ CAT(read_image, KIND)
#define SIZES(image) (int8)(get_image_width(image), SIZE, get_image_channel_data_type(image), get_image_channel_order(image), 0)
int8 sizes_of_read(read_only IMAGE image) { return SIZES(image); }
int8 sizes_of_written(write_only IMAGE image) { return SIZES(image); }
kernel void k(read_only IMAGE in, write_only IMAGE out, global int8* r)
{
    int x = get_global_id(0), y = get_global_id(1), z = get_global_id(2);
    TEXEL a = READ(in, s_plain, AT), b = READ(in, s_plain, FLOAT_AT), c = READ(in, AT);
    if (any(a != b) || any(a != c)) { r[2] = 1; }
    CAT(write_image, KIND)(out, AT, a + (TEXEL)(1, 2, 3, 4));
    r[0] = sizes_of_read(in);
    r[1] = sizes_of_written(out);
}
)";

TEST(ImageBuiltins, ReadWriteAndTellSizes)
{
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        for (const SShape& shape : s_Shapes)
        {
            for (const SKind& kind : s_Kinds)
            {
                const std::string strWhat = std::string(testDevice.pszName) + " " + shape.pszName + " " + kind.pszType;
                const size_t nHeight = shape.bTall ? s_nHeight : 1;
                const size_t nDepth = shape.bDeep ? s_nDepth : 1;
                const size_t nTexels = s_nWidth * nHeight * nDepth;
                // Small whole numbers have the same texels as integers and as floats, apart from their encoding.
                std::vector<float> vFloats(nTexels * 4);
                std::iota(vFloats.begin(), vFloats.end(), 7.0f);
                std::vector<int32_t> vIntegers(vFloats.begin(), vFloats.end());
                const bool bFloat = kind.nType == CL_FLOAT;
                const CDeviceBuffer in =
                    MakeImage(device, shape, kind, bFloat ? static_cast<void*>(vFloats.data()) : vIntegers.data());
                const CDeviceBuffer out = MakeImage(device, shape, kind, nullptr);
                const CDeviceBuffer result = device.Buffer(std::vector<int32_t>(24));
                COpenCLProgram program(device, std::string("#define IMAGE ") + shape.pszName + "\n#define AT " +
                                                   shape.pszAt + "\n#define FLOAT_AT " + shape.pszFloatAt +
                                                   "\n#define KIND " + kind.pszSuffix + "\n#define TEXEL " +
                                                   kind.pszType + "\n#define SIZE " + shape.pszSizes + s_strSource);
                program.Run("k", {{s_nWidth, nHeight, nDepth}, {1, 1, 1}, {}}, in, out, result);
                const int nWidth = s_nWidth;
                const bool b3D = shape.nType == CL_MEM_OBJECT_IMAGE3D;
                const int nDim = shape.bTall ? nWidth * 100 + static_cast<int>(b3D ? s_nDepth : s_nHeight) : 0;
                const int nFormat = static_cast<int>(kind.nType);
                const std::vector<int32_t> vSizes = {nWidth,
                                                     shape.bTall ? static_cast<int>(s_nHeight) : 0,
                                                     b3D ? static_cast<int>(s_nDepth) : 0,
                                                     shape.bDeep && !b3D ? static_cast<int>(s_nDepth) : 0,
                                                     nDim,
                                                     nFormat,
                                                     CL_RGBA,
                                                     0};
                std::vector<int32_t> vExpected = vSizes;
                vExpected.insert(vExpected.end(), vSizes.begin(), vSizes.end());
                vExpected.resize(24);
                EXPECT_EQ(device.Read<int32_t>(result), vExpected) << strWhat;
                for (size_t i = 0; i < vFloats.size(); ++i)
                {
                    vFloats[i] += static_cast<float>(1 + i % 4);
                    vIntegers[i] += static_cast<int32_t>(1 + i % 4);
                }
                std::vector<int32_t> vWritten(nTexels * 4);
                const size_t origin[3] = {0, 0, 0};
                const size_t region[3] = {s_nWidth, shape.nType == CL_MEM_OBJECT_IMAGE1D_ARRAY ? nDepth : nHeight,
                                          shape.nType == CL_MEM_OBJECT_IMAGE1D_ARRAY ? 1 : nDepth};
                Need(device.cl.clEnqueueReadImage(device.m_queue, out.Get(), CL_TRUE, origin, region, 0, 0,
                                                  vWritten.data(), 0, nullptr, nullptr),
                     "clEnqueueReadImage");
                EXPECT_EQ(std::memcmp(vWritten.data(), bFloat ? static_cast<void*>(vFloats.data()) : vIntegers.data(),
                                      nTexels * 16),
                          0)
                    << strWhat;
            }
        }
    }
}

TEST(ImageBuiltins, BuffersAreImagesOfOneDimension)
{
    const std::string strSource = R"(
kernel void k(read_only image1d_buffer_t in, write_only image1d_buffer_t out, global int* r)
{
    int i = get_global_id(0);
    write_imagei(out, i, read_imagei(in, i) * 2 + get_image_width(out));
    r[0] = get_image_width(in);
    r[1] = get_image_channel_data_type(in);
    r[2] = get_image_channel_order(out);
}
)";
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        std::vector<int32_t> vTexels(40);
        std::iota(vTexels.begin(), vTexels.end(), 3);
        const CDeviceBuffer from = device.Buffer(vTexels);
        const CDeviceBuffer to = device.Buffer(std::vector<int32_t>(40));
        const auto Image = [&](const CDeviceBuffer& buffer)
        {
            const cl_image_format format = {CL_RGBA, CL_SIGNED_INT32};
            cl_image_desc desc = {};
            desc.image_type = CL_MEM_OBJECT_IMAGE1D_BUFFER;
            desc.image_width = 10;
            desc.buffer = buffer.Get();
            cl_int nCode = -1;
            const cl_mem image =
                device.cl.clCreateImage(device.m_context, CL_MEM_READ_WRITE, &format, &desc, nullptr, &nCode);
            Need(nCode, "clCreateImage");
            return CDeviceBuffer(image);
        };
        const CDeviceBuffer result = device.Buffer(std::vector<int32_t>(3));
        COpenCLProgram program(device, strSource);
        program.Run("k", {{10}, {}, {}}, Image(from), Image(to), result);
        EXPECT_EQ(device.Read<int32_t>(result), (std::vector<int32_t>{10, CL_SIGNED_INT32, CL_RGBA}))
            << testDevice.pszName;
        const std::vector<int32_t> vExpected = Mapped<int32_t>([](int32_t n) { return n * 2 + 10; }, vTexels);
        EXPECT_EQ(device.Read<int32_t>(to), vExpected) << testDevice.pszName;
    }
}

/// Addressing and filters of samplers defined in the source, and of one set by the host.
TEST(ImageBuiltins, FollowSamplers)
{
    const std::string strSource = R"(
constant sampler_t s_border = CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP | CLK_FILTER_NEAREST;
constant sampler_t s_edge = CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP_TO_EDGE | CLK_FILTER_LINEAR;
constant sampler_t s_repeat = CLK_NORMALIZED_COORDS_TRUE | CLK_ADDRESS_REPEAT | CLK_FILTER_NEAREST;
constant sampler_t s_mirrored = CLK_NORMALIZED_COORDS_TRUE | CLK_ADDRESS_MIRRORED_REPEAT | CLK_FILTER_NEAREST;
kernel void k(read_only image2d_t in, sampler_t given, global float* r)
{
    r[0] = read_imagef(in, s_border, (int2)(1, 1)).x;
    r[1] = read_imagef(in, s_border, (int2)(-1, 1)).x;
    r[2] = read_imagef(in, s_edge, (float2)(1.0f, 0.5f)).x;
    r[3] = read_imagef(in, s_edge, (float2)(-3.0f, 1.5f)).x;
    r[4] = read_imagef(in, s_repeat, (float2)(1.125f, 0.25f)).x;
    r[5] = read_imagef(in, s_mirrored, (float2)(1.125f, 0.25f)).x;
    r[6] = read_imagef(in, given, (float2)(9.0f, 0.5f)).x;
    r[7] = read_imagef(in, given, (float2)(2.5f, 1.5f)).x;
}
)";
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        std::vector<float> vTexels(32);
        for (size_t i = 0; i < 8; ++i)
        {
            vTexels[4 * i] = static_cast<float>(i + 1);
        }
        const cl_image_format format = {CL_RGBA, CL_FLOAT};
        const CDeviceBuffer image = device.Image2D(format, 4, 2, vTexels.data());
        cl_int nCode = -1;
        const cl_sampler sampler =
            device.cl.clCreateSampler(device.m_context, CL_FALSE, CL_ADDRESS_CLAMP, CL_FILTER_NEAREST, &nCode);
        Need(nCode, "clCreateSampler");
        const CDeviceBuffer result = device.Buffer(std::vector<float>(8));
        COpenCLProgram program(device, strSource);
        program.Run("k", {{1}, {1}, {}}, image, sampler, result);
        device.cl.clReleaseSampler(sampler);
        EXPECT_EQ(device.Read<float>(result), (std::vector<float>{6, 0, 1.5f, 5, 1, 4, 0, 7})) << testDevice.pszName;
    }
}

} // namespace
} // namespace KestrelTest
