#ifndef KESTREL_TOOLS_HOSTMEMORY_H
#define KESTREL_TOOLS_HOSTMEMORY_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace KestrelTool
{

/// Bytes of host memory that a session takes for a dispatch until its first stop.
uint64_t EstimateSessionBytes(size_t nItems);

/// Bytes that this process can still get, by what the system has and by its own limits; the largest number if nobody
/// knows.
uint64_t GetAvailableBytes();

/// \throws CPlatformError with both numbers if a session of so many work-items takes more than there is
void RequireSessionMemory(const std::string& strLaunch, size_t nItems);

} // namespace KestrelTool

#endif
