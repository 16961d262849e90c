#include "platform/runtime/ApiCall.h"
#include "platform/runtime/Kernel.h"

namespace KestrelPlatform::Runtime
{

namespace
{

/// Work-items that run together; in work-groups of a multiple of this, none is idle.
constexpr size_t s_nPreferredMultiple = 64;

cl_kernel_arg_address_qualifier GetAddressQualifier(const SKernelArgument& argument)
{
    switch (argument.eKind)
    {
    case SKernelArgument::GlobalPointer:
    case SKernelArgument::Image:
    case SKernelArgument::Counter:
        return CL_KERNEL_ARG_ADDRESS_GLOBAL;
    case SKernelArgument::ConstantPointer:
        return CL_KERNEL_ARG_ADDRESS_CONSTANT;
    case SKernelArgument::LocalPointer:
        return CL_KERNEL_ARG_ADDRESS_LOCAL;
    case SKernelArgument::Value:
    case SKernelArgument::Sampler:
        break;
    }
    return CL_KERNEL_ARG_ADDRESS_PRIVATE;
}

cl_kernel_arg_access_qualifier GetAccessQualifier(const SKernelArgument& argument)
{
    if (argument.eKind != SKernelArgument::Image)
    {
        return CL_KERNEL_ARG_ACCESS_NONE;
    }
    switch (argument.eAccess)
    {
    case SKernelArgument::ReadOnly:
        return CL_KERNEL_ARG_ACCESS_READ_ONLY;
    case SKernelArgument::WriteOnly:
        return CL_KERNEL_ARG_ACCESS_WRITE_ONLY;
    case SKernelArgument::ReadWrite:
        break;
    }
    return CL_KERNEL_ARG_ACCESS_READ_WRITE;
}

cl_kernel_arg_type_qualifier GetTypeQualifier(const SKernelArgument& argument)
{
    cl_kernel_arg_type_qualifier nQualifier = CL_KERNEL_ARG_TYPE_NONE;
    if (argument.bSourceConst || (argument.eKind == SKernelArgument::ConstantPointer && argument.strSourceType.empty()))
    {
        nQualifier |= CL_KERNEL_ARG_TYPE_CONST;
    }
    if (argument.bRestrict)
    {
        nQualifier |= CL_KERNEL_ARG_TYPE_RESTRICT;
    }
    if (argument.bVolatile)
    {
        nQualifier |= CL_KERNEL_ARG_TYPE_VOLATILE;
    }
    return nQualifier;
}

bool IsPointer(const SKernelArgument& argument)
{
    return argument.eKind == SKernelArgument::GlobalPointer || argument.eKind == SKernelArgument::ConstantPointer ||
           argument.eKind == SKernelArgument::LocalPointer;
}

std::string GetAttributes(const SCompiledKernel& kernel)
{
    if (!kernel.strAttributes.empty() || kernel.nRequiredGroupSize[0] == 0)
    {
        return kernel.strAttributes;
    }
    return "reqd_work_group_size(" + std::to_string(kernel.nRequiredGroupSize[0]) + "," +
           std::to_string(kernel.nRequiredGroupSize[1]) + "," + std::to_string(kernel.nRequiredGroupSize[2]) + ")";
}

} // namespace

cl_int CKernel::GetInfo(cl_kernel_info eInfo, const SInfoQuery& query)
{
    const SCompiledKernel& compiled = m_Executables.begin()->second->m_Compiled;
    switch (eInfo)
    {
    case CL_KERNEL_FUNCTION_NAME:
        return query.String(compiled.strName);
    case CL_KERNEL_NUM_ARGS:
        return query.Value(static_cast<cl_uint>(GetArguments().size()));
    case CL_KERNEL_REFERENCE_COUNT:
        return query.Value(GetClientReferences());
    case CL_KERNEL_CONTEXT:
        return query.Value(static_cast<cl_context>(GetContext().GetHandle()));
    case CL_KERNEL_PROGRAM:
        return query.Value(HandleOf(m_pProgram));
    case CL_KERNEL_ATTRIBUTES:
        return query.String(GetAttributes(compiled));
    default:
        return CL_INVALID_VALUE;
    }
}

cl_int CKernel::GetArgumentInfo(cl_uint nIndex, cl_kernel_arg_info eInfo, const SInfoQuery& query) const
{
    if (nIndex >= GetArguments().size())
    {
        return CL_INVALID_ARG_INDEX;
    }
    const SKernelArgument& argument = GetArguments()[nIndex];
    switch (eInfo)
    {
    case CL_KERNEL_ARG_ADDRESS_QUALIFIER:
        return query.Value(GetAddressQualifier(argument));
    case CL_KERNEL_ARG_ACCESS_QUALIFIER:
        return query.Value(GetAccessQualifier(argument));
    case CL_KERNEL_ARG_TYPE_NAME:
        return query.String(!argument.strSourceType.empty() ? argument.strSourceType
                                                            : argument.strTypeName + (IsPointer(argument) ? "*" : ""));
    case CL_KERNEL_ARG_TYPE_QUALIFIER:
        return query.Value(GetTypeQualifier(argument));
    case CL_KERNEL_ARG_NAME:
        return query.String(argument.strName);
    default:
        return CL_INVALID_VALUE;
    }
}

cl_int CKernel::GetWorkGroupInfo(const CDevice* pDevice, cl_kernel_work_group_info eInfo, const SInfoQuery& query) const
{
    if (!pDevice && m_Executables.size() != 1)
    {
        return CL_INVALID_DEVICE;
    }
    const auto pExecutable = pDevice ? GetExecutable(*pDevice) : m_Executables.begin()->second;
    if (!pExecutable)
    {
        return CL_INVALID_DEVICE;
    }
    const SCompiledKernel& compiled = pExecutable->m_Compiled;
    switch (eInfo)
    {
    case CL_KERNEL_WORK_GROUP_SIZE:
        return query.Value<size_t>(compiled.nMaxGroupSize);
    case CL_KERNEL_COMPILE_WORK_GROUP_SIZE:
        return query.Array(
            std::vector<size_t>(std::begin(compiled.nRequiredGroupSize), std::end(compiled.nRequiredGroupSize)));
    case CL_KERNEL_LOCAL_MEM_SIZE:
    {
        cl_ulong nBytes = compiled.nStaticLocalBytes;
        for (const SArgumentValue& value : GetArgumentValues())
        {
            nBytes += value.m_nLocalBytes;
        }
        return query.Value(nBytes);
    }
    case CL_KERNEL_PREFERRED_WORK_GROUP_SIZE_MULTIPLE:
        return query.Value(s_nPreferredMultiple);
    case CL_KERNEL_PRIVATE_MEM_SIZE:
        return query.Value<cl_ulong>(compiled.nPrivateBytes);
    default:
        // CL_KERNEL_GLOBAL_WORK_SIZE is for custom devices and built-in kernels, and there are none.
        return CL_INVALID_VALUE;
    }
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clGetKernelInfo(cl_kernel kernel, cl_kernel_info param_name, size_t param_value_size,
                                   void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CKernel> pKernel = Lookup<CKernel>(kernel);
                       if (!pKernel)
                       {
                           return CL_INVALID_KERNEL;
                       }
                       return pKernel->GetInfo(param_name, {param_value_size, param_value, param_value_size_ret});
                   });
}

cl_int CL_API_CALL clGetKernelArgInfo(cl_kernel kernel, cl_uint arg_indx, cl_kernel_arg_info param_name,
                                      size_t param_value_size, void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CKernel> pKernel = Lookup<CKernel>(kernel);
                       if (!pKernel)
                       {
                           return CL_INVALID_KERNEL;
                       }
                       return pKernel->GetArgumentInfo(arg_indx, param_name,
                                                       {param_value_size, param_value, param_value_size_ret});
                   });
}

cl_int CL_API_CALL clGetKernelWorkGroupInfo(cl_kernel kernel, cl_device_id device, cl_kernel_work_group_info param_name,
                                            size_t param_value_size, void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CKernel> pKernel = Lookup<CKernel>(kernel);
                       if (!pKernel)
                       {
                           return CL_INVALID_KERNEL;
                       }
                       const CRef<CDevice> pDevice = Lookup<CDevice>(device);
                       if (device && !pDevice)
                       {
                           return CL_INVALID_DEVICE;
                       }
                       return pKernel->GetWorkGroupInfo(pDevice.Get(), param_name,
                                                        {param_value_size, param_value, param_value_size_ret});
                   });
}
