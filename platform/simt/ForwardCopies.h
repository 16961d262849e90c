#ifndef KESTREL_PLATFORM_SIMT_FORWARDCOPIES_H
#define KESTREL_PLATFORM_SIMT_FORWARDCOPIES_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Lets what reads a copied row in straight code read the row that was copied, so that the copies that nothing else
/// reads can be dropped: kernels move values about, and set registers to constants. Not for traced code.
void ForwardCopies(SCode& code);

} // namespace KestrelPlatform

#endif
