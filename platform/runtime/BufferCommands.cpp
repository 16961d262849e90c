#include "core/CopyBytes.h"
#include "platform/runtime/Buffer.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/Enqueue.h"
#include "platform/runtime/Region.h"

#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

bool Overlap(const CMemObject& a, size_t nOffsetA, const CMemObject& b, size_t nOffsetB, size_t nBytes)
{
    const size_t nBeginA = a.GetOffset() + nOffsetA;
    const size_t nBeginB = b.GetOffset() + nOffsetB;
    return a.GetStorage() == b.GetStorage() && nBeginA < nBeginB + nBytes && nBeginB < nBeginA + nBytes;
}

cl_int ReadBuffer(CEnqueue& enqueue, cl_mem hBuffer, bool bBlocking, size_t nOffset, size_t nBytes, void* pTarget)
{
    CRef<CMemObject> pMem;
    CBuffer* pBuffer = nullptr;
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), hBuffer, pMem, pBuffer))
    {
        return nError;
    }
    if (!pTarget || !pBuffer->HasRange(nOffset, nBytes))
    {
        return CL_INVALID_VALUE;
    }
    if (!pMem->CanHostRead())
    {
        return CL_INVALID_OPERATION;
    }
    return enqueue.Submit(CL_COMMAND_READ_BUFFER, bBlocking,
                          [pMem, nOffset, nBytes, pTarget]
                          {
                              CopyBytes(pTarget, pMem->GetData() + nOffset, nBytes);
                              Count(PLATFORM_COUNTER_BYTES_READ, nBytes);
                              return CL_SUCCESS;
                          });
}

cl_int WriteBuffer(CEnqueue& enqueue, cl_mem hBuffer, bool bBlocking, size_t nOffset, size_t nBytes,
                   const void* pSource)
{
    CRef<CMemObject> pMem;
    CBuffer* pBuffer = nullptr;
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), hBuffer, pMem, pBuffer))
    {
        return nError;
    }
    if (!pSource || !pBuffer->HasRange(nOffset, nBytes))
    {
        return CL_INVALID_VALUE;
    }
    if (!pMem->CanHostWrite())
    {
        return CL_INVALID_OPERATION;
    }
    return enqueue.Submit(CL_COMMAND_WRITE_BUFFER, bBlocking,
                          [pMem, nOffset, nBytes, pSource]
                          {
                              CopyBytes(pMem->GetData() + nOffset, pSource, nBytes);
                              pMem->MarkWritten(nOffset, nBytes);
                              Count(PLATFORM_COUNTER_BYTES_WRITTEN, nBytes);
                              return CL_SUCCESS;
                          });
}

cl_int CopyBuffer(CEnqueue& enqueue, cl_mem hSource, cl_mem hTarget, size_t nSource, size_t nTarget, size_t nBytes)
{
    CRef<CMemObject> pSourceMem, pTargetMem;
    CBuffer* pSource = nullptr;
    CBuffer* pTarget = nullptr;
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), hSource, pSourceMem, pSource))
    {
        return nError;
    }
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), hTarget, pTargetMem, pTarget))
    {
        return nError;
    }
    if (!pSource->HasRange(nSource, nBytes) || !pTarget->HasRange(nTarget, nBytes))
    {
        return CL_INVALID_VALUE;
    }
    if (Overlap(*pSource, nSource, *pTarget, nTarget, nBytes))
    {
        return CL_MEM_COPY_OVERLAP;
    }
    return enqueue.Submit(CL_COMMAND_COPY_BUFFER, false,
                          [pSourceMem, pTargetMem, nSource, nTarget, nBytes]
                          {
                              // Memmove, since two objects may share the same client memory.
                              std::memmove(pTargetMem->GetData() + nTarget, pSourceMem->GetData() + nSource, nBytes);
                              pTargetMem->MarkCopied(nTarget, *pSourceMem, nSource, nBytes);
                              Count(PLATFORM_COUNTER_BYTES_COPIED, nBytes);
                              return CL_SUCCESS;
                          });
}

bool IsPatternSize(size_t nPattern)
{
    return nPattern != 0 && nPattern <= 128 && (nPattern & (nPattern - 1)) == 0;
}

cl_int FillBuffer(CEnqueue& enqueue, cl_mem hBuffer, const void* pPattern, size_t nPattern, size_t nOffset,
                  size_t nBytes)
{
    CRef<CMemObject> pMem;
    CBuffer* pBuffer = nullptr;
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), hBuffer, pMem, pBuffer))
    {
        return nError;
    }
    if (!pPattern || !IsPatternSize(nPattern) || !pBuffer->HasRange(nOffset, nBytes) || nOffset % nPattern != 0 ||
        nBytes % nPattern != 0)
    {
        return CL_INVALID_VALUE;
    }
    const auto* pBytes = static_cast<const unsigned char*>(pPattern);
    const std::vector<unsigned char> vPattern(pBytes, pBytes + nPattern);
    return enqueue.Submit(CL_COMMAND_FILL_BUFFER, false,
                          [pMem, vPattern, nOffset, nBytes]
                          {
                              FillPattern(pMem->GetData() + nOffset, nBytes, vPattern.data(), vPattern.size());
                              pMem->MarkWritten(nOffset, nBytes);
                              Count(PLATFORM_COUNTER_BYTES_COPIED, nBytes);
                              return CL_SUCCESS;
                          });
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clEnqueueReadBuffer(cl_command_queue command_queue, cl_mem buffer, cl_bool blocking_read,
                                       size_t offset, size_t size, void* ptr, cl_uint num_events_in_wait_list,
                                       const cl_event* event_wait_list, cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue)
                      { return ReadBuffer(enqueue, buffer, blocking_read != CL_FALSE, offset, size, ptr); });
}

cl_int CL_API_CALL clEnqueueWriteBuffer(cl_command_queue command_queue, cl_mem buffer, cl_bool blocking_write,
                                        size_t offset, size_t size, const void* ptr, cl_uint num_events_in_wait_list,
                                        const cl_event* event_wait_list, cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue)
                      { return WriteBuffer(enqueue, buffer, blocking_write != CL_FALSE, offset, size, ptr); });
}

cl_int CL_API_CALL clEnqueueCopyBuffer(cl_command_queue command_queue, cl_mem src_buffer, cl_mem dst_buffer,
                                       size_t src_offset, size_t dst_offset, size_t size,
                                       cl_uint num_events_in_wait_list, const cl_event* event_wait_list,
                                       cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue)
                      { return CopyBuffer(enqueue, src_buffer, dst_buffer, src_offset, dst_offset, size); });
}

cl_int CL_API_CALL clEnqueueFillBuffer(cl_command_queue command_queue, cl_mem buffer, const void* pattern,
                                       size_t pattern_size, size_t offset, size_t size, cl_uint num_events_in_wait_list,
                                       const cl_event* event_wait_list, cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue)
                      { return FillBuffer(enqueue, buffer, pattern, pattern_size, offset, size); });
}
