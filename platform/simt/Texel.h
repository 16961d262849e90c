#ifndef KESTREL_PLATFORM_SIMT_TEXEL_H
#define KESTREL_PLATFORM_SIMT_TEXEL_H

#include <cstddef>
#include <cstdint>

namespace KestrelPlatform
{

/// The four components of a texel as a kernel reads them: single-precision bits, or integers for integer channel types.
struct STexel
{
    uint32_t w[4] = {0, 0, 0, 0};
};

/// Size of a texel in bytes; 0 for an unknown combination. Order and type as in OpenCL 1.2, 5.3.1.
size_t TexelBytes(uint32_t nChannelOrder, uint32_t nChannelType);

/// True for types with integer values, which are never filtered.
bool IsIntegerChannel(uint32_t nChannelType);

/// Reads a stored texel. Components that the order lacks are 0; alpha is 1.
STexel ReadTexel(const unsigned char* pData, uint32_t nChannelOrder, uint32_t nChannelType);

/// Stores the components that the order has, clamped to the channel type.
void WriteTexel(unsigned char* pData, uint32_t nChannelOrder, uint32_t nChannelType, const STexel& texel);

/// The colour outside an image, for the addressing mode that clamps to a border.
STexel BorderTexel(uint32_t nChannelOrder, uint32_t nChannelType);

} // namespace KestrelPlatform

#endif
