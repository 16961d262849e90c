#include "device/MappedMemoryCL.h"

#include "core/Log.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

#include <algorithm>
#include <cstring>

namespace OVK_ShaderDebugger
{

using namespace ShaderUtils;

namespace
{

const cl_uint s_nNoEvents = 0;
const cl_event* const s_pNoEvents = nullptr;
cl_event* const s_pNoEvent = nullptr;

bool IsArray(const BufferDesc& desc)
{
    return desc.m_Type != BT_Texture_3D && desc.m_nArraySize > 1;
}

/// Calls action(slice, row, offset of the row) for each row.
template <typename Action>
void ForEachRow(const SImageLayout& layout, const Action& action)
{
    for (size_t nSlice = 0; nSlice < layout.nSlices; ++nSlice)
    {
        for (size_t nRow = 0; nRow < layout.nRows; ++nRow)
        {
            action(nSlice, nRow, nSlice * layout.nSlicePitch + nRow * layout.nRowPitch);
        }
    }
}

} // namespace

SImageRegion::SImageRegion(const BufferDesc& desc) : origin{0, 0, 0}, region{desc.m_nWidth, 1, 1}
{
    if (desc.m_Type == BT_Texture_1D)
    {
        region[1] = IsArray(desc) ? desc.m_nArraySize : 1;
        return;
    }
    region[1] = desc.m_nHeight;
    region[2] = desc.m_Type == BT_Texture_3D ? desc.m_nDepth : IsArray(desc) ? desc.m_nArraySize : 1;
}

size_t GetRowSize(const BufferDesc& desc)
{
    return desc.m_nWidth * GetPointSize(desc.m_Format);
}

SImageLayout GetDescribedLayout(const BufferDesc& desc)
{
    SImageLayout layout = {};
    layout.nRowPitch = desc.m_nPitch != 0 ? desc.m_nPitch : GetRowSize(desc);
    layout.nRows = desc.m_Type == BT_Texture_1D ? 1 : desc.m_nHeight;
    layout.nSlicePitch = layout.nRowPitch * layout.nRows;
    layout.nSlices = desc.m_Type == BT_Texture_3D ? desc.m_nDepth : std::max(desc.m_nArraySize, 1u);
    return layout;
}

void CopyImageRows(const SImageLayout& destination, unsigned char* pDestination, const SImageLayout& source,
                   const unsigned char* pSource, size_t nSourceSize, size_t nRowSize)
{
    const size_t nBytes = std::min({nRowSize, destination.nRowPitch, source.nRowPitch});
    ForEachRow(destination,
               [&](size_t nSlice, size_t nRow, size_t nOffset)
               {
                   const size_t nSourceOffset = nSlice * source.nSlicePitch + nRow * source.nRowPitch;
                   if (nSlice < source.nSlices && nRow < source.nRows && nSourceOffset < nSourceSize)
                   {
                       std::memcpy(pDestination + nOffset, pSource + nSourceOffset,
                                   std::min(nBytes, nSourceSize - nSourceOffset));
                   }
               });
}

void ClearImageRows(const SImageLayout& destination, unsigned char* pDestination, size_t nRowSize)
{
    const size_t nBytes = std::min(nRowSize, destination.nRowPitch);
    ForEachRow(destination, [&](size_t, size_t, size_t nOffset) { std::memset(pDestination + nOffset, 0, nBytes); });
}

bool GetImageObjectType(const BufferDesc& desc, cl_mem_object_type& type)
{
    switch (desc.m_Type)
    {
    case BT_Texture_1D:
        type = IsArray(desc) ? CL_MEM_OBJECT_IMAGE1D_ARRAY : CL_MEM_OBJECT_IMAGE1D;
        return true;
    case BT_Texture_2D:
        type = IsArray(desc) ? CL_MEM_OBJECT_IMAGE2D_ARRAY : CL_MEM_OBJECT_IMAGE2D;
        return true;
    case BT_Texture_3D:
        type = CL_MEM_OBJECT_IMAGE3D;
        return true;
    default:
        return false;
    }
}

cl_mem CreateImageLike(cl_context context, cl_mem_flags flags, const cl_image_format& format, const BufferDesc& desc,
                       cl_int& nCode)
{
    cl_image_desc imageDesc = {};
    if (!GetImageObjectType(desc, imageDesc.image_type))
    {
        nCode = CL_INVALID_IMAGE_DESCRIPTOR;
        return nullptr;
    }
    imageDesc.image_width = desc.m_nWidth;
    imageDesc.image_height = desc.m_nHeight;
    imageDesc.image_depth = desc.m_nDepth;
    imageDesc.image_array_size = desc.m_nArraySize;
    return CreateCL(nCode, g_CLDispatchTable.CreateImage, context, flags, &format, &imageDesc,
                    static_cast<void*>(nullptr));
}

CMappedMemoryCL::CMappedMemoryCL(CShaderDebuggerHost* pHost, cl_command_queue queue, cl_mem mem, cl_map_flags flags,
                                 const BufferDesc& desc)
    : m_pHost(pHost), m_Queue(queue), m_Mem(mem), m_pData(nullptr), m_Layout()
{
    cl_int nCode = CL_SUCCESS;
    void* pData = nullptr;
    if (desc.m_Type == BT_Buffer)
    {
        pData = CreateCL(nCode, g_CLDispatchTable.EnqueueMapBuffer, queue, mem, cl_bool(CL_TRUE), flags, size_t(0),
                         desc.m_nSize, s_nNoEvents, s_pNoEvents, s_pNoEvent);
    }
    else
    {
        m_Layout = GetDescribedLayout(desc);
        const SImageRegion region(desc);
        size_t nRowPitch = 0;
        size_t nSlicePitch = 0;
        pData = CreateCL(nCode, g_CLDispatchTable.EnqueueMapImage, queue, mem, cl_bool(CL_TRUE), flags, region.origin,
                         region.region, &nRowPitch, &nSlicePitch, s_nNoEvents, s_pNoEvents, s_pNoEvent);
        m_Layout.nRowPitch = nRowPitch;
        // A single slice has no slice pitch.
        m_Layout.nSlicePitch = nSlicePitch != 0 ? nSlicePitch : nRowPitch * m_Layout.nRows;
    }
    m_pData = static_cast<unsigned char*>(pData);
    CheckCL(m_pHost, nCode, "clEnqueueMapBuffer() failed");
}

CMappedMemoryCL::~CMappedMemoryCL()
{
    Unmap();
}

bool CMappedMemoryCL::Unmap()
{
    if (m_pData == nullptr)
    {
        return true;
    }
    const cl_int nCode = CallCL(g_CLDispatchTable.EnqueueUnmapMemObject, m_Queue, m_Mem, static_cast<void*>(m_pData),
                                s_nNoEvents, s_pNoEvents, s_pNoEvent);
    m_pData = nullptr;
    return CheckCL(m_pHost, nCode, "clEnqueueUnmapMemObject() failed");
}

CTemporaryMemoryCL::CTemporaryMemoryCL(CShaderDebuggerHost* pHost, cl_context context, cl_mem_flags flags, cl_mem like,
                                       const BufferDesc& desc)
    : m_pHost(pHost), m_Mem(nullptr)
{
    if (desc.m_Type != BT_Buffer)
    {
        m_Mem = CreateImage(context, flags, like, desc);
        return;
    }
    cl_int nCode = CL_SUCCESS;
    m_Mem = CreateCL(nCode, g_CLDispatchTable.CreateBuffer, context, flags, desc.m_nSize, static_cast<void*>(nullptr));
    CheckCL(m_pHost, nCode, "clCreateBuffer() failed");
}

cl_mem CTemporaryMemoryCL::CreateImage(cl_context context, cl_mem_flags flags, cl_mem like,
                                       const BufferDesc& desc) const
{
    const OpenCLModule::OpenCLVersion version = g_CLDispatchTable.OpenCLLoaded();
    if (!SD_Assert(m_pHost, version == OpenCLModule::OpenCL_1_2))
    {
        return nullptr;
    }
    cl_image_format format = {};
    if (!CheckCL(m_pHost, QueryCL(g_CLDispatchTable.GetImageInfo, like, CL_IMAGE_FORMAT, format),
                 "clGetImageInfo() failed"))
    {
        return nullptr;
    }
    cl_int nCode = CL_SUCCESS;
    const cl_mem mem = CreateImageLike(context, flags, format, desc, nCode);
    CheckCL(m_pHost, nCode, "clCreateImage() failed");
    return mem;
}

CTemporaryMemoryCL::~CTemporaryMemoryCL()
{
    if (m_Mem != nullptr)
    {
        CheckCL(m_pHost, CallCL(g_CLDispatchTable.ReleaseMemObject, m_Mem), "clReleaseMemObject() failed");
    }
}

bool EnqueueCopy(CShaderDebuggerHost* pHost, cl_command_queue queue, cl_mem source, cl_mem destination,
                 const BufferDesc& desc)
{
    if (desc.m_Type == BT_Buffer)
    {
        const cl_int nCode = CallCL(g_CLDispatchTable.EnqueueCopyBuffer, queue, source, destination, size_t(0),
                                    size_t(0), desc.m_nSize, s_nNoEvents, s_pNoEvents, s_pNoEvent);
        return CheckCL(pHost, nCode, "clEnqueueCopyBuffer() failed");
    }
    const SImageRegion region(desc);
    const cl_int nCode = CallCL(g_CLDispatchTable.EnqueueCopyImage, queue, source, destination, region.origin,
                                region.origin, region.region, s_nNoEvents, s_pNoEvents, s_pNoEvent);
    return CheckCL(pHost, nCode, "clEnqueueCopyImage () failed");
}

} // namespace OVK_ShaderDebugger
