#ifndef KESTREL_TESTS_E2E_LIBRARIESFIXTURE_H
#define KESTREL_TESTS_E2E_LIBRARIESFIXTURE_H

#include "KestrelPlatform.h"
#include "tests/e2e/TraceModel.h"
#include "tools/session/launch/Libraries.h"

namespace KestrelTest
{

/// Whether the environment has KESTREL_BEHIND_LOADER.
bool IsBehindLoader();

/// The debugger and the platform, opened once for the test program: directly, or after the
/// machine's own loader of OpenCL drivers, where the runtime's table counts as version 2.0.
const KestrelTool::CLibraries& GetLibraries();

/// The command line that replays one test of this program.
std::string ReplayCommand();

} // namespace KestrelTest

#endif
