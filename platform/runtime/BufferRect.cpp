#include "platform/runtime/Buffer.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/Enqueue.h"
#include "platform/runtime/Region.h"

namespace KestrelPlatform::Runtime
{

namespace
{

/// One side of a rectangular transfer, with defaults for missing pitches.
struct SRect
{
    SPitches m_Pitches;
    size_t m_nFirst; ///< offset of the first byte
    size_t m_nEnd;   ///< offset after the last byte
};

bool IsRegion(const size_t* pRegion)
{
    return pRegion && pRegion[0] != 0 && pRegion[1] != 0 && pRegion[2] != 0;
}

/// A pitch of 0 means that rows or slices follow each other directly.
/// \return CL_INVALID_VALUE for pitches that are too small, or offsets that don't fit
cl_int MakeRect(const size_t* pOrigin, const size_t* pRegion, size_t nRowPitch, size_t nSlicePitch, SRect& rect)
{
    if (!pOrigin)
    {
        return CL_INVALID_VALUE;
    }
    nRowPitch = nRowPitch != 0 ? nRowPitch : pRegion[0];
    size_t nTightSlice = 0;
    if (nRowPitch < pRegion[0] || !MultiplyAdd(pRegion[1], nRowPitch, 0, nTightSlice))
    {
        return CL_INVALID_VALUE;
    }
    nSlicePitch = nSlicePitch != 0 ? nSlicePitch : nTightSlice;
    if (nSlicePitch < nTightSlice || nSlicePitch % nRowPitch != 0)
    {
        return CL_INVALID_VALUE;
    }

    size_t nRow = 0, nLastRow = 0, nLast = 0;
    const bool bFits = MultiplyAdd(pOrigin[1], nRowPitch, pOrigin[0], nRow) &&
                       MultiplyAdd(pOrigin[2], nSlicePitch, nRow, rect.m_nFirst) &&
                       MultiplyAdd(pRegion[1] - 1, nRowPitch, rect.m_nFirst, nLastRow) &&
                       MultiplyAdd(pRegion[2] - 1, nSlicePitch, nLastRow, nLast) &&
                       MultiplyAdd(1, pRegion[0], nLast, rect.m_nEnd);
    rect.m_Pitches = {nRowPitch, nSlicePitch};
    return bFits ? CL_SUCCESS : CL_INVALID_VALUE;
}

bool Inside(const CBuffer& buffer, const SRect& rect)
{
    return rect.m_nEnd <= buffer.GetSize();
}

SBox BoxOf(const size_t* pRegion)
{
    return {pRegion[0], pRegion[1], pRegion[2]};
}

/// The arguments of a transfer between a buffer and the host.
struct SHostTransfer
{
    cl_mem m_hBuffer;
    bool m_bBlocking;
    const size_t* m_pBufferOrigin;
    const size_t* m_pHostOrigin;
    const size_t* m_pRegion;
    size_t m_nBufferRowPitch;
    size_t m_nBufferSlicePitch;
    size_t m_nHostRowPitch;
    size_t m_nHostSlicePitch;
};

/// Checks a transfer and works out both sides.
cl_int PrepareTransfer(const CContext& context, const SHostTransfer& transfer, const void* pHost,
                       CRef<CMemObject>& pMem, SRect& bufferRect, SRect& hostRect)
{
    CBuffer* pBuffer = nullptr;
    if (const cl_int nError = FindBuffer(context, transfer.m_hBuffer, pMem, pBuffer))
    {
        return nError;
    }
    if (!pHost || !IsRegion(transfer.m_pRegion))
    {
        return CL_INVALID_VALUE;
    }
    if (const cl_int nError = MakeRect(transfer.m_pBufferOrigin, transfer.m_pRegion, transfer.m_nBufferRowPitch,
                                       transfer.m_nBufferSlicePitch, bufferRect))
    {
        return nError;
    }
    if (const cl_int nError = MakeRect(transfer.m_pHostOrigin, transfer.m_pRegion, transfer.m_nHostRowPitch,
                                       transfer.m_nHostSlicePitch, hostRect))
    {
        return nError;
    }
    return Inside(*pBuffer, bufferRect) ? CL_SUCCESS : CL_INVALID_VALUE;
}

cl_int ReadRect(CEnqueue& enqueue, const SHostTransfer& transfer, void* pHost)
{
    CRef<CMemObject> pMem;
    SRect bufferRect{}, hostRect{};
    if (const cl_int nError = PrepareTransfer(enqueue.GetContext(), transfer, pHost, pMem, bufferRect, hostRect))
    {
        return nError;
    }
    if (!pMem->CanHostRead())
    {
        return CL_INVALID_OPERATION;
    }
    const SBox box = BoxOf(transfer.m_pRegion);
    return enqueue.Submit(CL_COMMAND_READ_BUFFER_RECT, transfer.m_bBlocking,
                          [=]
                          {
                              CopyBox(static_cast<unsigned char*>(pHost) + hostRect.m_nFirst, hostRect.m_Pitches,
                                      pMem->GetData() + bufferRect.m_nFirst, bufferRect.m_Pitches, box);
                              Count(PLATFORM_COUNTER_BYTES_READ, box.GetBytes());
                              return CL_SUCCESS;
                          });
}

cl_int WriteRect(CEnqueue& enqueue, const SHostTransfer& transfer, const void* pHost)
{
    CRef<CMemObject> pMem;
    SRect bufferRect{}, hostRect{};
    if (const cl_int nError = PrepareTransfer(enqueue.GetContext(), transfer, pHost, pMem, bufferRect, hostRect))
    {
        return nError;
    }
    if (!pMem->CanHostWrite())
    {
        return CL_INVALID_OPERATION;
    }
    const SBox box = BoxOf(transfer.m_pRegion);
    return enqueue.Submit(CL_COMMAND_WRITE_BUFFER_RECT, transfer.m_bBlocking,
                          [=]
                          {
                              CopyBox(pMem->GetData() + bufferRect.m_nFirst, bufferRect.m_Pitches,
                                      static_cast<const unsigned char*>(pHost) + hostRect.m_nFirst, hostRect.m_Pitches,
                                      box);
                              // The gaps between its rows count as written too, so that no false finding is reported.
                              pMem->MarkWritten(bufferRect.m_nFirst, bufferRect.m_nEnd - bufferRect.m_nFirst);
                              Count(PLATFORM_COUNTER_BYTES_WRITTEN, box.GetBytes());
                              return CL_SUCCESS;
                          });
}

bool RangesMeet(size_t nBeginA, size_t nSizeA, size_t nBeginB, size_t nSizeB)
{
    return nBeginA < nBeginB + nSizeB && nBeginB < nBeginA + nSizeA;
}

/// True if two boxes in the same memory, with the same pitches, share a byte. The bytes between the
/// rows and slices of one may belong to the other.
bool BoxesMeet(const SPitches& pitches, size_t nFirstA, size_t nFirstB, const size_t* pRegion)
{
    size_t nA = nFirstA, nB = nFirstB;
    const size_t nSliceA = nA / pitches.m_nSlice, nSliceB = nB / pitches.m_nSlice;
    nA %= pitches.m_nSlice;
    nB %= pitches.m_nSlice;
    return RangesMeet(nSliceA, pRegion[2], nSliceB, pRegion[2]) &&
           RangesMeet(nA / pitches.m_nRow, pRegion[1], nB / pitches.m_nRow, pRegion[1]) &&
           RangesMeet(nA % pitches.m_nRow, pRegion[0], nB % pitches.m_nRow, pRegion[0]);
}

/// The arguments of a copy from buffer to buffer.
struct SCopy
{
    cl_mem m_hSource;
    cl_mem m_hTarget;
    const size_t* m_pSourceOrigin;
    const size_t* m_pTargetOrigin;
    const size_t* m_pRegion;
    SPitches m_Source;
    SPitches m_Target;
};

cl_int CopyRect(CEnqueue& enqueue, const SCopy& copy)
{
    CRef<CMemObject> pSourceMem, pTargetMem;
    CBuffer* pSource = nullptr;
    CBuffer* pTarget = nullptr;
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), copy.m_hSource, pSourceMem, pSource))
    {
        return nError;
    }
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), copy.m_hTarget, pTargetMem, pTarget))
    {
        return nError;
    }
    SRect source{}, target{};
    if (!IsRegion(copy.m_pRegion) ||
        MakeRect(copy.m_pSourceOrigin, copy.m_pRegion, copy.m_Source.m_nRow, copy.m_Source.m_nSlice, source) ||
        MakeRect(copy.m_pTargetOrigin, copy.m_pRegion, copy.m_Target.m_nRow, copy.m_Target.m_nSlice, target) ||
        !Inside(*pSource, source) || !Inside(*pTarget, target))
    {
        return CL_INVALID_VALUE;
    }

    const bool bSamePitches =
        source.m_Pitches.m_nRow == target.m_Pitches.m_nRow && source.m_Pitches.m_nSlice == target.m_Pitches.m_nSlice;
    if (pSource == pTarget && !bSamePitches)
    {
        return CL_INVALID_VALUE;
    }
    const size_t nSource = pSource->GetOffset() + source.m_nFirst;
    const size_t nTarget = pTarget->GetOffset() + target.m_nFirst;
    const bool bMeet =
        bSamePitches ? BoxesMeet(source.m_Pitches, nSource, nTarget, copy.m_pRegion)
                     : RangesMeet(nSource, source.m_nEnd - source.m_nFirst, nTarget, target.m_nEnd - target.m_nFirst);
    if (pSource->GetStorage() == pTarget->GetStorage() && bMeet)
    {
        return CL_MEM_COPY_OVERLAP;
    }

    const SBox box = BoxOf(copy.m_pRegion);
    return enqueue.Submit(CL_COMMAND_COPY_BUFFER_RECT, false,
                          [=]
                          {
                              CopyBox(pTargetMem->GetData() + target.m_nFirst, target.m_Pitches,
                                      pSourceMem->GetData() + source.m_nFirst, source.m_Pitches, box);
                              pTargetMem->MarkWritten(target.m_nFirst, target.m_nEnd - target.m_nFirst);
                              Count(PLATFORM_COUNTER_BYTES_COPIED, box.GetBytes());
                              return CL_SUCCESS;
                          });
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clEnqueueReadBufferRect(cl_command_queue command_queue, cl_mem buffer, cl_bool blocking_read,
                                           const size_t* buffer_offset, const size_t* host_offset, const size_t* region,
                                           size_t buffer_row_pitch, size_t buffer_slice_pitch, size_t host_row_pitch,
                                           size_t host_slice_pitch, void* ptr, cl_uint num_events_in_wait_list,
                                           const cl_event* event_wait_list, cl_event* event)
{
    const SHostTransfer transfer{buffer,           blocking_read != CL_FALSE, buffer_offset,  host_offset,     region,
                                 buffer_row_pitch, buffer_slice_pitch,        host_row_pitch, host_slice_pitch};
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return ReadRect(enqueue, transfer, ptr); });
}

cl_int CL_API_CALL clEnqueueWriteBufferRect(cl_command_queue command_queue, cl_mem buffer, cl_bool blocking_write,
                                            const size_t* buffer_offset, const size_t* host_offset,
                                            const size_t* region, size_t buffer_row_pitch, size_t buffer_slice_pitch,
                                            size_t host_row_pitch, size_t host_slice_pitch, const void* ptr,
                                            cl_uint num_events_in_wait_list, const cl_event* event_wait_list,
                                            cl_event* event)
{
    const SHostTransfer transfer{buffer,           blocking_write != CL_FALSE, buffer_offset,  host_offset,     region,
                                 buffer_row_pitch, buffer_slice_pitch,         host_row_pitch, host_slice_pitch};
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return WriteRect(enqueue, transfer, ptr); });
}

cl_int CL_API_CALL clEnqueueCopyBufferRect(cl_command_queue command_queue, cl_mem src_buffer, cl_mem dst_buffer,
                                           const size_t* src_origin, const size_t* dst_origin, const size_t* region,
                                           size_t src_row_pitch, size_t src_slice_pitch, size_t dst_row_pitch,
                                           size_t dst_slice_pitch, cl_uint num_events_in_wait_list,
                                           const cl_event* event_wait_list, cl_event* event)
{
    const SCopy copy{src_buffer,
                     dst_buffer,
                     src_origin,
                     dst_origin,
                     region,
                     {src_row_pitch, src_slice_pitch},
                     {dst_row_pitch, dst_slice_pitch}};
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return CopyRect(enqueue, copy); });
}
