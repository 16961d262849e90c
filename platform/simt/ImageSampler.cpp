#include "platform/simt/ImageSampler.h"

#include "platform/simt/FloatBits.h"

#include <CL/cl.h>

#include <algorithm>
#include <cmath>

namespace KestrelPlatform
{

namespace
{

/// Limits a coordinate to the range of an int; places that far outside are all alike.
int32_t ToPlace(float f)
{
    if (f != f)
    {
        return 0;
    }
    return static_cast<int32_t>(std::floor(std::min(std::max(f, -1.0e9f), 1.0e9f)));
}

/// The two neighbours of one coordinate, and the weight of the second; OpenCL 1.2, 8.2.
struct SNeighbours
{
    int32_t nFirst = 0;
    int32_t nSecond = 0;
    float fWeight = 0.0f;
};

SNeighbours Resolve(float fCoordinate, int32_t nSize, bool bNormalized, uint32_t nAddressing, bool bLinear)
{
    const float fSize = static_cast<float>(nSize);
    float u = bNormalized ? fCoordinate * fSize : fCoordinate;
    const bool bRepeat = bNormalized && nAddressing == CL_ADDRESS_REPEAT;
    const bool bMirror = bNormalized && nAddressing == CL_ADDRESS_MIRRORED_REPEAT;
    if (bRepeat)
    {
        u = (fCoordinate - std::floor(fCoordinate)) * fSize;
    }
    if (bMirror)
    {
        u = std::fabs(fCoordinate - 2.0f * std::rint(0.5f * fCoordinate)) * fSize;
    }
    SNeighbours result;
    const int32_t nLast = nSize - 1;
    if (!bLinear)
    {
        result.nFirst = ToPlace(u);
        if (bRepeat && result.nFirst > nLast)
        {
            result.nFirst -= nSize;
        }
        if (bMirror)
        {
            result.nFirst = std::min(result.nFirst, nLast);
        }
        if (nAddressing != CL_ADDRESS_CLAMP && !bRepeat && !bMirror)
        {
            result.nFirst = std::min(std::max(result.nFirst, 0), nLast);
        }
        result.nSecond = result.nFirst;
        return result;
    }
    const float fShifted = u - 0.5f;
    result.nFirst = ToPlace(fShifted);
    result.nSecond = result.nFirst + 1;
    const float fWeight = fShifted - std::floor(fShifted);
    result.fWeight = fWeight == fWeight ? fWeight : 0.0f;
    if (bRepeat)
    {
        result.nFirst += result.nFirst < 0 ? nSize : 0;
        result.nSecond -= result.nSecond > nLast ? nSize : 0;
        return result;
    }
    if (nAddressing != CL_ADDRESS_CLAMP)
    {
        result.nFirst = std::min(std::max(result.nFirst, 0), nLast);
        result.nSecond = std::min(std::max(result.nSecond, 0), nLast);
    }
    return result;
}

/// The neighbours in all coordinates; a layer is rounded and clamped.
struct SPlaces
{
    SPlaces(const SImageView& view, const SSampling& sampling, const float* pCoordinates, bool bLinear)
    {
        for (uint32_t n = 0; n < view.nDimensions; ++n)
        {
            const float fOffset = n < 2 ? static_cast<float>(sampling.nOffset[n]) : 0.0f;
            const float fMoved =
                pCoordinates[n] + (sampling.bNormalized ? fOffset / static_cast<float>(view.nSize[n]) : fOffset);
            axes[n] = Resolve(fMoved, view.nSize[n], sampling.bNormalized, sampling.sampler.nAddressing, bLinear);
        }
        if (view.nLayerCoordinate)
        {
            const int32_t nLayer = ToPlace(std::rint(pCoordinates[view.nLayerCoordinate]));
            SNeighbours& layer = axes[view.nLayerCoordinate];
            layer.nFirst = layer.nSecond = std::min(std::max(nLayer, 0), view.nSize[view.nLayerCoordinate] - 1);
        }
    }

    /// \param nCorner one bit for each dimension: take the second neighbour
    void Corner(uint32_t nCorner, int32_t* pPlace) const
    {
        for (uint32_t n = 0; n < 3; ++n)
        {
            pPlace[n] = ((nCorner >> n) & 1) ? axes[n].nSecond : axes[n].nFirst;
        }
    }

    SNeighbours axes[3];
};

/// A texel, or the result of comparing it.
STexel Take(const SImageView& view, const SSampling& sampling, const int32_t* pPlace)
{
    STexel texel = view.Read(pPlace);
    if (!sampling.bCompare)
    {
        return texel;
    }
    const uint32_t nResult = AsWord(sampling.fReference <= AsFloat(texel.w[0]) ? 1.0f : 0.0f);
    for (uint32_t& nComponent : texel.w)
    {
        nComponent = nResult;
    }
    return texel;
}

} // namespace

SImageView::SImageView(const SImageBinding& binding) : image(binding)
{
    nSize[0] = static_cast<int32_t>(image.nWidth);
    nTexelBytes = TexelBytes(image.nChannelOrder, image.nChannelType);
    const size_t nRow = image.nRowPitch ? image.nRowPitch : nTexelBytes * image.nWidth;
    const size_t nSlice = image.nSlicePitch ? image.nSlicePitch : nRow * (image.nHeight ? image.nHeight : 1);
    nPitch[0] = nTexelBytes;
    nPitch[1] = nRow;
    nPitch[2] = nSlice;
    switch (image.nType)
    {
    case CL_MEM_OBJECT_IMAGE1D_ARRAY:
        nLayerCoordinate = 1;
        nPitch[1] = image.nSlicePitch ? image.nSlicePitch : nRow;
        break;
    case CL_MEM_OBJECT_IMAGE2D:
        nDimensions = 2;
        break;
    case CL_MEM_OBJECT_IMAGE2D_ARRAY:
        nDimensions = 2;
        nLayerCoordinate = 2;
        break;
    case CL_MEM_OBJECT_IMAGE3D:
        nDimensions = 3;
        break;
    default:
        break;
    }
    if (nDimensions > 1)
    {
        nSize[1] = static_cast<int32_t>(image.nHeight);
    }
    if (nDimensions > 2)
    {
        nSize[2] = static_cast<int32_t>(image.nDepth);
    }
    if (nLayerCoordinate)
    {
        nSize[nLayerCoordinate] = static_cast<int32_t>(image.nArraySize);
    }
}

bool SImageView::IsThere() const
{
    return image.pData && nTexelBytes != 0 && nSize[0] > 0 && nSize[1] > 0 && nSize[2] > 0;
}

uint32_t SImageView::Coordinates() const
{
    return std::max(nDimensions, nLayerCoordinate + 1);
}

bool SImageView::Inside(const int32_t* pPlace) const
{
    for (uint32_t n = 0; n < Coordinates(); ++n)
    {
        if (pPlace[n] < 0 || pPlace[n] >= nSize[n])
        {
            return false;
        }
    }
    return true;
}

unsigned char* SImageView::At(const int32_t* pPlace) const
{
    unsigned char* p = image.pData;
    for (uint32_t n = 0; n < Coordinates(); ++n)
    {
        p += static_cast<size_t>(pPlace[n]) * nPitch[n];
    }
    return p;
}

STexel SImageView::Read(const int32_t* pPlace) const
{
    if (!Inside(pPlace))
    {
        return BorderTexel(image.nChannelOrder, image.nChannelType);
    }
    return ReadTexel(At(pPlace), image.nChannelOrder, image.nChannelType);
}

STexel SampleImage(const SImageView& view, const SSampling& sampling, const float* pCoordinates)
{
    const bool bLinear = sampling.sampler.nFilter == CL_FILTER_LINEAR && !IsIntegerChannel(view.image.nChannelType);
    const SPlaces places(view, sampling, pCoordinates, bLinear);
    int32_t place[3];
    places.Corner(0, place);
    if (!bLinear)
    {
        return Take(view, sampling, place);
    }
    float fSum[4] = {0, 0, 0, 0};
    for (uint32_t nCorner = 0; nCorner < (1u << view.nDimensions); ++nCorner)
    {
        float fWeight = 1.0f;
        for (uint32_t n = 0; n < view.nDimensions; ++n)
        {
            fWeight *= ((nCorner >> n) & 1) ? places.axes[n].fWeight : 1.0f - places.axes[n].fWeight;
        }
        places.Corner(nCorner, place);
        const STexel texel = Take(view, sampling, place);
        for (uint32_t c = 0; c < 4; ++c)
        {
            fSum[c] += fWeight * AsFloat(texel.w[c]);
        }
    }
    STexel result;
    for (uint32_t c = 0; c < 4; ++c)
    {
        result.w[c] = AsWord(fSum[c]);
    }
    return result;
}

STexel GatherImage(const SImageView& view, const SSampling& sampling, const float* pCoordinates)
{
    static const uint32_t s_nCorners[] = {2, 3, 1, 0};
    const SPlaces places(view, sampling, pCoordinates, true);
    STexel result;
    for (uint32_t n = 0; n < 4; ++n)
    {
        int32_t place[3];
        places.Corner(s_nCorners[n], place);
        result.w[n] = Take(view, sampling, place).w[sampling.nComponent & 3];
    }
    return result;
}

} // namespace KestrelPlatform
