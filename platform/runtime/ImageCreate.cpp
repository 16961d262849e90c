#include "platform/runtime/ApiCall.h"
#include "platform/runtime/Buffer.h"
#include "platform/runtime/Image.h"
#include "platform/runtime/ImageFormat.h"

namespace KestrelPlatform::Runtime
{

namespace
{

/// The dimensions that an image type takes from a descriptor, and their limits; 0 for dimensions that it doesn't have.
struct SImageType
{
    cl_mem_object_type m_eType;
    size_t m_nMaxWidth;
    size_t m_nMaxHeight;
    size_t m_nMaxDepth;
    size_t m_nMaxArraySize;
};

constexpr SImageType s_imageTypes[] = {
    {CL_MEM_OBJECT_IMAGE1D, s_nMaxImageWidth, 0, 0, 0},
    {CL_MEM_OBJECT_IMAGE1D_BUFFER, s_nMaxImageBufferSize, 0, 0, 0},
    {CL_MEM_OBJECT_IMAGE1D_ARRAY, s_nMaxImageWidth, 0, 0, s_nMaxImageArraySize},
    {CL_MEM_OBJECT_IMAGE2D, s_nMaxImageWidth, s_nMaxImageWidth, 0, 0},
    {CL_MEM_OBJECT_IMAGE2D_ARRAY, s_nMaxImageWidth, s_nMaxImageWidth, 0, s_nMaxImageArraySize},
    {CL_MEM_OBJECT_IMAGE3D, s_nMaxImageDepth, s_nMaxImageDepth, s_nMaxImageDepth, 0},
};

const SImageType* FindImageType(cl_mem_object_type eType)
{
    for (const SImageType& type : s_imageTypes)
    {
        if (type.m_eType == eType)
        {
            return &type;
        }
    }
    return nullptr;
}

/// Takes over one dimension of the descriptor, or 1 if the type doesn't have it.
cl_int TakeDimension(size_t nValue, size_t nMax, size_t& nDimension)
{
    if (nMax == 0)
    {
        return CL_SUCCESS;
    }
    if (nValue == 0)
    {
        return CL_INVALID_IMAGE_DESCRIPTOR;
    }
    nDimension = nValue;
    return nValue <= nMax ? CL_SUCCESS : CL_INVALID_IMAGE_SIZE;
}

cl_int TakePitches(const cl_image_desc& desc, bool bHostPtr, SImageShape& shape)
{
    if (!bHostPtr && (desc.image_row_pitch != 0 || desc.image_slice_pitch != 0))
    {
        return CL_INVALID_IMAGE_DESCRIPTOR;
    }
    const size_t nTightRow = shape.m_nWidth * shape.m_nTexel;
    shape.m_Pitches.m_nRow = desc.image_row_pitch != 0 ? desc.image_row_pitch : nTightRow;
    size_t nTightSlice = 0;
    if (shape.m_Pitches.m_nRow < nTightRow || shape.m_Pitches.m_nRow % shape.m_nTexel != 0 ||
        !MultiplyAdd(shape.m_Pitches.m_nRow, shape.m_nHeight, 0, nTightSlice))
    {
        return CL_INVALID_IMAGE_DESCRIPTOR;
    }
    const bool bSlices = shape.IsArray() || shape.m_eType == CL_MEM_OBJECT_IMAGE3D;
    const size_t nSlice = bSlices ? desc.image_slice_pitch : 0;
    shape.m_Pitches.m_nSlice = nSlice != 0 ? nSlice : nTightSlice;
    size_t nBytes = 0;
    const bool bFits = MultiplyAdd(shape.m_Pitches.m_nSlice, shape.m_nDepth * shape.m_nArraySize, 0, nBytes);
    const bool bWhole = shape.m_Pitches.m_nSlice % shape.m_Pitches.m_nRow == 0;
    return bFits && bWhole && shape.m_Pitches.m_nSlice >= nTightSlice ? CL_SUCCESS : CL_INVALID_IMAGE_DESCRIPTOR;
}

cl_int MakeShape(const cl_image_format* pFormat, const cl_image_desc* pDesc, bool bHostPtr, SImageShape& shape)
{
    if (!pFormat)
    {
        return CL_INVALID_IMAGE_FORMAT_DESCRIPTOR;
    }
    if (const cl_int nError = CheckImageFormat(*pFormat))
    {
        return nError;
    }
    const SImageType* pType = pDesc ? FindImageType(pDesc->image_type) : nullptr;
    if (!pType || pDesc->num_mip_levels != 0 || pDesc->num_samples != 0 ||
        (pDesc->buffer != nullptr) != (pDesc->image_type == CL_MEM_OBJECT_IMAGE1D_BUFFER))
    {
        return CL_INVALID_IMAGE_DESCRIPTOR;
    }
    shape.m_eType = pDesc->image_type;
    shape.m_Format = *pFormat;
    shape.m_nTexel = GetTexelSize(*pFormat);
    if (const cl_int nError = TakeDimension(pDesc->image_width, pType->m_nMaxWidth, shape.m_nWidth))
    {
        return nError;
    }
    if (const cl_int nError = TakeDimension(pDesc->image_height, pType->m_nMaxHeight, shape.m_nHeight))
    {
        return nError;
    }
    if (const cl_int nError = TakeDimension(pDesc->image_depth, pType->m_nMaxDepth, shape.m_nDepth))
    {
        return nError;
    }
    if (const cl_int nError = TakeDimension(pDesc->image_array_size, pType->m_nMaxArraySize, shape.m_nArraySize))
    {
        return nError;
    }
    return TakePitches(*pDesc, bHostPtr, shape);
}

/// Fills a new image from the client's memory, whose pitches are given.
void CopyFromHost(CImage& image, const void* pHostPtr, const SPitches& host)
{
    const SImageShape& shape = image.GetShape();
    const size_t region[3] = {shape.GetExtent(0), shape.GetExtent(1), shape.GetExtent(2)};
    CopyBox(image.GetData(), shape.GetCoordinatePitches(shape.m_Pitches), static_cast<const unsigned char*>(pHostPtr),
            shape.GetCoordinatePitches(host), shape.GetBox(region));
}

cl_int CreateOnBuffer(const CContext& context, const SImageShape& shape, cl_mem hBuffer, cl_mem_flags nFlags,
                      cl_mem& hImage)
{
    CRef<CMemObject> pBuffer = Lookup<CMemObject>(hBuffer);
    if (!pBuffer || !pBuffer->AsBuffer() || &pBuffer->GetContext() != &context)
    {
        return CL_INVALID_IMAGE_DESCRIPTOR;
    }
    if (const cl_int nError = InheritMemFlags(pBuffer->GetFlags(), nFlags))
    {
        return nError;
    }
    if (shape.GetBytes() > pBuffer->GetSize())
    {
        return CL_INVALID_IMAGE_SIZE;
    }
    pBuffer->MarkWritten(0, pBuffer->GetSize()); // writes of texels aren't tracked
    hImage = GiveToClient(MakeObject<CImage>(std::move(pBuffer), shape, nFlags));
    return CL_SUCCESS;
}

cl_int CreateImage(cl_context hContext, cl_mem_flags nFlags, const cl_image_format* pFormat, const cl_image_desc* pDesc,
                   void* pHostPtr, cl_mem& hImage)
{
    CRef<CContext> pContext = Lookup<CContext>(hContext);
    if (!pContext)
    {
        return CL_INVALID_CONTEXT;
    }
    if (const cl_int nError = CheckMemFlags(nFlags))
    {
        return nError;
    }
    SImageShape shape;
    if (const cl_int nError = MakeShape(pFormat, pDesc, pHostPtr != nullptr, shape))
    {
        return nError;
    }
    if (const cl_int nError = CheckHostPtr(nFlags, pHostPtr))
    {
        return nError;
    }
    if (shape.m_eType == CL_MEM_OBJECT_IMAGE1D_BUFFER)
    {
        return CreateOnBuffer(*pContext, shape, pDesc->buffer, nFlags, hImage);
    }

    // Only an image in the client's own memory keeps the client's pitches.
    const SPitches host = shape.m_Pitches;
    const bool bUse = (nFlags & CL_MEM_USE_HOST_PTR) != 0;
    if (!bUse)
    {
        shape.m_Pitches = {shape.m_nWidth * shape.m_nTexel, shape.m_nWidth * shape.m_nTexel * shape.m_nHeight};
    }
    if (shape.GetBytes() > pContext->GetMaxAllocation())
    {
        return CL_INVALID_IMAGE_SIZE;
    }
    std::shared_ptr<CStorage> pStorage = CStorage::Create(*pContext, shape.GetBytes(), bUse ? pHostPtr : nullptr);
    if (!pStorage)
    {
        return CL_MEM_OBJECT_ALLOCATION_FAILURE;
    }
    const CRef<CImage> pImage = MakeObject<CImage>(std::move(pContext), shape, nFlags, pHostPtr, std::move(pStorage));
    if ((nFlags & CL_MEM_COPY_HOST_PTR) != 0)
    {
        CopyFromHost(*pImage, pHostPtr, host);
    }
    hImage = static_cast<cl_mem>(GiveToClient(pImage));
    return CL_SUCCESS;
}

/// The calls of OpenCL 1.1 have a single code for all faults in sizes and pitches.
cl_int CreateLegacyImage(cl_context hContext, cl_mem_flags nFlags, const cl_image_format* pFormat,
                         const cl_image_desc& desc, void* pHostPtr, cl_mem& hImage)
{
    const cl_int nError = CreateImage(hContext, nFlags, pFormat, &desc, pHostPtr, hImage);
    return nError == CL_INVALID_IMAGE_DESCRIPTOR ? CL_INVALID_IMAGE_SIZE : nError;
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_mem CL_API_CALL clCreateImage(cl_context context, cl_mem_flags flags, const cl_image_format* image_format,
                                 const cl_image_desc* image_desc, void* host_ptr, cl_int* errcode_ret)
{
    return ApiCreate<cl_mem>(__func__, errcode_ret,
                             [&](cl_mem& hImage)
                             { return CreateImage(context, flags, image_format, image_desc, host_ptr, hImage); });
}

cl_mem CL_API_CALL clCreateImage2D(cl_context context, cl_mem_flags flags, const cl_image_format* image_format,
                                   size_t image_width, size_t image_height, size_t image_row_pitch, void* host_ptr,
                                   cl_int* errcode_ret)
{
    return ApiCreate<cl_mem>(__func__, errcode_ret,
                             [&](cl_mem& hImage)
                             {
                                 cl_image_desc desc{};
                                 desc.image_type = CL_MEM_OBJECT_IMAGE2D;
                                 desc.image_width = image_width;
                                 desc.image_height = image_height;
                                 desc.image_row_pitch = image_row_pitch;
                                 return CreateLegacyImage(context, flags, image_format, desc, host_ptr, hImage);
                             });
}

cl_mem CL_API_CALL clCreateImage3D(cl_context context, cl_mem_flags flags, const cl_image_format* image_format,
                                   size_t image_width, size_t image_height, size_t image_depth, size_t image_row_pitch,
                                   size_t image_slice_pitch, void* host_ptr, cl_int* errcode_ret)
{
    return ApiCreate<cl_mem>(__func__, errcode_ret,
                             [&](cl_mem& hImage)
                             {
                                 cl_image_desc desc{};
                                 desc.image_type = CL_MEM_OBJECT_IMAGE3D;
                                 desc.image_width = image_width;
                                 desc.image_height = image_height;
                                 desc.image_depth = image_depth;
                                 desc.image_row_pitch = image_row_pitch;
                                 desc.image_slice_pitch = image_slice_pitch;
                                 return CreateLegacyImage(context, flags, image_format, desc, host_ptr, hImage);
                             });
}

cl_int CL_API_CALL clGetSupportedImageFormats(cl_context context, cl_mem_flags flags, cl_mem_object_type image_type,
                                              cl_uint num_entries, cl_image_format* image_formats,
                                              cl_uint* num_image_formats)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       if (!Lookup<CContext>(context))
                       {
                           return CL_INVALID_CONTEXT;
                       }
                       if (CheckMemFlags(flags) != CL_SUCCESS || !FindImageType(image_type) ||
                           (image_formats && num_entries == 0))
                       {
                           return CL_INVALID_VALUE;
                       }
                       const std::vector<cl_image_format>& vFormats = GetImageFormats();
                       for (size_t i = 0; image_formats && i < vFormats.size() && i < num_entries; ++i)
                       {
                           image_formats[i] = vFormats[i];
                       }
                       if (num_image_formats)
                       {
                           *num_image_formats = static_cast<cl_uint>(vFormats.size());
                       }
                       return CL_SUCCESS;
                   });
}

cl_int CL_API_CALL clGetImageInfo(cl_mem image, cl_image_info param_name, size_t param_value_size, void* param_value,
                                  size_t* param_value_size_ret)
{
    return ApiCall(
        __func__,
        [&]() -> cl_int
        {
            const CRef<CMemObject> pMem = Lookup<CMemObject>(image);
            if (!pMem || !pMem->AsImage())
            {
                return CL_INVALID_MEM_OBJECT;
            }
            return pMem->AsImage()->GetImageInfo(param_name, {param_value_size, param_value, param_value_size_ret});
        });
}
