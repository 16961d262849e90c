#include "ErrorObjects.h"

#include <set>

namespace
{

cl_mem MakeImage(SObjects& o, cl_int* pnError, cl_mem_object_type eType, size_t nWidth, size_t nHeight,
                 size_t nRowPitch = 0)
{
    cl_image_desc desc{};
    desc.image_type = eType;
    desc.image_width = nWidth;
    desc.image_height = nHeight;
    desc.image_row_pitch = nRowPitch;
    return o.cl.clCreateImage(o.context, 0, &s_rgba, &desc, nullptr, pnError);
}

const std::vector<SErrorCase>& PlatformAndContextCases()
{
    static const std::vector<SErrorCase> s_cases = {
        {"clGetPlatformIDs", "no place for an answer", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetPlatformIDs(0, nullptr, nullptr); }},
        {"clIcdGetPlatformIDsKHR", "list of no entries", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clIcdGetPlatformIDsKHR(0, &o.platform, nullptr); }},
        {"clGetPlatformInfo", "not a platform", CL_INVALID_PLATFORM,
         [](SObjects& o) {
             return o.cl.clGetPlatformInfo(reinterpret_cast<cl_platform_id>(o.queue), CL_PLATFORM_NAME, 0, nullptr,
                                           nullptr);
         }},
        {"clGetPlatformInfo", "unknown name", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetPlatformInfo(o.platform, 1, 0, nullptr, nullptr); }},
        {"clGetDeviceIDs", "type of no bits", CL_INVALID_DEVICE_TYPE,
         [](SObjects& o)
         {
             cl_uint nDevices = 0;
             return o.cl.clGetDeviceIDs(o.platform, 0, 0, nullptr, &nDevices);
         }},
        {"clGetDeviceIDs", "no place for an answer", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetDeviceIDs(o.platform, CL_DEVICE_TYPE_ALL, 0, nullptr, nullptr); }},
        {"clGetDeviceIDs", "type that isn't there", CL_DEVICE_NOT_FOUND,
         [](SObjects& o)
         {
             cl_uint nDevices = 0;
             return o.cl.clGetDeviceIDs(o.platform, CL_DEVICE_TYPE_ACCELERATOR, 0, nullptr, &nDevices);
         }},
        {"clGetDeviceInfo", "null device", CL_INVALID_DEVICE,
         [](SObjects& o) { return o.cl.clGetDeviceInfo(nullptr, CL_DEVICE_NAME, 0, nullptr, nullptr); }},
        {"clCreateSubDevices", "a device that can't be divided", CL_INVALID_VALUE,
         [](SObjects& o)
         {
             const cl_device_partition_property properties[] = {CL_DEVICE_PARTITION_EQUALLY, 1, 0};
             return o.cl.clCreateSubDevices(o.device, properties, 0, nullptr, nullptr);
         }},
        {"clRetainDevice", "not a device", CL_INVALID_DEVICE,
         [](SObjects& o) { return o.cl.clRetainDevice(reinterpret_cast<cl_device_id>(o.context)); }},
        {"clReleaseDevice", "null", CL_INVALID_DEVICE, [](SObjects& o) { return o.cl.clReleaseDevice(nullptr); }},
        {"clCreateContext", "no devices", CL_INVALID_VALUE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateContext(nullptr, 0, nullptr, nullptr, nullptr, pnError); })},
        {"clCreateContext", "wrong device", CL_INVALID_DEVICE,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 cl_device_id devices[] = {o.device, nullptr};
                 return o.cl.clCreateContext(nullptr, 2, devices, nullptr, nullptr, pnError);
             })},
        {"clCreateContext", "user data without callback", CL_INVALID_VALUE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateContext(nullptr, 1, &o.device, nullptr, o.bytes, pnError); })},
        {"clCreateContext", "unknown property", CL_INVALID_PROPERTY,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const cl_context_properties properties[] = {0x7777, 1, 0};
                 return o.cl.clCreateContext(properties, 1, &o.device, nullptr, nullptr, pnError);
             })},
        {"clCreateContext", "a property twice", CL_INVALID_PROPERTY,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const auto nPlatform = reinterpret_cast<cl_context_properties>(o.platform);
                 const cl_context_properties properties[] = {CL_CONTEXT_PLATFORM, nPlatform, CL_CONTEXT_PLATFORM,
                                                             nPlatform, 0};
                 return o.cl.clCreateContext(properties, 1, &o.device, nullptr, nullptr, pnError);
             })},
        {"clCreateContext", "wrong platform", CL_INVALID_PLATFORM,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const cl_context_properties properties[] = {CL_CONTEXT_PLATFORM, 1, 0};
                 return o.cl.clCreateContext(properties, 1, &o.device, nullptr, nullptr, pnError);
             })},
        {"clCreateContextFromType", "type that isn't there", CL_DEVICE_NOT_FOUND,
         Created(
             [](SObjects& o, cl_int* pnError)
             { return o.cl.clCreateContextFromType(nullptr, CL_DEVICE_TYPE_ACCELERATOR, nullptr, nullptr, pnError); })},
        {"clRetainContext", "not a context", CL_INVALID_CONTEXT,
         [](SObjects& o) { return o.cl.clRetainContext(reinterpret_cast<cl_context>(o.bytes)); }},
        {"clReleaseContext", "null", CL_INVALID_CONTEXT, [](SObjects& o) { return o.cl.clReleaseContext(nullptr); }},
        {"clGetContextInfo", "unknown name", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetContextInfo(o.context, 1, 0, nullptr, nullptr); }},
        {"clCreateCommandQueue", "device of another context", CL_INVALID_DEVICE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateCommandQueue(o.context, o.otherDevice, 0, pnError); })},
        {"clCreateCommandQueue", "unknown property", CL_INVALID_VALUE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateCommandQueue(o.context, o.device, 1 << 20, pnError); })},
        {"clRetainCommandQueue", "null", CL_INVALID_COMMAND_QUEUE,
         [](SObjects& o) { return o.cl.clRetainCommandQueue(nullptr); }},
        {"clReleaseCommandQueue", "a buffer", CL_INVALID_COMMAND_QUEUE,
         [](SObjects& o) { return o.cl.clReleaseCommandQueue(reinterpret_cast<cl_command_queue>(o.buffer)); }},
        {"clGetCommandQueueInfo", "unknown name", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetCommandQueueInfo(o.queue, 1, 0, nullptr, nullptr); }},
        {"clSetCommandQueueProperty", "gone since 1.1", CL_INVALID_OPERATION,
         [](SObjects& o) { return o.cl.clSetCommandQueueProperty(o.queue, 0, CL_TRUE, nullptr); }},
        {"clFlush", "null", CL_INVALID_COMMAND_QUEUE, [](SObjects& o) { return o.cl.clFlush(nullptr); }},
        {"clFinish", "null", CL_INVALID_COMMAND_QUEUE, [](SObjects& o) { return o.cl.clFinish(nullptr); }},
        {"clUnloadPlatformCompiler", "null", CL_INVALID_PLATFORM,
         [](SObjects& o) { return o.cl.clUnloadPlatformCompiler(nullptr); }},
        {"clUnloadCompiler", "nothing wrong", CL_SUCCESS, [](SObjects& o) { return o.cl.clUnloadCompiler(); }},
    };
    return s_cases;
}

const std::vector<SErrorCase>& MemoryCases()
{
    static const std::vector<SErrorCase> s_cases = {
        {"clCreateBuffer", "size 0", CL_INVALID_BUFFER_SIZE,
         Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateBuffer(o.context, 0, 0, nullptr, pnError); })},
        {"clCreateBuffer", "larger than any device takes", CL_INVALID_BUFFER_SIZE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateBuffer(o.context, 0, size_t{1} << 40, nullptr, pnError); })},
        {"clCreateBuffer", "two kinds of access", CL_INVALID_VALUE,
         Created(
             [](SObjects& o, cl_int* pnError)
             { return o.cl.clCreateBuffer(o.context, CL_MEM_READ_ONLY | CL_MEM_WRITE_ONLY, 16, nullptr, pnError); })},
        {"clCreateBuffer", "copy from nowhere", CL_INVALID_HOST_PTR,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateBuffer(o.context, CL_MEM_COPY_HOST_PTR, 16, nullptr, pnError); })},
        {"clCreateBuffer", "host pointer for nothing", CL_INVALID_HOST_PTR,
         Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateBuffer(o.context, 0, 16, o.bytes, pnError); })},
        {"clCreateSubBuffer", "of a sub-buffer", CL_INVALID_MEM_OBJECT,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const cl_buffer_region region{0, 16};
                 return o.cl.clCreateSubBuffer(o.subBuffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, pnError);
             })},
        {"clCreateSubBuffer", "past the end", CL_INVALID_VALUE,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const cl_buffer_region region{s_nBufferSize - 128, 129};
                 return o.cl.clCreateSubBuffer(o.buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, pnError);
             })},
        {"clCreateSubBuffer", "not aligned", CL_MISALIGNED_SUB_BUFFER_OFFSET,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const cl_buffer_region region{4, 16};
                 return o.cl.clCreateSubBuffer(o.buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, pnError);
             })},
        {"clCreateSubBuffer", "size 0", CL_INVALID_BUFFER_SIZE,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const cl_buffer_region region{0, 0};
                 return o.cl.clCreateSubBuffer(o.buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, pnError);
             })},
        {"clCreateSubBuffer", "more access than its parent", CL_INVALID_VALUE,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const cl_buffer_region region{0, 16};
                 return o.cl.clCreateSubBuffer(o.noAccess, CL_MEM_HOST_READ_ONLY, CL_BUFFER_CREATE_TYPE_REGION, &region,
                                               pnError);
             })},
        {"clCreateImage", "no format", CL_INVALID_IMAGE_FORMAT_DESCRIPTOR,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 cl_image_desc desc{};
                 return o.cl.clCreateImage(o.context, 0, nullptr, &desc, nullptr, pnError);
             })},
        {"clCreateImage", "three channels of 8 bits", CL_INVALID_IMAGE_FORMAT_DESCRIPTOR,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const cl_image_format format{CL_RGB, CL_UNSIGNED_INT8};
                 cl_image_desc desc{};
                 return o.cl.clCreateImage(o.context, 0, &format, &desc, nullptr, pnError);
             })},
        {"clCreateImage", "height 0", CL_INVALID_IMAGE_DESCRIPTOR,
         Created([](SObjects& o, cl_int* pnError) { return MakeImage(o, pnError, CL_MEM_OBJECT_IMAGE2D, 4, 0); })},
        {"clCreateImage", "too wide", CL_INVALID_IMAGE_SIZE,
         Created([](SObjects& o, cl_int* pnError)
                 { return MakeImage(o, pnError, CL_MEM_OBJECT_IMAGE2D, 1 << 20, 4); })},
        {"clCreateImage", "pitch without host pointer", CL_INVALID_IMAGE_DESCRIPTOR,
         Created([](SObjects& o, cl_int* pnError) { return MakeImage(o, pnError, CL_MEM_OBJECT_IMAGE2D, 4, 4, 16); })},
        {"clCreateImage", "a type that isn't one", CL_INVALID_IMAGE_DESCRIPTOR,
         Created([](SObjects& o, cl_int* pnError) { return MakeImage(o, pnError, CL_MEM_OBJECT_BUFFER, 4, 4); })},
        {"clCreateImage2D", "width 0", CL_INVALID_IMAGE_SIZE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateImage2D(o.context, 0, &s_rgba, 0, 4, 0, nullptr, pnError); })},
        {"clCreateImage3D", "slice pitch too small", CL_INVALID_IMAGE_SIZE,
         Created(
             [](SObjects& o, cl_int* pnError) {
                 return o.cl.clCreateImage3D(o.context, CL_MEM_COPY_HOST_PTR, &s_rgba, 4, 4, 4, 16, 48, o.bytes,
                                             pnError);
             })},
        {"clRetainMemObject", "null", CL_INVALID_MEM_OBJECT,
         [](SObjects& o) { return o.cl.clRetainMemObject(nullptr); }},
        {"clReleaseMemObject", "an event", CL_INVALID_MEM_OBJECT,
         [](SObjects& o) { return o.cl.clReleaseMemObject(reinterpret_cast<cl_mem>(o.event)); }},
        {"clGetSupportedImageFormats", "not an image type", CL_INVALID_VALUE,
         [](SObjects& o)
         { return o.cl.clGetSupportedImageFormats(o.context, 0, CL_MEM_OBJECT_BUFFER, 0, nullptr, nullptr); }},
        {"clGetMemObjectInfo", "unknown name", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetMemObjectInfo(o.buffer, 1, 0, nullptr, nullptr); }},
        {"clGetImageInfo", "a buffer", CL_INVALID_MEM_OBJECT,
         [](SObjects& o) { return o.cl.clGetImageInfo(o.buffer, CL_IMAGE_WIDTH, 0, nullptr, nullptr); }},
        {"clSetMemObjectDestructorCallback", "no callback", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clSetMemObjectDestructorCallback(o.buffer, nullptr, nullptr); }},
        {"clCreateSampler", "repeat without normalised coordinates", CL_INVALID_VALUE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateSampler(o.context, CL_FALSE, CL_ADDRESS_REPEAT, CL_FILTER_NEAREST, pnError); })},
        {"clRetainSampler", "null", CL_INVALID_SAMPLER, [](SObjects& o) { return o.cl.clRetainSampler(nullptr); }},
        {"clReleaseSampler", "null", CL_INVALID_SAMPLER, [](SObjects& o) { return o.cl.clReleaseSampler(nullptr); }},
        {"clGetSamplerInfo", "unknown name", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetSamplerInfo(o.sampler, 1, 0, nullptr, nullptr); }},
        {"clCreateFromGLBuffer", "no sharing", CL_INVALID_CONTEXT,
         Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateFromGLBuffer(o.context, 0, 1, pnError); })},
        {"clCreateFromGLTexture", "no sharing", CL_INVALID_CONTEXT,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateFromGLTexture(o.context, 0, 0, 0, 1, pnError); })},
        {"clCreateFromGLTexture2D", "no sharing", CL_INVALID_CONTEXT,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateFromGLTexture2D(o.context, 0, 0, 0, 1, pnError); })},
        {"clCreateFromGLTexture3D", "no sharing", CL_INVALID_CONTEXT,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateFromGLTexture3D(o.context, 0, 0, 0, 1, pnError); })},
        {"clCreateFromGLRenderbuffer", "no sharing", CL_INVALID_CONTEXT,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateFromGLRenderbuffer(o.context, 0, 1, pnError); })},
        {"clGetGLObjectInfo", "a buffer of our own", CL_INVALID_GL_OBJECT,
         [](SObjects& o) { return o.cl.clGetGLObjectInfo(o.buffer, nullptr, nullptr); }},
        {"clGetGLTextureInfo", "null", CL_INVALID_MEM_OBJECT,
         [](SObjects& o) { return o.cl.clGetGLTextureInfo(nullptr, 0, 0, nullptr, nullptr); }},
        {"clEnqueueAcquireGLObjects", "no sharing", CL_INVALID_CONTEXT,
         [](SObjects& o) { return o.cl.clEnqueueAcquireGLObjects(o.queue, 1, &o.buffer, 0, nullptr, nullptr); }},
        {"clEnqueueReleaseGLObjects", "no sharing", CL_INVALID_CONTEXT,
         [](SObjects& o) { return o.cl.clEnqueueReleaseGLObjects(o.queue, 1, &o.buffer, 0, nullptr, nullptr); }},
    };
    return s_cases;
}

const std::vector<SErrorCase>& ProgramCases()
{
    static const std::vector<SErrorCase> s_cases = {
        {"clCreateProgramWithSource", "a null string", CL_INVALID_VALUE,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const char* strings[] = {"il_cs_2_0\n", nullptr};
                 return o.cl.clCreateProgramWithSource(o.context, 2, strings, nullptr, pnError);
             })},
        {"clCreateProgramWithBinary", "not an image", CL_INVALID_BINARY,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const size_t nSize = 64;
                 const unsigned char* pImage = o.bytes;
                 cl_int nStatus = 99;
                 cl_program program =
                     o.cl.clCreateProgramWithBinary(o.context, 1, &o.device, &nSize, &pImage, &nStatus, pnError);
                 EXPECT_TRUE(nStatus == CL_INVALID_BINARY || *pnError != CL_INVALID_BINARY);
                 return program;
             })},
        {"clCreateProgramWithBinary", "device of another context", CL_INVALID_DEVICE,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const size_t nSize = 64;
                 const unsigned char* pImage = o.bytes;
                 return o.cl.clCreateProgramWithBinary(o.context, 1, &o.otherDevice, &nSize, &pImage, nullptr, pnError);
             })},
        {"clCreateProgramWithBinary", "image of no bytes", CL_INVALID_VALUE,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 const size_t nSize = 0;
                 const unsigned char* pImage = o.bytes;
                 return o.cl.clCreateProgramWithBinary(o.context, 1, &o.device, &nSize, &pImage, nullptr, pnError);
             })},
        {"clCreateProgramWithBuiltInKernels", "no such kernel", CL_INVALID_VALUE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clCreateProgramWithBuiltInKernels(o.context, 1, &o.device, "copy", pnError); })},
        {"clRetainProgram", "null", CL_INVALID_PROGRAM, [](SObjects& o) { return o.cl.clRetainProgram(nullptr); }},
        {"clReleaseProgram", "null", CL_INVALID_PROGRAM, [](SObjects& o) { return o.cl.clReleaseProgram(nullptr); }},
        {"clBuildProgram", "while it has a kernel", CL_INVALID_OPERATION,
         [](SObjects& o) { return o.cl.clBuildProgram(o.program, 0, nullptr, "", nullptr, nullptr); }},
        {"clBuildProgram", "unknown option", CL_INVALID_BUILD_OPTIONS,
         [](SObjects& o) { return o.cl.clBuildProgram(o.unbuilt, 0, nullptr, "-what", nullptr, nullptr); }},
        {"clBuildProgram", "device of another program", CL_INVALID_DEVICE,
         [](SObjects& o) { return o.cl.clBuildProgram(o.unbuilt, 1, &o.otherDevice, "", nullptr, nullptr); }},
        {"clBuildProgram", "count without list", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clBuildProgram(o.unbuilt, 1, nullptr, "", nullptr, nullptr); }},
        {"clBuildProgram", "user data without callback", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clBuildProgram(o.unbuilt, 0, nullptr, "", nullptr, o.bytes); }},
        {"clCompileProgram", "unknown option", CL_INVALID_COMPILER_OPTIONS,
         [](SObjects& o)
         { return o.cl.clCompileProgram(o.unbuilt, 0, nullptr, "-what", 0, nullptr, nullptr, nullptr, nullptr); }},
        {"clCompileProgram", "header without name", CL_INVALID_VALUE,
         [](SObjects& o)
         { return o.cl.clCompileProgram(o.unbuilt, 0, nullptr, "", 1, &o.program, nullptr, nullptr, nullptr); }},
        {"clLinkProgram", "no inputs", CL_INVALID_VALUE,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clLinkProgram(o.context, 0, nullptr, "", 0, nullptr, nullptr, nullptr, pnError); })},
        {"clLinkProgram", "an input that isn't compiled", CL_INVALID_OPERATION,
         Created([](SObjects& o, cl_int* pnError)
                 { return o.cl.clLinkProgram(o.context, 0, nullptr, "", 1, &o.unbuilt, nullptr, nullptr, pnError); })},
        {"clLinkProgram", "unknown option", CL_INVALID_LINKER_OPTIONS,
         Created(
             [](SObjects& o, cl_int* pnError)
             { return o.cl.clLinkProgram(o.context, 0, nullptr, "-what", 1, &o.unbuilt, nullptr, nullptr, pnError); })},
        {"clGetProgramInfo", "kernels of a program that isn't built", CL_INVALID_PROGRAM_EXECUTABLE,
         [](SObjects& o) { return o.cl.clGetProgramInfo(o.unbuilt, CL_PROGRAM_NUM_KERNELS, 0, nullptr, nullptr); }},
        {"clGetProgramBuildInfo", "device of another program", CL_INVALID_DEVICE,
         [](SObjects& o)
         { return o.cl.clGetProgramBuildInfo(o.program, o.otherDevice, CL_PROGRAM_BUILD_LOG, 0, nullptr, nullptr); }},
        {"clCreateKernel", "no such kernel", CL_INVALID_KERNEL_NAME,
         Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateKernel(o.program, "nothing", pnError); })},
        {"clCreateKernel", "not built", CL_INVALID_PROGRAM_EXECUTABLE,
         Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateKernel(o.unbuilt, "scale", pnError); })},
        {"clCreateKernelsInProgram", "list too short", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clCreateKernelsInProgram(o.program, 0, &o.kernel, nullptr); }},
        {"clRetainKernel", "null", CL_INVALID_KERNEL, [](SObjects& o) { return o.cl.clRetainKernel(nullptr); }},
        {"clReleaseKernel", "null", CL_INVALID_KERNEL, [](SObjects& o) { return o.cl.clReleaseKernel(nullptr); }},
        {"clSetKernelArg", "index", CL_INVALID_ARG_INDEX,
         [](SObjects& o) { return o.cl.clSetKernelArg(o.kernel, 3, sizeof(cl_mem), &o.buffer); }},
        {"clSetKernelArg", "an image for a buffer", CL_INVALID_MEM_OBJECT,
         [](SObjects& o) { return o.cl.clSetKernelArg(o.kernel, 0, sizeof(cl_mem), &o.image); }},
        {"clSetKernelArg", "size of a buffer", CL_INVALID_ARG_SIZE,
         [](SObjects& o) { return o.cl.clSetKernelArg(o.kernel, 0, 4, &o.buffer); }},
        {"clSetKernelArg", "size of a value", CL_INVALID_ARG_SIZE,
         [](SObjects& o) { return o.cl.clSetKernelArg(o.kernel, 1, 8, o.bytes); }},
        {"clSetKernelArg", "a value from nowhere", CL_INVALID_ARG_VALUE,
         [](SObjects& o) { return o.cl.clSetKernelArg(o.kernel, 1, 4, nullptr); }},
        {"clGetKernelInfo", "unknown name", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetKernelInfo(o.kernel, 1, 0, nullptr, nullptr); }},
        {"clGetKernelArgInfo", "index", CL_INVALID_ARG_INDEX,
         [](SObjects& o) { return o.cl.clGetKernelArgInfo(o.kernel, 9, CL_KERNEL_ARG_NAME, 0, nullptr, nullptr); }},
        {"clGetKernelWorkGroupInfo", "device of another program", CL_INVALID_DEVICE,
         [](SObjects& o) {
             return o.cl.clGetKernelWorkGroupInfo(o.kernel, o.otherDevice, CL_KERNEL_WORK_GROUP_SIZE, 0, nullptr,
                                                  nullptr);
         }},
    };
    return s_cases;
}

cl_int Launch(SObjects& o, cl_uint nDimensions, const size_t* pGlobal, const size_t* pLocal,
              const size_t* pOffset = nullptr)
{
    return o.cl.clEnqueueNDRangeKernel(o.queue, o.kernel, nDimensions, pOffset, pGlobal, pLocal, 0, nullptr, nullptr);
}

const std::vector<SErrorCase>& EventAndLaunchCases()
{
    static const std::vector<SErrorCase> s_cases = {
        {"clWaitForEvents", "no events", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clWaitForEvents(0, nullptr); }},
        {"clWaitForEvents", "a null event", CL_INVALID_EVENT,
         [](SObjects& o)
         {
             cl_event events[] = {nullptr};
             return o.cl.clWaitForEvents(1, events);
         }},
        {"clWaitForEvents", "events of two contexts", CL_INVALID_CONTEXT,
         [](SObjects& o)
         {
             cl_event events[] = {o.event, o.foreignEvent};
             return o.cl.clWaitForEvents(2, events);
         }},
        {"clGetEventInfo", "unknown name", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clGetEventInfo(o.event, 1, 0, nullptr, nullptr); }},
        {"clRetainEvent", "null", CL_INVALID_EVENT, [](SObjects& o) { return o.cl.clRetainEvent(nullptr); }},
        {"clReleaseEvent", "null", CL_INVALID_EVENT, [](SObjects& o) { return o.cl.clReleaseEvent(nullptr); }},
        {"clGetEventProfilingInfo", "a user event", CL_PROFILING_INFO_NOT_AVAILABLE,
         [](SObjects& o)
         { return o.cl.clGetEventProfilingInfo(o.event, CL_PROFILING_COMMAND_END, 0, nullptr, nullptr); }},
        {"clSetEventCallback", "status that can't be waited for", CL_INVALID_VALUE,
         [](SObjects& o)
         {
             return o.cl.clSetEventCallback(
                 o.event, CL_QUEUED, [](cl_event, cl_int, void*) {}, nullptr);
         }},
        {"clCreateUserEvent", "null", CL_INVALID_CONTEXT,
         Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateUserEvent(nullptr, pnError); })},
        {"clSetUserEventStatus", "a status on the way", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clSetUserEventStatus(o.event, CL_RUNNING); }},
        {"clEnqueueNDRangeKernel", "no dimensions", CL_INVALID_WORK_DIMENSION,
         [](SObjects& o) { return Launch(o, 0, &s_one, nullptr); }},
        {"clEnqueueNDRangeKernel", "four dimensions", CL_INVALID_WORK_DIMENSION,
         [](SObjects& o) { return Launch(o, 4, s_region, nullptr); }},
        {"clEnqueueNDRangeKernel", "global size 0", CL_INVALID_GLOBAL_WORK_SIZE,
         [](SObjects& o) { return Launch(o, 1, s_origin, nullptr); }},
        {"clEnqueueNDRangeKernel", "groups that don't divide", CL_INVALID_WORK_GROUP_SIZE,
         [](SObjects& o) { return Launch(o, 1, s_region, &s_three); }},
        {"clEnqueueNDRangeKernel", "a group too large", CL_INVALID_WORK_ITEM_SIZE,
         [](SObjects& o) { return Launch(o, 1, &s_huge, &s_huge); }},
        {"clEnqueueNDRangeKernel", "a group of too many", CL_INVALID_WORK_GROUP_SIZE,
         [](SObjects& o)
         {
             const size_t size[] = {32, 32};
             return Launch(o, 2, size, size);
         }},
        {"clEnqueueNDRangeKernel", "offset that doesn't fit", CL_INVALID_GLOBAL_OFFSET,
         [](SObjects& o)
         {
             const size_t nOffset = UINT32_MAX;
             return Launch(o, 1, &s_one, nullptr, &nOffset);
         }},
        {"clEnqueueNDRangeKernel", "arguments not set", CL_INVALID_KERNEL_ARGS,
         [](SObjects& o) { return Launch(o, 1, &s_one, nullptr); }},
        {"clEnqueueTask", "null kernel", CL_INVALID_KERNEL,
         [](SObjects& o) { return o.cl.clEnqueueTask(o.queue, nullptr, 0, nullptr, nullptr); }},
        {"clEnqueueNativeKernel", "a device that has none", CL_INVALID_OPERATION,
         [](SObjects& o)
         {
             return o.cl.clEnqueueNativeKernel(
                 o.queue, [](void*) {}, nullptr, 0, 0, nullptr, nullptr, 0, nullptr, nullptr);
         }},
        {"clEnqueueNativeKernel", "size without arguments", CL_INVALID_VALUE,
         [](SObjects& o)
         {
             return o.cl.clEnqueueNativeKernel(
                 o.queue, [](void*) {}, nullptr, 8, 0, nullptr, nullptr, 0, nullptr, nullptr);
         }},
        {"clEnqueueMarker", "no event", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clEnqueueMarker(o.queue, nullptr); }},
        {"clEnqueueWaitForEvents", "a null event", CL_INVALID_EVENT,
         [](SObjects& o)
         {
             cl_event events[] = {nullptr};
             return o.cl.clEnqueueWaitForEvents(o.queue, 1, events);
         }},
        {"clEnqueueBarrier", "null", CL_INVALID_COMMAND_QUEUE,
         [](SObjects& o) { return o.cl.clEnqueueBarrier(nullptr); }},
        {"clEnqueueMarkerWithWaitList", "list without count", CL_INVALID_EVENT_WAIT_LIST,
         [](SObjects& o) { return o.cl.clEnqueueMarkerWithWaitList(o.queue, 0, &o.event, nullptr); }},
        {"clEnqueueMarkerWithWaitList", "event of another context", CL_INVALID_CONTEXT,
         [](SObjects& o) { return o.cl.clEnqueueMarkerWithWaitList(o.queue, 1, &o.foreignEvent, nullptr); }},
        {"clEnqueueBarrierWithWaitList", "count without list", CL_INVALID_EVENT_WAIT_LIST,
         [](SObjects& o) { return o.cl.clEnqueueBarrierWithWaitList(o.queue, 1, nullptr, nullptr); }},
    };
    return s_cases;
}

const std::vector<SErrorCase>& TransferCases()
{
    static const std::vector<SErrorCase> s_cases = {
        {"clEnqueueReadBuffer", "past the end", CL_INVALID_VALUE,
         [](SObjects& o) {
             return o.cl.clEnqueueReadBuffer(o.queue, o.buffer, CL_TRUE, s_nBufferSize - 4, 5, o.bytes, 0, nullptr,
                                             nullptr);
         }},
        {"clEnqueueReadBuffer", "buffer of another context", CL_INVALID_CONTEXT,
         [](SObjects& o)
         { return o.cl.clEnqueueReadBuffer(o.queue, o.foreignBuffer, CL_TRUE, 0, 4, o.bytes, 0, nullptr, nullptr); }},
        {"clEnqueueReadBuffer", "an image", CL_INVALID_MEM_OBJECT,
         [](SObjects& o)
         { return o.cl.clEnqueueReadBuffer(o.queue, o.image, CL_TRUE, 0, 4, o.bytes, 0, nullptr, nullptr); }},
        {"clEnqueueReadBuffer", "no host access", CL_INVALID_OPERATION,
         [](SObjects& o)
         { return o.cl.clEnqueueReadBuffer(o.queue, o.noAccess, CL_TRUE, 0, 4, o.bytes, 0, nullptr, nullptr); }},
        {"clEnqueueWriteBuffer", "an offset that wraps round", CL_INVALID_VALUE,
         [](SObjects& o) {
             return o.cl.clEnqueueWriteBuffer(o.queue, o.buffer, CL_TRUE, SIZE_MAX - 1, 4, o.bytes, 0, nullptr,
                                              nullptr);
         }},
        {"clEnqueueWriteBuffer", "no host access", CL_INVALID_OPERATION,
         [](SObjects& o)
         { return o.cl.clEnqueueWriteBuffer(o.queue, o.noAccess, CL_TRUE, 0, 4, o.bytes, 0, nullptr, nullptr); }},
        {"clEnqueueCopyBuffer", "overlap", CL_MEM_COPY_OVERLAP,
         [](SObjects& o)
         { return o.cl.clEnqueueCopyBuffer(o.queue, o.buffer, o.buffer, 0, 8, 16, 0, nullptr, nullptr); }},
        {"clEnqueueCopyBuffer", "overlap with a part", CL_MEM_COPY_OVERLAP,
         [](SObjects& o)
         { return o.cl.clEnqueueCopyBuffer(o.queue, o.buffer, o.subBuffer, 128, 0, 16, 0, nullptr, nullptr); }},
        {"clEnqueueFillBuffer", "a pattern of three", CL_INVALID_VALUE,
         [](SObjects& o)
         { return o.cl.clEnqueueFillBuffer(o.queue, o.buffer, o.bytes, 3, 0, 12, 0, nullptr, nullptr); }},
        {"clEnqueueFillBuffer", "size no multiple of the pattern", CL_INVALID_VALUE,
         [](SObjects& o)
         { return o.cl.clEnqueueFillBuffer(o.queue, o.buffer, o.bytes, 8, 0, 12, 0, nullptr, nullptr); }},
        {"clEnqueueReadBufferRect", "row pitch too small", CL_INVALID_VALUE,
         [](SObjects& o)
         {
             return o.cl.clEnqueueReadBufferRect(o.queue, o.buffer, CL_TRUE, s_origin, s_origin, s_region, 3, 0, 0, 0,
                                                 o.bytes, 0, nullptr, nullptr);
         }},
        {"clEnqueueWriteBufferRect", "past the end", CL_INVALID_VALUE,
         [](SObjects& o)
         {
             return o.cl.clEnqueueWriteBufferRect(o.queue, o.buffer, CL_TRUE, s_outside, s_origin, s_region, 16, 0, 0,
                                                  0, o.bytes, 0, nullptr, nullptr);
         }},
        {"clEnqueueCopyBufferRect", "overlap", CL_MEM_COPY_OVERLAP,
         [](SObjects& o)
         {
             const size_t shifted[3] = {2, 2, 0};
             return o.cl.clEnqueueCopyBufferRect(o.queue, o.buffer, o.buffer, s_origin, shifted, s_region, 16, 0, 16, 0,
                                                 0, nullptr, nullptr);
         }},
        {"clEnqueueReadImage", "region of no width", CL_INVALID_VALUE,
         [](SObjects& o) {
             return o.cl.clEnqueueReadImage(o.queue, o.image, CL_TRUE, s_origin, s_empty, 0, 0, o.bytes, 0, nullptr,
                                            nullptr);
         }},
        {"clEnqueueWriteImage", "outside", CL_INVALID_VALUE,
         [](SObjects& o)
         {
             return o.cl.clEnqueueWriteImage(o.queue, o.image, CL_TRUE, s_outside, s_region, 0, 0, o.bytes, 0, nullptr,
                                             nullptr);
         }},
        {"clEnqueueWriteImage", "slice pitch for a 2D image", CL_INVALID_VALUE,
         [](SObjects& o)
         {
             return o.cl.clEnqueueWriteImage(o.queue, o.image, CL_TRUE, s_origin, s_region, 0, 64, o.bytes, 0, nullptr,
                                             nullptr);
         }},
        {"clEnqueueCopyImage", "overlap", CL_MEM_COPY_OVERLAP,
         [](SObjects& o) {
             return o.cl.clEnqueueCopyImage(o.queue, o.image, o.image, s_origin, s_origin, s_region, 0, nullptr,
                                            nullptr);
         }},
        {"clEnqueueCopyImageToBuffer", "buffer too small", CL_INVALID_VALUE,
         [](SObjects& o)
         {
             return o.cl.clEnqueueCopyImageToBuffer(o.queue, o.image, o.buffer, s_origin, s_region, s_nBufferSize - 63,
                                                    0, nullptr, nullptr);
         }},
        {"clEnqueueCopyBufferToImage", "two buffers", CL_INVALID_MEM_OBJECT,
         [](SObjects& o) {
             return o.cl.clEnqueueCopyBufferToImage(o.queue, o.buffer, o.buffer, 0, s_origin, s_region, 0, nullptr,
                                                    nullptr);
         }},
        {"clEnqueueFillImage", "no colour", CL_INVALID_VALUE,
         [](SObjects& o)
         { return o.cl.clEnqueueFillImage(o.queue, o.image, nullptr, s_origin, s_region, 0, nullptr, nullptr); }},
        {"clEnqueueMapBuffer", "unknown flag", CL_INVALID_VALUE,
         Created(
             [](SObjects& o, cl_int* pnError)
             { return o.cl.clEnqueueMapBuffer(o.queue, o.buffer, CL_TRUE, 64, 0, 4, 0, nullptr, nullptr, pnError); })},
        {"clEnqueueMapBuffer", "no host access", CL_INVALID_OPERATION,
         Created(
             [](SObjects& o, cl_int* pnError) {
                 return o.cl.clEnqueueMapBuffer(o.queue, o.noAccess, CL_TRUE, CL_MAP_READ, 0, 4, 0, nullptr, nullptr,
                                                pnError);
             })},
        {"clEnqueueMapImage", "no place for the pitch", CL_INVALID_VALUE,
         Created(
             [](SObjects& o, cl_int* pnError)
             {
                 return o.cl.clEnqueueMapImage(o.queue, o.image, CL_TRUE, CL_MAP_READ, s_origin, s_region, nullptr,
                                               nullptr, 0, nullptr, nullptr, pnError);
             })},
        {"clEnqueueUnmapMemObject", "not mapped", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clEnqueueUnmapMemObject(o.queue, o.buffer, o.bytes, 0, nullptr, nullptr); }},
        {"clEnqueueMigrateMemObjects", "no objects", CL_INVALID_VALUE,
         [](SObjects& o) { return o.cl.clEnqueueMigrateMemObjects(o.queue, 0, nullptr, 0, 0, nullptr, nullptr); }},
        {"clEnqueueMigrateMemObjects", "unknown flag", CL_INVALID_VALUE,
         [](SObjects& o)
         { return o.cl.clEnqueueMigrateMemObjects(o.queue, 1, &o.buffer, 1 << 10, 0, nullptr, nullptr); }},
    };
    return s_cases;
}

std::vector<SErrorCase> AllCases()
{
    std::vector<SErrorCase> vCases;
    for (const auto* pCases :
         {&PlatformAndContextCases(), &MemoryCases(), &ProgramCases(), &EventAndLaunchCases(), &TransferCases()})
    {
        vCases.insert(vCases.end(), pCases->begin(), pCases->end());
    }
    return vCases;
}

TEST_F(CErrorsTest, EachMistakeHasItsCodeAndLeavesNothing)
{
    CheckCases(AllCases());
}

/// Entry points that return neither a code nor an object with a code.
const std::set<std::string> s_withoutCode = {"clGetExtensionFunctionAddress",
                                             "clGetExtensionFunctionAddressForPlatform"};

TEST_F(CErrorsTest, EveryEntryPointFailsWhenATestOrdersIt)
{
    constexpr cl_int nOrdered = -1234;
    std::set<std::string> setCovered = s_withoutCode;
    for (const SErrorCase& error : AllCases())
    {
        SCOPED_TRACE(error.m_pszEntryPoint);
        Control().FailCall(error.m_pszEntryPoint, 1, nOrdered, 0);
        EXPECT_EQ(error.m_call(o), nOrdered);
        EXPECT_EQ(error.m_call(o), error.m_nExpected) << "the failure is used up";
        Control().ClearFailures();
        setCovered.insert(error.m_pszEntryPoint);
    }
    for (const char* pszEntryPoint : {
#define KP_EXPORTED(name) #name,
#define KP_LOADER(name) #name,
#define KP_TABLE_ONLY(name)
#define KP_EXTENSION(name, extension)
#include "platform/runtime/EntryPoints.def"
#undef KP_EXPORTED
#undef KP_LOADER
#undef KP_TABLE_ONLY
#undef KP_EXTENSION
         })
    {
        EXPECT_EQ(setCovered.count(pszEntryPoint), 1u) << pszEntryPoint << " has no case";
    }
}

TEST_F(CErrorsTest, OrderedFailuresCountFromTheOrder)
{
    Control().FailCall("clFlush", 3, -7, 0);
    for (cl_int nExpected : {0, 0, -7, 0, 0})
    {
        EXPECT_EQ(cl.clFlush(m_queue), nExpected);
    }
    EXPECT_EQ(Control().GetCallCount(), 5u);

    Control().ClearFailures();
    Control().FailCall(nullptr, 2, -8, 1);
    EXPECT_EQ(cl.clFlush(m_queue), 0);
    EXPECT_EQ(cl.clFinish(m_queue), -8);
    EXPECT_EQ(cl.clFlush(m_queue), -8);
    Control().ClearFailures();
    EXPECT_EQ(cl.clFlush(m_queue), 0);
}

TEST_F(CErrorsTest, AReleasedHandleIsNoObjectAnyMore)
{
    cl_mem buffer = MakeBuffer(16);
    EXPECT_EQ(cl.clRetainMemObject(buffer), CL_SUCCESS);
    cl_uint nReferences = 0;
    cl.clGetMemObjectInfo(buffer, CL_MEM_REFERENCE_COUNT, sizeof(nReferences), &nReferences, nullptr);
    EXPECT_EQ(nReferences, 2u);
    EXPECT_EQ(cl.clReleaseMemObject(buffer), CL_SUCCESS);
    EXPECT_EQ(cl.clReleaseMemObject(buffer), CL_SUCCESS);
    EXPECT_EQ(cl.clReleaseMemObject(buffer), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(cl.clGetMemObjectInfo(buffer, CL_MEM_SIZE, 0, nullptr, nullptr), CL_INVALID_MEM_OBJECT);
}

} // namespace
