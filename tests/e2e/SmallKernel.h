#ifndef KESTREL_TESTS_E2E_SMALLKERNEL_H
#define KESTREL_TESTS_E2E_SMALLKERNEL_H

#include "tools/session/launch/LaunchFile.h"

#include <string>

namespace KestrelTest
{

/// A launch of eight work-items in two groups, with one int buffer, of a kernel whose function has the given
/// lines. r2.xy is the address of the work-item's element, l0 is 2, 1, 0, -1. The declarations go before the
/// end of the main body, the functions after the kernel's own.
KestrelTool::SLaunchFile MakeSmallKernel(const std::string& strBody, const std::string& strDeclarations = "",
                                         const std::string& strFunctions = "");

} // namespace KestrelTest

#endif
