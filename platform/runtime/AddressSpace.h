#ifndef KESTREL_PLATFORM_RUNTIME_ADDRESSSPACE_H
#define KESTREL_PLATFORM_RUNTIME_ADDRESSSPACE_H

#include "platform/runtime/OpenCL.h"

#include <map>
#include <mutex>

namespace KestrelPlatform::Runtime
{

/// Allocates device addresses. A range starts on a multiple of 4 KiB and is followed by at least 4 KiB that belong to
/// nothing, so that an access just past an object is detected. The lowest free place is taken, so that a program gets
/// the same addresses in every run.
class CAddressSpace
{
public:
    CAddressSpace(cl_ulong nBegin, cl_ulong nEnd) { m_mapFree.emplace(nBegin, nEnd); }

    /// \return the address, or 0 if there is no room
    cl_ulong Allocate(cl_ulong nSize);
    void Free(cl_ulong nAddress);

    /// The addresses of kernels with 32-bit pointers, below 4 GiB.
    static CAddressSpace& Low();
    /// The addresses of kernels with 64-bit pointers, above 4 GiB.
    static CAddressSpace& High();

private:
    std::mutex m_Mutex;
    std::map<cl_ulong, cl_ulong> m_mapFree; ///< begin to end
    std::map<cl_ulong, cl_ulong> m_mapUsed;
};

/// A range of an address space, freed by the destructor.
class CAddressRange
{
public:
    CAddressRange(CAddressSpace& space, cl_ulong nSize) : m_Space(space), m_nAddress(space.Allocate(nSize)) {}
    CAddressRange(const CAddressRange&) = delete;
    CAddressRange& operator=(const CAddressRange&) = delete;
    ~CAddressRange()
    {
        if (m_nAddress != 0)
        {
            m_Space.Free(m_nAddress);
        }
    }

    /// 0 if there was no room.
    cl_ulong GetAddress() const { return m_nAddress; }

private:
    CAddressSpace& m_Space;
    const cl_ulong m_nAddress;
};

} // namespace KestrelPlatform::Runtime

#endif
