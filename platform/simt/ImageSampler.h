#ifndef KESTREL_PLATFORM_SIMT_IMAGESAMPLER_H
#define KESTREL_PLATFORM_SIMT_IMAGESAMPLER_H

#include "platform/simt/Texel.h"
#include "platform/simt/WideLaunch.h"

namespace KestrelPlatform
{

/// An image with up to three filtered dimensions and a layer.
struct SImageView
{
    explicit SImageView(const SImageBinding& binding);

    /// False for a null image, an empty one, or an unknown format.
    bool IsThere() const;
    uint32_t Coordinates() const;
    bool Inside(const int32_t* pPlace) const;
    /// The texel's first byte; the place must be inside.
    unsigned char* At(const int32_t* pPlace) const;
    /// The texel, or the border colour for a place outside.
    STexel Read(const int32_t* pPlace) const;

    const SImageBinding& image;
    size_t nTexelBytes = 0;
    uint32_t nDimensions = 1;
    uint32_t nLayerCoordinate = 0; ///< which coordinate is the layer; 0 for none
    int32_t nSize[3] = {1, 1, 1};
    size_t nPitch[3] = {0, 0, 0};
};

/// How texels are selected: the sampler, and what the instruction specifies.
struct SSampling
{
    SSamplerBinding sampler;
    bool bNormalized = false;
    bool bCompare = false;       ///< each texel counts as 1.0 if the reference is at most its x, else as 0.0
    float fReference = 0.0f;     ///< of a comparison
    int32_t nOffset[2] = {0, 0}; ///< texels added in x and y
    uint32_t nComponent = 0;     ///< the component that GatherImage takes of each texel
};

/// The filtered value at a place; OpenCL 1.2, section 8.2. Integer channel types aren't filtered. The result of a
/// comparison is in all components.
STexel SampleImage(const SImageView& view, const SSampling& sampling, const float* pCoordinates);

/// One component of the four texels that a linear filter would blend in x and y, counter-clockwise from the lower left:
/// (first x, second y), (second, second), (second, first), (first, first).
STexel GatherImage(const SImageView& view, const SSampling& sampling, const float* pCoordinates);

} // namespace KestrelPlatform

#endif
