#ifndef KESTREL_TOOLS_HOSTMEMORY_H
#define KESTREL_TOOLS_HOSTMEMORY_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace KestrelTool
{

/// The host memory that a session needs for a dispatch until its first stop, in bytes.
uint64_t EstimateSessionBytes(size_t nItems);

/// The memory that this process can still get, limited by the system and by its own limits, in bytes; the largest
/// number if unknown.
uint64_t GetAvailableBytes();

/// \throws CPlatformError, with both numbers, if a session of nItems work-items needs more memory than there is
void RequireSessionMemory(const std::string& strLaunch, size_t nItems);

} // namespace KestrelTool

#endif
