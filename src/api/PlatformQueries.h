#ifndef KESTREL_API_PLATFORMQUERIES_H
#define KESTREL_API_PLATFORMQUERIES_H

#include <CL/cl.h>

#include <string>

/// What a platform is and supports. Computed anew on each call; any thread; may throw std::bad_alloc.
namespace Kestrel
{

/// Whether a handle is a device of any platform at all.
bool isValidDevice(cl_device_id deviceToCheck);

/// Empty on failure.
std::string GetPlatformInfoString(cl_platform_id platform, cl_platform_info param_name);

/// Whether the runtime can call back for each command.
bool IsOVKEventCallbackSupported(cl_platform_id platform);
bool IsOVKEventCallbackSupported(cl_device_id device);

/// Whether the runtime can attach a pointer to an event, by its extensions or by the functions that it has.
bool IsEXTObjectMetadataSupported(cl_platform_id platform);
bool IsEXTObjectMetadataSupported(cl_device_id device);

/// The platform of a queue's device.
/// \param pPlatform  may be null
/// \return CL_INVALID_COMMAND_QUEUE for a null queue, else the runtime's code
cl_int GetPlatform(cl_command_queue queue, cl_platform_id* pPlatform);

/// \return CL_SUCCESS, OVKCLDEBUG_ENQUEUE_WRONG_PLATFORM, or the code of a query that failed
cl_int CheckOVKPlatform(cl_command_queue queue);

/// Whether the binary of this kernel's program for this device carries debug IL.
bool IsKernelDebuggable(cl_kernel kernel, cl_device_id device);

} // namespace Kestrel

#endif
