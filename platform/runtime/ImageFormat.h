#ifndef KESTREL_PLATFORM_RUNTIME_IMAGEFORMAT_H
#define KESTREL_PLATFORM_RUNTIME_IMAGEFORMAT_H

#include "platform/runtime/OpenCL.h"

#include <vector>

namespace KestrelPlatform::Runtime
{

/// CL_SUCCESS for every format of OpenCL 1.2, all of which the runtime has;
/// CL_INVALID_IMAGE_FORMAT_DESCRIPTOR for an order or type that doesn't exist, or an excluded combination.
cl_int CheckImageFormat(const cl_image_format& format);

/// Bytes of a texel of a format that the runtime has.
size_t GetTexelSize(const cl_image_format& format);

/// All formats that the runtime has, for every image type and access alike.
const std::vector<cl_image_format>& GetImageFormats();

/// A colour as texel bytes, by the conversion rules of OpenCL 1.2, section 8.3: pColor is four floats,
/// or four signed or unsigned integers for the formats that hold those.
std::vector<unsigned char> EncodeColor(const cl_image_format& format, const void* pColor);

} // namespace KestrelPlatform::Runtime

#endif
