#include "tools/layer/LaunchCapture.h"

#include "tools/layer/Queries.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace KestrelLayer
{

using nlohmann::json;

namespace
{

/// The reason why a launch can't be captured.
class CCaptureError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

void Check(cl_int nCode, const char* pszWhat)
{
    if (nCode != CL_SUCCESS)
    {
        throw CCaptureError(std::string(pszWhat) + " gives " + std::to_string(nCode));
    }
}

template <typename Handle>
Handle TakeHandle(const SSetArgument& argument)
{
    Handle handle = nullptr;
    std::memcpy(&handle, argument.vValue.data(), sizeof(handle));
    return handle;
}

template <typename T>
T AskMemory(cl_mem memory, cl_mem_info nInfo)
{
    return AskValue<T>([=](size_t nSize, void* pValue, size_t* pSize)
                       { return g_pTarget->clGetMemObjectInfo(memory, nInfo, nSize, pValue, pSize); });
}

template <typename T>
T AskImage(cl_mem image, cl_image_info nInfo)
{
    return AskValue<T>([=](size_t nSize, void* pValue, size_t* pSize)
                       { return g_pTarget->clGetImageInfo(image, nInfo, nSize, pValue, pSize); });
}

template <typename T>
T AskSampler(cl_sampler sampler, cl_sampler_info nInfo)
{
    return AskValue<T>([=](size_t nSize, void* pValue, size_t* pSize)
                       { return g_pTarget->clGetSamplerInfo(sampler, nInfo, nSize, pValue, pSize); });
}

template <typename T>
T AskQueue(cl_command_queue queue, cl_command_queue_info nInfo)
{
    return AskValue<T>([=](size_t nSize, void* pValue, size_t* pSize)
                       { return g_pTarget->clGetCommandQueueInfo(queue, nInfo, nSize, pValue, pSize); });
}

bool IsImage(cl_mem memory)
{
    return AskMemory<cl_mem_object_type>(memory, CL_MEM_TYPE) != CL_MEM_OBJECT_BUFFER;
}

bool TakesImage(const SParameter& parameter)
{
    return parameter.strType.compare(0, 5, "image") == 0;
}

/// The kind of an argument, where its value doesn't show it.
const char* NameKind(const SParameter& parameter, const SSetArgument& argument, EHandle eHandle)
{
    const bool bOwnValue = parameter.bKnown && parameter.nSpace == CL_KERNEL_ARG_ADDRESS_PRIVATE &&
                           !TakesImage(parameter) && parameter.strType != "sampler_t";
    const bool bPointer = parameter.bKnown && (parameter.nSpace == CL_KERNEL_ARG_ADDRESS_GLOBAL ||
                                               parameter.nSpace == CL_KERNEL_ARG_ADDRESS_CONSTANT);
    if (!argument.bSet)
    {
        return "unknown";
    }
    if (bOwnValue)
    {
        return "value";
    }
    if (parameter.bKnown ? parameter.nSpace == CL_KERNEL_ARG_ADDRESS_LOCAL
                         : argument.bNull && argument.nSize != sizeof(cl_mem))
    {
        return "local";
    }
    const bool bNoObject = std::all_of(argument.vValue.begin(), argument.vValue.end(), [](int n) { return n == 0; });
    if (argument.bNull || ((bPointer || TakesImage(parameter)) && bNoObject))
    {
        return TakesImage(parameter) ? "null image" : "null buffer";
    }
    if (eHandle == EHandle::None)
    {
        return parameter.bKnown ? "unknown" : "value";
    }
    return eHandle == EHandle::Memory ? "memory" : "sampler";
}

/// The layer's own queue, for reading memory.
class CReadQueue
{
public:
    explicit CReadQueue(cl_command_queue queue)
        : m_Context(AskQueue<cl_context>(queue, CL_QUEUE_CONTEXT)),
          m_Device(AskQueue<cl_device_id>(queue, CL_QUEUE_DEVICE))
    {
        cl_int nCode = CL_SUCCESS;
        m_Queue = g_pTarget->clCreateCommandQueue(m_Context, m_Device, 0, &nCode);
        Check(nCode, "clCreateCommandQueue");
    }
    ~CReadQueue() { g_pTarget->clReleaseCommandQueue(m_Queue); }
    CReadQueue(const CReadQueue&) = delete;
    CReadQueue& operator=(const CReadQueue&) = delete;

    cl_device_id GetDevice() const { return m_Device; }

    void ReadBuffer(cl_mem buffer, size_t nFirst, size_t nBytes, unsigned char* pBytes) const
    {
        if (g_pTarget->clEnqueueReadBuffer(m_Queue, buffer, CL_TRUE, nFirst, nBytes, pBytes, 0, nullptr, nullptr) !=
            CL_SUCCESS)
        {
            // The host may lack access to it, but can read a copy.
            ReadCopy(nBytes, pBytes,
                     [&](cl_mem copy) {
                         return g_pTarget->clEnqueueCopyBuffer(m_Queue, buffer, copy, nFirst, 0, nBytes, 0, nullptr,
                                                               nullptr);
                     });
        }
    }

    void ReadImage(cl_mem image, const size_t (&extents)[3], size_t nBytes, unsigned char* pBytes) const
    {
        const size_t origin[3] = {0, 0, 0};
        if (g_pTarget->clEnqueueReadImage(m_Queue, image, CL_TRUE, origin, extents, 0, 0, pBytes, 0, nullptr,
                                          nullptr) != CL_SUCCESS)
        {
            ReadCopy(nBytes, pBytes,
                     [&](cl_mem copy) {
                         return g_pTarget->clEnqueueCopyImageToBuffer(m_Queue, image, copy, origin, extents, 0, 0,
                                                                      nullptr, nullptr);
                     });
        }
    }

private:
    template <typename Copy>
    void ReadCopy(size_t nBytes, unsigned char* pBytes, Copy copyTo) const
    {
        cl_int nCode = CL_SUCCESS;
        const cl_mem copy = g_pTarget->clCreateBuffer(m_Context, CL_MEM_READ_WRITE, nBytes, nullptr, &nCode);
        Check(nCode, "clCreateBuffer");
        nCode = copyTo(copy);
        if (nCode == CL_SUCCESS)
        {
            nCode = g_pTarget->clEnqueueReadBuffer(m_Queue, copy, CL_TRUE, 0, nBytes, pBytes, 0, nullptr, nullptr);
        }
        g_pTarget->clReleaseMemObject(copy);
        Check(nCode, "reading an argument");
    }

    cl_context m_Context;
    cl_device_id m_Device;
    cl_command_queue m_Queue = nullptr;
};

/// A range of a buffer that arguments use; for sub-buffers, a range of their parent.
struct SRange
{
    cl_mem root;
    size_t nFirst;
    size_t nEnd;
};

SRange FindRange(cl_mem buffer)
{
    const cl_mem parent = AskMemory<cl_mem>(buffer, CL_MEM_ASSOCIATED_MEMOBJECT);
    const size_t nSize = AskMemory<size_t>(buffer, CL_MEM_SIZE);
    const size_t nFirst = parent != nullptr ? AskMemory<size_t>(buffer, CL_MEM_OFFSET) : 0;
    return {parent != nullptr ? parent : buffer, nFirst, nFirst + nSize};
}

/// Captures the contents of arguments, each memory object once.
class CCapture
{
public:
    CCapture(const CReadQueue& queue, std::vector<unsigned char>& vBlob) : m_Queue(queue), m_vBlob(vBlob) {}

    json Add(const SParameter& parameter, const SSetArgument& argument)
    {
        const std::string strKind = NameKind(parameter, argument, CObjects::Get().FindHandle(argument));
        json description = {{"kind", strKind}, {"name", parameter.strName}, {"type", parameter.strType}};
        if (strKind == "unknown")
        {
            throw CCaptureError("argument " + parameter.strName +
                                " is nothing that the layer has seen made (or was never set)");
        }
        if (strKind == "value")
        {
            description["part"] = Append(argument.vValue);
        }
        else if (strKind == "local")
        {
            description["bytes"] = argument.nSize;
        }
        else if (strKind == "sampler")
        {
            const cl_sampler sampler = TakeHandle<cl_sampler>(argument);
            description["normalized"] = AskSampler<cl_bool>(sampler, CL_SAMPLER_NORMALIZED_COORDS) != CL_FALSE;
            description["addressing"] = AskSampler<cl_addressing_mode>(sampler, CL_SAMPLER_ADDRESSING_MODE);
            description["filter"] = AskSampler<cl_filter_mode>(sampler, CL_SAMPLER_FILTER_MODE);
        }
        else if (strKind == "memory")
        {
            AddMemory(TakeHandle<cl_mem>(argument), description);
        }
        return description;
    }

    /// Reads the buffers of all arguments that were added.
    json ReadBuffers()
    {
        json memories = json::array();
        for (const SRange& range : m_vRanges)
        {
            const size_t nBytes = range.nEnd - range.nFirst;
            const size_t nPlace = m_vBlob.size();
            m_vBlob.resize(nPlace + nBytes);
            m_Queue.ReadBuffer(range.root, range.nFirst, nBytes, &m_vBlob[nPlace]);
            memories.push_back({{"object", CObjects::Get().GetMemoryNumber(range.root)},
                                {"first", range.nFirst},
                                {"part", {nPlace, nBytes}},
                                {"written", CObjects::Get().HasContents(range.root)}});
        }
        return memories;
    }

private:
    json Append(const std::vector<unsigned char>& vBytes)
    {
        m_vBlob.insert(m_vBlob.end(), vBytes.begin(), vBytes.end());
        return {m_vBlob.size() - vBytes.size(), vBytes.size()};
    }

    void AddMemory(cl_mem memory, json& description)
    {
        if (IsImage(memory))
        {
            AddImage(memory, description);
            return;
        }
        const SRange range = FindRange(memory);
        size_t nMemory = 0;
        while (nMemory < m_vRanges.size() && m_vRanges[nMemory].root != range.root)
        {
            ++nMemory;
        }
        if (nMemory == m_vRanges.size())
        {
            m_vRanges.push_back(range);
        }
        m_vRanges[nMemory].nFirst = std::min(m_vRanges[nMemory].nFirst, range.nFirst);
        m_vRanges[nMemory].nEnd = std::max(m_vRanges[nMemory].nEnd, range.nEnd);
        description["kind"] = "buffer";
        description["memory"] = nMemory;
        description["first"] = range.nFirst;
        description["end"] = range.nEnd;
    }

    void AddImage(cl_mem image, json& description)
    {
        description["kind"] = "image";
        const auto it = std::find(m_vImages.begin(), m_vImages.end(), image);
        description["image"] = it - m_vImages.begin();
        if (it != m_vImages.end())
        {
            return;
        }
        m_vImages.push_back(image);
        const cl_image_format format = AskImage<cl_image_format>(image, CL_IMAGE_FORMAT);
        const cl_mem_object_type nType = AskMemory<cl_mem_object_type>(image, CL_MEM_TYPE);
        const size_t nWidth = AskImage<size_t>(image, CL_IMAGE_WIDTH);
        const size_t nHeight = AskImage<size_t>(image, CL_IMAGE_HEIGHT);
        const size_t nDepth = AskImage<size_t>(image, CL_IMAGE_DEPTH);
        const size_t nArray = AskImage<size_t>(image, CL_IMAGE_ARRAY_SIZE);
        const size_t nTexel = AskImage<size_t>(image, CL_IMAGE_ELEMENT_SIZE);
        description["order"] = format.image_channel_order;
        description["channel"] = format.image_channel_data_type;
        description["shape"] = nType;
        description["width"] = nWidth;
        description["height"] = nHeight;
        description["depth"] = nDepth;
        description["array"] = nArray;
        const bool bRows = nType == CL_MEM_OBJECT_IMAGE1D_ARRAY;
        const size_t extents[3] = {nWidth, std::max<size_t>(bRows ? nArray : nHeight, 1),
                                   bRows ? 1 : std::max<size_t>({nDepth, nArray, 1})};
        const size_t nBytes = nTexel * extents[0] * extents[1] * extents[2];
        const size_t nPlace = m_vBlob.size();
        m_vBlob.resize(nPlace + nBytes);
        m_Queue.ReadImage(image, extents, nBytes, &m_vBlob[nPlace]);
        description["part"] = {nPlace, nBytes};
    }

    const CReadQueue& m_Queue;
    std::vector<unsigned char>& m_vBlob;
    std::vector<SRange> m_vRanges;
    std::vector<cl_mem> m_vImages;
};

/// Waits until everything before the launch is done. If that needs an event that the program itself has to set, perhaps
/// on this very thread, the wait is given up after a while.
void WaitForLaunch(const SLaunchCall& call)
{
    cl_event marker = nullptr;
    if (g_pTarget->clEnqueueMarkerWithWaitList == nullptr)
    {
        Check(g_pTarget->clFinish(call.queue), "clFinish");
        return;
    }
    const bool bOutOfOrder = (AskQueue<cl_command_queue_properties>(call.queue, CL_QUEUE_PROPERTIES) &
                              CL_QUEUE_OUT_OF_ORDER_EXEC_MODE_ENABLE) != 0;
    std::vector<cl_event> vEvents(call.pEvents, call.pEvents + call.nEvents);
    if (!bOutOfOrder || call.nEvents == 0)
    {
        Check(g_pTarget->clEnqueueMarkerWithWaitList(call.queue, 0, nullptr, &marker), "clEnqueueMarkerWithWaitList");
        vEvents.push_back(marker);
    }
    Check(g_pTarget->clFlush(call.queue), "clFlush");
    const auto begin = std::chrono::steady_clock::now();
    const auto isOpen = [](cl_event event)
    {
        return AskValue<cl_int>(
                   [=](size_t nSize, void* pValue, size_t* pSize) {
                       return g_pTarget->clGetEventInfo(event, CL_EVENT_COMMAND_EXECUTION_STATUS, nSize, pValue, pSize);
                   }) > CL_COMPLETE;
    };
    bool bStuck = false;
    for (const cl_event event : vEvents)
    {
        while (!bStuck && CObjects::Get().HasUserEvents() && isOpen(event))
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            bStuck = std::chrono::steady_clock::now() - begin > std::chrono::seconds(2);
        }
        if (!bStuck)
        {
            g_pTarget->clWaitForEvents(1, &event);
        }
    }
    if (marker != nullptr)
    {
        g_pTarget->clReleaseEvent(marker);
    }
    if (bStuck)
    {
        throw CCaptureError("it waits for an event that the program has yet to set");
    }
}

/// Adds the binary for the launch's device: a program without a source is replayed from it.
void AddBinary(cl_kernel kernel, cl_device_id device, json& header, std::vector<unsigned char>& vBlob)
{
    const cl_program program =
        AskValue<cl_program>([=](size_t nSize, void* pValue, size_t* pSize)
                             { return g_pTarget->clGetKernelInfo(kernel, CL_KERNEL_PROGRAM, nSize, pValue, pSize); });
    const auto list = [&](cl_program_info nInfo, void* pFirst, size_t nBytes)
    { Check(g_pTarget->clGetProgramInfo(program, nInfo, nBytes, pFirst, nullptr), "clGetProgramInfo"); };
    size_t nBytes = 0;
    Check(g_pTarget->clGetProgramInfo(program, CL_PROGRAM_DEVICES, 0, nullptr, &nBytes), "clGetProgramInfo");
    const size_t nDevices = nBytes / sizeof(cl_device_id);
    std::vector<cl_device_id> vDevices(nDevices);
    std::vector<size_t> vSizes(nDevices);
    list(CL_PROGRAM_DEVICES, vDevices.data(), nBytes);
    list(CL_PROGRAM_BINARY_SIZES, vSizes.data(), nDevices * sizeof(size_t));
    std::vector<std::vector<unsigned char>> vImages;
    std::vector<unsigned char*> vPlaces;
    for (const size_t nSize : vSizes)
    {
        vImages.emplace_back(nSize);
    }
    for (std::vector<unsigned char>& vImage : vImages)
    {
        vPlaces.push_back(vImage.data());
    }
    list(CL_PROGRAM_BINARIES, vPlaces.data(), nDevices * sizeof(unsigned char*));
    const size_t nIndex = static_cast<size_t>(std::find(vDevices.begin(), vDevices.end(), device) - vDevices.begin());
    if (nIndex < nDevices)
    {
        header["binary"] = {vBlob.size(), vImages[nIndex].size()};
        vBlob.insert(vBlob.end(), vImages[nIndex].begin(), vImages[nIndex].end());
    }
}

} // namespace

void AppendArguments(const SKernel& kernel, std::string& strText)
{
    strText += '[';
    for (size_t i = 0; i < kernel.vArguments.size(); ++i)
    {
        const SSetArgument& argument = kernel.vArguments[i];
        const std::string_view kind =
            NameKind((*kernel.pParameters)[i], argument, CObjects::Get().FindHandle(argument));
        strText += i == 0 ? "[\"" : ",[\"";
        strText.append(kind).append("\"");
        if (kind == "value")
        {
            strText += ',';
            AppendNumbers(argument.vValue.data(), argument.vValue.size(), strText);
        }
        else if (kind == "memory")
        {
            strText.append(",").append(std::to_string(CObjects::Get().GetMemorySize(TakeHandle<cl_mem>(argument))));
        }
        else if (kind == "local")
        {
            strText.append(",").append(std::to_string(argument.nSize));
        }
        strText += ']';
    }
    strText += ']';
}

void CaptureContents(cl_kernel kernelObject, const SKernel& kernel, const SLaunchCall& call, json& header,
                     std::vector<unsigned char>& vBlob)
{
    try
    {
        WaitForLaunch(call);
        const CReadQueue queue(call.queue);
        const cl_device_id device = queue.GetDevice();
        header["device"] =
            AskText([=](size_t nSize, void* pValue, size_t* pSize)
                    { return g_pTarget->clGetDeviceInfo(device, CL_DEVICE_NAME, nSize, pValue, pSize); });
        CCapture capture(queue, vBlob);
        json contents = json::array();
        for (size_t i = 0; i < kernel.vArguments.size(); ++i)
        {
            contents.push_back(capture.Add((*kernel.pParameters)[i], kernel.vArguments[i]));
        }
        header["contents"] = contents;
        header["memories"] = capture.ReadBuffers();
        AddBinary(kernelObject, device, header, vBlob);
    }
    catch (const CCaptureError& error)
    {
        header["error"] = error.what();
        vBlob.clear();
    }
}

} // namespace KestrelLayer
