#ifndef KESTREL_PLATFORM_SIMT_ROWNUMBERS_H
#define KESTREL_PLATFORM_SIMT_ROWNUMBERS_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Renumbers the used rows without gaps, and removes unused constants and ids. At first every register has four rows of
/// 1 KiB each. In kernels that use one component of many registers, the used rows would be 4 KiB apart and compete for
/// the same few sets of the first-level cache. Not for traced code, which shows whole registers.
void CloseRowGaps(SCode& code);

} // namespace KestrelPlatform

#endif
