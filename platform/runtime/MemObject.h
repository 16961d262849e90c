#ifndef KESTREL_PLATFORM_RUNTIME_MEMOBJECT_H
#define KESTREL_PLATFORM_RUNTIME_MEMOBJECT_H

#include "platform/runtime/AddressSpace.h"
#include "platform/runtime/Context.h"

#include <memory>
#include <mutex>
#include <vector>

namespace KestrelPlatform::Runtime
{

/// The memory behind memory objects, and its device addresses. A buffer, its sub-buffers and the images on it share
/// one.
class CStorage
{
public:
    /// \param pClient the client's memory to use (CL_MEM_USE_HOST_PTR), or null to allocate zeros
    /// \return null if there is no memory, or no address on a device of the context
    static std::shared_ptr<CStorage> Create(const CContext& context, size_t nSize, void* pClient);

    CStorage(size_t nSize, void* pClient);
    CStorage(const CStorage&) = delete;
    CStorage& operator=(const CStorage&) = delete;
    ~CStorage();

    unsigned char* GetData() const { return m_pData; }
    /// From now on it is tracked which bytes are written; at first none is. Throws std::bad_alloc.
    void KeepShadow();
    /// One byte for each byte; null if all count as written.
    unsigned char* GetShadow() const { return m_pShadow.get(); }
    /// The address for kernels with 64-bit or 32-bit pointers; 0 if there was no room in that address space.
    cl_ulong GetAddress(bool b64Bit) const { return b64Bit ? m_High.GetAddress() : m_Low.GetAddress(); }

private:
    void* m_pOwned = nullptr;
    unsigned char* m_pData = nullptr;
    const size_t m_nSize;
    std::unique_ptr<unsigned char[]> m_pShadow;
    CAddressRange m_Low;
    CAddressRange m_High;
};

using MemNotify = void(CL_CALLBACK*)(cl_mem, void*);

class CBuffer;
class CImage;

/// A buffer or an image.
class CMemObject : public CObject
{
public:
    using Handle = cl_mem;
    static constexpr EObjectKind s_eKind = EObjectKind::Mem;

    CContext& GetContext() const { return *m_pContext; }
    cl_mem_object_type GetType() const { return m_eType; }
    /// As the client passed them; a sub-buffer takes over those of its parent that it doesn't set itself.
    cl_mem_flags GetFlags() const { return m_nFlags; }
    size_t GetSize() const { return m_nSize; }
    /// The first byte, in host memory.
    unsigned char* GetData() const { return m_pStorage->GetData() + m_nOffset; }
    const std::shared_ptr<CStorage>& GetStorage() const { return m_pStorage; }
    /// Marks bytes of the object that were written by something else than a kernel.
    void MarkWritten(size_t nOffset, size_t nBytes) const;
    /// Marks bytes that were copied from another object: as written if they were written there.
    void MarkCopied(size_t nOffset, const CMemObject& source, size_t nSource, size_t nBytes) const;
    /// Bytes from the start of the storage.
    size_t GetOffset() const { return m_nOffset; }
    bool CanHostRead() const { return (m_nFlags & (CL_MEM_HOST_WRITE_ONLY | CL_MEM_HOST_NO_ACCESS)) == 0; }
    bool CanHostWrite() const { return (m_nFlags & (CL_MEM_HOST_READ_ONLY | CL_MEM_HOST_NO_ACCESS)) == 0; }
    CBuffer* AsBuffer();
    CImage* AsImage();

    cl_int GetInfo(cl_mem_info eInfo, const SInfoQuery& query);

    /// Records a mapping that starts at pMapped.
    void AddMapping(void* pMapped, cl_map_flags nFlags, size_t nBytes);
    struct SMapping
    {
        void* m_pMapped;
        cl_map_flags m_nFlags;
        size_t m_nBytes;
    };
    /// Removes the record of a mapping that starts at pMapped; false if there is none.
    bool RemoveMapping(const void* pMapped, SMapping& mapping);

    /// Called when the object is destroyed, in reverse order of adding, on the thread that drops the last reference.
    void AddDestructorCallback(MemNotify pNotify, void* pUser);

protected:
    CMemObject(CRef<CContext> pContext, cl_mem_object_type eType, cl_mem_flags nFlags, size_t nSize, void* pHostPtr,
               std::shared_ptr<CStorage> pStorage);
    /// A part of another object, nOffset bytes after its start.
    CMemObject(CRef<CMemObject> pParent, cl_mem_object_type eType, cl_mem_flags nFlags, size_t nSize, size_t nOffset);
    ~CMemObject() override;

private:
    struct SDestructorCallback
    {
        MemNotify m_pNotify;
        void* m_pUser;
    };

    const CRef<CContext> m_pContext;
    const CRef<CMemObject> m_pParent;
    const cl_mem_object_type m_eType;
    const cl_mem_flags m_nFlags;
    const size_t m_nSize;
    const size_t m_nOffset;
    void* const m_pHostPtr; ///< for CL_MEM_HOST_PTR: null unless the client's memory is used
    const std::shared_ptr<CStorage> m_pStorage;
    std::mutex m_Mutex;
    std::vector<SMapping> m_vMappings;
    std::vector<SDestructorCallback> m_vDestructorCallbacks;
};

/// The address, as kernels see it, and size of the buffer that an origin's number stands for; 0 if there is none.
struct SOriginBuffer
{
    cl_ulong m_nAddress = 0;
    cl_ulong m_nSize = 0;
};
SOriginBuffer FindOrigin(cl_uint nOrigin, bool b64Bit);

/// Checks the flags of a new object. \return CL_INVALID_VALUE
cl_int CheckMemFlags(cl_mem_flags nFlags);
/// Checks that host_ptr is given if, and only if, the flags ask for it. \return CL_INVALID_HOST_PTR
cl_int CheckHostPtr(cl_mem_flags nFlags, const void* pHostPtr);
/// Checks the flags of a part of an object, and adds those that it inherits.
cl_int InheritMemFlags(cl_mem_flags nParent, cl_mem_flags& nFlags);

} // namespace KestrelPlatform::Runtime

#endif
