#ifndef KESTREL_TESTS_E2E_KERNELSHRINKER_H
#define KESTREL_TESTS_E2E_KERNELSHRINKER_H

#include "tools/session/launch/LaunchFile.h"

#include <functional>

namespace KestrelTest
{

/// Whether a launch still fails as the one did that is made smaller.
typedef std::function<bool(const KestrelTool::SLaunchFile& file)> StillFails;

/// Drops statements and whole blocks from a generated kernel, one after the other, as long as it fails.
KestrelTool::SLaunchFile Shrink(KestrelTool::SLaunchFile file, const StillFails& stillFails);

} // namespace KestrelTest

#endif
