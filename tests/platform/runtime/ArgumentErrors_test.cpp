#include "ErrorObjects.h"

/// Other wrong arguments: contradicting values, wrong lists and counts, and states in which a call isn't allowed.
namespace
{

/// Creates an image of the given kind and format; the caller fills in the rest of the description.
const void* CreateImage(SObjects& o, cl_mem_flags nFlags, const cl_image_format& format, const cl_image_desc& desc,
                        cl_int* pnError)
{
    return o.cl.clCreateImage(o.context, nFlags, &format, &desc, nullptr, pnError);
}

cl_image_desc Description(cl_mem_object_type eType)
{
    cl_image_desc desc{};
    desc.image_type = eType;
    desc.image_width = desc.image_height = desc.image_depth = desc.image_array_size = 4;
    return desc;
}

// clang-format off
const std::vector<SErrorCase> s_making = {
    {"clCreateSubDevices", "null device", CL_INVALID_DEVICE, [](SObjects& o) { const cl_device_partition_property properties[] = {CL_DEVICE_PARTITION_EQUALLY, 1, 0}; return o.cl.clCreateSubDevices(nullptr, properties, 0, nullptr, nullptr); }},
    {"clCreateSubDevices", "no properties", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clCreateSubDevices(o.device, nullptr, 0, nullptr, nullptr); }},
    {"clCreateContextFromType", "type of no bits", CL_INVALID_DEVICE_TYPE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateContextFromType(nullptr, 0, nullptr, nullptr, pnError); })},
    {"clCreateContextFromType", "user data without callback", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateContextFromType(nullptr, CL_DEVICE_TYPE_ALL, nullptr, o.bytes, pnError); })},
    {"clCreateCommandQueue", "null device", CL_INVALID_DEVICE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateCommandQueue(o.context, nullptr, 0, pnError); })},
    {"clCreateBuffer", "used and copied at once", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateBuffer(o.context, CL_MEM_USE_HOST_PTR | CL_MEM_COPY_HOST_PTR, 16, o.bytes, pnError); })},
    {"clCreateBuffer", "used and allocated at once", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateBuffer(o.context, CL_MEM_USE_HOST_PTR | CL_MEM_ALLOC_HOST_PTR, 16, o.bytes, pnError); })},
    {"clCreateBuffer", "two kinds of host access", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateBuffer(o.context, CL_MEM_HOST_NO_ACCESS | CL_MEM_HOST_READ_ONLY, 16, nullptr, pnError); })},
    {"clCreateBuffer", "unknown flag", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateBuffer(o.context, 1ull << 40, 16, nullptr, pnError); })},
    {"clCreateSubBuffer", "unknown kind", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { const cl_buffer_region region{0, 16}; return o.cl.clCreateSubBuffer(o.buffer, 0, CL_BUFFER_CREATE_TYPE_REGION + 1, &region, pnError); })},
    {"clCreateSubBuffer", "no region", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateSubBuffer(o.buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, nullptr, pnError); })},
    {"clCreateSubBuffer", "host pointer flag", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { const cl_buffer_region region{0, 16}; return o.cl.clCreateSubBuffer(o.buffer, CL_MEM_USE_HOST_PTR, CL_BUFFER_CREATE_TYPE_REGION, &region, pnError); })},
    {"clCreateSubBuffer", "of an image", CL_INVALID_MEM_OBJECT, Created([](SObjects& o, cl_int* pnError) { const cl_buffer_region region{0, 16}; return o.cl.clCreateSubBuffer(o.image, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, pnError); })},
    {"clCreateImage", "no description", CL_INVALID_IMAGE_DESCRIPTOR, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateImage(o.context, 0, &s_rgba, nullptr, nullptr, pnError); })},
    {"clCreateImage", "levels", CL_INVALID_IMAGE_DESCRIPTOR, Created([](SObjects& o, cl_int* pnError) { cl_image_desc desc = Description(CL_MEM_OBJECT_IMAGE2D); desc.num_mip_levels = 1; return CreateImage(o, 0, s_rgba, desc, pnError); })},
    {"clCreateImage", "samples", CL_INVALID_IMAGE_DESCRIPTOR, Created([](SObjects& o, cl_int* pnError) { cl_image_desc desc = Description(CL_MEM_OBJECT_IMAGE2D); desc.num_samples = 2; return CreateImage(o, 0, s_rgba, desc, pnError); })},
    {"clCreateImage", "volume of depth 0", CL_INVALID_IMAGE_DESCRIPTOR, Created([](SObjects& o, cl_int* pnError) { cl_image_desc desc = Description(CL_MEM_OBJECT_IMAGE3D); desc.image_depth = 0; return CreateImage(o, 0, s_rgba, desc, pnError); })},
    {"clCreateImage", "array of nothing", CL_INVALID_IMAGE_DESCRIPTOR, Created([](SObjects& o, cl_int* pnError) { cl_image_desc desc = Description(CL_MEM_OBJECT_IMAGE2D_ARRAY); desc.image_array_size = 0; return CreateImage(o, 0, s_rgba, desc, pnError); })},
    {"clCreateImage", "a plane on a buffer", CL_INVALID_IMAGE_DESCRIPTOR, Created([](SObjects& o, cl_int* pnError) { cl_image_desc desc = Description(CL_MEM_OBJECT_IMAGE2D); desc.buffer = o.buffer; return CreateImage(o, 0, s_rgba, desc, pnError); })},
    {"clCreateImage", "a channel type that no order has", CL_INVALID_IMAGE_FORMAT_DESCRIPTOR, Created([](SObjects& o, cl_int* pnError) { return CreateImage(o, 0, {CL_RGBA, CL_UNORM_SHORT_565}, Description(CL_MEM_OBJECT_IMAGE2D), pnError); })},
    {"clCreateImage", "copy from nowhere", CL_INVALID_HOST_PTR, Created([](SObjects& o, cl_int* pnError) { return CreateImage(o, CL_MEM_COPY_HOST_PTR, s_rgba, Description(CL_MEM_OBJECT_IMAGE2D), pnError); })},
    {"clCreateImage", "two kinds of access", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return CreateImage(o, CL_MEM_READ_ONLY | CL_MEM_WRITE_ONLY, s_rgba, Description(CL_MEM_OBJECT_IMAGE2D), pnError); })},
    {"clGetSupportedImageFormats", "list of no entries", CL_INVALID_VALUE, [](SObjects& o) { cl_image_format format{}; return o.cl.clGetSupportedImageFormats(o.context, 0, CL_MEM_OBJECT_IMAGE2D, 0, &format, nullptr); }},
    {"clGetSupportedImageFormats", "two kinds of access", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clGetSupportedImageFormats(o.context, CL_MEM_READ_ONLY | CL_MEM_WRITE_ONLY, CL_MEM_OBJECT_IMAGE2D, 0, nullptr, nullptr); }},
    {"clCreateSampler", "unknown addressing", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateSampler(o.context, CL_TRUE, 1, CL_FILTER_NEAREST, pnError); })},
    {"clCreateSampler", "unknown filter", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateSampler(o.context, CL_TRUE, CL_ADDRESS_CLAMP, 1, pnError); })},
};

const std::vector<SErrorCase> s_programs = {
    {"clCreateProgramWithSource", "no strings", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateProgramWithSource(o.context, 0, nullptr, nullptr, pnError); })},
    {"clCreateProgramWithBinary", "no devices", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { const size_t nSize = 64; const unsigned char* pImage = o.bytes; return o.cl.clCreateProgramWithBinary(o.context, 0, nullptr, &nSize, &pImage, nullptr, pnError); })},
    {"clCreateProgramWithBinary", "no images", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateProgramWithBinary(o.context, 1, &o.device, nullptr, nullptr, nullptr, pnError); })},
    {"clBuildProgram", "null", CL_INVALID_PROGRAM, [](SObjects& o) { return o.cl.clBuildProgram(nullptr, 0, nullptr, "", nullptr, nullptr); }},
    {"clBuildProgram", "list without count", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clBuildProgram(o.unbuilt, 0, &o.device, "", nullptr, nullptr); }},
    {"clCompileProgram", "null", CL_INVALID_PROGRAM, [](SObjects& o) { return o.cl.clCompileProgram(nullptr, 0, nullptr, "", 0, nullptr, nullptr, nullptr, nullptr); }},
    {"clCompileProgram", "user data without callback", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clCompileProgram(o.unbuilt, 0, nullptr, "", 0, nullptr, nullptr, nullptr, o.bytes); }},
    {"clCompileProgram", "while it has a kernel", CL_INVALID_OPERATION, [](SObjects& o) { return o.cl.clCompileProgram(o.program, 0, nullptr, "", 0, nullptr, nullptr, nullptr, nullptr); }},
    {"clLinkProgram", "a null input", CL_INVALID_PROGRAM, Created([](SObjects& o, cl_int* pnError) { const cl_program none = nullptr; return o.cl.clLinkProgram(o.context, 0, nullptr, "", 1, &none, nullptr, nullptr, pnError); })},
    {"clLinkProgram", "device of another context", CL_INVALID_DEVICE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clLinkProgram(o.context, 1, &o.otherDevice, "", 1, &o.unbuilt, nullptr, nullptr, pnError); })},
    {"clCreateKernel", "no name", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateKernel(o.program, nullptr, pnError); })},
    {"clCreateKernel", "null program", CL_INVALID_PROGRAM, Created([](SObjects& o, cl_int* pnError) { return o.cl.clCreateKernel(nullptr, "scale", pnError); })},
    {"clCreateKernelsInProgram", "not built", CL_INVALID_PROGRAM_EXECUTABLE, [](SObjects& o) { return o.cl.clCreateKernelsInProgram(o.unbuilt, 0, nullptr, nullptr); }},
    {"clSetKernelArg", "null kernel", CL_INVALID_KERNEL, [](SObjects& o) { return o.cl.clSetKernelArg(nullptr, 0, sizeof(cl_mem), &o.buffer); }},
    {"clSetKernelArg", "a queue for a buffer", CL_INVALID_MEM_OBJECT, [](SObjects& o) { return o.cl.clSetKernelArg(o.kernel, 0, sizeof(cl_mem), &o.queue); }},
    {"clGetKernelWorkGroupInfo", "unknown name", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clGetKernelWorkGroupInfo(o.kernel, o.device, 1, 0, nullptr, nullptr); }},
    {"clGetKernelArgInfo", "unknown name", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clGetKernelArgInfo(o.kernel, 0, 1, 0, nullptr, nullptr); }},
    {"clGetProgramBuildInfo", "unknown name", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clGetProgramBuildInfo(o.program, o.device, 1, 0, nullptr, nullptr); }},
    {"clGetImageInfo", "unknown name", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clGetImageInfo(o.image, 1, 0, nullptr, nullptr); }},
    {"clGetDeviceInfo", "unknown name", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clGetDeviceInfo(o.device, 1, 0, nullptr, nullptr); }},
};

const std::vector<SErrorCase> s_commands = {
    {"clSetEventCallback", "no callback", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clSetEventCallback(o.event, CL_COMPLETE, nullptr, nullptr); }},
    {"clSetUserEventStatus", "null", CL_INVALID_EVENT, [](SObjects& o) { return o.cl.clSetUserEventStatus(nullptr, CL_COMPLETE); }},
    {"clGetEventProfilingInfo", "null", CL_INVALID_EVENT, [](SObjects& o) { return o.cl.clGetEventProfilingInfo(nullptr, CL_PROFILING_COMMAND_END, 0, nullptr, nullptr); }},
    {"clEnqueueWaitForEvents", "no events", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueWaitForEvents(o.queue, 0, nullptr); }},
    {"clEnqueueNDRangeKernel", "null kernel", CL_INVALID_KERNEL, [](SObjects& o) { return o.cl.clEnqueueNDRangeKernel(o.queue, nullptr, 1, nullptr, &s_one, nullptr, 0, nullptr, nullptr); }},
    {"clEnqueueNDRangeKernel", "no global size", CL_INVALID_GLOBAL_WORK_SIZE, [](SObjects& o) { return o.cl.clEnqueueNDRangeKernel(o.queue, o.kernel, 1, nullptr, nullptr, nullptr, 0, nullptr, nullptr); }},
    {"clEnqueueNDRangeKernel", "groups of size 0", CL_INVALID_WORK_GROUP_SIZE, [](SObjects& o) { return o.cl.clEnqueueNDRangeKernel(o.queue, o.kernel, 1, nullptr, &s_one, s_origin, 0, nullptr, nullptr); }},
    {"clEnqueueReadBuffer", "to nowhere", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueReadBuffer(o.queue, o.buffer, CL_TRUE, 0, 4, nullptr, 0, nullptr, nullptr); }},
    {"clEnqueueReadBuffer", "nothing", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueReadBuffer(o.queue, o.buffer, CL_TRUE, 0, 0, o.bytes, 0, nullptr, nullptr); }},
    {"clEnqueueWriteBuffer", "from nowhere", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueWriteBuffer(o.queue, o.buffer, CL_TRUE, 0, 4, nullptr, 0, nullptr, nullptr); }},
    {"clEnqueueCopyBuffer", "past the end of the target", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueCopyBuffer(o.queue, o.buffer, o.subBuffer, 0, 250, 16, 0, nullptr, nullptr); }},
    {"clEnqueueCopyBuffer", "null source", CL_INVALID_MEM_OBJECT, [](SObjects& o) { return o.cl.clEnqueueCopyBuffer(o.queue, nullptr, o.buffer, 0, 0, 16, 0, nullptr, nullptr); }},
    {"clEnqueueCopyBuffer", "buffers of two contexts", CL_INVALID_CONTEXT, [](SObjects& o) { return o.cl.clEnqueueCopyBuffer(o.queue, o.foreignBuffer, o.buffer, 0, 0, 16, 0, nullptr, nullptr); }},
    {"clEnqueueFillBuffer", "no pattern", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueFillBuffer(o.queue, o.buffer, nullptr, 4, 0, 12, 0, nullptr, nullptr); }},
    {"clEnqueueFillBuffer", "offset no multiple of the pattern", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueFillBuffer(o.queue, o.buffer, o.bytes, 8, 4, 16, 0, nullptr, nullptr); }},
    {"clEnqueueReadBufferRect", "to nowhere", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueReadBufferRect(o.queue, o.buffer, CL_TRUE, s_origin, s_origin, s_region, 0, 0, 0, 0, nullptr, 0, nullptr, nullptr); }},
    {"clEnqueueWriteBufferRect", "an empty region", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueWriteBufferRect(o.queue, o.buffer, CL_TRUE, s_origin, s_origin, s_empty, 0, 0, 0, 0, o.bytes, 0, nullptr, nullptr); }},
    {"clEnqueueReadImage", "a buffer", CL_INVALID_MEM_OBJECT, [](SObjects& o) { return o.cl.clEnqueueReadImage(o.queue, o.buffer, CL_TRUE, s_origin, s_region, 0, 0, o.bytes, 0, nullptr, nullptr); }},
    {"clEnqueueReadImage", "row pitch too small", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueReadImage(o.queue, o.image, CL_TRUE, s_origin, s_region, 15, 0, o.bytes, 0, nullptr, nullptr); }},
    {"clEnqueueWriteImage", "from nowhere", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueWriteImage(o.queue, o.image, CL_TRUE, s_origin, s_region, 0, 0, nullptr, 0, nullptr, nullptr); }},
    {"clEnqueueFillImage", "outside", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueFillImage(o.queue, o.image, o.bytes, s_outside, s_region, 0, nullptr, nullptr); }},
    {"clEnqueueCopyBufferToImage", "past the buffer's end", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueCopyBufferToImage(o.queue, o.buffer, o.image, s_nBufferSize - 63, s_origin, s_region, 0, nullptr, nullptr); }},
    {"clEnqueueMapBuffer", "written and invalidated", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clEnqueueMapBuffer(o.queue, o.buffer, CL_TRUE, CL_MAP_WRITE | CL_MAP_WRITE_INVALIDATE_REGION, 0, 4, 0, nullptr, nullptr, pnError); })},
    {"clEnqueueMapBuffer", "past the end", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { return o.cl.clEnqueueMapBuffer(o.queue, o.buffer, CL_TRUE, CL_MAP_READ, s_nBufferSize, 1, 0, nullptr, nullptr, pnError); })},
    {"clEnqueueMapImage", "a buffer", CL_INVALID_MEM_OBJECT, Created([](SObjects& o, cl_int* pnError) { size_t nPitch = 0; return o.cl.clEnqueueMapImage(o.queue, o.buffer, CL_TRUE, CL_MAP_READ, s_origin, s_region, &nPitch, nullptr, 0, nullptr, nullptr, pnError); })},
    {"clEnqueueMapImage", "outside", CL_INVALID_VALUE, Created([](SObjects& o, cl_int* pnError) { size_t nPitch = 0; return o.cl.clEnqueueMapImage(o.queue, o.image, CL_TRUE, CL_MAP_READ, s_outside, s_region, &nPitch, nullptr, 0, nullptr, nullptr, pnError); })},
    {"clEnqueueMigrateMemObjects", "a null object", CL_INVALID_MEM_OBJECT, [](SObjects& o) { const cl_mem none = nullptr; return o.cl.clEnqueueMigrateMemObjects(o.queue, 1, &none, 0, 0, nullptr, nullptr); }},
    {"clEnqueueMigrateMemObjects", "an object of another context", CL_INVALID_CONTEXT, [](SObjects& o) { return o.cl.clEnqueueMigrateMemObjects(o.queue, 1, &o.foreignBuffer, 0, 0, nullptr, nullptr); }},
    {"clEnqueueNativeKernel", "no function", CL_INVALID_VALUE, [](SObjects& o) { return o.cl.clEnqueueNativeKernel(o.queue, nullptr, nullptr, 0, 0, nullptr, nullptr, 0, nullptr, nullptr); }},
};
// clang-format on

class CArgumentErrorsTest : public CErrorsTest
{
};

TEST_F(CArgumentErrorsTest, WhatIsMade)
{
    CheckCases(s_making);
}

TEST_F(CArgumentErrorsTest, ProgramsAndKernels)
{
    CheckCases(s_programs);
}

TEST_F(CArgumentErrorsTest, EventsAndCommands)
{
    CheckCases(s_commands);
}

TEST_F(CArgumentErrorsTest, AUserEventIsSetOnceAndACommandsEventNotAtAll)
{
    cl_event user = cl.clCreateUserEvent(m_context, nullptr);
    cl_event marker = nullptr;
    EXPECT_EQ(cl.clEnqueueMarker(m_queue, &marker), CL_SUCCESS);
    EXPECT_EQ(cl.clSetUserEventStatus(marker, CL_COMPLETE), CL_INVALID_EVENT);
    EXPECT_EQ(cl.clSetUserEventStatus(user, CL_COMPLETE), CL_SUCCESS);
    EXPECT_EQ(cl.clSetUserEventStatus(user, -1), CL_INVALID_OPERATION);
    EXPECT_EQ(StatusOf(user), CL_COMPLETE);
    cl.clReleaseEvent(user);
    cl.clReleaseEvent(marker);
}

} // namespace
