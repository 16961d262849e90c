#include "tools/kestrel/Codes.h"

namespace KestrelTool
{

namespace
{

struct SCode
{
    cl_int nCode;
    const char* pszWords;
};

const SCode s_Codes[] = {
    {CL_DEVICE_NOT_FOUND, "no such device"},
    {CL_DEVICE_NOT_AVAILABLE, "the device isn't available"},
    {CL_COMPILER_NOT_AVAILABLE, "there is no compiler"},
    {CL_MEM_OBJECT_ALLOCATION_FAILURE, "no memory for a buffer or image"},
    {CL_OUT_OF_RESOURCES, "out of resources"},
    {CL_OUT_OF_HOST_MEMORY, "out of host memory"},
    {CL_IMAGE_FORMAT_NOT_SUPPORTED, "the image format isn't supported"},
    {CL_BUILD_PROGRAM_FAILURE, "the program doesn't build"},
    {CL_MAP_FAILURE, "memory can't be mapped"},
    {CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST, "a command that was waited for has failed"},
    {CL_INVALID_VALUE, "invalid value"},
    {CL_INVALID_DEVICE, "invalid device"},
    {CL_INVALID_CONTEXT, "invalid context"},
    {CL_INVALID_MEM_OBJECT, "invalid memory object"},
    {CL_INVALID_IMAGE_SIZE, "invalid image size"},
    {CL_INVALID_BUILD_OPTIONS, "invalid build options"},
    {CL_INVALID_PROGRAM_EXECUTABLE, "the program isn't built for the device"},
    {CL_INVALID_KERNEL_NAME, "no such kernel"},
    {CL_INVALID_ARG_INDEX, "no such argument"},
    {CL_INVALID_ARG_VALUE, "invalid value of an argument"},
    {CL_INVALID_ARG_SIZE, "invalid size of an argument"},
    {CL_INVALID_KERNEL_ARGS, "invalid arguments"},
    {CL_INVALID_WORK_GROUP_SIZE, "invalid size of work-groups"},
    {CL_INVALID_OPERATION, "invalid operation"},
    {CL_INVALID_BUFFER_SIZE, "invalid size of a buffer"},
    {CL_INVALID_GLOBAL_WORK_SIZE, "invalid number of work-items"},
    {-1001, "no platform"},
    {OVKCLDEBUG_ENQUEUE_FAILED, "the debugger refused the launch"},
};

const SCode s_DebugCodes[] = {
    {OVKCLDEBUG_ERROR_INTERNAL, "the debugger failed inside"},
    {OVKCLDEBUG_ERROR_INVALID_CONTEXT, "the session isn't open"},
    {OVKCLDEBUG_ERROR_INVALID_STATE, "that isn't there at this stop"},
    {OVKCLDEBUG_ERROR_OPERATION_FAILED, "the debugger refused it"},
    {OVKCLDEBUG_ERROR_INVALID_LOCATION, "there is no such place"},
    {OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL, "the buffer is too small"},
    {OVKCLDEBUG_ERROR_OUT_OF_MEMORY, "there isn't enough memory"},
    {OVKCLDEBUG_ERROR_INVALID_ARGUMENT, "invalid argument"},
};

template <size_t N>
std::string Name(const SCode (&table)[N], cl_int nCode)
{
    for (const SCode& entry : table)
    {
        if (entry.nCode == nCode)
        {
            return std::string(entry.pszWords) + " (" + std::to_string(nCode) + ")";
        }
    }
    return "code " + std::to_string(nCode);
}

} // namespace

std::string NameCode(cl_int nCode)
{
    return Name(s_Codes, nCode);
}

std::string NameDebugCode(ovkclDebugError nCode)
{
    return Name(s_DebugCodes, nCode);
}

bool IsPlatformFailure(cl_int nCode)
{
    return nCode == CL_OUT_OF_RESOURCES || nCode == CL_OUT_OF_HOST_MEMORY ||
           nCode == CL_MEM_OBJECT_ALLOCATION_FAILURE || nCode == CL_DEVICE_NOT_AVAILABLE ||
           nCode == CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST || nCode == CL_MAP_FAILURE;
}

} // namespace KestrelTool
