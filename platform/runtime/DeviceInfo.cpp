#include "platform/compiler/LanguageExtensions.h"
#include "platform/runtime/Device.h"
#include "platform/runtime/Platform.h"
#include "platform/runtime/Settings.h"

#include <thread>

namespace KestrelPlatform::Runtime
{

namespace
{

/// The preferred vector widths follow from the registers of a work-item, which hold four 32-bit words.
constexpr cl_uint s_nVectorWords = 4;

constexpr cl_device_fp_config s_nSingleConfig =
    CL_FP_DENORM | CL_FP_INF_NAN | CL_FP_ROUND_TO_NEAREST | CL_FP_FMA | CL_FP_CORRECTLY_ROUNDED_DIVIDE_SQRT;
constexpr cl_device_fp_config s_nDoubleConfig =
    CL_FP_DENORM | CL_FP_INF_NAN | CL_FP_ROUND_TO_NEAREST | CL_FP_ROUND_TO_ZERO | CL_FP_ROUND_TO_INF | CL_FP_FMA;

/// The extensions of the language, each followed by a blank.
std::string JoinLanguageExtensions()
{
    std::string strList;
    for (const std::string_view name : s_LanguageExtensions)
    {
        strList += std::string(name) + " ";
    }
    return strList;
}

/// Properties that are 32-bit numbers and equal on all devices.
struct SConstant
{
    cl_device_info m_eInfo;
    cl_uint m_nValue;
};

constexpr SConstant s_constants[] = {
    {CL_DEVICE_MAX_WORK_ITEM_DIMENSIONS, s_nMaxWorkDimensions},
    {CL_DEVICE_PREFERRED_VECTOR_WIDTH_CHAR, s_nVectorWords},
    {CL_DEVICE_PREFERRED_VECTOR_WIDTH_SHORT, s_nVectorWords},
    {CL_DEVICE_PREFERRED_VECTOR_WIDTH_INT, s_nVectorWords},
    {CL_DEVICE_PREFERRED_VECTOR_WIDTH_LONG, s_nVectorWords / 2},
    {CL_DEVICE_PREFERRED_VECTOR_WIDTH_FLOAT, s_nVectorWords},
    {CL_DEVICE_PREFERRED_VECTOR_WIDTH_DOUBLE, s_nVectorWords / 2},
    {CL_DEVICE_PREFERRED_VECTOR_WIDTH_HALF, 0},
    {CL_DEVICE_NATIVE_VECTOR_WIDTH_CHAR, s_nVectorWords},
    {CL_DEVICE_NATIVE_VECTOR_WIDTH_SHORT, s_nVectorWords},
    {CL_DEVICE_NATIVE_VECTOR_WIDTH_INT, s_nVectorWords},
    {CL_DEVICE_NATIVE_VECTOR_WIDTH_LONG, s_nVectorWords / 2},
    {CL_DEVICE_NATIVE_VECTOR_WIDTH_FLOAT, s_nVectorWords},
    {CL_DEVICE_NATIVE_VECTOR_WIDTH_DOUBLE, s_nVectorWords / 2},
    {CL_DEVICE_NATIVE_VECTOR_WIDTH_HALF, 0},
    {CL_DEVICE_MAX_CLOCK_FREQUENCY, 1000},
    {CL_DEVICE_IMAGE_SUPPORT, CL_TRUE},
    {CL_DEVICE_MAX_READ_IMAGE_ARGS, 128},
    {CL_DEVICE_MAX_WRITE_IMAGE_ARGS, 8},
    {CL_DEVICE_MAX_SAMPLERS, 16},
    {CL_DEVICE_MEM_BASE_ADDR_ALIGN, s_nBaseAlignment * 8},
    {CL_DEVICE_MIN_DATA_TYPE_ALIGN_SIZE, s_nBaseAlignment},
    {CL_DEVICE_GLOBAL_MEM_CACHE_TYPE, CL_READ_WRITE_CACHE},
    {CL_DEVICE_GLOBAL_MEM_CACHELINE_SIZE, 64},
    {CL_DEVICE_MAX_CONSTANT_ARGS, s_nMaxConstantArguments},
    {CL_DEVICE_LOCAL_MEM_TYPE, CL_LOCAL},
    {CL_DEVICE_ERROR_CORRECTION_SUPPORT, CL_FALSE},
    {CL_DEVICE_HOST_UNIFIED_MEMORY, CL_TRUE},
    {CL_DEVICE_ENDIAN_LITTLE, CL_TRUE},
    {CL_DEVICE_AVAILABLE, CL_TRUE},
    {CL_DEVICE_COMPILER_AVAILABLE, CL_TRUE},
    {CL_DEVICE_LINKER_AVAILABLE, CL_TRUE},
    {CL_DEVICE_PREFERRED_INTEROP_USER_SYNC, CL_TRUE},
    {CL_DEVICE_PARTITION_MAX_SUB_DEVICES, 0},
    {CL_DEVICE_REFERENCE_COUNT, 1},
};

/// The same for properties of type size_t.
struct SSizeConstant
{
    cl_device_info m_eInfo;
    size_t m_nValue;
};

constexpr SSizeConstant s_sizeConstants[] = {
    {CL_DEVICE_MAX_WORK_GROUP_SIZE, s_nMaxWorkGroupSize},     {CL_DEVICE_IMAGE2D_MAX_WIDTH, s_nMaxImageWidth},
    {CL_DEVICE_IMAGE2D_MAX_HEIGHT, s_nMaxImageWidth},         {CL_DEVICE_IMAGE3D_MAX_WIDTH, s_nMaxImageDepth},
    {CL_DEVICE_IMAGE3D_MAX_HEIGHT, s_nMaxImageDepth},         {CL_DEVICE_IMAGE3D_MAX_DEPTH, s_nMaxImageDepth},
    {CL_DEVICE_IMAGE_MAX_BUFFER_SIZE, s_nMaxImageBufferSize}, {CL_DEVICE_IMAGE_MAX_ARRAY_SIZE, s_nMaxImageArraySize},
    {CL_DEVICE_MAX_PARAMETER_SIZE, s_nMaxParameterSize},      {CL_DEVICE_PROFILING_TIMER_RESOLUTION, 1},
    {CL_DEVICE_PRINTF_BUFFER_SIZE, s_nPrintfBufferSize},
};

} // namespace

cl_int CDevice::GetInfo(cl_device_info eInfo, const SInfoQuery& query) const
{
    for (const SConstant& constant : s_constants)
    {
        if (constant.m_eInfo == eInfo)
        {
            return query.Value(constant.m_nValue);
        }
    }
    for (const SSizeConstant& constant : s_sizeConstants)
    {
        if (constant.m_eInfo == eInfo)
        {
            return query.Value(constant.m_nValue);
        }
    }

    const std::string strBuild = "(" + std::to_string(GetBuildNumber()) + ".0)";
    switch (eInfo)
    {
    case CL_DEVICE_TYPE:
        return query.Value(m_Traits.m_nType);
    case CL_DEVICE_VENDOR_ID:
        return query.Value(m_Traits.m_nVendorId);
    case CL_DEVICE_MAX_COMPUTE_UNITS:
        return query.Value<cl_uint>(std::max(1u, std::thread::hardware_concurrency()));
    case CL_DEVICE_MAX_WORK_ITEM_SIZES:
        return query.Array(std::vector<size_t>(s_nMaxWorkDimensions, s_nMaxWorkGroupSize));
    case CL_DEVICE_ADDRESS_BITS:
        return query.Value<cl_uint>(m_Traits.m_b64BitAddresses ? 64 : 32);
    case CL_DEVICE_MAX_MEM_ALLOC_SIZE:
        return query.Value(m_Traits.m_nMaxAllocation);
    case CL_DEVICE_GLOBAL_MEM_SIZE:
        return query.Value(m_Traits.m_nGlobalMemory);
    case CL_DEVICE_GLOBAL_MEM_CACHE_SIZE:
        return query.Value<cl_ulong>(1024 * 1024);
    case CL_DEVICE_LOCAL_MEM_SIZE:
        return query.Value(s_nLocalMemorySize);
    case CL_DEVICE_MAX_CONSTANT_BUFFER_SIZE:
        return query.Value(s_nMaxConstantBufferSize);
    case CL_DEVICE_SINGLE_FP_CONFIG:
        return query.Value(s_nSingleConfig);
    case CL_DEVICE_DOUBLE_FP_CONFIG:
        return query.Value(s_nDoubleConfig);
    case CL_DEVICE_EXECUTION_CAPABILITIES:
        return query.Value<cl_device_exec_capabilities>(CL_EXEC_KERNEL |
                                                        (m_Traits.m_bNativeKernels ? CL_EXEC_NATIVE_KERNEL : 0));
    case CL_DEVICE_QUEUE_PROPERTIES:
        return query.Value<cl_command_queue_properties>(CL_QUEUE_OUT_OF_ORDER_EXEC_MODE_ENABLE |
                                                        CL_QUEUE_PROFILING_ENABLE);
    case CL_DEVICE_PLATFORM:
        return query.Value(CPlatform::Get().GetId());
    case CL_DEVICE_PARENT_DEVICE:
        return query.Value<cl_device_id>(nullptr);
    case CL_DEVICE_PARTITION_PROPERTIES:
    case CL_DEVICE_PARTITION_TYPE:
        return query.Value<cl_device_partition_property>(0);
    case CL_DEVICE_PARTITION_AFFINITY_DOMAIN:
        return query.Value<cl_device_affinity_domain>(0);
    case CL_DEVICE_BUILT_IN_KERNELS:
        return query.String("");
    case CL_DEVICE_NAME:
        return query.String(m_Traits.m_pszName);
    case CL_DEVICE_VENDOR:
        return query.String("Oberon Vector Kinetics, Inc.");
    case CL_DRIVER_VERSION:
        return query.String(std::to_string(GetBuildNumber()) + ".0");
    case CL_DEVICE_PROFILE:
        return query.String("FULL_PROFILE");
    case CL_DEVICE_VERSION:
        return query.String("OpenCL 1.2 " + strBuild);
    case CL_DEVICE_OPENCL_C_VERSION:
        return query.String("OpenCL C 1.2 " + strBuild);
    case CL_DEVICE_EXTENSIONS:
        return query.String(JoinLanguageExtensions() + GetEnabledExtensions());
    default:
        return CL_INVALID_VALUE;
    }
}

} // namespace KestrelPlatform::Runtime
