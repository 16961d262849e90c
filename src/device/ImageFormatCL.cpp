#include "device/ImageFormatCL.h"

#include <CL/cl_ext.h>

namespace OVK_ShaderDebugger
{

namespace
{

using namespace ShaderUtils;

struct SChannelSize
{
    cl_channel_type type;
    unsigned int nBits;
};

const SChannelSize s_ChannelSizes[] = {
    {CL_SNORM_INT8, 8},        {CL_UNORM_INT8, 8},      {CL_SIGNED_INT8, 8},      {CL_UNSIGNED_INT8, 8},
    {CL_SNORM_INT16, 16},      {CL_UNORM_INT16, 16},    {CL_UNORM_SHORT_565, 16}, {CL_UNORM_SHORT_555, 16},
    {CL_SIGNED_INT16, 16},     {CL_UNSIGNED_INT16, 16}, {CL_HALF_FLOAT, 16},      {CL_UNORM_INT24, 24},
    {CL_UNORM_INT_101010, 32}, {CL_SIGNED_INT32, 32},   {CL_UNSIGNED_INT32, 32},  {CL_FLOAT, 32},
};

struct SOrderChannels
{
    cl_channel_order order;
    unsigned int nChannels;
};

const SOrderChannels s_OrderChannels[] = {
    {CL_R, 1},    {CL_A, 1},     {CL_INTENSITY, 1}, {CL_LUMINANCE, 1},     {CL_DEPTH, 1},
    {CL_RG, 2},   {CL_RA, 2},    {CL_Rx, 2},        {CL_DEPTH_STENCIL, 2}, {CL_RGB, 3},
    {CL_RGx, 3},  {CL_sRGB, 3},  {CL_RGBA, 4},      {CL_BGRA, 4},          {CL_ARGB, 4},
    {CL_RGBx, 4}, {CL_sRGBx, 4}, {CL_sRGBA, 4},     {CL_sBGRA, 4},         {CL_ABGR, 4},
};

struct SFormat
{
    BufferFormat format;
    unsigned int nChannels;
    unsigned int nBits;
    cl_image_format imageFormat;
};

const SFormat s_Formats[] = {
    {BF_RGBA_32F, 4, 32, {CL_RGBA, CL_FLOAT}},       {BF_RGBA_16, 4, 16, {CL_RGBA, CL_UNSIGNED_INT16}},
    {BF_RGBA_8, 4, 8, {CL_RGBA, CL_UNSIGNED_INT8}},  {BF_RGB_32, 3, 32, {CL_RGB, CL_UNSIGNED_INT32}},
    {BF_RGB_16, 3, 16, {CL_RGB, CL_UNSIGNED_INT16}}, {BF_RGB_8, 3, 8, {CL_RGB, CL_UNSIGNED_INT8}},
    {BF_RG_32, 2, 32, {CL_RG, CL_UNSIGNED_INT32}},   {BF_RG_16, 2, 16, {CL_RG, CL_UNSIGNED_INT16}},
    {BF_RG_8, 2, 8, {CL_RG, CL_UNSIGNED_INT8}},      {BF_R_32, 1, 32, {CL_R, CL_UNSIGNED_INT32}},
    {BF_R_16, 1, 16, {CL_R, CL_UNSIGNED_INT16}},     {BF_R_8, 1, 8, {CL_R, CL_UNSIGNED_INT8}},
    {BF_XYZW_32F, 0, 0, {CL_RGBA, CL_FLOAT}},
};

unsigned int ChannelCount(cl_channel_order order)
{
    for (const SOrderChannels& entry : s_OrderChannels)
    {
        if (entry.order == order)
        {
            return entry.nChannels;
        }
    }
    return 0;
}

} // namespace

unsigned int ImgChannelTypeToSize(cl_channel_type type)
{
    for (const SChannelSize& entry : s_ChannelSizes)
    {
        if (entry.type == type)
        {
            return entry.nBits;
        }
    }
    return 0;
}

BufferFormat ImgFormatToBufferFormat(const cl_image_format& format)
{
    const unsigned int nChannels = ChannelCount(format.image_channel_order);
    const unsigned int nBits = ImgChannelTypeToSize(format.image_channel_data_type);
    if (nChannels == 0 || nBits == 0)
    {
        return BF_Unknown;
    }
    for (const SFormat& entry : s_Formats)
    {
        if (entry.nChannels == nChannels && entry.nBits == nBits)
        {
            return entry.format;
        }
    }
    return BF_Unknown;
}

bool BufferFormatToImgFormat(BufferFormat format, cl_image_format& imageFormat)
{
    for (const SFormat& entry : s_Formats)
    {
        if (entry.format == format)
        {
            imageFormat = entry.imageFormat;
            return true;
        }
    }
    return false;
}

} // namespace OVK_ShaderDebugger
