#ifndef KESTREL_PLATFORM_RUNTIME_IMAGE_H
#define KESTREL_PLATFORM_RUNTIME_IMAGE_H

#include "platform/runtime/MemObject.h"
#include "platform/runtime/Region.h"
#include "platform/simt/WideLaunch.h"

namespace KestrelPlatform::Runtime
{

/// The size of an image, where dimensions that its type doesn't have are 1, and the layout of its texels.
struct SImageShape
{
    cl_mem_object_type m_eType = 0;
    cl_image_format m_Format{};
    size_t m_nTexel = 0;
    size_t m_nWidth = 1;
    size_t m_nHeight = 1;
    size_t m_nDepth = 1;
    size_t m_nArraySize = 1;
    SPitches m_Pitches{};

    bool IsArray() const { return m_eType == CL_MEM_OBJECT_IMAGE1D_ARRAY || m_eType == CL_MEM_OBJECT_IMAGE2D_ARRAY; }
    /// The limit of a region in each of its three coordinates.
    size_t GetExtent(size_t nCoordinate) const;
    /// The pitches of the second and third coordinate; in a 1D array the second coordinate counts slices.
    SPitches GetCoordinatePitches(const SPitches& pitches) const;
    size_t GetBytes() const;
    bool HasRegion(const size_t* pOrigin, const size_t* pRegion) const;
    size_t GetOffset(const size_t* pOrigin) const;
    SBox GetBox(const size_t* pRegion) const { return {pRegion[0] * m_nTexel, pRegion[1], pRegion[2]}; }
    /// The pitches of host memory that holds a region; 0 means that rows or slices follow each other directly.
    /// \return CL_INVALID_VALUE for pitches that are too small
    cl_int GetHostPitches(const size_t* pRegion, size_t nRowPitch, size_t nSlicePitch, SPitches& pitches) const;
};

class CImage : public CMemObject
{
public:
    CImage(CRef<CContext> pContext, const SImageShape& shape, cl_mem_flags nFlags, void* pHostPtr,
           std::shared_ptr<CStorage> pStorage)
        : CMemObject(std::move(pContext), shape.m_eType, nFlags, shape.GetBytes(), pHostPtr, std::move(pStorage)),
          m_Shape(shape)
    {
    }
    /// An image on a buffer.
    CImage(CRef<CMemObject> pBuffer, const SImageShape& shape, cl_mem_flags nFlags)
        : CMemObject(pBuffer, shape.m_eType, nFlags, shape.GetBytes(), 0), m_Shape(shape), m_pBuffer(std::move(pBuffer))
    {
    }

    const SImageShape& GetShape() const { return m_Shape; }
    /// The image as a kernel sees it.
    SImageBinding GetBinding() const;
    cl_int GetImageInfo(cl_image_info eInfo, const SInfoQuery& query) const;

private:
    const SImageShape m_Shape;
    const CRef<CMemObject> m_pBuffer; ///< null unless the image is on a buffer
};

/// The image behind a handle, as an enqueue call needs it.
/// \return CL_INVALID_MEM_OBJECT, or CL_INVALID_CONTEXT for one of another context
cl_int FindImage(const CContext& context, cl_mem hImage, CRef<CMemObject>& pMem, CImage*& pImage);

} // namespace KestrelPlatform::Runtime

#endif
