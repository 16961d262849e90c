#ifndef KESTREL_PLATFORM_SIMT_STEPROWS_H
#define KESTREL_PLATFORM_SIMT_STEPROWS_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Takes out lane operations whose results nothing reads: kernels compute ids of three components and use one. Not for
/// traced code, whose results are shown.
void DropUnreadSteps(SCode& code);

/// Registers read as 0 until they are written. Most are written before anything reads them, by the straight code at the
/// start, for all work-items; only the others stay among the rows to clear.
void KeepRowsToClear(SCode& code);

} // namespace KestrelPlatform

#endif
