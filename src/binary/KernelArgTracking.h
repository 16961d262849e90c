#ifndef KESTREL_BINARY_KERNELARGTRACKING_H
#define KESTREL_BINARY_KERNELARGTRACKING_H

#include <CL/cl.h>

#include <cstddef>
#include <string>
#include <vector>

namespace OVK_ShaderDebugger
{

/// What is known of a kernel: its arguments, by index, with the values that they have.
class KernelInfo
{
public:
    class ArgInfo
    {
    public:
        enum ArgType
        {
            ARG_UNKNOWN = 0,
            ARG_IMAGE = 1,
            ARG_VALUE = 2,
            ARG_GLOBAL_POINTER = 3,
            ARG_LOCAL_POINTER = 4,
            ARG_COUNTER = 5
        };

        /// An argument that was never set, of unknown kind.
        ArgInfo() = default;
        ArgInfo(const void* pValue, size_t nSize, ArgType type, unsigned int nResourceId);

        /// The bytes of the last value, valid until the next SetArgData; null for local memory, for a null
        /// argument and for one that was never set.
        const void* GetArgValue() const { return m_vArgValue.empty() ? nullptr : m_vArgValue.data(); }
        size_t GetArgSize() const { return m_nArgSize; }

        /// Keeps a copy of the bytes, if there are any, and the size in any case.
        void SetArgData(const void* pValue, size_t nSize);

        ArgType GetArgType() const { return m_ArgType; }
        void SetArgType(ArgType type) { m_ArgType = type; }
        const std::string& GetArgName() const { return m_strArgName; }
        void SetArgName(const std::string& strName) { m_strArgName = strName; }
        unsigned int GetArgResourceId() const { return m_nResourceId; }
        void SetArgResourceId(unsigned int nResourceId) { m_nResourceId = nResourceId; }

    private:
        std::vector<unsigned char> m_vArgValue;
        size_t m_nArgSize = 0;
        ArgType m_ArgType = ARG_UNKNOWN;
        std::string m_strArgName;
        unsigned int m_nResourceId = 0;
    };

    typedef std::vector<ArgInfo> ArgInfoArrayType;

    bool GetHasGPUDevice() const { return m_HasGPUDevice; }
    void SetHasGPUDevice(bool bHasGPUDevice) { m_HasGPUDevice = bHasGPUDevice; }
    ArgInfoArrayType& GetArgInfo() { return m_ArgInfo; }
    const ArgInfoArrayType& GetArgInfo() const { return m_ArgInfo; }

private:
    ArgInfoArrayType m_ArgInfo;
    bool m_HasGPUDevice = false;
};

/// What ovkclGetKernelArgInfo can be asked.
enum
{
    OVKCL_KERNEL_ARG_ADDRESS_QUALIFIER = 0x21A0, ///< not kept
    OVKCL_KERNEL_ARG_ACCESS_QUALIFIER = 0x21A1,  ///< not kept
    OVKCL_KERNEL_ARG_TYPE_NAME = 0x21A2,         ///< not kept
    OVKCL_KERNEL_ARG_NAME = 0x21A3,              ///< a string
    OVKCL_KERNEL_ARG_KIND =
        0x21A4, ///< a string: "image", "value", "globalpointer", "localpointer", "counter", "unknown"
    OVKCL_KERNEL_ARG_RESOURCE_ID = 0x21A5 ///< an unsigned int: image id or buffer number
};

/// The code for what is not kept of an argument.
constexpr cl_int OVKCL_KERNEL_ARG_INFO_NOT_KEPT = -2065;

/// The logic of the exported ovkclIntercept... functions: each passes the call on to the runtime, with
/// the parameters and result of the OpenCL function of its name, and keeps the record of the kernel. They
/// may be called from any thread; they may throw std::bad_alloc.
cl_kernel InterceptCreateKernel(cl_program program, const char* kernel_name, cl_int* errcode_ret);
cl_int InterceptCreateKernelsInProgram(cl_program program, cl_uint num_kernels, cl_kernel* kernels,
                                       cl_uint* num_kernels_ret);
cl_int InterceptRetainKernel(cl_kernel kernel);
cl_int InterceptReleaseKernel(cl_kernel kernel);
cl_int InterceptSetKernelArg(cl_kernel kernel, cl_uint arg_index, size_t arg_size, const void* arg_value);

/// How many arguments the record of a kernel has; 0 for a kernel without one.
size_t CountRecordedArgs(cl_kernel kernel);

/// The value that an argument was set to last.
/// \param arg_value_ret  receives a pointer into the record, valid until the argument is set again or the kernel
///                       goes away; may be null
/// \param arg_size_ret   receives the size as the client gave it; may be null
/// \return CL_INVALID_KERNEL for a kernel without a record, CL_INVALID_ARG_INDEX, or CL_SUCCESS
cl_int ovkclGetKernelArg(cl_kernel kernel, cl_uint arg_index, const void** arg_value_ret, size_t* arg_size_ret);

/// What is known of an argument, by the OVKCL_KERNEL_ARG_... values. A string that is longer than the room for it is
/// cut, with its NUL inside the room, and that is no error.
cl_int ovkclGetKernelArgInfo(cl_kernel kernel, cl_uint arg_index, cl_kernel_arg_info param_name,
                             size_t param_value_size, void* param_value, size_t* param_value_size_ret);

} // namespace OVK_ShaderDebugger

#endif
