#ifndef KESTREL_TOOLS_DEBUG_READLISTING_H
#define KESTREL_TOOLS_DEBUG_READLISTING_H

#include "tools/session/launch/Listing.h"

#include <string>
#include <vector>

namespace KestrelTool
{

/// The lines of a kernel binary's text, with the placeholder replaced by the call of the kernel.
std::vector<std::string> ReadLinesWithCall(const std::vector<char>& vBinary, unsigned int nLabel);
/// The same with the lines' source places.
CListing ReadListing(const std::vector<char>& vBinary, unsigned int nLabel);

} // namespace KestrelTool

#endif
