#ifndef KESTREL_PLATFORM_SIMT_ROWNUMBERS_H
#define KESTREL_PLATFORM_SIMT_ROWNUMBERS_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Numbers the rows that are in use without gaps, and takes out the constants and ids that nothing uses. A register has
/// four rows from the start, of 1 KiB each: where kernels use one component of many registers, those rows would lie
/// 4 KiB apart, all of them in the same few sets of the first-level cache. Not for traced code, which shows registers
/// as a whole.
void CloseRowGaps(SCode& code);

} // namespace KestrelPlatform

#endif
