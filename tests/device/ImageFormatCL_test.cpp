#include "device/ImageFormatCL.h"

#include <gtest/gtest.h>

#include <CL/cl_ext.h>

namespace
{

using namespace OVK_ShaderDebugger;
using namespace ShaderUtils;

TEST(ImageFormat, TheChannelsDecideTheBufferFormat)
{
    struct SCase
    {
        cl_image_format format;
        BufferFormat expected;
    };
    const SCase cases[] = {
        {{CL_RGBA, CL_UNORM_INT8}, BF_RGBA_8},     {{CL_BGRA, CL_UNORM_INT8}, BF_RGBA_8},
        {{CL_RGBA, CL_SIGNED_INT32}, BF_RGBA_32F}, {{CL_RGBA, CL_FLOAT}, BF_RGBA_32F},
        {{CL_RGBA, CL_HALF_FLOAT}, BF_RGBA_16},    {{CL_R, CL_FLOAT}, BF_R_32},
        {{CL_LUMINANCE, CL_SNORM_INT16}, BF_R_16}, {{CL_DEPTH, CL_UNORM_INT16}, BF_R_16},
        {{CL_Rx, CL_UNSIGNED_INT8}, BF_RG_8},      {{CL_RA, CL_UNSIGNED_INT32}, BF_RG_32},
        {{CL_RGB, CL_UNORM_SHORT_565}, BF_RGB_16}, {{CL_RGB, CL_UNORM_INT_101010}, BF_RGB_32},
        {{CL_sRGBA, CL_UNORM_INT8}, BF_RGBA_8},    {{CL_DEPTH_STENCIL, CL_UNORM_INT24}, BF_Unknown},
        {{CL_RGBA, 0x1234}, BF_Unknown},           {{0x1234, CL_FLOAT}, BF_Unknown},
    };
    for (const SCase& test : cases)
    {
        EXPECT_EQ(ImgFormatToBufferFormat(test.format), test.expected)
            << std::hex << test.format.image_channel_order << " " << test.format.image_channel_data_type;
    }
}

TEST(ImageFormat, TheFormatOfADescriptionHasTheSameChannels)
{
    for (int i = BF_Unknown; i <= BF_XYZW_32F; ++i)
    {
        const BufferFormat format = static_cast<BufferFormat>(i);
        cl_image_format imageFormat = {};
        const bool bImage = format != BF_Unknown && format != BF_RAW;
        ASSERT_EQ(BufferFormatToImgFormat(format, imageFormat), bImage) << i;
        if (bImage)
        {
            EXPECT_EQ(ImgFormatToBufferFormat(imageFormat), format == BF_XYZW_32F ? BF_RGBA_32F : format);
        }
    }
}

} // namespace
