#include "tools/session/launch/HostMemory.h"

#include "tools/session/launch/Libraries.h"

#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <limits>

namespace KestrelTool
{

namespace
{

/// The mask, a register's values and what is needed to read them. 24 bytes were measured up to the first stop, from one
/// to 16 million work-items; the rest is for what the client looks at.
const uint64_t s_nBytesPerItem = 28;

uint64_t ReadField(const char* pszFile, const std::string& strName)
{
    std::ifstream stream(pszFile);
    for (std::string strLine; std::getline(stream, strLine);)
    {
        if (strLine.compare(0, strName.size(), strName) == 0)
        {
            return std::strtoull(strLine.c_str() + strName.size(), nullptr, 10) * 1024;
        }
    }
    return 0;
}

std::string NameBytes(uint64_t nBytes)
{
    const uint64_t nTenths = (nBytes * 10) >> 30;
    return nBytes >> 60 != 0 ? std::to_string(nBytes >> 30) + " GiB"
                             : std::to_string(nTenths / 10) + "." + std::to_string(nTenths % 10) + " GiB";
}

} // namespace

uint64_t EstimateSessionBytes(size_t nItems)
{
    uint64_t nBytes = 0;
    return __builtin_mul_overflow(nItems, s_nBytesPerItem, &nBytes) ? std::numeric_limits<uint64_t>::max() : nBytes;
}

uint64_t GetAvailableBytes()
{
    uint64_t nBytes = std::numeric_limits<uint64_t>::max();
    if (const uint64_t nSystem = ReadField("/proc/meminfo", "MemAvailable:"))
    {
        nBytes = nSystem;
    }
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
    {
        const uint64_t nUsed = ReadField("/proc/self/status", "VmSize:");
        nBytes = std::min<uint64_t>(nBytes, limit.rlim_cur > nUsed ? limit.rlim_cur - nUsed : 0);
    }
    return nBytes;
}

void RequireSessionMemory(const std::string& strLaunch, size_t nItems)
{
    const uint64_t nNeeded = EstimateSessionBytes(nItems);
    const uint64_t nThere = GetAvailableBytes();
    if (nNeeded > nThere)
    {
        throw CPlatformError(strLaunch + ": a session of " + std::to_string(nItems) + " work-items needs about " +
                             NameBytes(nNeeded) + " of memory, and " + NameBytes(nThere) + " are there");
    }
}

} // namespace KestrelTool
