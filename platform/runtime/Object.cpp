#include "platform/runtime/Object.h"

#include "platform/runtime/Counters.h"
#include "platform/runtime/Dispatch.h"
#include "platform/runtime/Metadata.h"

#include <array>
#include <unordered_map>

namespace KestrelPlatform::Runtime
{

namespace
{

cl_ulong NextId()
{
    static std::atomic<cl_ulong> s_nNext{1};
    return s_nNext.fetch_add(1);
}

/// One part of the registry, which is split by handle so that threads rarely compete for a lock.
struct SShard
{
    std::mutex m_Mutex;
    std::unordered_map<const void*, CObject*> m_mapObjects;
};

SShard& ShardOf(const void* pHandle)
{
    // Never destroyed: queue threads may outlive the static objects of the process.
    static auto& s_shards = *new std::array<SShard, 16>;
    return s_shards[(reinterpret_cast<uintptr_t>(pHandle) >> 6) % s_shards.size()];
}

} // namespace

CObject::CObject(EObjectKind eKind) : m_Icd{&GetDispatchTable()}, m_eKind(eKind), m_nId(NextId())
{
    CountObject(m_eKind, 1);
}

CObject::~CObject()
{
    for (const auto& [nKey, pValue] : m_mapMetadata)
    {
        DestroyMetadataValue(nKey, pValue);
    }
    CountObject(m_eKind, -1);
}

void CObject::DropReference()
{
    if (m_nReferences.fetch_sub(1, std::memory_order_acq_rel) != 1)
    {
        return;
    }
    CRegistry::Remove(*this);
    delete this;
}

bool CObject::AddReferenceIfAlive()
{
    cl_uint nReferences = m_nReferences.load();
    while (nReferences != 0)
    {
        if (m_nReferences.compare_exchange_weak(nReferences, nReferences + 1))
        {
            return true;
        }
    }
    return false;
}

void CObject::RetainByClient()
{
    AddReference();
    m_nClientReferences.fetch_add(1);
}

bool CObject::ReleaseByClient()
{
    cl_uint nReferences = m_nClientReferences.load();
    do
    {
        if (nReferences == 0)
        {
            return false;
        }
    } while (!m_nClientReferences.compare_exchange_weak(nReferences, nReferences - 1));
    if (nReferences == 1)
    {
        OnLastClientRelease();
    }
    DropReference();
    return true;
}

void CObject::SetMetadata(size_t nKey, void* pValue)
{
    void* pOld = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_MetadataMutex);
        pOld = std::exchange(m_mapMetadata[nKey], pValue);
    }
    if (pOld && pOld != pValue)
    {
        DestroyMetadataValue(nKey, pOld);
    }
}

void* CObject::GetMetadata(size_t nKey)
{
    std::lock_guard<std::mutex> lock(m_MetadataMutex);
    const auto it = m_mapMetadata.find(nKey);
    return it == m_mapMetadata.end() ? nullptr : it->second;
}

void CRegistry::Add(CObject& object)
{
    SShard& shard = ShardOf(object.GetHandle());
    std::lock_guard<std::mutex> lock(shard.m_Mutex);
    shard.m_mapObjects.emplace(object.GetHandle(), &object);
}

void CRegistry::Remove(CObject& object)
{
    SShard& shard = ShardOf(object.GetHandle());
    std::lock_guard<std::mutex> lock(shard.m_Mutex);
    shard.m_mapObjects.erase(object.GetHandle());
}

CRef<CObject> CRegistry::Find(const void* pHandle)
{
    SShard& shard = ShardOf(pHandle);
    std::lock_guard<std::mutex> lock(shard.m_Mutex);
    const auto it = shard.m_mapObjects.find(pHandle);
    if (it == shard.m_mapObjects.end() || !it->second->AddReferenceIfAlive())
    {
        return {};
    }
    return CRef<CObject>::Adopt(it->second);
}

} // namespace KestrelPlatform::Runtime
