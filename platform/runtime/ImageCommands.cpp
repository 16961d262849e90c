#include "platform/runtime/Buffer.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/Enqueue.h"
#include "platform/runtime/Image.h"
#include "platform/runtime/ImageFormat.h"

#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

/// A region of an image, checked.
struct SImageRegion
{
    CRef<CMemObject> m_pMem;
    CImage* m_pImage = nullptr;
    size_t m_nOffset = 0; ///< of its first texel
    SPitches m_Pitches{};
    SBox m_Box{};

    unsigned char* GetData() const { return m_pMem->GetData() + m_nOffset; }
};

cl_int MakeRegion(const CContext& context, cl_mem hImage, const size_t* pOrigin, const size_t* pRegion,
                  SImageRegion& region)
{
    if (const cl_int nError = FindImage(context, hImage, region.m_pMem, region.m_pImage))
    {
        return nError;
    }
    const SImageShape& shape = region.m_pImage->GetShape();
    if (!shape.HasRegion(pOrigin, pRegion))
    {
        return CL_INVALID_VALUE;
    }
    region.m_nOffset = shape.GetOffset(pOrigin);
    region.m_Pitches = shape.GetCoordinatePitches(shape.m_Pitches);
    region.m_Box = shape.GetBox(pRegion);
    return CL_SUCCESS;
}

/// The client's arguments of a transfer between an image and the host.
struct SImageTransfer
{
    cl_mem m_hImage;
    bool m_bBlocking;
    const size_t* m_pOrigin;
    const size_t* m_pRegion;
    size_t m_nRowPitch;
    size_t m_nSlicePitch;
};

cl_int PrepareTransfer(const CContext& context, const SImageTransfer& transfer, const void* pHost, SImageRegion& region,
                       SPitches& host)
{
    if (const cl_int nError = MakeRegion(context, transfer.m_hImage, transfer.m_pOrigin, transfer.m_pRegion, region))
    {
        return nError;
    }
    if (!pHost)
    {
        return CL_INVALID_VALUE;
    }
    return region.m_pImage->GetShape().GetHostPitches(transfer.m_pRegion, transfer.m_nRowPitch, transfer.m_nSlicePitch,
                                                      host);
}

cl_int ReadImage(CEnqueue& enqueue, const SImageTransfer& transfer, void* pHost)
{
    SImageRegion region;
    SPitches host{};
    if (const cl_int nError = PrepareTransfer(enqueue.GetContext(), transfer, pHost, region, host))
    {
        return nError;
    }
    if (!region.m_pMem->CanHostRead())
    {
        return CL_INVALID_OPERATION;
    }
    return enqueue.Submit(CL_COMMAND_READ_IMAGE, transfer.m_bBlocking,
                          [region, pHost, host]
                          {
                              CopyBox(static_cast<unsigned char*>(pHost), host, region.GetData(), region.m_Pitches,
                                      region.m_Box);
                              Count(PLATFORM_COUNTER_BYTES_READ, region.m_Box.GetBytes());
                              return CL_SUCCESS;
                          });
}

cl_int WriteImage(CEnqueue& enqueue, const SImageTransfer& transfer, const void* pHost)
{
    SImageRegion region;
    SPitches host{};
    if (const cl_int nError = PrepareTransfer(enqueue.GetContext(), transfer, pHost, region, host))
    {
        return nError;
    }
    if (!region.m_pMem->CanHostWrite())
    {
        return CL_INVALID_OPERATION;
    }
    return enqueue.Submit(CL_COMMAND_WRITE_IMAGE, transfer.m_bBlocking,
                          [region, pHost, host]
                          {
                              CopyBox(region.GetData(), region.m_Pitches, static_cast<const unsigned char*>(pHost),
                                      host, region.m_Box);
                              Count(PLATFORM_COUNTER_BYTES_WRITTEN, region.m_Box.GetBytes());
                              return CL_SUCCESS;
                          });
}

bool SameFormat(const cl_image_format& a, const cl_image_format& b)
{
    return a.image_channel_order == b.image_channel_order && a.image_channel_data_type == b.image_channel_data_type;
}

bool RegionsMeet(const size_t* pOriginA, const size_t* pOriginB, const size_t* pRegion)
{
    for (size_t i = 0; i < 3; ++i)
    {
        if (pOriginA[i] >= pOriginB[i] + pRegion[i] || pOriginB[i] >= pOriginA[i] + pRegion[i])
        {
            return false;
        }
    }
    return true;
}

/// Copies a box inside the device.
cl_int CopyOnDevice(const SBox& box, unsigned char* pTarget, const SPitches& target, const unsigned char* pSource,
                    const SPitches& source)
{
    CopyBox(pTarget, target, pSource, source, box);
    Count(PLATFORM_COUNTER_BYTES_COPIED, box.GetBytes());
    return CL_SUCCESS;
}

cl_int CopyImage(CEnqueue& enqueue, cl_mem hSource, cl_mem hTarget, const size_t* pSourceOrigin,
                 const size_t* pTargetOrigin, const size_t* pRegion)
{
    SImageRegion source, target;
    if (const cl_int nError = MakeRegion(enqueue.GetContext(), hSource, pSourceOrigin, pRegion, source))
    {
        return nError;
    }
    if (const cl_int nError = MakeRegion(enqueue.GetContext(), hTarget, pTargetOrigin, pRegion, target))
    {
        return nError;
    }
    if (!SameFormat(source.m_pImage->GetShape().m_Format, target.m_pImage->GetShape().m_Format))
    {
        return CL_IMAGE_FORMAT_MISMATCH;
    }
    if (source.m_pImage == target.m_pImage && RegionsMeet(pSourceOrigin, pTargetOrigin, pRegion))
    {
        return CL_MEM_COPY_OVERLAP;
    }
    return enqueue.Submit(
        CL_COMMAND_COPY_IMAGE, false,
        [source, target]
        { return CopyOnDevice(source.m_Box, target.GetData(), target.m_Pitches, source.GetData(), source.m_Pitches); });
}

/// The pitches of a region whose rows and slices follow each other directly in a buffer.
SPitches TightPitches(const SBox& box)
{
    return {box.m_nRowBytes, box.m_nRowBytes * box.m_nRows};
}

cl_int CopyImageToBuffer(CEnqueue& enqueue, cl_mem hImage, cl_mem hBuffer, const size_t* pOrigin, const size_t* pRegion,
                         size_t nOffset)
{
    SImageRegion region;
    CRef<CMemObject> pMem;
    CBuffer* pBuffer = nullptr;
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), hBuffer, pMem, pBuffer))
    {
        return nError;
    }
    if (const cl_int nError = MakeRegion(enqueue.GetContext(), hImage, pOrigin, pRegion, region))
    {
        return nError;
    }
    if (!pBuffer->HasRange(nOffset, region.m_Box.GetBytes()))
    {
        return CL_INVALID_VALUE;
    }
    return enqueue.Submit(CL_COMMAND_COPY_IMAGE_TO_BUFFER, false,
                          [region, pMem, nOffset]
                          {
                              pMem->MarkWritten(nOffset, region.m_Box.GetBytes());
                              return CopyOnDevice(region.m_Box, pMem->GetData() + nOffset, TightPitches(region.m_Box),
                                                  region.GetData(), region.m_Pitches);
                          });
}

cl_int CopyBufferToImage(CEnqueue& enqueue, cl_mem hBuffer, cl_mem hImage, size_t nOffset, const size_t* pOrigin,
                         const size_t* pRegion)
{
    SImageRegion region;
    CRef<CMemObject> pMem;
    CBuffer* pBuffer = nullptr;
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), hBuffer, pMem, pBuffer))
    {
        return nError;
    }
    if (const cl_int nError = MakeRegion(enqueue.GetContext(), hImage, pOrigin, pRegion, region))
    {
        return nError;
    }
    if (!pBuffer->HasRange(nOffset, region.m_Box.GetBytes()))
    {
        return CL_INVALID_VALUE;
    }
    return enqueue.Submit(CL_COMMAND_COPY_BUFFER_TO_IMAGE, false,
                          [region, pMem, nOffset]
                          {
                              return CopyOnDevice(region.m_Box, region.GetData(), region.m_Pitches,
                                                  pMem->GetData() + nOffset, TightPitches(region.m_Box));
                          });
}

cl_int FillImage(CEnqueue& enqueue, cl_mem hImage, const void* pColor, const size_t* pOrigin, const size_t* pRegion)
{
    SImageRegion region;
    if (const cl_int nError = MakeRegion(enqueue.GetContext(), hImage, pOrigin, pRegion, region))
    {
        return nError;
    }
    if (!pColor)
    {
        return CL_INVALID_VALUE;
    }
    const std::vector<unsigned char> vTexel = EncodeColor(region.m_pImage->GetShape().m_Format, pColor);
    return enqueue.Submit(CL_COMMAND_FILL_IMAGE, false,
                          [region, vTexel]
                          {
                              for (size_t nSlice = 0; nSlice < region.m_Box.m_nSlices; ++nSlice)
                              {
                                  for (size_t nRow = 0; nRow < region.m_Box.m_nRows; ++nRow)
                                  {
                                      FillPattern(region.GetData() + nSlice * region.m_Pitches.m_nSlice +
                                                      nRow * region.m_Pitches.m_nRow,
                                                  region.m_Box.m_nRowBytes, vTexel.data(), vTexel.size());
                                  }
                              }
                              Count(PLATFORM_COUNTER_BYTES_COPIED, region.m_Box.GetBytes());
                              return CL_SUCCESS;
                          });
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clEnqueueReadImage(cl_command_queue command_queue, cl_mem image, cl_bool blocking_read,
                                      const size_t* origin, const size_t* region, size_t row_pitch, size_t slice_pitch,
                                      void* ptr, cl_uint num_events_in_wait_list, const cl_event* event_wait_list,
                                      cl_event* event)
{
    const SImageTransfer transfer{image, blocking_read != CL_FALSE, origin, region, row_pitch, slice_pitch};
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return ReadImage(enqueue, transfer, ptr); });
}

cl_int CL_API_CALL clEnqueueWriteImage(cl_command_queue command_queue, cl_mem image, cl_bool blocking_write,
                                       const size_t* origin, const size_t* region, size_t input_row_pitch,
                                       size_t input_slice_pitch, const void* ptr, cl_uint num_events_in_wait_list,
                                       const cl_event* event_wait_list, cl_event* event)
{
    const SImageTransfer transfer{image,           blocking_write != CL_FALSE, origin, region,
                                  input_row_pitch, input_slice_pitch};
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return WriteImage(enqueue, transfer, ptr); });
}

cl_int CL_API_CALL clEnqueueCopyImage(cl_command_queue command_queue, cl_mem src_image, cl_mem dst_image,
                                      const size_t* src_origin, const size_t* dst_origin, const size_t* region,
                                      cl_uint num_events_in_wait_list, const cl_event* event_wait_list, cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue)
                      { return CopyImage(enqueue, src_image, dst_image, src_origin, dst_origin, region); });
}

cl_int CL_API_CALL clEnqueueCopyImageToBuffer(cl_command_queue command_queue, cl_mem src_image, cl_mem dst_buffer,
                                              const size_t* src_origin, const size_t* region, size_t dst_offset,
                                              cl_uint num_events_in_wait_list, const cl_event* event_wait_list,
                                              cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue)
                      { return CopyImageToBuffer(enqueue, src_image, dst_buffer, src_origin, region, dst_offset); });
}

cl_int CL_API_CALL clEnqueueCopyBufferToImage(cl_command_queue command_queue, cl_mem src_buffer, cl_mem dst_image,
                                              size_t src_offset, const size_t* dst_origin, const size_t* region,
                                              cl_uint num_events_in_wait_list, const cl_event* event_wait_list,
                                              cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue)
                      { return CopyBufferToImage(enqueue, src_buffer, dst_image, src_offset, dst_origin, region); });
}

cl_int CL_API_CALL clEnqueueFillImage(cl_command_queue command_queue, cl_mem image, const void* fill_color,
                                      const size_t* origin, const size_t* region, cl_uint num_events_in_wait_list,
                                      const cl_event* event_wait_list, cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return FillImage(enqueue, image, fill_color, origin, region); });
}
