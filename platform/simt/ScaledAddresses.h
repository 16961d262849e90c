#ifndef KESTREL_PLATFORM_SIMT_SCALEDADDRESSES_H
#define KESTREL_PLATFORM_SIMT_SCALEDADDRESSES_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Lets accesses to global memory work their addresses out themselves, where these are a base plus an index times a
/// scale, and base and scale are the same for all work-items: the step that would do it in 64 bits for every one of
/// them is dropped.
/// \param nFirstUniform  rows from here on hold one value for all
/// \param vReads    how often each row is read, which is brought up to date
/// \param vDropped  by step: true for those that don't count any more
void ScaleAddresses(SCode& code, uint32_t nFirstUniform, std::vector<uint32_t>& vReads, std::vector<char>& vDropped);

} // namespace KestrelPlatform

#endif
