#ifndef KESTREL_PLATFORM_RUNTIME_OBJECT_H
#define KESTREL_PLATFORM_RUNTIME_OBJECT_H

#include "platform/runtime/OpenCL.h"

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

namespace KestrelPlatform::Runtime
{

enum class EObjectKind
{
    Platform,
    Device,
    Context,
    Queue,
    Event,
    Mem,
    Sampler,
    Program,
    Kernel,
    Last
};

/// The base of all objects behind handles. The handle points to the address of the dispatch table, as an installable
/// client driver requires. A registry knows all live objects, so that an invalid handle, or one whose object is gone,
/// is detected without touching its memory.
///
/// There are two counts: the client's references, which queries report, and all references, including the client's,
/// which keep the object alive. Both may change on any thread.
class CObject
{
public:
    explicit CObject(EObjectKind eKind);
    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;

    void* GetHandle() { return &m_Icd; }
    EObjectKind GetKind() const { return m_eKind; }
    /// Unlike a handle, never used twice in a process.
    cl_ulong GetId() const { return m_nId; }
    cl_uint GetClientReferences() const { return m_nClientReferences.load(); }

    void AddReference() { m_nReferences.fetch_add(1, std::memory_order_relaxed); }
    void DropReference();
    /// For the registry: false for an object that is being destroyed.
    bool AddReferenceIfAlive();

    void RetainByClient();
    /// \return false if the client has no references left
    bool ReleaseByClient();

    /// The object metadata extension: one value for each key. The key's destructor gets values that are replaced, and
    /// those left when the object is destroyed.
    void SetMetadata(size_t nKey, void* pValue);
    void* GetMetadata(size_t nKey);

protected:
    virtual ~CObject();
    /// The client has released its last reference.
    virtual void OnLastClientRelease() {}

private:
    friend class CRegistry;

    struct SIcdHeader
    {
        const cl_icd_dispatch* m_pDispatch;
    };

    SIcdHeader m_Icd;
    const EObjectKind m_eKind;
    const cl_ulong m_nId;
    std::atomic<cl_uint> m_nReferences{1};
    std::atomic<cl_uint> m_nClientReferences{0};
    std::mutex m_MetadataMutex;
    std::map<size_t, void*> m_mapMetadata;
};

/// A counting reference.
template <class T>
class CRef
{
public:
    CRef() = default;
    /// Takes ownership of a reference that the caller holds.
    static CRef Adopt(T* pObject)
    {
        CRef ref;
        ref.m_pObject = pObject;
        return ref;
    }
    explicit CRef(T* pObject) : m_pObject(pObject)
    {
        if (m_pObject)
        {
            m_pObject->AddReference();
        }
    }
    CRef(const CRef& other) : CRef(other.m_pObject) {}
    CRef(CRef&& other) noexcept : m_pObject(std::exchange(other.m_pObject, nullptr)) {}
    CRef& operator=(CRef other) noexcept
    {
        std::swap(m_pObject, other.m_pObject);
        return *this;
    }
    ~CRef()
    {
        if (m_pObject)
        {
            m_pObject->DropReference();
        }
    }

    T* Get() const { return m_pObject; }
    T* operator->() const { return m_pObject; }
    T& operator*() const { return *m_pObject; }
    explicit operator bool() const { return m_pObject != nullptr; }
    T* Detach() { return std::exchange(m_pObject, nullptr); }

private:
    T* m_pObject = nullptr;
};

/// The live objects of the process, by handle.
class CRegistry
{
public:
    static void Add(CObject& object);
    static void Remove(CObject& object);
    /// \return a new reference, or null if no live object has this handle
    static CRef<CObject> Find(const void* pHandle);
};

/// The object behind a handle; null for anything that isn't a live object of T's kind.
template <class T>
CRef<T> Lookup(typename T::Handle hObject)
{
    CRef<CObject> pObject = CRegistry::Find(hObject);
    if (!pObject || pObject->GetKind() != T::s_eKind)
    {
        return {};
    }
    return CRef<T>::Adopt(static_cast<T*>(pObject.Detach()));
}

/// Creates an object and adds it to the registry. May throw std::bad_alloc.
template <class T, class... Args>
CRef<T> MakeObject(Args&&... args)
{
    CRef<T> pObject = CRef<T>::Adopt(new T(std::forward<Args>(args)...));
    CRegistry::Add(*pObject);
    return pObject;
}

/// Gives the client an object's handle and a reference.
template <class T>
typename T::Handle GiveToClient(const CRef<T>& pObject)
{
    pObject->RetainByClient();
    return static_cast<typename T::Handle>(pObject->GetHandle());
}

/// An object's handle without a reference, as queries give it; null for a null reference.
template <class T>
typename T::Handle HandleOf(const CRef<T>& pObject)
{
    return pObject ? static_cast<typename T::Handle>(pObject->GetHandle()) : nullptr;
}

/// clRetain... of a kind of object.
template <class T>
cl_int RetainHandle(typename T::Handle hObject, cl_int nInvalid)
{
    const CRef<T> pObject = Lookup<T>(hObject);
    if (!pObject)
    {
        return nInvalid;
    }
    pObject->RetainByClient();
    return CL_SUCCESS;
}

/// clRelease... of a kind of object.
template <class T>
cl_int ReleaseHandle(typename T::Handle hObject, cl_int nInvalid)
{
    const CRef<T> pObject = Lookup<T>(hObject);
    return pObject && pObject->ReleaseByClient() ? CL_SUCCESS : nInvalid;
}

} // namespace KestrelPlatform::Runtime

#endif
