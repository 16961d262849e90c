#include "platform/runtime/Metadata.h"

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/ExtensionEntries.h"
#include "platform/runtime/Platform.h"

#include <vector>

namespace KestrelPlatform::Runtime
{

namespace
{

using MetadataDestructor = void(CL_CALLBACK*)(void*);

/// The keys of the process: key n is entry n - 1.
struct SKeys
{
    std::mutex m_Mutex;
    std::vector<MetadataDestructor> m_vDestructors;
};

SKeys& Keys()
{
    static auto& s_keys = *new SKeys;
    return s_keys;
}

bool IsKey(size_t nKey)
{
    SKeys& keys = Keys();
    std::lock_guard<std::mutex> lock(keys.m_Mutex);
    return nKey != 0 && nKey <= keys.m_vDestructors.size();
}

size_t CreateKey(const char* pszEntryPoint, cl_platform_id hPlatform, MetadataDestructor pDestructor, cl_int* pnError)
{
    size_t nKey = 0;
    const cl_int nError = ApiCall(pszEntryPoint,
                                  [&]() -> cl_int
                                  {
                                      if (!IsPlatform(hPlatform))
                                      {
                                          return CL_INVALID_PLATFORM;
                                      }
                                      SKeys& keys = Keys();
                                      std::lock_guard<std::mutex> lock(keys.m_Mutex);
                                      keys.m_vDestructors.push_back(pDestructor);
                                      nKey = keys.m_vDestructors.size();
                                      return CL_SUCCESS;
                                  });
    if (pnError)
    {
        *pnError = nError;
    }
    return nKey;
}

cl_int GetValue(const char* pszEntryPoint, void* pObject, size_t nKey, void** ppValue)
{
    return ApiCall(pszEntryPoint,
                   [&]() -> cl_int
                   {
                       const CRef<CObject> pTarget = CRegistry::Find(pObject);
                       if (!pTarget || !IsKey(nKey) || !ppValue)
                       {
                           return CL_INVALID_VALUE;
                       }
                       *ppValue = pTarget->GetMetadata(nKey);
                       return CL_SUCCESS;
                   });
}

cl_int SetValue(const char* pszEntryPoint, void* pObject, size_t nKey, void* pValue)
{
    return ApiCall(pszEntryPoint,
                   [&]() -> cl_int
                   {
                       const CRef<CObject> pTarget = CRegistry::Find(pObject);
                       if (!pTarget || !IsKey(nKey))
                       {
                           return CL_INVALID_VALUE;
                       }
                       pTarget->SetMetadata(nKey, pValue);
                       return CL_SUCCESS;
                   });
}

} // namespace

void DestroyMetadataValue(size_t nKey, void* pValue)
{
    MetadataDestructor pDestructor = nullptr;
    {
        SKeys& keys = Keys();
        std::lock_guard<std::mutex> lock(keys.m_Mutex);
        pDestructor = keys.m_vDestructors[nKey - 1];
    }
    if (pDestructor && pValue)
    {
        pDestructor(pValue);
    }
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

size_t CL_API_CALL clCreateKeyOVK(cl_platform_id platform, void(CL_CALLBACK* destructor)(void*), cl_int* errcode_ret)
{
    return CreateKey(__func__, platform, destructor, errcode_ret);
}

cl_int CL_API_CALL clObjectGetValueForKeyOVK(void* object, size_t key, void** value)
{
    return GetValue(__func__, object, key, value);
}

cl_int CL_API_CALL clObjectSetValueForKeyOVK(void* object, size_t key, void* value)
{
    return SetValue(__func__, object, key, value);
}

size_t CL_API_CALL clCreateKeyEXT(cl_platform_id platform, void(CL_CALLBACK* destructor)(void*), cl_int* errcode_ret)
{
    return CreateKey(__func__, platform, destructor, errcode_ret);
}

cl_int CL_API_CALL clObjectGetValueForKeyEXT(void* object, size_t key, void** value)
{
    return GetValue(__func__, object, key, value);
}

cl_int CL_API_CALL clObjectSetValueForKeyEXT(void* object, size_t key, void* value)
{
    return SetValue(__func__, object, key, value);
}
