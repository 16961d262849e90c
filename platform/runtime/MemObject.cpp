#include "platform/runtime/MemObject.h"

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/Buffer.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/Image.h"
#include "platform/simt/checks/ShadowRules.h"

#include <array>
#include <cstdlib>
#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

constexpr cl_mem_flags s_nAccessFlags = CL_MEM_READ_WRITE | CL_MEM_READ_ONLY | CL_MEM_WRITE_ONLY;
constexpr cl_mem_flags s_nHostAccessFlags = CL_MEM_HOST_READ_ONLY | CL_MEM_HOST_WRITE_ONLY | CL_MEM_HOST_NO_ACCESS;
constexpr cl_mem_flags s_nHostPtrFlags = CL_MEM_USE_HOST_PTR | CL_MEM_ALLOC_HOST_PTR | CL_MEM_COPY_HOST_PTR;

bool HasSeveral(cl_mem_flags nFlags)
{
    return (nFlags & (nFlags - 1)) != 0;
}

/// The buffers by origin number, for unwritten bytes. The numbers are reused, so the oldest buffers lose theirs.
struct SOrigins
{
    struct SNamed
    {
        SOriginBuffer m_Low;
        SOriginBuffer m_High;
    };
    std::mutex m_Mutex;
    cl_uint m_nNext = 0;
    std::array<SNamed, s_nLastBuffer - s_nFirstBuffer + 1> m_Named;
};

SOrigins& Origins()
{
    static auto& s_origins = *new SOrigins;
    return s_origins;
}

} // namespace

std::shared_ptr<CStorage> CStorage::Create(const CContext& context, size_t nSize, void* pClient)
{
    auto pStorage = std::make_shared<CStorage>(nSize, pClient);
    const bool bAddressed =
        pStorage->GetAddress(true) != 0 && (!context.Has32BitDevice() || pStorage->GetAddress(false) != 0);
    return pStorage->m_pData && bAddressed ? pStorage : nullptr;
}

CStorage::CStorage(size_t nSize, void* pClient)
    : m_pData(static_cast<unsigned char*>(pClient)), m_nSize(nSize), m_Low(CAddressSpace::Low(), nSize),
      m_High(CAddressSpace::High(), nSize)
{
    if (pClient || nSize > SIZE_MAX - s_nBaseAlignment)
    {
        return;
    }
    // For large blocks calloc gets zeroed pages, which take no memory until they are written.
    m_pOwned = std::calloc(nSize + s_nBaseAlignment, 1);
    const uintptr_t nAddress = reinterpret_cast<uintptr_t>(m_pOwned);
    if (m_pOwned)
    {
        m_pData =
            reinterpret_cast<unsigned char*>((nAddress + s_nBaseAlignment - 1) / s_nBaseAlignment * s_nBaseAlignment);
    }
}

void CStorage::KeepShadow()
{
    m_pShadow = std::make_unique<unsigned char[]>(m_nSize);
    SOrigins& origins = Origins();
    std::lock_guard<std::mutex> lock(origins.m_Mutex);
    const cl_uint nPlace = origins.m_nNext++ % origins.m_Named.size();
    origins.m_Named[nPlace] = {{GetAddress(false), m_nSize}, {GetAddress(true), m_nSize}};
    std::memset(m_pShadow.get(), static_cast<int>(s_nFirstBuffer + nPlace), m_nSize);
}

SOriginBuffer FindOrigin(cl_uint nOrigin, bool b64Bit)
{
    if (nOrigin < s_nFirstBuffer || nOrigin > s_nLastBuffer)
    {
        return {};
    }
    SOrigins& origins = Origins();
    std::lock_guard<std::mutex> lock(origins.m_Mutex);
    const SOrigins::SNamed& named = origins.m_Named[nOrigin - s_nFirstBuffer];
    return b64Bit ? named.m_High : named.m_Low;
}

CStorage::~CStorage()
{
    std::free(m_pOwned);
}

CMemObject::CMemObject(CRef<CContext> pContext, cl_mem_object_type eType, cl_mem_flags nFlags, size_t nSize,
                       void* pHostPtr, std::shared_ptr<CStorage> pStorage)
    : CObject(s_eKind), m_pContext(std::move(pContext)), m_eType(eType), m_nFlags(nFlags), m_nSize(nSize), m_nOffset(0),
      m_pHostPtr((nFlags & CL_MEM_USE_HOST_PTR) != 0 ? pHostPtr : nullptr), m_pStorage(std::move(pStorage))
{
}

CMemObject::CMemObject(CRef<CMemObject> pParent, cl_mem_object_type eType, cl_mem_flags nFlags, size_t nSize,
                       size_t nOffset)
    : CObject(s_eKind), m_pContext(&pParent->GetContext()), m_pParent(std::move(pParent)), m_eType(eType),
      m_nFlags(nFlags), m_nSize(nSize), m_nOffset(m_pParent->m_nOffset + nOffset),
      m_pHostPtr(m_pParent->m_pHostPtr ? static_cast<char*>(m_pParent->m_pHostPtr) + nOffset : nullptr),
      m_pStorage(m_pParent->m_pStorage)
{
}

CMemObject::~CMemObject()
{
    Count(PLATFORM_COUNTER_MAPPINGS, cl_ulong{0} - m_vMappings.size());
    for (auto it = m_vDestructorCallbacks.rbegin(); it != m_vDestructorCallbacks.rend(); ++it)
    {
        it->m_pNotify(static_cast<cl_mem>(GetHandle()), it->m_pUser);
    }
}

CBuffer* CMemObject::AsBuffer()
{
    return m_eType == CL_MEM_OBJECT_BUFFER ? static_cast<CBuffer*>(this) : nullptr;
}

CImage* CMemObject::AsImage()
{
    return m_eType == CL_MEM_OBJECT_BUFFER ? nullptr : static_cast<CImage*>(this);
}

void CMemObject::MarkWritten(size_t nOffset, size_t nBytes) const
{
    if (unsigned char* const pShadow = m_pStorage->GetShadow())
    {
        std::memset(pShadow + m_nOffset + nOffset, 0, nBytes);
    }
}

void CMemObject::MarkCopied(size_t nOffset, const CMemObject& source, size_t nSource, size_t nBytes) const
{
    const unsigned char* const pSource = source.m_pStorage->GetShadow();
    unsigned char* const pShadow = m_pStorage->GetShadow();
    if (pSource && pShadow)
    {
        std::memmove(pShadow + m_nOffset + nOffset, pSource + source.m_nOffset + nSource, nBytes);
    }
    else
    {
        MarkWritten(nOffset, nBytes);
    }
}

cl_int CMemObject::GetInfo(cl_mem_info eInfo, const SInfoQuery& query)
{
    switch (eInfo)
    {
    case CL_MEM_TYPE:
        return query.Value(m_eType);
    case CL_MEM_FLAGS:
        return query.Value(m_nFlags);
    case CL_MEM_SIZE:
        return query.Value(m_nSize);
    case CL_MEM_HOST_PTR:
        return query.Value(m_pHostPtr);
    case CL_MEM_MAP_COUNT:
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return query.Value(static_cast<cl_uint>(m_vMappings.size()));
    }
    case CL_MEM_REFERENCE_COUNT:
        return query.Value(GetClientReferences());
    case CL_MEM_CONTEXT:
        return query.Value(HandleOf(m_pContext));
    case CL_MEM_ASSOCIATED_MEMOBJECT:
        return query.Value(HandleOf(m_pParent));
    case CL_MEM_OFFSET:
        return query.Value(m_nOffset - (m_pParent ? m_pParent->m_nOffset : 0));
    default:
        return CL_INVALID_VALUE;
    }
}

void CMemObject::AddMapping(void* pMapped, cl_map_flags nFlags, size_t nBytes)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_vMappings.push_back({pMapped, nFlags, nBytes});
    Count(PLATFORM_COUNTER_MAPPINGS, 1);
}

bool CMemObject::RemoveMapping(const void* pMapped, SMapping& mapping)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    for (auto it = m_vMappings.begin(); it != m_vMappings.end(); ++it)
    {
        if (it->m_pMapped != pMapped)
        {
            continue;
        }
        mapping = *it;
        m_vMappings.erase(it);
        Count(PLATFORM_COUNTER_MAPPINGS, cl_ulong{0} - 1);
        return true;
    }
    return false;
}

void CMemObject::AddDestructorCallback(MemNotify pNotify, void* pUser)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_vDestructorCallbacks.push_back({pNotify, pUser});
}

cl_int CheckMemFlags(cl_mem_flags nFlags)
{
    const bool bKnown = (nFlags & ~(s_nAccessFlags | s_nHostAccessFlags | s_nHostPtrFlags)) == 0;
    const bool bSingle = !HasSeveral(nFlags & s_nAccessFlags) && !HasSeveral(nFlags & s_nHostAccessFlags);
    const bool bUseAlone = (nFlags & CL_MEM_USE_HOST_PTR) == 0 || !HasSeveral(nFlags & s_nHostPtrFlags);
    return bKnown && bSingle && bUseAlone ? CL_SUCCESS : CL_INVALID_VALUE;
}

cl_int CheckHostPtr(cl_mem_flags nFlags, const void* pHostPtr)
{
    const bool bWanted = (nFlags & (CL_MEM_USE_HOST_PTR | CL_MEM_COPY_HOST_PTR)) != 0;
    return bWanted == (pHostPtr != nullptr) ? CL_SUCCESS : CL_INVALID_HOST_PTR;
}

cl_int InheritMemFlags(cl_mem_flags nParent, cl_mem_flags& nFlags)
{
    if (CheckMemFlags(nFlags) != CL_SUCCESS || (nFlags & s_nHostPtrFlags) != 0)
    {
        return CL_INVALID_VALUE;
    }
    /// Flags of the parent, and flags that a part of it then mustn't have.
    static constexpr cl_mem_flags s_conflicts[][2] = {
        {CL_MEM_WRITE_ONLY, CL_MEM_READ_WRITE | CL_MEM_READ_ONLY},
        {CL_MEM_READ_ONLY, CL_MEM_READ_WRITE | CL_MEM_WRITE_ONLY},
        {CL_MEM_HOST_WRITE_ONLY, CL_MEM_HOST_READ_ONLY},
        {CL_MEM_HOST_READ_ONLY, CL_MEM_HOST_WRITE_ONLY},
        {CL_MEM_HOST_NO_ACCESS, CL_MEM_HOST_READ_ONLY | CL_MEM_HOST_WRITE_ONLY},
    };
    for (const auto& [nHas, nRefused] : s_conflicts)
    {
        if ((nParent & nHas) != 0 && (nFlags & nRefused) != 0)
        {
            return CL_INVALID_VALUE;
        }
    }
    if ((nFlags & s_nAccessFlags) == 0)
    {
        nFlags |= nParent & s_nAccessFlags;
    }
    if ((nFlags & s_nHostAccessFlags) == 0)
    {
        nFlags |= nParent & s_nHostAccessFlags;
    }
    nFlags |= nParent & s_nHostPtrFlags;
    return CL_SUCCESS;
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clRetainMemObject(cl_mem memobj)
{
    return ApiCall(__func__, [&] { return RetainHandle<CMemObject>(memobj, CL_INVALID_MEM_OBJECT); });
}

cl_int CL_API_CALL clReleaseMemObject(cl_mem memobj)
{
    return ApiCall(__func__, [&] { return ReleaseHandle<CMemObject>(memobj, CL_INVALID_MEM_OBJECT); });
}

cl_int CL_API_CALL clGetMemObjectInfo(cl_mem memobj, cl_mem_info param_name, size_t param_value_size, void* param_value,
                                      size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CMemObject> pMem = Lookup<CMemObject>(memobj);
                       if (!pMem)
                       {
                           return CL_INVALID_MEM_OBJECT;
                       }
                       return pMem->GetInfo(param_name, {param_value_size, param_value, param_value_size_ret});
                   });
}

cl_int CL_API_CALL clSetMemObjectDestructorCallback(cl_mem memobj, MemNotify pfn_notify, void* user_data)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CMemObject> pMem = Lookup<CMemObject>(memobj);
                       if (!pMem)
                       {
                           return CL_INVALID_MEM_OBJECT;
                       }
                       if (!pfn_notify)
                       {
                           return CL_INVALID_VALUE;
                       }
                       pMem->AddDestructorCallback(pfn_notify, user_data);
                       return CL_SUCCESS;
                   });
}
