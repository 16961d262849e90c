#ifndef KESTREL_PLATFORM_SIMT_SCALEDADDRESSES_H
#define KESTREL_PLATFORM_SIMT_SCALEDADDRESSES_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Lets accesses to global memory work their addresses out themselves, where these are a base plus an index times a
/// scale, and base and scale are constants: the step that would do it in 64 bits for every work-item is dropped.
/// \param vReads    how often each row is read, which is brought up to date
/// \param vDropped  by step: true for those that don't count any more
void ScaleAddresses(SCode& code, std::vector<uint32_t>& vReads, std::vector<char>& vDropped);

} // namespace KestrelPlatform

#endif
