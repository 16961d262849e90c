#ifndef KESTREL_TESTS_SUPPORT_FAKECLENTRIES_H
#define KESTREL_TESTS_SUPPORT_FAKECLENTRIES_H

// The entry points of CFakeCL; included by FakeCL.h.

inline CFakeCL::SObject* CFakeCL::NewImage(cl_uint nType, cl_ulong nFlags, const cl_image_format& format, size_t nWidth,
                                           size_t nHeight, size_t nDepth, size_t nArraySize)
{
    size_t nChannels = 1;
    switch (format.image_channel_order)
    {
    case CL_RG:
    case CL_RA:
        nChannels = 2;
        break;
    case CL_RGBA:
    case CL_BGRA:
        nChannels = 4;
        break;
    }
    size_t nChannelSize = 1;
    switch (format.image_channel_data_type)
    {
    case CL_UNSIGNED_INT16:
    case CL_HALF_FLOAT:
        nChannelSize = 2;
        break;
    case CL_FLOAT:
    case CL_UNSIGNED_INT32:
    case CL_SIGNED_INT32:
        nChannelSize = 4;
        break;
    }
    SObject* pImage = F().New("mem");
    pImage->nType = nType;
    pImage->nProperties = nFlags;
    pImage->format = format;
    pImage->size[0] = nWidth;
    pImage->size[1] = nHeight;
    pImage->size[2] = nDepth;
    pImage->nArraySize = nArraySize;
    pImage->nRowPitch = nWidth * nChannels * nChannelSize + F().nRowPadding;
    pImage->nSlicePitch = pImage->nRowPitch * nHeight + F().nSlicePadding;
    pImage->vBytes.assign(pImage->nSlicePitch * nDepth * std::max<size_t>(nArraySize, 1), 0xCD);
    return pImage;
}

inline void* CL_API_CALL CFakeCL::FindFunction(const char* szName)
{
    typedef void(CL_CALLBACK * PFNDestructor)(void*);
    static const auto createKey = +[](cl_platform_id, PFNDestructor, cl_int* pnCode) -> size_t
    { return EnterCreate("clCreateKeyOVK", pnCode) ? 7 : 0; };
    static const auto getValue = +[](void* pEvent, size_t, void** ppValue) -> cl_int
    {
        const cl_int nCode = Enter("clObjectGetValueForKeyOVK");
        *ppValue = nCode == CL_SUCCESS ? static_cast<SObject*>(pEvent)->pSession : nullptr;
        return nCode;
    };
    static const auto setValue = +[](void* pEvent, size_t, void* pValue) -> cl_int
    {
        const cl_int nCode = Enter("clObjectSetValueForKeyOVK");
        static_cast<SObject*>(pEvent)->pSession = nCode == CL_SUCCESS ? pValue : nullptr;
        return nCode;
    };
    if (F().strExtensions.find("cl_ovk_object_metadata") == std::string::npos)
    {
        return nullptr;
    }
    const std::string strName = szName;
    return strName == "clCreateKeyOVK"              ? reinterpret_cast<void*>(createKey)
           : strName == "clObjectGetValueForKeyOVK" ? reinterpret_cast<void*>(getValue)
           : strName == "clObjectSetValueForKeyOVK" ? reinterpret_cast<void*>(setValue)
                                                    : nullptr;
}

#define FAKE_ENTER(name)                                                                                               \
    const cl_int nEntered = Enter(name);                                                                               \
    if (nEntered != CL_SUCCESS)                                                                                        \
    {                                                                                                                  \
        return nEntered;                                                                                               \
    }

#define FAKE_RETAIN(name, type)                                                                                        \
    table.cl##name = [](type handle) -> cl_int                                                                         \
    {                                                                                                                  \
        FAKE_ENTER("cl" #name)                                                                                         \
        ++Of(handle)->nRefs;                                                                                           \
        return CL_SUCCESS;                                                                                             \
    }

#define FAKE_RELEASE(name, type)                                                                                       \
    table.cl##name = [](type handle) -> cl_int                                                                         \
    {                                                                                                                  \
        const cl_int nCode = Enter("cl" #name);                                                                        \
        F().Release(Of(handle));                                                                                       \
        return nCode;                                                                                                  \
    }

inline cl_icd_dispatch_table CFakeCL::Table()
{
    cl_icd_dispatch_table table = {};
    enum class Family
    {
        Core_1_0,
        Core_1_1,
        Core_1_2,
        Core_2_0,
        DeviceFission,
        GLEvent,
        Optional,
        Extension
    };
#define CL_ICD_ENTRY(family, name)                                                                                     \
    if (Family::family <= Family::Core_1_2 || (bVersion20 && Family::family == Family::Core_2_0))                      \
    {                                                                                                                  \
        table.cl##name = reinterpret_cast<cl_api_cl##name>(&Unexpected);                                               \
    }
#include "modules/CLEntryPoints.def"

    table.clGetPlatformIDs = [](cl_uint, cl_platform_id* pPlatforms, cl_uint* pnCount) -> cl_int
    {
        FAKE_ENTER("clGetPlatformIDs")
        if (pPlatforms != nullptr)
        {
            *pPlatforms = Platform();
        }
        if (pnCount != nullptr)
        {
            *pnCount = 1;
        }
        return CL_SUCCESS;
    };
    table.clGetDeviceIDs = [](cl_platform_id, cl_device_type, cl_uint, cl_device_id* pDevices,
                              cl_uint* pnCount) -> cl_int
    {
        FAKE_ENTER("clGetDeviceIDs")
        if (pDevices != nullptr)
        {
            *pDevices = Device();
        }
        if (pnCount != nullptr)
        {
            *pnCount = 1;
        }
        return CL_SUCCESS;
    };
    table.clGetPlatformInfo = [](cl_platform_id, cl_platform_info nName, size_t nSize, void* pValue,
                                 size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetPlatformInfo")
        return PutText(nName == CL_PLATFORM_VENDOR ? F().strVendor : F().strExtensions, nSize, pValue, pnSize);
    };
    table.clGetDeviceInfo = [](cl_device_id, cl_device_info nName, size_t nSize, void* pValue, size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetDeviceInfo")
        switch (nName)
        {
        case CL_DEVICE_TYPE:
            return Put(F().nDeviceType, nSize, pValue, pnSize);
        case CL_DEVICE_PLATFORM:
            return Put(Platform(), nSize, pValue, pnSize);
        case CL_DEVICE_NAME:
            return PutText(F().strDeviceName, nSize, pValue, pnSize);
        case CL_DEVICE_VERSION:
            return PutText(F().strDeviceVersion, nSize, pValue, pnSize);
        default:
            return CL_INVALID_VALUE;
        }
    };

    table.clCreateContext = [](const cl_context_properties* pProperties, cl_uint, const cl_device_id*,
                               void(CL_CALLBACK*)(const char*, const void*, size_t, void*), void*,
                               cl_int* pnCode) -> cl_context
    {
        if (!EnterCreate("clCreateContext", pnCode))
        {
            return nullptr;
        }
        F().vContextProperties.clear();
        for (; *pProperties != 0; pProperties += 2)
        {
            F().vContextProperties.insert(F().vContextProperties.end(), pProperties, pProperties + 2);
        }
        return To<cl_context>(F().New("context"));
    };
    table.clCreateContextFromType = [](const cl_context_properties* pProperties, cl_device_type,
                                       void(CL_CALLBACK*)(const char*, const void*, size_t, void*), void*,
                                       cl_int* pnCode) -> cl_context
    {
        if (!EnterCreate("clCreateContextFromType", pnCode))
        {
            return nullptr;
        }
        F().vContextProperties.clear();
        for (; pProperties != nullptr && *pProperties != 0; pProperties += 2)
        {
            F().vContextProperties.insert(F().vContextProperties.end(), pProperties, pProperties + 2);
        }
        return To<cl_context>(F().New("context"));
    };
    table.clGetContextInfo = [](cl_context, cl_context_info nName, size_t nSize, void* pValue, size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetContextInfo")
        return nName == CL_CONTEXT_NUM_DEVICES ? Put(cl_uint(1), nSize, pValue, pnSize)
                                               : Put(Device(), nSize, pValue, pnSize);
    };
    FAKE_RETAIN(RetainContext, cl_context);
    FAKE_RELEASE(ReleaseContext, cl_context);

    table.clCreateCommandQueue = [](cl_context, cl_device_id, cl_command_queue_properties nProperties,
                                    cl_int* pnCode) -> cl_command_queue
    {
        if (!EnterCreate("clCreateCommandQueue", pnCode))
        {
            return nullptr;
        }
        SObject* pQueue = F().New("queue");
        pQueue->nProperties = nProperties;
        return To<cl_command_queue>(pQueue);
    };
    table.clGetCommandQueueInfo = [](cl_command_queue queue, cl_command_queue_info nName, size_t nSize, void* pValue,
                                     size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetCommandQueueInfo")
        return nName == CL_QUEUE_DEVICE ? Put(Device(), nSize, pValue, pnSize)
                                        : Put(Of(queue)->nProperties, nSize, pValue, pnSize);
    };
    FAKE_RELEASE(ReleaseCommandQueue, cl_command_queue);
    table.clFinish = [](cl_command_queue) -> cl_int { return Enter("clFinish"); };

    table.clCreateBuffer = [](cl_context, cl_mem_flags nFlags, size_t nSize, void*, cl_int* pnCode) -> cl_mem
    {
        if (!EnterCreate("clCreateBuffer", pnCode))
        {
            return nullptr;
        }
        SObject* pBuffer = F().New("mem");
        pBuffer->nType = CL_MEM_OBJECT_BUFFER;
        pBuffer->nProperties = nFlags;
        pBuffer->vBytes.assign(nSize, 0xCD);
        return To<cl_mem>(pBuffer);
    };
    table.clCreateImage = [](cl_context, cl_mem_flags nFlags, const cl_image_format* pFormat,
                             const cl_image_desc* pDesc, void*, cl_int* pnCode) -> cl_mem
    {
        const bool b1D = pDesc->image_type == CL_MEM_OBJECT_IMAGE1D || pDesc->image_type == CL_MEM_OBJECT_IMAGE1D_ARRAY;
        const bool b3D = pDesc->image_type == CL_MEM_OBJECT_IMAGE3D;
        return EnterCreate("clCreateImage", pnCode)
                   ? To<cl_mem>(NewImage(pDesc->image_type, nFlags, *pFormat, pDesc->image_width,
                                         b1D ? 1 : pDesc->image_height, b3D ? pDesc->image_depth : 1,
                                         pDesc->image_array_size))
                   : nullptr;
    };
    table.clCreateImage2D = [](cl_context, cl_mem_flags nFlags, const cl_image_format* pFormat, size_t nWidth,
                               size_t nHeight, size_t, void*, cl_int* pnCode) -> cl_mem
    {
        return EnterCreate("clCreateImage2D", pnCode)
                   ? To<cl_mem>(NewImage(CL_MEM_OBJECT_IMAGE2D, nFlags, *pFormat, nWidth, nHeight, 1, 0))
                   : nullptr;
    };
    table.clCreateImage3D = [](cl_context, cl_mem_flags nFlags, const cl_image_format* pFormat, size_t nWidth,
                               size_t nHeight, size_t nDepth, size_t, size_t, void*, cl_int* pnCode) -> cl_mem
    {
        return EnterCreate("clCreateImage3D", pnCode)
                   ? To<cl_mem>(NewImage(CL_MEM_OBJECT_IMAGE3D, nFlags, *pFormat, nWidth, nHeight, nDepth, 0))
                   : nullptr;
    };
    FAKE_RELEASE(ReleaseMemObject, cl_mem);
    table.clGetMemObjectInfo = [](cl_mem mem, cl_mem_info nName, size_t nSize, void* pValue, size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetMemObjectInfo")
        switch (nName)
        {
        case CL_MEM_TYPE:
            return Put(cl_mem_object_type(Of(mem)->nType), nSize, pValue, pnSize);
        case CL_MEM_FLAGS:
            return Put(Of(mem)->nProperties, nSize, pValue, pnSize);
        default:
            return Put(Of(mem)->vBytes.size(), nSize, pValue, pnSize);
        }
    };
    table.clGetImageInfo = [](cl_mem mem, cl_image_info nName, size_t nSize, void* pValue, size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetImageInfo")
        switch (nName)
        {
        case CL_IMAGE_FORMAT:
            return Put(Of(mem)->format, nSize, pValue, pnSize);
        case CL_IMAGE_WIDTH:
            return Put(Of(mem)->size[0], nSize, pValue, pnSize);
        case CL_IMAGE_HEIGHT:
            return Put(Of(mem)->size[1], nSize, pValue, pnSize);
        case CL_IMAGE_DEPTH:
            return Put(Of(mem)->size[2], nSize, pValue, pnSize);
        case CL_IMAGE_ROW_PITCH:
            return Put(Of(mem)->nRowPitch, nSize, pValue, pnSize);
        default:
            return Put(Of(mem)->nArraySize, nSize, pValue, pnSize);
        }
    };

    table.clEnqueueMapBuffer = [](cl_command_queue, cl_mem mem, cl_bool, cl_map_flags, size_t, size_t, cl_uint,
                                  const cl_event*, cl_event*, cl_int* pnCode) -> void*
    { return EnterCreate("clEnqueueMapBuffer", pnCode) ? Of(mem)->vBytes.data() : nullptr; };
    table.clEnqueueMapImage = [](cl_command_queue, cl_mem mem, cl_bool, cl_map_flags, const size_t*,
                                 const size_t* pRegion, size_t* pnRowPitch, size_t* pnSlicePitch, cl_uint,
                                 const cl_event*, cl_event*, cl_int* pnCode) -> void*
    {
        if (!EnterCreate("clEnqueueMapImage", pnCode))
        {
            return nullptr;
        }
        const SObject& image = *Of(mem);
        const bool b1DArray = image.nType == CL_MEM_OBJECT_IMAGE1D_ARRAY;
        const size_t nSlices = image.nArraySize > 1 ? image.nArraySize : image.size[2];
        if (pRegion[0] != image.size[0] || pRegion[1] != (b1DArray ? nSlices : image.size[1]) ||
            pRegion[2] != (b1DArray ? 1 : nSlices))
        {
            *pnCode = CL_INVALID_VALUE;
            return nullptr;
        }
        *pnRowPitch = image.nRowPitch;
        *pnSlicePitch = nSlices > 1 ? image.nSlicePitch : 0;
        return Of(mem)->vBytes.data();
    };
    table.clEnqueueUnmapMemObject = [](cl_command_queue, cl_mem, void*, cl_uint, const cl_event*, cl_event*) -> cl_int
    { return Enter("clEnqueueUnmapMemObject"); };
    table.clEnqueueCopyBuffer = [](cl_command_queue, cl_mem source, cl_mem destination, size_t, size_t, size_t nSize,
                                   cl_uint, const cl_event*, cl_event*) -> cl_int
    {
        FAKE_ENTER("clEnqueueCopyBuffer")
        std::memcpy(Of(destination)->vBytes.data(), Of(source)->vBytes.data(), nSize);
        return CL_SUCCESS;
    };
    table.clEnqueueCopyImage = [](cl_command_queue, cl_mem source, cl_mem destination, const size_t*, const size_t*,
                                  const size_t*, cl_uint, const cl_event*, cl_event*) -> cl_int
    {
        FAKE_ENTER("clEnqueueCopyImage")
        Of(destination)->vBytes = Of(source)->vBytes;
        return CL_SUCCESS;
    };

    table.clCreateProgramWithSource = [](cl_context, cl_uint, const char**, const size_t*, cl_int* pnCode) -> cl_program
    { return EnterCreate("clCreateProgramWithSource", pnCode) ? To<cl_program>(F().New("program")) : nullptr; };
    table.clCreateProgramWithBinary = [](cl_context, cl_uint, const cl_device_id*, const size_t* pnLengths,
                                         const unsigned char** ppBinaries, cl_int*, cl_int* pnCode) -> cl_program
    {
        if (!EnterCreate("clCreateProgramWithBinary", pnCode))
        {
            return nullptr;
        }
        SObject* pProgram = F().New("program");
        pProgram->vBytes.assign(ppBinaries[0], ppBinaries[0] + pnLengths[0]);
        return To<cl_program>(pProgram);
    };
    FAKE_RELEASE(ReleaseProgram, cl_program);
    table.clBuildProgram = [](cl_program, cl_uint, const cl_device_id*, const char* szOptions,
                              void(CL_CALLBACK*)(cl_program, void*), void*) -> cl_int
    {
        FAKE_ENTER("clBuildProgram")
        const std::string strOptions = szOptions != nullptr ? szOptions : "";
        F().vBuildOptions.push_back(strOptions);
        const bool bRefused =
            !F().strRefusedOption.empty() && strOptions.find(F().strRefusedOption) != std::string::npos;
        return bRefused ? CL_INVALID_BUILD_OPTIONS : CL_SUCCESS;
    };
    table.clGetProgramInfo = [](cl_program, cl_program_info nName, size_t nSize, void* pValue, size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetProgramInfo")
        switch (nName)
        {
        case CL_PROGRAM_NUM_DEVICES:
            return Put(cl_uint(1), nSize, pValue, pnSize);
        case CL_PROGRAM_DEVICES:
            return Put(Device(), nSize, pValue, pnSize);
        case CL_PROGRAM_BINARY_SIZES:
            return Put(F().vProgramBinary.size(), nSize, pValue, pnSize);
        default:
            std::copy(F().vProgramBinary.begin(), F().vProgramBinary.end(), *static_cast<char**>(pValue));
            return CL_SUCCESS;
        }
    };

    table.clCreateKernel = [](cl_program, const char* szName, cl_int* pnCode) -> cl_kernel
    { return EnterCreate("clCreateKernel", pnCode) ? To<cl_kernel>(F().NewKernel(szName)) : nullptr; };
    FAKE_RETAIN(RetainKernel, cl_kernel);
    FAKE_RELEASE(ReleaseKernel, cl_kernel);
    table.clSetKernelArg = [](cl_kernel kernel, cl_uint nIndex, size_t nSize, const void* pValue) -> cl_int
    {
        FAKE_ENTER("clSetKernelArg")
        std::vector<unsigned char>& vArgument = Of(kernel)->vArguments.at(nIndex);
        vArgument.assign(nSize, 0);
        if (pValue != nullptr)
        {
            std::memcpy(vArgument.data(), pValue, nSize);
        }
        return CL_SUCCESS;
    };
    table.clGetKernelInfo = [](cl_kernel kernel, cl_kernel_info nName, size_t nSize, void* pValue,
                               size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetKernelInfo")
        switch (nName)
        {
        case CL_KERNEL_FUNCTION_NAME:
            return PutText(Of(kernel)->strName, nSize, pValue, pnSize);
        case CL_KERNEL_NUM_ARGS:
            return Put(cl_uint(Of(kernel)->vArguments.size()), nSize, pValue, pnSize);
        case CL_KERNEL_REFERENCE_COUNT:
            return Put(cl_uint(Of(kernel)->nRefs), nSize, pValue, pnSize);
        default:
            return Put(&Owner(), nSize, pValue, pnSize);
        }
    };
    table.clGetKernelWorkGroupInfo = [](cl_kernel, cl_device_id, cl_kernel_work_group_info, size_t nSize, void* pValue,
                                        size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetKernelWorkGroupInfo")
        return Put(F().nWorkGroupLimit, nSize, pValue, pnSize);
    };

    table.clEnqueueNDRangeKernel = [](cl_command_queue queue, cl_kernel kernel, cl_uint, const size_t*, const size_t*,
                                      const size_t* pLocalSize, cl_uint, const cl_event*, cl_event* pEvent) -> cl_int
    {
        FAKE_ENTER("clEnqueueNDRangeKernel")
        F().pLastLocalSize = pLocalSize;
        SObject* pNewEvent = F().New("event");
        pNewEvent->nType = CL_COMMAND_NDRANGE_KERNEL;
        if ((Of(queue)->nProperties >> 63) != 0 && Of(kernel)->strName != "dummy")
        {
            ++pNewEvent->nRefs;
            F().vPending.push_back({pNewEvent, Of(kernel)->strName});
        }
        else
        {
            F().vRuns.push_back(Of(kernel)->strName);
            if (F().onRun)
            {
                F().onRun(*Of(kernel));
            }
        }
        if (pEvent != nullptr)
        {
            *pEvent = To<cl_event>(pNewEvent);
        }
        else
        {
            F().Release(pNewEvent);
        }
        return CL_SUCCESS;
    };
    table.clWaitForEvents = [](cl_uint, const cl_event*) -> cl_int { return Enter("clWaitForEvents"); };
    table.clGetEventInfo = [](cl_event event, cl_event_info, size_t nSize, void* pValue, size_t* pnSize) -> cl_int
    {
        FAKE_ENTER("clGetEventInfo")
        return Put(cl_command_type(Of(event)->nType), nSize, pValue, pnSize);
    };
    table.clSetEventCallback = [](cl_event event, cl_int, void(CL_CALLBACK * pCallback)(cl_event, cl_int, void*),
                                  void* pUser) -> cl_int
    {
        FAKE_ENTER("clSetEventCallback")
        Of(event)->vCallbacks.push_back([=](cl_int nStatus) { pCallback(event, nStatus, pUser); });
        return CL_SUCCESS;
    };
    FAKE_RETAIN(RetainEvent, cl_event);
    FAKE_RELEASE(ReleaseEvent, cl_event);

    table.clGetExtensionFunctionAddress = [](const char* szName) -> void* { return FindFunction(szName); };
    table.clGetExtensionFunctionAddressForPlatform = [](cl_platform_id, const char* szName) -> void*
    { return FindFunction(szName); };
    return table;
}

#undef FAKE_ENTER
#undef FAKE_RETAIN
#undef FAKE_RELEASE

#endif
