#include "platform/runtime/Image.h"

namespace KestrelPlatform::Runtime
{

size_t SImageShape::GetExtent(size_t nCoordinate) const
{
    if (nCoordinate == 0)
    {
        return m_nWidth;
    }
    if (nCoordinate == 1)
    {
        return m_eType == CL_MEM_OBJECT_IMAGE1D_ARRAY ? m_nArraySize : m_nHeight;
    }
    return m_eType == CL_MEM_OBJECT_IMAGE2D_ARRAY ? m_nArraySize : m_nDepth;
}

SPitches SImageShape::GetCoordinatePitches(const SPitches& pitches) const
{
    if (m_eType == CL_MEM_OBJECT_IMAGE1D_ARRAY)
    {
        return {pitches.m_nSlice, pitches.m_nSlice};
    }
    return pitches;
}

size_t SImageShape::GetBytes() const
{
    return IsArray() || m_eType == CL_MEM_OBJECT_IMAGE3D ? m_Pitches.m_nSlice * m_nDepth * m_nArraySize
                                                         : m_Pitches.m_nRow * m_nHeight;
}

bool SImageShape::HasRegion(const size_t* pOrigin, const size_t* pRegion) const
{
    if (!pOrigin || !pRegion)
    {
        return false;
    }
    for (size_t i = 0; i < 3; ++i)
    {
        const size_t nExtent = GetExtent(i);
        if (pRegion[i] == 0 || pOrigin[i] > nExtent || pRegion[i] > nExtent - pOrigin[i])
        {
            return false;
        }
    }
    return true;
}

size_t SImageShape::GetOffset(const size_t* pOrigin) const
{
    const SPitches pitches = GetCoordinatePitches(m_Pitches);
    return pOrigin[0] * m_nTexel + pOrigin[1] * pitches.m_nRow + pOrigin[2] * pitches.m_nSlice;
}

cl_int SImageShape::GetHostPitches(const size_t* pRegion, size_t nRowPitch, size_t nSlicePitch, SPitches& pitches) const
{
    const size_t nTightRow = pRegion[0] * m_nTexel;
    nRowPitch = nRowPitch != 0 ? nRowPitch : nTightRow;
    const bool bSlices = IsArray() || m_eType == CL_MEM_OBJECT_IMAGE3D;
    if (nRowPitch < nTightRow || (!bSlices && nSlicePitch != 0))
    {
        return CL_INVALID_VALUE;
    }
    const size_t nRows = m_eType == CL_MEM_OBJECT_IMAGE1D_ARRAY ? 1 : pRegion[1];
    size_t nTightSlice = 0;
    if (!MultiplyAdd(nRowPitch, nRows, 0, nTightSlice))
    {
        return CL_INVALID_VALUE;
    }
    nSlicePitch = nSlicePitch != 0 ? nSlicePitch : nTightSlice;
    if (nSlicePitch < nTightSlice)
    {
        return CL_INVALID_VALUE;
    }
    pitches = GetCoordinatePitches({nRowPitch, nSlicePitch});
    return CL_SUCCESS;
}

SImageBinding CImage::GetBinding() const
{
    SImageBinding binding;
    binding.pData = GetData();
    binding.nChannelOrder = m_Shape.m_Format.image_channel_order;
    binding.nChannelType = m_Shape.m_Format.image_channel_data_type;
    binding.nType = m_Shape.m_eType;
    binding.nWidth = static_cast<uint32_t>(m_Shape.m_nWidth);
    binding.nHeight = static_cast<uint32_t>(m_Shape.m_nHeight);
    binding.nDepth = static_cast<uint32_t>(m_Shape.m_nDepth);
    binding.nArraySize = static_cast<uint32_t>(m_Shape.m_nArraySize);
    binding.nRowPitch = m_Shape.m_Pitches.m_nRow;
    binding.nSlicePitch = m_Shape.m_Pitches.m_nSlice;
    return binding;
}

cl_int CImage::GetImageInfo(cl_image_info eInfo, const SInfoQuery& query) const
{
    const bool b2D = m_Shape.m_eType == CL_MEM_OBJECT_IMAGE2D || m_Shape.m_eType == CL_MEM_OBJECT_IMAGE2D_ARRAY;
    const bool b3D = m_Shape.m_eType == CL_MEM_OBJECT_IMAGE3D;
    switch (eInfo)
    {
    case CL_IMAGE_FORMAT:
        return query.Value(m_Shape.m_Format);
    case CL_IMAGE_ELEMENT_SIZE:
        return query.Value(m_Shape.m_nTexel);
    case CL_IMAGE_ROW_PITCH:
        return query.Value(m_Shape.m_Pitches.m_nRow);
    case CL_IMAGE_SLICE_PITCH:
        return query.Value<size_t>(m_Shape.IsArray() || b3D ? m_Shape.m_Pitches.m_nSlice : 0);
    case CL_IMAGE_WIDTH:
        return query.Value(m_Shape.m_nWidth);
    case CL_IMAGE_HEIGHT:
        return query.Value<size_t>(b2D || b3D ? m_Shape.m_nHeight : 0);
    case CL_IMAGE_DEPTH:
        return query.Value<size_t>(b3D ? m_Shape.m_nDepth : 0);
    case CL_IMAGE_ARRAY_SIZE:
        return query.Value<size_t>(m_Shape.IsArray() ? m_Shape.m_nArraySize : 0);
    case CL_IMAGE_BUFFER:
        return query.Value(HandleOf(m_pBuffer));
    case CL_IMAGE_NUM_MIP_LEVELS:
    case CL_IMAGE_NUM_SAMPLES:
        return query.Value<cl_uint>(0);
    default:
        return CL_INVALID_VALUE;
    }
}

cl_int FindImage(const CContext& context, cl_mem hImage, CRef<CMemObject>& pMem, CImage*& pImage)
{
    pMem = Lookup<CMemObject>(hImage);
    pImage = pMem ? pMem->AsImage() : nullptr;
    if (!pImage)
    {
        return CL_INVALID_MEM_OBJECT;
    }
    return &pMem->GetContext() == &context ? CL_SUCCESS : CL_INVALID_CONTEXT;
}

} // namespace KestrelPlatform::Runtime
