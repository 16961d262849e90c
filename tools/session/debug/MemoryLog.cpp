#include "tools/session/debug/MemoryLog.h"

#include <utility>

namespace KestrelTool
{

namespace
{

const size_t s_nMostLogged = size_t(64) << 20; ///< bytes for each stop

} // namespace

void CMemoryLog::SReads::Add(const SMemoryRead& read, const std::vector<unsigned char>& vBytes)
{
    if (vBytes.size() <= s_nMostLogged - nBytes && mapBytes.insert({read, vBytes}).second)
    {
        nBytes += vBytes.size();
    }
}

const std::vector<unsigned char>* CMemoryLog::FindEarlier(const SMemoryRead& read) const
{
    const auto it = m_Earlier.mapBytes.find(read);
    return it != m_Earlier.mapBytes.end() ? &it->second : nullptr;
}

void CMemoryLog::GoOn()
{
    m_Earlier = std::exchange(m_Now, SReads());
}

void CMemoryLog::Forget()
{
    m_Now = SReads();
    m_Earlier = SReads();
}

} // namespace KestrelTool
