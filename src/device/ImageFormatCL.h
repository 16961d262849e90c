#ifndef KESTREL_DEVICE_IMAGEFORMATCL_H
#define KESTREL_DEVICE_IMAGEFORMATCL_H

#include "core/SUCommon.h"

#include <CL/cl.h>

namespace OVK_ShaderDebugger
{

/// Bits of one channel of an image, by its channel data type; 0 for what is none.
unsigned int ImgChannelTypeToSize(cl_channel_type type);

/// The buffer format with the channel count and channel size of an image format. Signedness,
/// normalisation, component order and float-ness are lost. BF_Unknown where no format fits.
ShaderUtils::BufferFormat ImgFormatToBufferFormat(const cl_image_format& format);

/// The image format of a description that says nothing but a buffer format: four 32-bit channels are
/// floats, all others unsigned integers.
/// \return false for BF_RAW, BF_Unknown and what is no format
bool BufferFormatToImgFormat(ShaderUtils::BufferFormat format, cl_image_format& imageFormat);

} // namespace OVK_ShaderDebugger

#endif
