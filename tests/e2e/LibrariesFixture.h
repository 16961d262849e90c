#ifndef KESTREL_TESTS_E2E_LIBRARIESFIXTURE_H
#define KESTREL_TESTS_E2E_LIBRARIESFIXTURE_H

#include "KestrelPlatform.h"
#include "tests/e2e/TraceModel.h"
#include "tools/session/launch/Libraries.h"

namespace KestrelTest
{

/// Whether KESTREL_BEHIND_LOADER is set in the environment.
bool IsBehindLoader();

/// The debugger and the platform, opened once for the test program: directly, or behind the machine's own loader of
/// OpenCL drivers, in which case the runtime's table counts as version 2.0.
const KestrelTool::CLibraries& GetLibraries();

/// The command line that replays one test of this program.
std::string ReplayCommand();

} // namespace KestrelTest

#endif
