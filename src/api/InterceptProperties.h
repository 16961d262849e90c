#ifndef KESTREL_API_INTERCEPTPROPERTIES_H
#define KESTREL_API_INTERCEPTPROPERTIES_H

#include "OVKKestrel.h"

#include <vector>

namespace Kestrel
{

/// The context property that carries the address of CommandInterceptCallback.
constexpr cl_context_properties CL_CONTEXT_COMMAND_INTERCEPT_HOOK = 0x403D;

/// The bit of a queue's properties that switches the command intercept on.
constexpr cl_command_queue_properties CL_QUEUE_COMMAND_INTERCEPT_ENABLE = 0x8000000000000000ULL;

/// A terminated copy of context properties, with the hook if the first device's platform has the intercept.
/// \param cprops   terminated by 0; may be null
/// \param devices  may be null; only the first is asked
std::vector<cl_context_properties> AppendCommandIntercept(const cl_context_properties* cprops,
                                                          const cl_device_id* devices);

/// A terminated copy of queue properties, with the intercept bit if the device's platform has the intercept.
std::vector<cl_queue_properties> AppendCommandIntercept(const cl_queue_properties* qprops, cl_device_id device);

} // namespace Kestrel

#endif
