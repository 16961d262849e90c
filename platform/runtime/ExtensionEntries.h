#ifndef KESTREL_PLATFORM_RUNTIME_EXTENSIONENTRIES_H
#define KESTREL_PLATFORM_RUNTIME_EXTENSIONENTRIES_H

#include "KestrelPlatform.h"
#include "platform/runtime/OpenCL.h"

/// The entry points that no Khronos header declares. None is exported; all are reached through
/// clGetExtensionFunctionAddress.
extern "C"
{
    /// The two forms of the object metadata extension, which differ only in their names. A key is never 0. Any object
    /// takes a value for each key; CL_INVALID_VALUE for an unknown key or object.
    size_t CL_API_CALL clCreateKeyOVK(cl_platform_id platform, void(CL_CALLBACK* destructor)(void*),
                                      cl_int* errcode_ret);
    cl_int CL_API_CALL clObjectGetValueForKeyOVK(void* object, size_t key, void** value);
    cl_int CL_API_CALL clObjectSetValueForKeyOVK(void* object, size_t key, void* value);
    size_t CL_API_CALL clCreateKeyEXT(cl_platform_id platform, void(CL_CALLBACK* destructor)(void*),
                                      cl_int* errcode_ret);
    cl_int CL_API_CALL clObjectGetValueForKeyEXT(void* object, size_t key, void** value);
    cl_int CL_API_CALL clObjectSetValueForKeyEXT(void* object, size_t key, void* value);

    /// Gives access to the platform's settings, counters and trace.
    const SPlatformControl* kestrelPlatformControl(void);
}

#endif
