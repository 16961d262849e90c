#ifndef KESTREL_PLATFORM_RUNTIME_BUFFER_H
#define KESTREL_PLATFORM_RUNTIME_BUFFER_H

#include "platform/runtime/MemObject.h"

namespace KestrelPlatform::Runtime
{

/// A buffer or sub-buffer.
class CBuffer : public CMemObject
{
public:
    CBuffer(CRef<CContext> pContext, cl_mem_flags nFlags, size_t nSize, void* pHostPtr,
            std::shared_ptr<CStorage> pStorage)
        : CMemObject(std::move(pContext), CL_MEM_OBJECT_BUFFER, nFlags, nSize, pHostPtr, std::move(pStorage))
    {
    }
    CBuffer(CRef<CMemObject> pParent, cl_mem_flags nFlags, size_t nSize, size_t nOffset)
        : CMemObject(std::move(pParent), CL_MEM_OBJECT_BUFFER, nFlags, nSize, nOffset), m_bSubBuffer(true)
    {
    }

    bool IsSubBuffer() const { return m_bSubBuffer; }
    /// True for a range of at least one byte within the buffer.
    bool HasRange(size_t nOffset, size_t nBytes) const
    {
        return nBytes != 0 && nOffset <= GetSize() && nBytes <= GetSize() - nOffset;
    }

private:
    const bool m_bSubBuffer = false;
};

/// The buffer behind a handle, as an enqueue call needs it.
/// \return CL_INVALID_MEM_OBJECT, or CL_INVALID_CONTEXT for one of another context
cl_int FindBuffer(const CContext& context, cl_mem hBuffer, CRef<CMemObject>& pMem, CBuffer*& pBuffer);

} // namespace KestrelPlatform::Runtime

#endif
