#include "core/SUCommon.h"

namespace ShaderUtils
{

const ThreadID g_tID_Error(TID_2D, -1, -1, -1, -1);

bool operator==(const BufferDesc& lhs, const BufferDesc& rhs)
{
    return lhs.m_Type == rhs.m_Type && lhs.m_Format == rhs.m_Format && lhs.m_Usage == rhs.m_Usage &&
           lhs.m_AccessType == rhs.m_AccessType && lhs.m_ShaderType == rhs.m_ShaderType &&
           lhs.m_nWidth == rhs.m_nWidth && lhs.m_nHeight == rhs.m_nHeight && lhs.m_nDepth == rhs.m_nDepth &&
           lhs.m_nStride == rhs.m_nStride && lhs.m_nSize == rhs.m_nSize && lhs.m_nArraySize == rhs.m_nArraySize &&
           lhs.m_nFirstArraySlice == rhs.m_nFirstArraySlice && lhs.m_nLastArraySlice == rhs.m_nLastArraySlice &&
           lhs.m_nPitch == rhs.m_nPitch && lhs.m_nSampleCount == rhs.m_nSampleCount &&
           lhs.m_nSampleQuality == rhs.m_nSampleQuality;
}

bool operator!=(const BufferDesc& lhs, const BufferDesc& rhs)
{
    return !(lhs == rhs);
}

bool IsValid(const ThreadID& threadID)
{
    switch (threadID.type)
    {
    case TID_1D:
        return threadID.x >= 0;
    case TID_2D:
        return threadID.x >= 0 && threadID.y >= 0;
    case TID_3D:
        return threadID.x >= 0 && threadID.y >= 0 && threadID.z >= 0;
    default:
        return false;
    }
}

ThreadIDType GetThreadIDType(BufferType type)
{
    switch (type)
    {
    case BT_Buffer:
    case BT_Texture_1D:
        return TID_1D;
    case BT_Texture_3D:
        return TID_3D;
    default:
        return TID_2D;
    }
}

bool operator==(const RGBA_32F& lhs, const RGBA_32F& rhs)
{
    return lhs.r == rhs.r && lhs.g == rhs.g && lhs.b == rhs.b && lhs.a == rhs.a;
}

size_t GetPointSize(BufferFormat format)
{
    static const size_t s_PointSizes[] = {0, 16, 8, 4, 12, 6, 3, 8, 4, 2, 4, 2, 1, 1, 16};
    const size_t nFormat = static_cast<size_t>(format);
    return nFormat < sizeof(s_PointSizes) / sizeof(s_PointSizes[0]) ? s_PointSizes[nFormat] : 0;
}

} // namespace ShaderUtils
