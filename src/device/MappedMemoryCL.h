#ifndef KESTREL_DEVICE_MAPPEDMEMORYCL_H
#define KESTREL_DEVICE_MAPPEDMEMORYCL_H

#include "core/ShaderDebuggerCommon.h"

#include <CL/cl.h>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerHost;

/// The extent of an image in OpenCL's terms: for arrays the dimension after the last is the array's.
struct SImageRegion
{
    explicit SImageRegion(const BufferDesc& desc);

    size_t origin[3];
    size_t region[3];
};

/// Where the rows of an image lie in a block of host memory.
struct SImageLayout
{
    size_t nRowPitch;   ///< bytes from row to row
    size_t nSlicePitch; ///< bytes from slice, or array element, to the next
    size_t nRows;       ///< rows of one slice
    size_t nSlices;

    size_t GetSize() const { return nSlicePitch * nSlices; }
};

/// The layout that a description asks for, which is that of the host-side buffers.
SImageLayout GetDescribedLayout(const BufferDesc& desc);

/// Bytes of one row's elements.
size_t GetRowSize(const BufferDesc& desc);

/// Copies all rows. A pitch that is too small for a row bounds what is copied of it, and the size of the
/// source bounds the whole.
void CopyImageRows(const SImageLayout& destination, unsigned char* pDestination, const SImageLayout& source,
                   const unsigned char* pSource, size_t nSourceSize, size_t nRowSize);

/// Sets all rows to zero.
void ClearImageRows(const SImageLayout& destination, unsigned char* pDestination, size_t nRowSize);

/// \return false for a description that is no image's
bool GetImageObjectType(const BufferDesc& desc, cl_mem_object_type& type);

/// clCreateImage for a description.
cl_mem CreateImageLike(cl_context context, cl_mem_flags flags, const cl_image_format& format, const BufferDesc& desc,
                       cl_int& nCode);

/// A memory object, mapped blocking for the life of this object.
class CMappedMemoryCL
{
public:
    /// A failure is logged on the host and leaves GetData() null.
    CMappedMemoryCL(CShaderDebuggerHost* pHost, cl_command_queue queue, cl_mem mem, cl_map_flags flags,
                    const BufferDesc& desc);
    ~CMappedMemoryCL();
    CMappedMemoryCL(const CMappedMemoryCL&) = delete;
    CMappedMemoryCL& operator=(const CMappedMemoryCL&) = delete;

    unsigned char* GetData() const { return m_pData; }
    /// For images only.
    const SImageLayout& GetLayout() const { return m_Layout; }
    /// Enqueues the unmap now, to learn its outcome.
    bool Unmap();

private:
    CShaderDebuggerHost* m_pHost;
    cl_command_queue m_Queue;
    cl_mem m_Mem;
    unsigned char* m_pData;
    SImageLayout m_Layout;
};

/// A memory object that carries a transfer which the host may not make directly; released at the end of
/// this object's life.
class CTemporaryMemoryCL
{
public:
    /// \param like  the object whose contents go through this one: same size, or same extent and format.
    ///              A failure is logged on the host and leaves Get() null
    CTemporaryMemoryCL(CShaderDebuggerHost* pHost, cl_context context, cl_mem_flags flags, cl_mem like,
                       const BufferDesc& desc);
    ~CTemporaryMemoryCL();
    CTemporaryMemoryCL(const CTemporaryMemoryCL&) = delete;
    CTemporaryMemoryCL& operator=(const CTemporaryMemoryCL&) = delete;

    cl_mem Get() const { return m_Mem; }

private:
    cl_mem CreateImage(cl_context context, cl_mem_flags flags, cl_mem like, const BufferDesc& desc) const;

    CShaderDebuggerHost* m_pHost;
    cl_mem m_Mem;
};

/// Enqueues the copy of everything that the description covers.
bool EnqueueCopy(CShaderDebuggerHost* pHost, cl_command_queue queue, cl_mem source, cl_mem destination,
                 const BufferDesc& desc);

} // namespace OVK_ShaderDebugger

#endif
