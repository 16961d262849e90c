#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_GUARD_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_GUARD_H

#include <functional>
#include <string>

namespace KestrelOpenCL
{

/// Runs a compilation on a thread of its own, which has a large stack, and waits for it. If the compiler runs out of
/// stack or memory, gives up, or crashes, only that thread ends; the memory that it had allocated is leaked.
///
/// While a compilation runs, the process has handlers for the signals of a crash. Signals of other threads are passed
/// on to the previous handlers.
///
/// \param strLog receives an error if the compilation didn't finish
/// \return the result of the compilation, or false
bool RunGuarded(const std::function<bool()>& compile, std::string& strLog);

} // namespace KestrelOpenCL

#endif
