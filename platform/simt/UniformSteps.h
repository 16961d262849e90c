#ifndef KESTREL_PLATFORM_SIMT_UNIFORMSTEPS_H
#define KESTREL_PLATFORM_SIMT_UNIFORMSTEPS_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Finds what is the same for all work-items wherever it is read, in kernels with loops: counters, conditions on them,
/// addresses and what is loaded from these. Such values get rows of their own, of which the first granule counts, and
/// their steps run for that one alone; conditions on them take all work-items or none.
void FindUniformSteps(SCode& code);

} // namespace KestrelPlatform

#endif
