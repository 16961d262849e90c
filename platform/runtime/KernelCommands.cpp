#include "platform/runtime/Enqueue.h"
#include "platform/runtime/KernelRun.h"

#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

cl_int EnqueueKernel(CEnqueue& enqueue, cl_kernel hKernel, const SIndexSpace& space, cl_command_type eType)
{
    const CRef<CKernel> pKernel = Lookup<CKernel>(hKernel);
    if (!pKernel)
    {
        return CL_INVALID_KERNEL;
    }
    if (&pKernel->GetContext() != &enqueue.GetContext())
    {
        return CL_INVALID_CONTEXT;
    }
    auto pPrepared = std::make_shared<SPreparedLaunch>();
    if (const cl_int nError = PrepareLaunch(*pKernel, enqueue.GetQueue().GetDevice(), space, *pPrepared))
    {
        return nError;
    }
    pPrepared->m_Launch.pOwner = &enqueue.GetQueue();
    return enqueue.Submit(eType, false, [pPrepared] { return RunPrepared(*pPrepared); });
}

using NativeKernel = void(CL_CALLBACK*)(void*);

/// The arguments of clEnqueueNativeKernel.
struct SNativeCall
{
    NativeKernel m_pFunction;
    void* m_pArguments;
    size_t m_nArguments; ///< bytes
    cl_uint m_nMems;
    const cl_mem* m_phMems;
    const void** m_ppPlaces; ///< where each memory object's handle is within the arguments
};

bool IsWellFormed(const SNativeCall& call)
{
    const bool bArguments = call.m_pArguments != nullptr;
    const bool bMems = call.m_nMems != 0;
    return call.m_pFunction && bArguments == (call.m_nArguments != 0) && (bArguments || !bMems) &&
           bMems == (call.m_phMems != nullptr) && bMems == (call.m_ppPlaces != nullptr);
}

/// Replaces the handles of memory objects by their addresses.
cl_int ReplaceMems(const CContext& context, const SNativeCall& call, std::vector<unsigned char>& vArguments,
                   std::vector<CRef<CMemObject>>& vMems)
{
    for (cl_uint i = 0; i < call.m_nMems; ++i)
    {
        vMems.push_back(Lookup<CMemObject>(call.m_phMems[i]));
        if (call.m_phMems[i] && (!vMems.back() || &vMems.back()->GetContext() != &context))
        {
            return CL_INVALID_MEM_OBJECT;
        }
        const size_t nPlace =
            reinterpret_cast<uintptr_t>(call.m_ppPlaces[i]) - reinterpret_cast<uintptr_t>(call.m_pArguments);
        if (nPlace > vArguments.size() || vArguments.size() - nPlace < sizeof(void*))
        {
            return CL_INVALID_VALUE;
        }
        if (vMems.back())
        {
            vMems.back()->MarkWritten(0, vMems.back()->GetSize());
        }
        void* pData = vMems.back() ? vMems.back()->GetData() : nullptr;
        std::memcpy(vArguments.data() + nPlace, &pData, sizeof(pData));
    }
    return CL_SUCCESS;
}

cl_int EnqueueNative(CEnqueue& enqueue, const SNativeCall& call)
{
    if (!IsWellFormed(call))
    {
        return CL_INVALID_VALUE;
    }
    if (!enqueue.GetQueue().GetDevice().GetTraits().m_bNativeKernels)
    {
        return CL_INVALID_OPERATION;
    }
    const auto* pBytes = static_cast<const unsigned char*>(call.m_pArguments);
    std::vector<unsigned char> vArguments(pBytes, pBytes + call.m_nArguments);
    std::vector<CRef<CMemObject>> vMems;
    if (const cl_int nError = ReplaceMems(enqueue.GetContext(), call, vArguments, vMems))
    {
        return nError;
    }
    return enqueue.Submit(CL_COMMAND_NATIVE_KERNEL, false,
                          [pFunction = call.m_pFunction, vArguments, vMems]() mutable
                          {
                              pFunction(vArguments.empty() ? nullptr : vArguments.data());
                              return CL_SUCCESS;
                          });
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clEnqueueNDRangeKernel(cl_command_queue command_queue, cl_kernel kernel, cl_uint work_dim,
                                          const size_t* global_work_offset, const size_t* global_work_size,
                                          const size_t* local_work_size, cl_uint num_events_in_wait_list,
                                          const cl_event* event_wait_list, cl_event* event)
{
    const SIndexSpace space{work_dim, global_work_offset, global_work_size, local_work_size};
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue)
                      { return EnqueueKernel(enqueue, kernel, space, CL_COMMAND_NDRANGE_KERNEL); });
}

cl_int CL_API_CALL clEnqueueTask(cl_command_queue command_queue, cl_kernel kernel, cl_uint num_events_in_wait_list,
                                 const cl_event* event_wait_list, cl_event* event)
{
    static constexpr size_t s_nOne = 1;
    const SIndexSpace space{1, nullptr, &s_nOne, &s_nOne};
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return EnqueueKernel(enqueue, kernel, space, CL_COMMAND_TASK); });
}

cl_int CL_API_CALL clEnqueueNativeKernel(cl_command_queue command_queue, NativeKernel user_func, void* args,
                                         size_t cb_args, cl_uint num_mem_objects, const cl_mem* mem_list,
                                         const void** args_mem_loc, cl_uint num_events_in_wait_list,
                                         const cl_event* event_wait_list, cl_event* event)
{
    const SNativeCall call{user_func, args, cb_args, num_mem_objects, mem_list, args_mem_loc};
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [&](CEnqueue& enqueue) { return EnqueueNative(enqueue, call); });
}
