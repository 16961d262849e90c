#ifndef KESTREL_TOOLS_DAP_ADDRESS_H
#define KESTREL_TOOLS_DAP_ADDRESS_H

#include "tools/session/debug/Debugger.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelTool
{

/// What the client knows a line of IL by, as a number that it may count from.
std::string MakeInstructionAddress(int64_t nLine);
/// The line of IL of such an address, so many lines further. \throws CRequestError
unsigned int ReadInstructionAddress(const std::string& strReference, int64_t nOffset);

/// What the client knows an address in a kernel's memory by.
std::string MakeMemoryReference(SSourceType::ESpace eSpace, uint64_t nAddress);

/// Bytes of memory at a stop: of buffers, of the private memory of the work-item in focus, and of its group's local
/// memory; fewer at the end of a buffer, and none where there is nothing.
struct SMemoryBytes
{
    uint64_t nAddress = 0;
    std::vector<unsigned char> vBytes;
};
/// \throws CRequestError for a reference that none of ours is
SMemoryBytes ReadReference(CDebugger& debugger, const std::string& strReference, int64_t nOffset, size_t nBytes);

std::string EncodeBase64(const std::vector<unsigned char>& vBytes);

} // namespace KestrelTool

#endif
