#include "Runtime.h"

#include <cstring>
#include <numeric>

namespace
{

/// An image type with a size, a region inside, and the expected results of queries.
struct SImageCase
{
    const char* m_pszName;
    cl_mem_object_type m_eType;
    size_t m_nWidth, m_nHeight, m_nDepth, m_nArraySize; ///< 0 where the type has none
    size_t m_origin[3];
    size_t m_region[3];
    /// The number of rows, and of slices, between two steps of the second and third coordinate.
    size_t m_nSecondRows;
    size_t m_nThirdRows;
};

const SImageCase s_images[] = {
    {"1D", CL_MEM_OBJECT_IMAGE1D, 12, 0, 0, 0, {3, 0, 0}, {5, 1, 1}, 0, 0},
    {"1D array", CL_MEM_OBJECT_IMAGE1D_ARRAY, 12, 0, 0, 5, {3, 1, 0}, {5, 3, 1}, 1, 0},
    {"2D", CL_MEM_OBJECT_IMAGE2D, 12, 6, 0, 0, {3, 1, 0}, {5, 4, 1}, 1, 0},
    {"2D array", CL_MEM_OBJECT_IMAGE2D_ARRAY, 12, 6, 0, 4, {3, 1, 2}, {5, 4, 2}, 1, 6},
    {"3D", CL_MEM_OBJECT_IMAGE3D, 12, 6, 4, 0, {3, 1, 1}, {5, 4, 3}, 1, 6},
};

constexpr size_t s_nTexel = 4;
const cl_image_format s_rgba8{CL_RGBA, CL_UNSIGNED_INT8};

size_t RowsOf(const SImageCase& c)
{
    return std::max<size_t>(c.m_nHeight, 1) * std::max<size_t>(c.m_nDepth, 1) * std::max<size_t>(c.m_nArraySize, 1);
}

class CImagesTest : public CRuntimeTest, public testing::WithParamInterface<SImageCase>
{
protected:
    cl_mem MakeImage(const SImageCase& c, const void* pContents = nullptr, cl_mem_flags nFlags = CL_MEM_COPY_HOST_PTR)
    {
        cl_image_desc desc{};
        desc.image_type = c.m_eType;
        desc.image_width = c.m_nWidth;
        desc.image_height = c.m_nHeight;
        desc.image_depth = c.m_nDepth;
        desc.image_array_size = c.m_nArraySize;
        cl_int nError = -1;
        cl_mem image =
            cl.clCreateImage(m_context, pContents ? nFlags : 0, &s_rgba8, &desc, const_cast<void*>(pContents), &nError);
        EXPECT_EQ(nError, CL_SUCCESS);
        return image;
    }

    size_t ImageSize(cl_mem image, cl_image_info eInfo)
    {
        size_t nValue = 99;
        EXPECT_EQ(cl.clGetImageInfo(image, eInfo, sizeof(nValue), &nValue, nullptr), CL_SUCCESS);
        return nValue;
    }

    /// The bytes of a region of an image whose rows and slices follow each other directly.
    static std::vector<unsigned char> Cut(const SImageCase& c, const std::vector<unsigned char>& vImage)
    {
        std::vector<unsigned char> vCut;
        for (size_t z = 0; z < c.m_region[2]; ++z)
        {
            for (size_t y = 0; y < c.m_region[1]; ++y)
            {
                const size_t nRow = (c.m_origin[1] + y) * c.m_nSecondRows + (c.m_origin[2] + z) * c.m_nThirdRows;
                const auto first = vImage.begin() + static_cast<long>((nRow * c.m_nWidth + c.m_origin[0]) * s_nTexel);
                vCut.insert(vCut.end(), first, first + static_cast<long>(c.m_region[0] * s_nTexel));
            }
        }
        return vCut;
    }

    static std::vector<unsigned char> Contents(const SImageCase& c)
    {
        std::vector<unsigned char> vBytes(RowsOf(c) * c.m_nWidth * s_nTexel);
        std::iota(vBytes.begin(), vBytes.end(), static_cast<unsigned char>(1));
        return vBytes;
    }

    std::vector<unsigned char> ReadRegion(cl_mem image, const size_t* pOrigin, const size_t* pRegion)
    {
        std::vector<unsigned char> vRead(pRegion[0] * pRegion[1] * pRegion[2] * s_nTexel);
        EXPECT_EQ(
            cl.clEnqueueReadImage(m_queue, image, CL_TRUE, pOrigin, pRegion, 0, 0, vRead.data(), 0, nullptr, nullptr),
            CL_SUCCESS);
        return vRead;
    }
};

INSTANTIATE_TEST_SUITE_P(Types, CImagesTest, testing::ValuesIn(s_images),
                         [](const auto& test) { return "Image" + std::to_string(test.index); });

TEST_P(CImagesTest, TellsItsSizes)
{
    const SImageCase& c = GetParam();
    cl_mem image = MakeImage(c);
    EXPECT_EQ(ImageSize(image, CL_IMAGE_WIDTH), c.m_nWidth);
    EXPECT_EQ(ImageSize(image, CL_IMAGE_HEIGHT), c.m_nHeight);
    EXPECT_EQ(ImageSize(image, CL_IMAGE_DEPTH), c.m_nDepth);
    EXPECT_EQ(ImageSize(image, CL_IMAGE_ARRAY_SIZE), c.m_nArraySize);
    EXPECT_EQ(ImageSize(image, CL_IMAGE_ROW_PITCH), c.m_nWidth * s_nTexel);
    const bool bSlices = c.m_nDepth != 0 || c.m_nArraySize != 0;
    EXPECT_EQ(ImageSize(image, CL_IMAGE_SLICE_PITCH),
              bSlices ? c.m_nWidth * s_nTexel * std::max<size_t>(c.m_nHeight, 1) : 0);
    size_t nBytes = 0;
    cl.clGetMemObjectInfo(image, CL_MEM_SIZE, sizeof(nBytes), &nBytes, nullptr);
    EXPECT_EQ(nBytes, RowsOf(c) * c.m_nWidth * s_nTexel);
    cl.clReleaseMemObject(image);
}

TEST_P(CImagesTest, ReadsWritesMapsAndCopiesARegion)
{
    const SImageCase& c = GetParam();
    const std::vector<unsigned char> vContents = Contents(c);
    const std::vector<unsigned char> vCut = Cut(c, vContents);
    cl_mem image = MakeImage(c, vContents.data());
    EXPECT_EQ(ReadRegion(image, c.m_origin, c.m_region), vCut);

    size_t nRowPitch = 0, nSlicePitch = 99;
    cl_int nError = -1;
    auto* pMapped =
        static_cast<unsigned char*>(cl.clEnqueueMapImage(m_queue, image, CL_TRUE, CL_MAP_READ, c.m_origin, c.m_region,
                                                         &nRowPitch, &nSlicePitch, 0, nullptr, nullptr, &nError));
    ASSERT_EQ(nError, CL_SUCCESS);
    EXPECT_EQ(nRowPitch, ImageSize(image, CL_IMAGE_ROW_PITCH));
    EXPECT_EQ(nSlicePitch, ImageSize(image, CL_IMAGE_SLICE_PITCH));
    EXPECT_EQ(std::memcmp(pMapped, vCut.data(), c.m_region[0] * s_nTexel), 0);
    EXPECT_EQ(cl.clEnqueueUnmapMemObject(m_queue, image, pMapped, 0, nullptr, nullptr), CL_SUCCESS);

    // Copies the region through a buffer, and from image to image, to the origin of an empty image.
    cl_mem buffer = MakeBuffer(vCut.size() + 16);
    cl_mem second = MakeImage(c);
    const size_t start[3] = {0, 0, 0};
    EXPECT_EQ(cl.clEnqueueCopyImageToBuffer(m_queue, image, buffer, c.m_origin, c.m_region, 16, 0, nullptr, nullptr),
              CL_SUCCESS);
    const std::vector<unsigned char> vBuffer = ReadAll<unsigned char>(buffer, vCut.size() + 16);
    EXPECT_TRUE(std::equal(vCut.begin(), vCut.end(), vBuffer.begin() + 16));
    EXPECT_EQ(cl.clEnqueueCopyBufferToImage(m_queue, buffer, second, 16, start, c.m_region, 0, nullptr, nullptr),
              CL_SUCCESS);
    EXPECT_EQ(ReadRegion(second, start, c.m_region), vCut);
    EXPECT_EQ(cl.clEnqueueCopyImage(m_queue, image, second, start, c.m_origin, c.m_region, 0, nullptr, nullptr),
              CL_SUCCESS);
    EXPECT_EQ(ReadRegion(second, c.m_origin, c.m_region), ReadRegion(image, start, c.m_region));
    for (cl_mem mem : {image, buffer, second})
    {
        cl.clReleaseMemObject(mem);
    }
}

TEST_P(CImagesTest, WritesWithPitchesAndFills)
{
    const SImageCase& c = GetParam();
    cl_mem image = MakeImage(c);
    const bool bSlices = c.m_nDepth != 0 || c.m_nArraySize != 0;
    const bool bRowsAreSlices = c.m_eType == CL_MEM_OBJECT_IMAGE1D_ARRAY;
    const size_t nRowPitch = c.m_region[0] * s_nTexel + 8;
    const size_t nSlicePitch = bSlices ? nRowPitch * (bRowsAreSlices ? 2 : c.m_region[1] + 1) : 0;
    const size_t nSecond = bRowsAreSlices ? nSlicePitch : nRowPitch;
    std::vector<unsigned char> vHost(4096);
    std::iota(vHost.begin(), vHost.end(), static_cast<unsigned char>(9));
    ASSERT_EQ(cl.clEnqueueWriteImage(m_queue, image, CL_TRUE, c.m_origin, c.m_region, nRowPitch, nSlicePitch,
                                     vHost.data(), 0, nullptr, nullptr),
              CL_SUCCESS);
    std::vector<unsigned char> vExpected;
    for (size_t z = 0; z < c.m_region[2]; ++z)
    {
        for (size_t y = 0; y < c.m_region[1]; ++y)
        {
            const auto first = vHost.begin() + static_cast<long>(z * nSlicePitch + y * nSecond);
            vExpected.insert(vExpected.end(), first, first + static_cast<long>(c.m_region[0] * s_nTexel));
        }
    }
    EXPECT_EQ(ReadRegion(image, c.m_origin, c.m_region), vExpected);

    const cl_uint color[4] = {1, 2, 300, 4};
    ASSERT_EQ(cl.clEnqueueFillImage(m_queue, image, color, c.m_origin, c.m_region, 0, nullptr, nullptr), CL_SUCCESS);
    std::vector<unsigned char> vFilled;
    for (size_t i = 0; i < vExpected.size() / 4; ++i)
    {
        vFilled.insert(vFilled.end(), {1, 2, 255, 4});
    }
    EXPECT_EQ(ReadRegion(image, c.m_origin, c.m_region), vFilled);
    cl.clReleaseMemObject(image);
}

class CImageKindsTest : public CImagesTest
{
};

TEST_F(CImageKindsTest, AnImageOnABufferSharesItsBytes)
{
    std::vector<unsigned char> vBytes(256);
    std::iota(vBytes.begin(), vBytes.end(), static_cast<unsigned char>(0));
    cl_mem buffer = MakeBuffer(256, vBytes.data());
    cl_image_desc desc{};
    desc.image_type = CL_MEM_OBJECT_IMAGE1D_BUFFER;
    desc.image_width = 64;
    desc.buffer = buffer;
    cl_int nError = -1;
    cl_mem image = cl.clCreateImage(m_context, 0, &s_rgba8, &desc, nullptr, &nError);
    ASSERT_EQ(nError, CL_SUCCESS);
    const size_t origin[3] = {4, 0, 0}, region[3] = {2, 1, 1};
    EXPECT_EQ(ReadRegion(image, origin, region), std::vector<unsigned char>(vBytes.begin() + 16, vBytes.begin() + 24));
    cl_mem of = nullptr;
    EXPECT_EQ(cl.clGetImageInfo(image, CL_IMAGE_BUFFER, sizeof(of), &of, nullptr), CL_SUCCESS);
    EXPECT_EQ(of, buffer);
    desc.image_width = 65;
    EXPECT_EQ(cl.clCreateImage(m_context, 0, &s_rgba8, &desc, nullptr, &nError), nullptr);
    EXPECT_EQ(nError, CL_INVALID_IMAGE_SIZE);
    cl.clReleaseMemObject(buffer);
    cl.clReleaseMemObject(image);
}

TEST_F(CImageKindsTest, TheClientsPitchesStayWithTheClientsMemory)
{
    std::vector<unsigned char> vMemory(256);
    std::iota(vMemory.begin(), vMemory.end(), static_cast<unsigned char>(0));
    const size_t origin[3] = {0, 0, 0}, region[3] = {2, 2, 1};
    for (cl_mem_flags nFlags : {CL_MEM_COPY_HOST_PTR, CL_MEM_USE_HOST_PTR})
    {
        cl_int nError = -1;
        cl_mem image = cl.clCreateImage2D(m_context, nFlags, &s_rgba8, 4, 4, 32, vMemory.data(), &nError);
        ASSERT_EQ(nError, CL_SUCCESS);
        EXPECT_EQ(ImageSize(image, CL_IMAGE_ROW_PITCH), nFlags == CL_MEM_USE_HOST_PTR ? 32u : 16u);
        EXPECT_EQ(ReadRegion(image, origin, region),
                  (std::vector<unsigned char>{0, 1, 2, 3, 4, 5, 6, 7, 32, 33, 34, 35, 36, 37, 38, 39}));
        cl.clReleaseMemObject(image);
    }
}

/// A colour and its texel, encoded by hand.
struct SColorCase
{
    cl_image_format m_format;
    std::vector<float> m_vColor;
    std::vector<unsigned char> m_vTexel;
};

TEST_F(CImageKindsTest, ColoursAreConvertedToTheFormat)
{
    const SColorCase cases[] = {
        {{CL_RGBA, CL_UNORM_INT8}, {0.0f, 0.5f, 1.0f, 2.0f}, {0, 128, 255, 255}},
        {{CL_RGBA, CL_SNORM_INT8}, {-1.0f, 1.0f, 0.25f, -2.0f}, {0x81, 127, 32, 0x80}},
        {{CL_BGRA, CL_UNORM_INT8}, {1.0f, 0.0f, 0.2f, 0.4f}, {51, 0, 255, 102}},
        {{CL_ARGB, CL_UNORM_INT8}, {1.0f, 0.0f, 0.2f, 0.4f}, {102, 255, 0, 51}},
        {{CL_RG, CL_UNORM_INT16}, {1.0f, 0.5f, 0, 0}, {0xFF, 0xFF, 0x00, 0x80}},
        {{CL_RA, CL_FLOAT}, {1.0f, 9.0f, 9.0f, -2.0f}, {0, 0, 0x80, 0x3F, 0, 0, 0, 0xC0}},
        {{CL_R, CL_HALF_FLOAT}, {1.0f, 0, 0, 0}, {0x00, 0x3C}},
        {{CL_R, CL_HALF_FLOAT}, {65520.0f, 0, 0, 0}, {0x00, 0x7C}},
        {{CL_R, CL_HALF_FLOAT}, {-5.9604645e-8f, 0, 0, 0}, {0x01, 0x80}},
        {{CL_R, CL_HALF_FLOAT}, {2049.0f, 0, 0, 0}, {0x00, 0x68}},
        {{CL_RGB, CL_UNORM_SHORT_565}, {1.0f, 0.0f, 1.0f, 0}, {0x1F, 0xF8}},
        {{CL_RGB, CL_UNORM_SHORT_555}, {0.0f, 1.0f, 0.0f, 0}, {0xE0, 0x03}},
        {{CL_RGBx, CL_UNORM_INT_101010}, {1.0f, 0.0f, 1.0f, 0}, {0xFF, 0x03, 0xF0, 0x3F}},
    };
    const size_t origin[3] = {1, 1, 0}, region[3] = {1, 1, 1};
    for (const SColorCase& c : cases)
    {
        SCOPED_TRACE(std::to_string(c.m_format.image_channel_order) + " " +
                     std::to_string(c.m_format.image_channel_data_type));
        cl_int nError = -1;
        cl_mem image = cl.clCreateImage2D(m_context, 0, &c.m_format, 3, 3, 0, nullptr, &nError);
        ASSERT_EQ(nError, CL_SUCCESS);
        EXPECT_EQ(ImageSize(image, CL_IMAGE_ELEMENT_SIZE), c.m_vTexel.size());
        EXPECT_EQ(cl.clEnqueueFillImage(m_queue, image, c.m_vColor.data(), origin, region, 0, nullptr, nullptr),
                  CL_SUCCESS);
        std::vector<unsigned char> vTexel(c.m_vTexel.size());
        EXPECT_EQ(
            cl.clEnqueueReadImage(m_queue, image, CL_TRUE, origin, region, 0, 0, vTexel.data(), 0, nullptr, nullptr),
            CL_SUCCESS);
        EXPECT_EQ(vTexel, c.m_vTexel);
        cl.clReleaseMemObject(image);
    }
}

TEST_F(CImageKindsTest, EverySupportedFormatMakesAnImageAndTheMinimumListIsThere)
{
    cl_uint nFormats = 0;
    ASSERT_EQ(cl.clGetSupportedImageFormats(m_context, CL_MEM_READ_ONLY, CL_MEM_OBJECT_IMAGE2D, 0, nullptr, &nFormats),
              CL_SUCCESS);
    std::vector<cl_image_format> vFormats(nFormats);
    ASSERT_EQ(cl.clGetSupportedImageFormats(m_context, CL_MEM_READ_ONLY, CL_MEM_OBJECT_IMAGE2D, nFormats,
                                            vFormats.data(), nullptr),
              CL_SUCCESS);
    for (const cl_image_format& format : vFormats)
    {
        cl_int nError = -1;
        cl_mem image = cl.clCreateImage2D(m_context, 0, &format, 2, 2, 0, nullptr, &nError);
        EXPECT_EQ(nError, CL_SUCCESS) << format.image_channel_order << " " << format.image_channel_data_type;
        const size_t nSize = ImageSize(image, CL_IMAGE_ELEMENT_SIZE);
        EXPECT_EQ(nSize & (nSize - 1), 0u) << format.image_channel_order << " " << format.image_channel_data_type;
        cl.clReleaseMemObject(image);
    }
    const auto has = [&](cl_channel_order eOrder, cl_channel_type eType)
    {
        for (const cl_image_format& format : vFormats)
        {
            if (format.image_channel_order == eOrder && format.image_channel_data_type == eType)
            {
                return true;
            }
        }
        return false;
    };
    for (cl_channel_type eType : {CL_UNORM_INT8, CL_UNORM_INT16, CL_SIGNED_INT8, CL_SIGNED_INT16, CL_SIGNED_INT32,
                                  CL_UNSIGNED_INT8, CL_UNSIGNED_INT16, CL_UNSIGNED_INT32, CL_HALF_FLOAT, CL_FLOAT})
    {
        EXPECT_TRUE(has(CL_RGBA, eType)) << eType;
    }
    EXPECT_TRUE(has(CL_BGRA, CL_UNORM_INT8));
}

} // namespace
