#include "platform/runtime/Buffer.h"

#include "KestrelPlatform.h"
#include "platform/runtime/ApiCall.h"
#include "platform/runtime/KernelRun.h"

#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

cl_int CreateBuffer(cl_context hContext, cl_mem_flags nFlags, size_t nSize, void* pHostPtr, cl_mem& hBuffer)
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
    if (nSize == 0 || nSize > pContext->GetMaxAllocation())
    {
        return CL_INVALID_BUFFER_SIZE;
    }
    if (const cl_int nError = CheckHostPtr(nFlags, pHostPtr))
    {
        return nError;
    }
    std::shared_ptr<CStorage> pStorage =
        CStorage::Create(*pContext, nSize, (nFlags & CL_MEM_USE_HOST_PTR) != 0 ? pHostPtr : nullptr);
    if (!pStorage)
    {
        return CL_MEM_OBJECT_ALLOCATION_FAILURE;
    }
    if ((nFlags & CL_MEM_COPY_HOST_PTR) != 0)
    {
        std::memcpy(pStorage->GetData(), pHostPtr, nSize);
    }
    if (!pHostPtr && (GetChecks() & PLATFORM_CHECK_INIT) != 0)
    {
        pStorage->KeepShadow();
    }
    hBuffer = GiveToClient(MakeObject<CBuffer>(std::move(pContext), nFlags, nSize, pHostPtr, std::move(pStorage)));
    return CL_SUCCESS;
}

cl_int CreateSubBuffer(cl_mem hBuffer, cl_mem_flags nFlags, cl_buffer_create_type eType, const void* pInfo,
                       cl_mem& hSubBuffer)
{
    CRef<CMemObject> pParent = Lookup<CMemObject>(hBuffer);
    if (!pParent || !pParent->AsBuffer() || pParent->AsBuffer()->IsSubBuffer())
    {
        return CL_INVALID_MEM_OBJECT;
    }
    if (const cl_int nError = InheritMemFlags(pParent->GetFlags(), nFlags))
    {
        return nError;
    }
    if (eType != CL_BUFFER_CREATE_TYPE_REGION || !pInfo)
    {
        return CL_INVALID_VALUE;
    }
    const auto& region = *static_cast<const cl_buffer_region*>(pInfo);
    if (region.size == 0)
    {
        return CL_INVALID_BUFFER_SIZE;
    }
    if (!pParent->AsBuffer()->HasRange(region.origin, region.size))
    {
        return CL_INVALID_VALUE;
    }
    if (region.origin % s_nBaseAlignment != 0)
    {
        return CL_MISALIGNED_SUB_BUFFER_OFFSET;
    }
    hSubBuffer = GiveToClient(MakeObject<CBuffer>(std::move(pParent), nFlags, region.size, region.origin));
    return CL_SUCCESS;
}

} // namespace

cl_int FindBuffer(const CContext& context, cl_mem hBuffer, CRef<CMemObject>& pMem, CBuffer*& pBuffer)
{
    pMem = Lookup<CMemObject>(hBuffer);
    pBuffer = pMem ? pMem->AsBuffer() : nullptr;
    if (!pBuffer)
    {
        return CL_INVALID_MEM_OBJECT;
    }
    return &pMem->GetContext() == &context ? CL_SUCCESS : CL_INVALID_CONTEXT;
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_mem CL_API_CALL clCreateBuffer(cl_context context, cl_mem_flags flags, size_t size, void* host_ptr,
                                  cl_int* errcode_ret)
{
    return ApiCreate<cl_mem>(__func__, errcode_ret,
                             [&](cl_mem& hBuffer) { return CreateBuffer(context, flags, size, host_ptr, hBuffer); });
}

cl_mem CL_API_CALL clCreateSubBuffer(cl_mem buffer, cl_mem_flags flags, cl_buffer_create_type buffer_create_type,
                                     const void* buffer_create_info, cl_int* errcode_ret)
{
    return ApiCreate<cl_mem>(
        __func__, errcode_ret,
        [&](cl_mem& hSubBuffer)
        { return CreateSubBuffer(buffer, flags, buffer_create_type, buffer_create_info, hSubBuffer); });
}
