#include "platform/runtime/Buffer.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/Enqueue.h"
#include "platform/runtime/Image.h"

namespace KestrelPlatform::Runtime
{

namespace
{

/// Mapped memory is the object's own memory, so mapping and unmapping copy nothing. The counters count the bytes as if
/// they were copied.
cl_int CheckMapFlags(const CMemObject& mem, cl_map_flags nFlags)
{
    constexpr cl_map_flags nKnown = CL_MAP_READ | CL_MAP_WRITE | CL_MAP_WRITE_INVALIDATE_REGION;
    const bool bInvalidate = (nFlags & CL_MAP_WRITE_INVALIDATE_REGION) != 0;
    if ((nFlags & ~nKnown) != 0 || (bInvalidate && (nFlags & (CL_MAP_READ | CL_MAP_WRITE)) != 0))
    {
        return CL_INVALID_VALUE;
    }
    if ((nFlags & CL_MAP_READ) != 0 && !mem.CanHostRead())
    {
        return CL_INVALID_OPERATION;
    }
    if ((nFlags & (CL_MAP_WRITE | CL_MAP_WRITE_INVALIDATE_REGION)) != 0 && !mem.CanHostWrite())
    {
        return CL_INVALID_OPERATION;
    }
    return CL_SUCCESS;
}

/// Records a mapping and enqueues it; removes the record again if that fails.
cl_int SubmitMap(CEnqueue& enqueue, cl_command_type eType, bool bBlocking, const CRef<CMemObject>& pMem,
                 unsigned char* pMapped, cl_map_flags nFlags, size_t nBytes)
{
    // Whoever waits for the command may look up the mapping at once, so it is recorded first.
    pMem->AddMapping(pMapped, nFlags, nBytes);
    const auto run = [pMem, pMapped, nFlags, nBytes]
    {
        if ((nFlags & CL_MAP_WRITE_INVALIDATE_REGION) == 0)
        {
            Count(PLATFORM_COUNTER_BYTES_READ, nBytes);
        }
        if ((nFlags & ~cl_map_flags{CL_MAP_READ}) != 0)
        {
            pMem->MarkWritten(static_cast<size_t>(pMapped - pMem->GetData()), nBytes);
        }
        return CL_SUCCESS;
    };
    const auto undo = [pKept = pMem, pMapped]
    {
        CMemObject::SMapping mapping{};
        pKept->RemoveMapping(pMapped, mapping);
    };
    return enqueue.Submit(eType, bBlocking, run, undo);
}

cl_int MapBuffer(CEnqueue& enqueue, cl_mem hBuffer, bool bBlocking, cl_map_flags nFlags, size_t nOffset, size_t nBytes,
                 void*& pMapped)
{
    CRef<CMemObject> pMem;
    CBuffer* pBuffer = nullptr;
    if (const cl_int nError = FindBuffer(enqueue.GetContext(), hBuffer, pMem, pBuffer))
    {
        return nError;
    }
    if (!pBuffer->HasRange(nOffset, nBytes))
    {
        return CL_INVALID_VALUE;
    }
    if (const cl_int nError = CheckMapFlags(*pMem, nFlags))
    {
        return nError;
    }
    pMapped = pMem->GetData() + nOffset;
    return SubmitMap(enqueue, CL_COMMAND_MAP_BUFFER, bBlocking, pMem, pMem->GetData() + nOffset, nFlags, nBytes);
}

/// The arguments of clEnqueueMapImage that say what to map and where to store the pitches.
struct SImageMap
{
    cl_mem m_hImage;
    bool m_bBlocking;
    cl_map_flags m_nFlags;
    const size_t* m_pOrigin;
    const size_t* m_pRegion;
    size_t* m_pnRowPitch;
    size_t* m_pnSlicePitch;
};

cl_int MapImage(CEnqueue& enqueue, const SImageMap& map, void*& pMapped)
{
    CRef<CMemObject> pMem;
    CImage* pImage = nullptr;
    if (const cl_int nError = FindImage(enqueue.GetContext(), map.m_hImage, pMem, pImage))
    {
        return nError;
    }
    const SImageShape& shape = pImage->GetShape();
    const bool bSlices = shape.IsArray() || shape.m_eType == CL_MEM_OBJECT_IMAGE3D;
    if (!shape.HasRegion(map.m_pOrigin, map.m_pRegion) || !map.m_pnRowPitch || (bSlices && !map.m_pnSlicePitch))
    {
        return CL_INVALID_VALUE;
    }
    if (const cl_int nError = CheckMapFlags(*pMem, map.m_nFlags))
    {
        return nError;
    }
    unsigned char* pFirst = pMem->GetData() + shape.GetOffset(map.m_pOrigin);
    if (const cl_int nError = SubmitMap(enqueue, CL_COMMAND_MAP_IMAGE, map.m_bBlocking, pMem, pFirst, map.m_nFlags,
                                        shape.GetBox(map.m_pRegion).GetBytes()))
    {
        return nError;
    }
    *map.m_pnRowPitch = shape.m_Pitches.m_nRow;
    if (map.m_pnSlicePitch)
    {
        *map.m_pnSlicePitch = bSlices ? shape.m_Pitches.m_nSlice : 0;
    }
    pMapped = pFirst;
    return CL_SUCCESS;
}

cl_int Unmap(CEnqueue& enqueue, cl_mem hMem, void* pMapped)
{
    const CRef<CMemObject> pMem = Lookup<CMemObject>(hMem);
    if (!pMem)
    {
        return CL_INVALID_MEM_OBJECT;
    }
    if (&pMem->GetContext() != &enqueue.GetContext())
    {
        return CL_INVALID_CONTEXT;
    }
    CMemObject::SMapping mapping{};
    if (!pMem->RemoveMapping(pMapped, mapping))
    {
        return CL_INVALID_VALUE;
    }
    const auto run = [pMem, mapping]
    {
        if ((mapping.m_nFlags & (CL_MAP_WRITE | CL_MAP_WRITE_INVALIDATE_REGION)) != 0)
        {
            Count(PLATFORM_COUNTER_BYTES_WRITTEN, mapping.m_nBytes);
        }
        return CL_SUCCESS;
    };
    const auto undo = [pMem, mapping] { pMem->AddMapping(mapping.m_pMapped, mapping.m_nFlags, mapping.m_nBytes); };
    return enqueue.Submit(CL_COMMAND_UNMAP_MEM_OBJECT, false, run, undo);
}

cl_int Migrate(CEnqueue& enqueue, cl_uint nMems, const cl_mem* phMems, cl_mem_migration_flags nFlags)
{
    constexpr cl_mem_migration_flags nKnown = CL_MIGRATE_MEM_OBJECT_HOST | CL_MIGRATE_MEM_OBJECT_CONTENT_UNDEFINED;
    if (nMems == 0 || !phMems || (nFlags & ~nKnown) != 0)
    {
        return CL_INVALID_VALUE;
    }
    std::vector<CRef<CMemObject>> vMems;
    for (cl_uint i = 0; i < nMems; ++i)
    {
        vMems.push_back(Lookup<CMemObject>(phMems[i]));
        if (!vMems.back())
        {
            return CL_INVALID_MEM_OBJECT;
        }
        if (&vMems.back()->GetContext() != &enqueue.GetContext())
        {
            return CL_INVALID_CONTEXT;
        }
    }
    // All devices and the host share the memory.
    return enqueue.Submit(CL_COMMAND_MIGRATE_MEM_OBJECTS, false, [vMems] { return CL_SUCCESS; });
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

void* CL_API_CALL clEnqueueMapBuffer(cl_command_queue command_queue, cl_mem buffer, cl_bool blocking_map,
                                     cl_map_flags map_flags, size_t offset, size_t size,
                                     cl_uint num_events_in_wait_list, const cl_event* event_wait_list, cl_event* event,
                                     cl_int* errcode_ret)
{
    CEnqueue enqueue({command_queue, num_events_in_wait_list, event_wait_list, event});
    return ApiCreate<void*>(__func__, errcode_ret,
                            [&](void*& pMapped) -> cl_int
                            {
                                const cl_int nError = enqueue.Open();
                                return nError != CL_SUCCESS ? nError
                                                            : MapBuffer(enqueue, buffer, blocking_map != CL_FALSE,
                                                                        map_flags, offset, size, pMapped);
                            });
}

void* CL_API_CALL clEnqueueMapImage(cl_command_queue command_queue, cl_mem image, cl_bool blocking_map,
                                    cl_map_flags map_flags, const size_t* origin, const size_t* region,
                                    size_t* image_row_pitch, size_t* image_slice_pitch, cl_uint num_events_in_wait_list,
                                    const cl_event* event_wait_list, cl_event* event, cl_int* errcode_ret)
{
    const SImageMap map{image, blocking_map != CL_FALSE, map_flags, origin, region, image_row_pitch, image_slice_pitch};
    CEnqueue enqueue({command_queue, num_events_in_wait_list, event_wait_list, event});
    return ApiCreate<void*>(__func__, errcode_ret,
                            [&](void*& pMapped) -> cl_int
                            {
                                const cl_int nError = enqueue.Open();
                                return nError != CL_SUCCESS ? nError : MapImage(enqueue, map, pMapped);
                            });
}

cl_int CL_API_CALL clEnqueueUnmapMemObject(cl_command_queue command_queue, cl_mem memobj, void* mapped_ptr,
                                           cl_uint num_events_in_wait_list, const cl_event* event_wait_list,
                                           cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return Unmap(enqueue, memobj, mapped_ptr); });
}

cl_int CL_API_CALL clEnqueueMigrateMemObjects(cl_command_queue command_queue, cl_uint num_mem_objects,
                                              const cl_mem* mem_objects, cl_mem_migration_flags flags,
                                              cl_uint num_events_in_wait_list, const cl_event* event_wait_list,
                                              cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return Migrate(enqueue, num_mem_objects, mem_objects, flags); });
}
