#ifndef KESTREL_PLATFORM_RUNTIME_OPENCL_H
#define KESTREL_PLATFORM_RUNTIME_OPENCL_H

/// The Khronos headers for the runtime: all their declarations are visible, and the linker's version script, made from
/// EntryPoints.def, decides what is exported.
#pragma GCC visibility push(default)
#include <CL/cl.h>
#include <CL/cl_ext.h>
#include <CL/cl_gl.h>
#include <CL/cl_icd.h>
#pragma GCC visibility pop

namespace KestrelPlatform::Runtime
{

/// The command intercept: a context property for the hook, and a queue property that switches it on.
constexpr cl_context_properties s_nContextInterceptHook = 0x403D;
constexpr cl_command_queue_properties s_nQueueInterceptEnable = 0x8000000000000000ULL;

/// Called on the queue's thread before a command runs. 1: the command is handled and ends with the code in the second
/// argument. 0: the command runs.
using InterceptHook = cl_int(CL_CALLBACK*)(cl_event, cl_int*);

} // namespace KestrelPlatform::Runtime

#endif
