#include "platform/runtime/AddressSpace.h"

#include <iterator>

namespace KestrelPlatform::Runtime
{

namespace
{

constexpr cl_ulong s_nPage = 4096;

cl_ulong WithGap(cl_ulong nSize)
{
    return (nSize + s_nPage - 1) / s_nPage * s_nPage + s_nPage;
}

} // namespace

cl_ulong CAddressSpace::Allocate(cl_ulong nSize)
{
    const cl_ulong nNeeded = WithGap(nSize);
    std::lock_guard<std::mutex> lock(m_Mutex);
    for (auto it = m_mapFree.begin(); it != m_mapFree.end(); ++it)
    {
        const auto [nBegin, nEnd] = *it;
        if (nEnd - nBegin < nNeeded)
        {
            continue;
        }
        m_mapUsed.emplace(nBegin, nBegin + nNeeded);
        m_mapFree.erase(it);
        if (nBegin + nNeeded < nEnd)
        {
            m_mapFree.emplace(nBegin + nNeeded, nEnd);
        }
        return nBegin;
    }
    return 0;
}

void CAddressSpace::Free(cl_ulong nAddress)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    const auto itUsed = m_mapUsed.find(nAddress);
    cl_ulong nEnd = itUsed->second;
    m_mapUsed.erase(itUsed);

    auto itNext = m_mapFree.lower_bound(nAddress);
    if (itNext != m_mapFree.end() && itNext->first == nEnd)
    {
        nEnd = itNext->second;
        itNext = m_mapFree.erase(itNext);
    }
    if (itNext != m_mapFree.begin() && std::prev(itNext)->second == nAddress)
    {
        std::prev(itNext)->second = nEnd;
    }
    else
    {
        m_mapFree.emplace(nAddress, nEnd);
    }
}

CAddressSpace& CAddressSpace::Low()
{
    // The addresses of 32 bits without 64 KiB at each end, so that a null pointer plus or minus an offset reaches
    // nothing.
    static auto& s_space = *new CAddressSpace(0x10000, 0xFFFF0000);
    return s_space;
}

CAddressSpace& CAddressSpace::High()
{
    // From 4 GiB to 1 TiB: no address that fits in 32 bits.
    static auto& s_space = *new CAddressSpace(0x100000000, 0x10000000000);
    return s_space;
}

} // namespace KestrelPlatform::Runtime
