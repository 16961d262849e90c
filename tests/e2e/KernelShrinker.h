#ifndef KESTREL_TESTS_E2E_KERNELSHRINKER_H
#define KESTREL_TESTS_E2E_KERNELSHRINKER_H

#include "tools/session/launch/LaunchFile.h"

#include <functional>

namespace KestrelTest
{

/// Whether a smaller launch still fails like the original one.
typedef std::function<bool(const KestrelTool::SLaunchFile& file)> StillFails;

/// Removes statements and whole blocks from a generated kernel, one at a time, as long as it still fails.
KestrelTool::SLaunchFile Shrink(KestrelTool::SLaunchFile file, const StillFails& stillFails);

} // namespace KestrelTest

#endif
