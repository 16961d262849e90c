#include "platform/simt/Block.h"
#include "platform/simt/FloatBits.h"
#include "platform/simt/ImageSampler.h"

#include <algorithm>

#include <CL/cl.h>

namespace KestrelPlatform
{

namespace
{

bool IsUavOperation(SImageAccess::EOperation eOperation)
{
    return eOperation == SImageAccess::UavLoad || eOperation == SImageAccess::UavStore;
}

STexel InfoOf(const SImageBinding& binding)
{
    const uint32_t nDepth = binding.nType == CL_MEM_OBJECT_IMAGE3D ? binding.nDepth : binding.nArraySize;
    return {{binding.nWidth, binding.nHeight, nDepth, 1}};
}

} // namespace

/// The result of sample or gather for a lane.
STexel CBlock::Sampled(const SImageAccess& image, const SImageView& view, uint32_t nLane)
{
    SSampling sampling;
    sampling.sampler = m_Context.vSamplers[image.nSamplerSlot];
    sampling.bNormalized = sampling.sampler.bNormalized && !image.bUnnormalized;
    sampling.bCompare = image.bCompare;
    sampling.fReference = AsFloat(Row(image.nReference)[nLane]);
    sampling.nComponent = image.nComponent;
    for (uint32_t n = 0; n < 2; ++n)
    {
        sampling.nOffset[n] = static_cast<int32_t>(Row(image.nOffsets[n])[nLane]);
    }
    float coordinates[4];
    for (uint32_t n = 0; n < 4; ++n)
    {
        coordinates[n] = AsFloat(Row(image.nCoordinates[n])[nLane]);
    }
    return image.eOperation == SImageAccess::Gather ? GatherImage(view, sampling, coordinates)
                                                    : SampleImage(view, sampling, coordinates);
}

void CBlock::StoreTexel(const SImageAccess& image, const SImageView& view, const int32_t* pPlace, uint32_t nLane)
{
    const SImageBinding& binding = view.image;
    STexel texel;
    if (image.nMask != s_nAllComponents)
    {
        texel = view.Read(pPlace);
    }
    for (uint32_t n = 0; n < 4; ++n)
    {
        if (image.nMask & (1u << n))
        {
            texel.w[n] = Row(image.nRows[n])[nLane];
        }
    }
    WriteTexel(view.At(pPlace), binding.nChannelOrder, binding.nChannelType, texel);
}

void CBlock::ImageLane(const SMicroOp& step, const SImageAccess& image, const SImageView& view, uint32_t nLane)
{
    int32_t place[4];
    for (uint32_t n = 0; n < 4; ++n)
    {
        place[n] = static_cast<int32_t>(Row(image.nCoordinates[n])[nLane]);
    }
    const bool bThere = view.IsThere();
    STexel texel;
    switch (image.eOperation)
    {
    case SImageAccess::UavStore:
        if (bThere && view.Inside(place))
        {
            StoreTexel(image, view, place, nLane);
        }
        else if (bThere)
        {
            CountBad(step, nLane, static_cast<uint32_t>(place[0]), true, SBadAccess::Image);
        }
        return;
    case SImageAccess::Info:
        texel = InfoOf(view.image);
        break;
    case SImageAccess::Sample:
    case SImageAccess::Gather:
        if (bThere)
        {
            texel = Sampled(image, view, nLane);
        }
        break;
    case SImageAccess::LoadTexel:
    case SImageAccess::UavLoad:
        if (bThere && view.Inside(place))
        {
            texel = view.Read(place);
        }
        else if (bThere)
        {
            CountBad(step, nLane, static_cast<uint32_t>(place[0]), false, SBadAccess::Image);
        }
        break;
    }
    for (uint32_t n = 0; n < 4; ++n)
    {
        Row(image.nRows[n])[nLane] = texel.w[n];
    }
}

void CBlock::Image(const SMicroOp& step, const SImageAccess& image)
{
    const SImageBinding& binding =
        IsUavOperation(image.eOperation) ? m_Context.vUavs[image.nBinding] : m_Context.vResources[image.nBinding];
    // A typed buffer without an image is flat memory, like every other UAV.
    if (image.nFlatAccesses > 0 && binding.nType == 0)
    {
        for (uint32_t n = 0; n < image.nFlatAccesses; ++n)
        {
            Access(step, m_Code.vAccesses[image.nFirstFlatAccess + n]);
        }
        return;
    }
    const SImageView view(binding);
    for (uint32_t n = m_nBegin; n < std::min(m_nEnd, m_nLive); ++n)
    {
        if (IsActive(n))
        {
            ImageLane(step, image, view, n);
        }
    }
}

} // namespace KestrelPlatform
