#ifndef KESTREL_PLATFORM_SIMT_SCALEDADDRESSES_H
#define KESTREL_PLATFORM_SIMT_SCALEDADDRESSES_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Lets accesses to global memory compute their addresses themselves if these are a base plus an index times a scale,
/// where base and scale are the same for all work-items. The step that would compute each address in 64 bits is
/// dropped.
/// \param nFirstUniform  rows from here on hold one value for all work-items
/// \param vReads    number of reads of each row; updated
/// \param vDropped  by step: true for steps that are dropped
void ScaleAddresses(SCode& code, uint32_t nFirstUniform, std::vector<uint32_t>& vReads, std::vector<char>& vDropped);

} // namespace KestrelPlatform

#endif
