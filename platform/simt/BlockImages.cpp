#include <CL/cl.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/simt/Block.h"
#include "platform/simt/Texel.h"

namespace KestrelPlatform
{

namespace
{

float AsFloat(uint32_t n)
{
    float f = 0;
    std::memcpy(&f, &n, sizeof f);
    return f;
}

uint32_t AsWord(float f)
{
    uint32_t n = 0;
    std::memcpy(&n, &f, sizeof n);
    return n;
}

/// An image seen as up to three filtered dimensions and a layer.
struct SView
{
    explicit SView(const SImageBinding& binding) : image(binding)
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
            nSize[1] = static_cast<int32_t>(image.nHeight);
        if (nDimensions > 2)
            nSize[2] = static_cast<int32_t>(image.nDepth);
        if (nLayerCoordinate)
            nSize[nLayerCoordinate] = static_cast<int32_t>(image.nArraySize);
    }

    uint32_t Coordinates() const { return std::max(nDimensions, nLayerCoordinate + 1); }

    bool Inside(const int32_t* pPlace) const
    {
        for (uint32_t n = 0; n < Coordinates(); ++n)
        {
            if (pPlace[n] < 0 || pPlace[n] >= nSize[n])
                return false;
        }
        return true;
    }

    unsigned char* At(const int32_t* pPlace) const
    {
        unsigned char* p = image.pData;
        for (uint32_t n = 0; n < Coordinates(); ++n)
            p += static_cast<size_t>(pPlace[n]) * nPitch[n];
        return p;
    }

    STexel Read(const int32_t* pPlace) const
    {
        if (!Inside(pPlace))
            return BorderTexel(image.nChannelOrder, image.nChannelType);
        return ReadTexel(At(pPlace), image.nChannelOrder, image.nChannelType);
    }

    const SImageBinding& image;
    size_t nTexelBytes = 0;
    uint32_t nDimensions = 1;
    uint32_t nLayerCoordinate = 0; ///< which coordinate is the layer; 0 for none
    int32_t nSize[3] = {1, 1, 1};
    size_t nPitch[3] = {0, 0, 0};
};

/// Far outside is as good as infinitely far, and fits an int.
int32_t ToPlace(float f)
{
    if (f != f)
        return 0;
    return static_cast<int32_t>(std::floor(std::min(std::max(f, -1.0e9f), 1.0e9f)));
}

/// The neighbours of one coordinate and the weight of the second; OpenCL 1.2, 8.2.
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
        u = (fCoordinate - std::floor(fCoordinate)) * fSize;
    if (bMirror)
        u = std::fabs(fCoordinate - 2.0f * std::rint(0.5f * fCoordinate)) * fSize;
    SNeighbours result;
    const int32_t nLast = nSize - 1;
    if (!bLinear)
    {
        result.nFirst = ToPlace(u);
        if (bRepeat && result.nFirst > nLast)
            result.nFirst -= nSize;
        if (bMirror)
            result.nFirst = std::min(result.nFirst, nLast);
        if (nAddressing != CL_ADDRESS_CLAMP && !bRepeat && !bMirror)
            result.nFirst = std::min(std::max(result.nFirst, 0), nLast);
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

STexel SampleImage(const SView& view, const SSamplerBinding& sampler, bool bUnnormalized, const float* pCoordinates)
{
    const bool bNormalized = sampler.bNormalized && !bUnnormalized;
    const bool bLinear = sampler.nFilter == CL_FILTER_LINEAR && !IsIntegerChannel(view.image.nChannelType);
    SNeighbours neighbours[3];
    for (uint32_t n = 0; n < view.nDimensions; ++n)
        neighbours[n] = Resolve(pCoordinates[n], view.nSize[n], bNormalized, sampler.nAddressing, bLinear);
    if (view.nLayerCoordinate)
    {
        const int32_t nLayer = ToPlace(std::rint(pCoordinates[view.nLayerCoordinate]));
        SNeighbours& layer = neighbours[view.nLayerCoordinate];
        layer.nFirst = layer.nSecond = std::min(std::max(nLayer, 0), view.nSize[view.nLayerCoordinate] - 1);
    }
    int32_t place[3] = {neighbours[0].nFirst, neighbours[1].nFirst, neighbours[2].nFirst};
    if (!bLinear)
        return view.Read(place);
    float fSum[4] = {0, 0, 0, 0};
    for (uint32_t nCorner = 0; nCorner < (1u << view.nDimensions); ++nCorner)
    {
        float fWeight = 1.0f;
        for (uint32_t n = 0; n < view.nDimensions; ++n)
        {
            const bool bSecond = ((nCorner >> n) & 1) != 0;
            place[n] = bSecond ? neighbours[n].nSecond : neighbours[n].nFirst;
            fWeight *= bSecond ? neighbours[n].fWeight : 1.0f - neighbours[n].fWeight;
        }
        const STexel texel = view.Read(place);
        for (uint32_t c = 0; c < 4; ++c)
            fSum[c] += fWeight * AsFloat(texel.w[c]);
    }
    STexel result;
    for (uint32_t c = 0; c < 4; ++c)
        result.w[c] = AsWord(fSum[c]);
    return result;
}

} // namespace

void CBlock::Image(const SMicroOp& step, const SImageAccess& image)
{
    const bool bUav = image.eOperation == SImageAccess::UavLoad || image.eOperation == SImageAccess::UavStore;
    const SImageBinding& binding = bUav ? m_Context.vUavs[image.nBinding] : m_Context.vResources[image.nBinding];
    const SView view(binding);
    const bool bThere =
        binding.pData && view.nTexelBytes != 0 && view.nSize[0] > 0 && view.nSize[1] > 0 && view.nSize[2] > 0;
    for (uint32_t n = m_nBegin; n < std::min(m_nEnd, m_nLive); ++n)
    {
        if (!IsActive(n))
            continue;
        int32_t place[4];
        float coordinates[4];
        for (uint32_t i = 0; i < 4; ++i)
        {
            place[i] = static_cast<int32_t>(Row(image.nCoordinates[i])[n]);
            coordinates[i] = AsFloat(Row(image.nCoordinates[i])[n]);
        }
        STexel texel;
        if (image.eOperation == SImageAccess::UavStore)
        {
            for (uint32_t i = 0; i < 4; ++i)
                texel.w[i] = Row(image.nRows[i])[n];
            if (bThere && view.Inside(place))
                WriteTexel(view.At(place), binding.nChannelOrder, binding.nChannelType, texel);
            else if (bThere)
                CountBad(step, n, static_cast<uint32_t>(place[0]), true);
            continue;
        }
        if (image.eOperation == SImageAccess::Info)
        {
            const uint32_t nDepth = binding.nType == CL_MEM_OBJECT_IMAGE3D ? binding.nDepth : binding.nArraySize;
            texel = {{binding.nWidth, binding.nHeight, nDepth, 1}};
        }
        else if (bThere && image.eOperation == SImageAccess::Sample)
            texel = SampleImage(view, m_Context.vSamplers[image.nSamplerSlot], image.bUnnormalized, coordinates);
        else if (bThere && view.Inside(place))
            texel = view.Read(place);
        else if (bThere)
            CountBad(step, n, static_cast<uint32_t>(place[0]), false);
        for (uint32_t i = 0; i < 4; ++i)
            Row(image.nRows[i])[n] = texel.w[i];
    }
}

} // namespace KestrelPlatform
