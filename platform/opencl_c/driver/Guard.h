#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_GUARD_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_GUARD_H

#include <functional>
#include <string>

namespace KestrelOpenCL
{

/// Runs a compilation on a thread of its own, which has a large stack, and waits for it. A compiler that runs out of
/// stack or memory, gives up, or crashes ends the thread alone; what it had allocated is lost then.
///
/// While a compilation runs, the process has handlers for the signals of a crash. Those of other threads are passed on
/// to the handlers that were there before.
///
/// \param strLog receives an error if the compilation didn't come to its end
/// \return what the compilation gave, or false
bool RunGuarded(const std::function<bool()>& compile, std::string& strLog);

} // namespace KestrelOpenCL

#endif
