#ifndef KESTREL_PLATFORM_SIMT_TEXEL_H
#define KESTREL_PLATFORM_SIMT_TEXEL_H

#include <cstddef>
#include <cstdint>

namespace KestrelPlatform
{

/// A texel's four components as a kernel reads them: single-precision bits, or integers for the
/// integer channel types.
struct STexel
{
    uint32_t w[4] = {0, 0, 0, 0};
};

/// Bytes of a texel; 0 for a combination that isn't known. Order and type as in OpenCL 1.2, 5.3.1.
size_t TexelBytes(uint32_t nChannelOrder, uint32_t nChannelType);

/// True for the types whose values are integers: they are never filtered.
bool IsIntegerChannel(uint32_t nChannelType);

/// Takes a stored texel apart. Components that the order lacks are 0, alpha 1.
STexel ReadTexel(const unsigned char* pData, uint32_t nChannelOrder, uint32_t nChannelType);

/// Stores the components that the order has, clamped to the channel type.
void WriteTexel(unsigned char* pData, uint32_t nChannelOrder, uint32_t nChannelType, const STexel& texel);

/// What lies outside an image with the addressing mode that clamps to a border.
STexel BorderTexel(uint32_t nChannelOrder, uint32_t nChannelType);

} // namespace KestrelPlatform

#endif
