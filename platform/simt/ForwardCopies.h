#ifndef KESTREL_PLATFORM_SIMT_FORWARDCOPIES_H
#define KESTREL_PLATFORM_SIMT_FORWARDCOPIES_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

/// Makes reads of a copied row in straight-line code read the original, so that copies that aren't read otherwise can
/// be dropped: kernels often move values and set registers to constants. Not for traced code.
void ForwardCopies(SCode& code);

} // namespace KestrelPlatform

#endif
