#include "platform/runtime/Enqueue.h"
#include "platform/runtime/MemObject.h"

namespace KestrelPlatform::Runtime
{

namespace
{

/// No context can be made from a GL context, and the sharing calls have a code for that.
cl_mem RefuseToCreate(const char* pszEntryPoint, cl_int* pnError)
{
    return ApiCreate<cl_mem>(pszEntryPoint, pnError, [](cl_mem&) { return CL_INVALID_CONTEXT; });
}

/// No memory object comes from a GL object.
cl_int RefuseToQuery(const char* pszEntryPoint, cl_mem hMem)
{
    return ApiCall(pszEntryPoint,
                   [hMem] { return Lookup<CMemObject>(hMem) ? CL_INVALID_GL_OBJECT : CL_INVALID_MEM_OBJECT; });
}

cl_int RefuseToEnqueue(const char* pszEntryPoint, cl_command_queue hQueue)
{
    return ApiCall(pszEntryPoint,
                   [hQueue] { return Lookup<CCommandQueue>(hQueue) ? CL_INVALID_CONTEXT : CL_INVALID_COMMAND_QUEUE; });
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_mem CL_API_CALL clCreateFromGLBuffer(cl_context context, cl_mem_flags flags, cl_GLuint bufobj, cl_int* errcode_ret)
{
    return RefuseToCreate(__func__, errcode_ret);
}

cl_mem CL_API_CALL clCreateFromGLTexture(cl_context context, cl_mem_flags flags, cl_GLenum target, cl_GLint miplevel,
                                         cl_GLuint texture, cl_int* errcode_ret)
{
    return RefuseToCreate(__func__, errcode_ret);
}

cl_mem CL_API_CALL clCreateFromGLTexture2D(cl_context context, cl_mem_flags flags, cl_GLenum target, cl_GLint miplevel,
                                           cl_GLuint texture, cl_int* errcode_ret)
{
    return RefuseToCreate(__func__, errcode_ret);
}

cl_mem CL_API_CALL clCreateFromGLTexture3D(cl_context context, cl_mem_flags flags, cl_GLenum target, cl_GLint miplevel,
                                           cl_GLuint texture, cl_int* errcode_ret)
{
    return RefuseToCreate(__func__, errcode_ret);
}

cl_mem CL_API_CALL clCreateFromGLRenderbuffer(cl_context context, cl_mem_flags flags, cl_GLuint renderbuffer,
                                              cl_int* errcode_ret)
{
    return RefuseToCreate(__func__, errcode_ret);
}

cl_int CL_API_CALL clGetGLObjectInfo(cl_mem memobj, cl_gl_object_type* gl_object_type, cl_GLuint* gl_object_name)
{
    return RefuseToQuery(__func__, memobj);
}

cl_int CL_API_CALL clGetGLTextureInfo(cl_mem memobj, cl_gl_texture_info param_name, size_t param_value_size,
                                      void* param_value, size_t* param_value_size_ret)
{
    return RefuseToQuery(__func__, memobj);
}

cl_int CL_API_CALL clEnqueueAcquireGLObjects(cl_command_queue command_queue, cl_uint num_objects,
                                             const cl_mem* mem_objects, cl_uint num_events_in_wait_list,
                                             const cl_event* event_wait_list, cl_event* event)
{
    return RefuseToEnqueue(__func__, command_queue);
}

cl_int CL_API_CALL clEnqueueReleaseGLObjects(cl_command_queue command_queue, cl_uint num_objects,
                                             const cl_mem* mem_objects, cl_uint num_events_in_wait_list,
                                             const cl_event* event_wait_list, cl_event* event)
{
    return RefuseToEnqueue(__func__, command_queue);
}
