// The entry point for the loader of OpenCL drivers, and the functions that the layer puts before those below it.

#include "tools/layer/Complaints.h"
#include "tools/layer/Connection.h"
#include "tools/layer/Launches.h"
#include "tools/layer/Queries.h"

#include <CL/cl_layer.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

namespace KestrelLayer
{

namespace
{

/// Does the layer's own work beside a call. The program doesn't notice its failures.
template <typename Work>
void Quietly(Work work)
{
    if (!CConnection::Get().IsOn())
    {
        return;
    }
    try
    {
        work();
    }
    catch (...)
    {
        // The launch runs without being debugged.
        return;
    }
}

// ---------------------------------------------------------------------------------------- memory and samplers

cl_mem NoteMemory(cl_mem memory)
{
    if (memory != nullptr)
    {
        Quietly([&] { CObjects::Get().AddMemory(memory); });
    }
    return memory;
}

/// Notes a new buffer, as unwritten if the host gives no contents.
cl_mem NoteBuffer(cl_mem buffer, const void* pHost)
{
    NoteMemory(buffer);
    if (buffer != nullptr && pHost == nullptr)
    {
        Quietly([&] { CObjects::Get().NoteNoContents(buffer); });
    }
    return buffer;
}

cl_mem CL_API_CALL CreateBuffer(cl_context context, cl_mem_flags nFlags, size_t nSize, void* pHost, cl_int* pCode)
{
    return NoteBuffer(g_pTarget->clCreateBuffer(context, nFlags, nSize, pHost, pCode), pHost);
}

cl_mem CL_API_CALL CreateSubBuffer(cl_mem buffer, cl_mem_flags nFlags, cl_buffer_create_type nType, const void* pInfo,
                                   cl_int* pCode)
{
    Quietly([&] { CObjects::Get().NoteContents(buffer); }); // writes to sub-buffers aren't tracked
    return NoteMemory(g_pTarget->clCreateSubBuffer(buffer, nFlags, nType, pInfo, pCode));
}

cl_mem CL_API_CALL CreateImage(cl_context context, cl_mem_flags nFlags, const cl_image_format* pFormat,
                               const cl_image_desc* pDesc, void* pHost, cl_int* pCode)
{
    if (pDesc != nullptr && pDesc->buffer != nullptr)
    {
        Quietly([&] { CObjects::Get().NoteContents(pDesc->buffer); });
    }
    return NoteMemory(g_pTarget->clCreateImage(context, nFlags, pFormat, pDesc, pHost, pCode));
}

cl_mem CL_API_CALL CreateImage2D(cl_context context, cl_mem_flags nFlags, const cl_image_format* pFormat, size_t nWidth,
                                 size_t nHeight, size_t nPitch, void* pHost, cl_int* pCode)
{
    return NoteMemory(g_pTarget->clCreateImage2D(context, nFlags, pFormat, nWidth, nHeight, nPitch, pHost, pCode));
}

cl_mem CL_API_CALL CreateImage3D(cl_context context, cl_mem_flags nFlags, const cl_image_format* pFormat, size_t nWidth,
                                 size_t nHeight, size_t nDepth, size_t nRow, size_t nSlice, void* pHost, cl_int* pCode)
{
    return NoteMemory(
        g_pTarget->clCreateImage3D(context, nFlags, pFormat, nWidth, nHeight, nDepth, nRow, nSlice, pHost, pCode));
}

// From OpenCL 3.0. At this version the headers know the property types only as integers of the same width.
typedef cl_mem(CL_API_CALL* CreateBufferFunction)(cl_context, const cl_ulong*, cl_mem_flags, size_t, void*, cl_int*);
typedef cl_mem(CL_API_CALL* CreateImageFunction)(cl_context, const cl_ulong*, cl_mem_flags, const cl_image_format*,
                                                 const cl_image_desc*, void*, cl_int*);

template <typename Function, typename Entry>
Function Cast(Entry pEntry)
{
    return reinterpret_cast<Function>(pEntry);
}

cl_mem CL_API_CALL CreateBufferWithProperties(cl_context context, const cl_ulong* pProperties, cl_mem_flags nFlags,
                                              size_t nSize, void* pHost, cl_int* pCode)
{
    return NoteBuffer(Cast<CreateBufferFunction>(g_pTarget->clCreateBufferWithProperties)(context, pProperties, nFlags,
                                                                                          nSize, pHost, pCode),
                      pHost);
}

cl_mem CL_API_CALL CreateImageWithProperties(cl_context context, const cl_ulong* pProperties, cl_mem_flags nFlags,
                                             const cl_image_format* pFormat, const cl_image_desc* pDesc, void* pHost,
                                             cl_int* pCode)
{
    return NoteMemory(Cast<CreateImageFunction>(g_pTarget->clCreateImageWithProperties)(context, pProperties, nFlags,
                                                                                        pFormat, pDesc, pHost, pCode));
}

cl_sampler NoteSampler(cl_sampler sampler)
{
    if (sampler != nullptr)
    {
        Quietly([&] { CObjects::Get().AddSampler(sampler); });
    }
    return sampler;
}

cl_sampler CL_API_CALL CreateSampler(cl_context context, cl_bool bNormalized, cl_addressing_mode nAddressing,
                                     cl_filter_mode nFilter, cl_int* pCode)
{
    return NoteSampler(g_pTarget->clCreateSampler(context, bNormalized, nAddressing, nFilter, pCode));
}

cl_sampler CL_API_CALL CreateSamplerWithProperties(cl_context context, const cl_sampler_properties* pProperties,
                                                   cl_int* pCode)
{
    return NoteSampler(g_pTarget->clCreateSamplerWithProperties(context, pProperties, pCode));
}

cl_int CL_API_CALL ReleaseSampler(cl_sampler sampler)
{
    Quietly(
        [&]
        {
            const cl_uint nOwners = AskValue<cl_uint>(
                [=](size_t nSize, void* pValue, size_t* pSize)
                { return g_pTarget->clGetSamplerInfo(sampler, CL_SAMPLER_REFERENCE_COUNT, nSize, pValue, pSize); });
            if (nOwners == 1)
            {
                CObjects::Get().RemoveSampler(sampler);
            }
        });
    return g_pTarget->clReleaseSampler(sampler);
}

// ---------------------------------------------------------------------------------------- programs

cl_program NoteProgram(cl_program program)
{
    if (program != nullptr)
    {
        Quietly([&] { CObjects::Get().AddProgram(program); });
    }
    return program;
}

cl_program CL_API_CALL CreateProgramWithSource(cl_context context, cl_uint nCount, const char** ppTexts,
                                               const size_t* pLengths, cl_int* pCode)
{
    return NoteProgram(g_pTarget->clCreateProgramWithSource(context, nCount, ppTexts, pLengths, pCode));
}

cl_program CL_API_CALL CreateProgramWithBinary(cl_context context, cl_uint nDevices, const cl_device_id* pDevices,
                                               const size_t* pLengths, const unsigned char** ppBinaries,
                                               cl_int* pStatus, cl_int* pCode)
{
    return NoteProgram(
        g_pTarget->clCreateProgramWithBinary(context, nDevices, pDevices, pLengths, ppBinaries, pStatus, pCode));
}

cl_program CL_API_CALL LinkProgram(cl_context context, cl_uint nDevices, const cl_device_id* pDevices,
                                   const char* pszOptions, cl_uint nPrograms, const cl_program* pPrograms,
                                   void(CL_CALLBACK* pfnNotify)(cl_program, void*), void* pUserData, cl_int* pCode)
{
    return NoteProgram(g_pTarget->clLinkProgram(context, nDevices, pDevices, pszOptions, nPrograms, pPrograms,
                                                pfnNotify, pUserData, pCode));
}

cl_int CL_API_CALL BuildProgram(cl_program program, cl_uint nDevices, const cl_device_id* pDevices,
                                const char* pszOptions, void(CL_CALLBACK* pfnNotify)(cl_program, void*),
                                void* pUserData)
{
    Quietly([&] { CObjects::Get().ForgetProgram(program); });
    return g_pTarget->clBuildProgram(program, nDevices, pDevices, pszOptions, pfnNotify, pUserData);
}

// ---------------------------------------------------------------------------------------- kernels

cl_kernel CL_API_CALL CreateKernel(cl_program program, const char* pszName, cl_int* pCode)
{
    const cl_kernel kernel = g_pTarget->clCreateKernel(program, pszName, pCode);
    if (kernel != nullptr)
    {
        Quietly([&] { CObjects::Get().AddKernel(kernel); });
    }
    return kernel;
}

cl_int CL_API_CALL CreateKernelsInProgram(cl_program program, cl_uint nKernels, cl_kernel* pKernels, cl_uint* pCount)
{
    cl_uint nCount = 0;
    const cl_int nCode = g_pTarget->clCreateKernelsInProgram(program, nKernels, pKernels, &nCount);
    if (pCount != nullptr)
    {
        *pCount = nCount;
    }
    for (cl_uint i = 0; nCode == CL_SUCCESS && pKernels != nullptr && i < nCount && i < nKernels; ++i)
    {
        Quietly([&] { CObjects::Get().AddKernel(pKernels[i]); });
    }
    return nCode;
}

typedef cl_kernel(CL_API_CALL* CloneKernelFunction)(cl_kernel, cl_int*);

cl_kernel CL_API_CALL CloneKernel(cl_kernel source, cl_int* pCode)
{
    const cl_kernel kernel = Cast<CloneKernelFunction>(g_pTarget->clCloneKernel)(source, pCode);
    if (kernel != nullptr)
    {
        Quietly([&] { CObjects::Get().CopyKernel(source, kernel); });
    }
    return kernel;
}

cl_int CL_API_CALL ReleaseKernel(cl_kernel kernel)
{
    Quietly(
        [&]
        {
            const cl_uint nOwners = AskValue<cl_uint>(
                [=](size_t nSize, void* pValue, size_t* pSize)
                { return g_pTarget->clGetKernelInfo(kernel, CL_KERNEL_REFERENCE_COUNT, nSize, pValue, pSize); });
            if (nOwners == 1)
            {
                CObjects::Get().RemoveKernel(kernel);
            }
        });
    return g_pTarget->clReleaseKernel(kernel);
}

cl_int CL_API_CALL SetKernelArg(cl_kernel kernel, cl_uint nIndex, size_t nSize, const void* pValue)
{
    const cl_int nCode = g_pTarget->clSetKernelArg(kernel, nIndex, nSize, pValue);
    if (nCode == CL_SUCCESS)
    {
        Quietly([&] { CObjects::Get().SetArgument(kernel, nIndex, nSize, pValue); });
    }
    return nCode;
}

cl_int CL_API_CALL SetKernelArgSVMPointer(cl_kernel kernel, cl_uint nIndex, const void* pValue)
{
    const cl_int nCode = g_pTarget->clSetKernelArgSVMPointer(kernel, nIndex, pValue);
    Quietly([&] { CObjects::Get().SpoilArgument(kernel, nIndex); });
    return nCode;
}

// ---------------------------------------------------------------------------------------- events

cl_event CL_API_CALL CreateUserEvent(cl_context context, cl_int* pCode)
{
    const cl_event event = g_pTarget->clCreateUserEvent(context, pCode);
    if (event != nullptr)
    {
        Quietly([&] { CObjects::Get().AddUserEvent(event); });
    }
    return event;
}

cl_int CL_API_CALL SetUserEventStatus(cl_event event, cl_int nStatus)
{
    Quietly([&] { CObjects::Get().EndUserEvent(event); });
    return g_pTarget->clSetUserEventStatus(event, nStatus);
}

cl_int CL_API_CALL SetEventCallback(cl_event event, cl_int nStatus,
                                    void(CL_CALLBACK* pfnNotify)(cl_event, cl_int, void*), void* pUserData)
{
    if (pfnNotify == nullptr || !CConnection::Get().IsOn())
    {
        return g_pTarget->clSetEventCallback(event, nStatus, pfnNotify, pUserData);
    }
    auto* const pCallback = new (std::nothrow) SEventCallback{pfnNotify, pUserData};
    const cl_int nCode = pCallback != nullptr ? g_pTarget->clSetEventCallback(event, nStatus, CallBack, pCallback)
                                              : CL_OUT_OF_HOST_MEMORY;
    if (nCode != CL_SUCCESS)
    {
        delete pCallback;
    }
    return nCode;
}

/// Makes a function for an entry that first runs some work of the layer.
template <auto pEntry, auto before, typename Function>
struct SBeside;

template <auto pEntry, auto before, typename Result, typename... Parameters>
struct SBeside<pEntry, before, Result(CL_API_CALL*)(Parameters...)>
{
    static Result CL_API_CALL Call(Parameters... parameters)
    {
        Quietly([&] { before(parameters...); });
        return (g_pTarget->*pEntry)(parameters...);
    }
};

#define KESTREL_BESIDE(name, before)                                                                                   \
    const auto name = &SBeside<&cl_icd_dispatch::cl##name, before, decltype(cl_icd_dispatch::cl##name)>::Call

KESTREL_BESIDE(Finish, [](auto...) { NoteWait("clFinish"); });
KESTREL_BESIDE(WaitForEvents, [](auto...) { NoteWait("clWaitForEvents"); });

// ---------------------------------------------------------------------------------------- what the host writes

/// A transfer, which may wait, and whose target is written from now on.
void NoteTransfer(cl_mem written, cl_bool bWaits, const char* pszCall)
{
    if (written != nullptr)
    {
        CObjects::Get().NoteContents(written);
    }
    if (bWaits != CL_FALSE)
    {
        NoteWait(pszCall);
    }
}

KESTREL_BESIDE(EnqueueReadBuffer, [](cl_command_queue, cl_mem, cl_bool bWaits, auto...)
               { NoteTransfer(nullptr, bWaits, "clEnqueueReadBuffer"); });
KESTREL_BESIDE(EnqueueReadBufferRect, [](cl_command_queue, cl_mem, cl_bool bWaits, auto...)
               { NoteTransfer(nullptr, bWaits, "clEnqueueReadBufferRect"); });
KESTREL_BESIDE(EnqueueReadImage, [](cl_command_queue, cl_mem, cl_bool bWaits, auto...)
               { NoteTransfer(nullptr, bWaits, "clEnqueueReadImage"); });
KESTREL_BESIDE(EnqueueWriteBuffer, [](cl_command_queue, cl_mem buffer, cl_bool bWaits, auto...)
               { NoteTransfer(buffer, bWaits, "clEnqueueWriteBuffer"); });
KESTREL_BESIDE(EnqueueWriteBufferRect, [](cl_command_queue, cl_mem buffer, cl_bool bWaits, auto...)
               { NoteTransfer(buffer, bWaits, "clEnqueueWriteBufferRect"); });
KESTREL_BESIDE(EnqueueWriteImage, [](cl_command_queue, cl_mem image, cl_bool bWaits, auto...)
               { NoteTransfer(image, bWaits, "clEnqueueWriteImage"); });
KESTREL_BESIDE(EnqueueMapBuffer, [](cl_command_queue, cl_mem buffer, cl_bool bWaits, auto...)
               { NoteTransfer(buffer, bWaits, "clEnqueueMapBuffer"); });
KESTREL_BESIDE(EnqueueMapImage, [](cl_command_queue, cl_mem image, cl_bool bWaits, auto...)
               { NoteTransfer(image, bWaits, "clEnqueueMapImage"); });
KESTREL_BESIDE(EnqueueFillBuffer, [](cl_command_queue, cl_mem buffer, auto...) { NoteTransfer(buffer, CL_FALSE, ""); });
KESTREL_BESIDE(EnqueueCopyBuffer, [](cl_command_queue, cl_mem, cl_mem to, auto...) { NoteTransfer(to, CL_FALSE, ""); });
KESTREL_BESIDE(EnqueueCopyBufferRect,
               [](cl_command_queue, cl_mem, cl_mem to, auto...) { NoteTransfer(to, CL_FALSE, ""); });
KESTREL_BESIDE(EnqueueCopyImageToBuffer,
               [](cl_command_queue, cl_mem, cl_mem to, auto...) { NoteTransfer(to, CL_FALSE, ""); });

// ---------------------------------------------------------------------------------------- launches

/// Launches a kernel for the program, and reports it.
template <typename Enqueue>
cl_int Launch(cl_kernel object, const SLaunchCall& call, Enqueue enqueue)
{
    SNotedLaunch launch;
    Quietly([&] { launch = NoteLaunch(object, call); });
    const cl_int nCode = enqueue();
    Quietly([&] { NoteOutcome(launch, nCode); });
    return nCode;
}

cl_int CL_API_CALL EnqueueNDRangeKernel(cl_command_queue queue, cl_kernel kernel, cl_uint nDimensions,
                                        const size_t* pOffset, const size_t* pGlobal, const size_t* pLocal,
                                        cl_uint nEvents, const cl_event* pEvents, cl_event* pEvent)
{
    return Launch(kernel, {queue, nDimensions, pOffset, pGlobal, pLocal, nEvents, pEvents},
                  [&]
                  {
                      return g_pTarget->clEnqueueNDRangeKernel(queue, kernel, nDimensions, pOffset, pGlobal, pLocal,
                                                               nEvents, pEvents, pEvent);
                  });
}

cl_int CL_API_CALL EnqueueTask(cl_command_queue queue, cl_kernel kernel, cl_uint nEvents, const cl_event* pEvents,
                               cl_event* pEvent)
{
    const size_t nOne = 1;
    return Launch(kernel, {queue, 1, nullptr, &nOne, &nOne, nEvents, pEvents},
                  [&] { return g_pTarget->clEnqueueTask(queue, kernel, nEvents, pEvents, pEvent); });
}

// ---------------------------------------------------------------------------------------- the table

struct SReplaced
{
    size_t nEntry; ///< index in the dispatch table
    void* pFunction;
};

#define KESTREL_REPLACED(name)                                                                                         \
    {                                                                                                                  \
        offsetof(cl_icd_dispatch, cl##name) / sizeof(void*), reinterpret_cast<void*>(+name)                            \
    }

const SReplaced s_Replaced[] = {
    KESTREL_REPLACED(CreateBuffer),
    KESTREL_REPLACED(CreateSubBuffer),
    KESTREL_REPLACED(CreateImage),
    KESTREL_REPLACED(CreateImage2D),
    KESTREL_REPLACED(CreateImage3D),
    KESTREL_REPLACED(CreateBufferWithProperties),
    KESTREL_REPLACED(CreateImageWithProperties),
    KESTREL_REPLACED(CreateSampler),
    KESTREL_REPLACED(CreateSamplerWithProperties),
    KESTREL_REPLACED(ReleaseSampler),
    KESTREL_REPLACED(CreateProgramWithSource),
    KESTREL_REPLACED(CreateProgramWithBinary),
    KESTREL_REPLACED(LinkProgram),
    KESTREL_REPLACED(BuildProgram),
    KESTREL_REPLACED(CreateKernel),
    KESTREL_REPLACED(CreateKernelsInProgram),
    KESTREL_REPLACED(CloneKernel),
    KESTREL_REPLACED(ReleaseKernel),
    KESTREL_REPLACED(SetKernelArg),
    KESTREL_REPLACED(SetKernelArgSVMPointer),
    KESTREL_REPLACED(CreateUserEvent),
    KESTREL_REPLACED(SetUserEventStatus),
    KESTREL_REPLACED(SetEventCallback),
    KESTREL_REPLACED(Finish),
    KESTREL_REPLACED(WaitForEvents),
    KESTREL_REPLACED(EnqueueReadBuffer),
    KESTREL_REPLACED(EnqueueReadBufferRect),
    KESTREL_REPLACED(EnqueueReadImage),
    KESTREL_REPLACED(EnqueueWriteBuffer),
    KESTREL_REPLACED(EnqueueWriteBufferRect),
    KESTREL_REPLACED(EnqueueWriteImage),
    KESTREL_REPLACED(EnqueueMapBuffer),
    KESTREL_REPLACED(EnqueueMapImage),
    KESTREL_REPLACED(EnqueueFillBuffer),
    KESTREL_REPLACED(EnqueueCopyBuffer),
    KESTREL_REPLACED(EnqueueCopyBufferRect),
    KESTREL_REPLACED(EnqueueCopyImageToBuffer),
    KESTREL_REPLACED(EnqueueNDRangeKernel),
    KESTREL_REPLACED(EnqueueTask),
};

/// The target's functions, with some replaced by the layer's. A function that is missing below is missing here too.
std::vector<void*>* MakeTable(size_t nEntries, const cl_icd_dispatch* pTarget)
{
    void* const* const pFirst = reinterpret_cast<void* const*>(pTarget);
    auto* const pTable = new std::vector<void*>(pFirst, pFirst + nEntries);
    for (const SReplaced& replaced : s_Replaced)
    {
        if (replaced.nEntry < nEntries && (*pTable)[replaced.nEntry] != nullptr)
        {
            (*pTable)[replaced.nEntry] = replaced.pFunction;
        }
    }
    return pTable;
}

/// Completes a table that an older loader has cut short.
const cl_icd_dispatch* CompleteTarget(size_t nEntries, const cl_icd_dispatch* pTarget)
{
    constexpr size_t nOwn = sizeof(cl_icd_dispatch) / sizeof(void*);
    if (nEntries >= nOwn)
    {
        return pTarget;
    }
    auto* const pComplete = new cl_icd_dispatch();
    std::memcpy(static_cast<void*>(pComplete), pTarget, nEntries * sizeof(void*));
    return pComplete;
}

cl_int Answer(const void* pAnswer, size_t nAnswer, size_t nSize, void* pValue, size_t* pSize)
{
    if (pValue != nullptr && nSize < nAnswer)
    {
        return CL_INVALID_VALUE;
    }
    if (pValue != nullptr)
    {
        std::memcpy(pValue, pAnswer, nAnswer);
    }
    if (pSize != nullptr)
    {
        *pSize = nAnswer;
    }
    return CL_SUCCESS;
}

} // namespace

} // namespace KestrelLayer

#define KESTREL_EXPORT extern "C" __attribute__((visibility("default")))

KESTREL_EXPORT cl_int CL_API_CALL clGetLayerInfo(cl_layer_info nInfo, size_t nSize, void* pValue, size_t* pSize)
{
    const cl_layer_api_version nVersion = CL_LAYER_API_VERSION_100;
    static const char szName[] = "kestrel";
    switch (nInfo)
    {
    case CL_LAYER_API_VERSION:
        return KestrelLayer::Answer(&nVersion, sizeof(nVersion), nSize, pValue, pSize);
    case CL_LAYER_NAME:
        return KestrelLayer::Answer(szName, sizeof(szName), nSize, pValue, pSize);
    default:
        return CL_INVALID_VALUE;
    }
}

KESTREL_EXPORT cl_int CL_API_CALL clInitLayer(cl_uint nEntries, const cl_icd_dispatch* pTarget, cl_uint* pEntries,
                                              const cl_icd_dispatch** ppLayer)
{
    using namespace KestrelLayer;
    if (pTarget == nullptr || pEntries == nullptr || ppLayer == nullptr)
    {
        return CL_INVALID_VALUE;
    }
    try
    {
        g_pTarget = CompleteTarget(nEntries, pTarget);
        static std::vector<void*>* s_pTable = nullptr;
        s_pTable = MakeTable(nEntries, pTarget);
        CConnection::Get();
        *pEntries = nEntries;
        *ppLayer = reinterpret_cast<const cl_icd_dispatch*>(s_pTable->data());
        return CL_SUCCESS;
    }
    catch (...)
    {
        return CL_OUT_OF_HOST_MEMORY;
    }
}
