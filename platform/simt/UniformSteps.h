#ifndef KESTREL_PLATFORM_SIMT_UNIFORMSTEPS_H
#define KESTREL_PLATFORM_SIMT_UNIFORMSTEPS_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Finds values that are the same for all work-items wherever they are read, in kernels with loops: counters,
/// conditions on them, addresses, and values loaded from these. They get rows of their own, of which only the first
/// granule is used, and their steps run for that granule alone. Conditions on them take all work-items or none.
void FindUniformSteps(SCode& code);

} // namespace KestrelPlatform

#endif
