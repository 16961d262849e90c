#include "tools/layer/Objects.h"

#include "tools/layer/Connection.h"
#include "tools/layer/Queries.h"

#include <nlohmann/json.hpp>

#include <cstring>

namespace KestrelLayer
{

const cl_icd_dispatch* g_pTarget = nullptr;

namespace
{

std::vector<SParameter> ReadParameters(cl_kernel kernel)
{
    const cl_uint nCount =
        AskValue<cl_uint>([&](size_t nSize, void* pValue, size_t* pSize)
                          { return g_pTarget->clGetKernelInfo(kernel, CL_KERNEL_NUM_ARGS, nSize, pValue, pSize); });
    std::vector<SParameter> vParameters(nCount);
    for (cl_uint i = 0; i < nCount && g_pTarget->clGetKernelArgInfo != nullptr; ++i)
    {
        const auto ask = [&](cl_kernel_arg_info nInfo)
        {
            return [=](size_t nSize, void* pValue, size_t* pSize)
            { return g_pTarget->clGetKernelArgInfo(kernel, i, nInfo, nSize, pValue, pSize); };
        };
        SParameter& parameter = vParameters[i];
        parameter.strName = AskText(ask(CL_KERNEL_ARG_NAME));
        parameter.strType = AskText(ask(CL_KERNEL_ARG_TYPE_NAME));
        parameter.nSpace = AskValue<cl_kernel_arg_address_qualifier>(ask(CL_KERNEL_ARG_ADDRESS_QUALIFIER));
        parameter.bKnown = !parameter.strType.empty() && parameter.nSpace != 0;
    }
    return vParameters;
}

cl_program AskProgram(cl_kernel kernel)
{
    return AskValue<cl_program>(
        [&](size_t nSize, void* pValue, size_t* pSize)
        { return g_pTarget->clGetKernelInfo(kernel, CL_KERNEL_PROGRAM, nSize, pValue, pSize); });
}

cl_device_id AskFirstDevice(cl_program program)
{
    size_t nBytes = 0;
    g_pTarget->clGetProgramInfo(program, CL_PROGRAM_DEVICES, 0, nullptr, &nBytes);
    std::vector<cl_device_id> vDevices(nBytes / sizeof(cl_device_id) + 1);
    g_pTarget->clGetProgramInfo(program, CL_PROGRAM_DEVICES, nBytes, vDevices.data(), nullptr);
    return vDevices.front();
}

nlohmann::json DescribeKernel(const SKernel& kernel)
{
    nlohmann::json arguments = nlohmann::json::array();
    for (const SParameter& parameter : *kernel.pParameters)
    {
        arguments.push_back({{"name", parameter.strName}, {"type", parameter.strType}});
    }
    return {{"what", "kernel"},
            {"kernel", kernel.nId},
            {"program", kernel.nProgram},
            {"name", kernel.strName},
            {"arguments", arguments}};
}

} // namespace

CObjects& CObjects::Get()
{
    static CObjects* const s_pObjects = new CObjects;
    return *s_pObjects;
}

// ---------------------------------------------------------------------------------------- memory, samplers, events

void CObjects::AddMemory(cl_mem memory)
{
    const size_t nBytes =
        AskValue<size_t>([&](size_t nSize, void* pValue, size_t* pSize)
                         { return g_pTarget->clGetMemObjectInfo(memory, CL_MEM_SIZE, nSize, pValue, pSize); });
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        m_mapMemory[memory] = {nBytes, ++m_nMemories};
    }
    // The object's memory is freed only after this callback, so no new object can have its handle yet.
    g_pTarget->clSetMemObjectDestructorCallback(
        memory,
        [](cl_mem gone, void* pObjects)
        {
            CObjects& objects = *static_cast<CObjects*>(pObjects);
            const std::lock_guard<std::mutex> lock(objects.m_Lock);
            objects.m_mapMemory.erase(gone);
            objects.m_Unwritten.erase(gone);
        },
        this);
}

void CObjects::AddSampler(cl_sampler sampler)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Samplers.insert(sampler);
}

void CObjects::RemoveSampler(cl_sampler sampler)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Samplers.erase(sampler);
}

EHandle CObjects::FindHandle(const SSetArgument& argument)
{
    void* pHandle = nullptr;
    if (argument.vValue.size() != sizeof(pHandle))
    {
        return EHandle::None;
    }
    std::memcpy(&pHandle, argument.vValue.data(), sizeof(pHandle));
    const std::lock_guard<std::mutex> lock(m_Lock);
    if (m_mapMemory.count(static_cast<cl_mem>(pHandle)) != 0)
    {
        return EHandle::Memory;
    }
    return m_Samplers.count(static_cast<cl_sampler>(pHandle)) != 0 ? EHandle::Sampler : EHandle::None;
}

size_t CObjects::GetMemorySize(cl_mem memory)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    const auto it = m_mapMemory.find(memory);
    return it != m_mapMemory.end() ? it->second.nBytes : 0;
}

uint64_t CObjects::GetMemoryNumber(cl_mem memory)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    const auto it = m_mapMemory.find(memory);
    return it != m_mapMemory.end() ? it->second.nNumber : 0;
}

void CObjects::NoteNoContents(cl_mem buffer)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Unwritten.insert(buffer);
}

void CObjects::NoteContents(cl_mem memory)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Unwritten.erase(memory);
}

void CObjects::NoteLaunched(const SKernel& kernel)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    for (const SSetArgument& argument : kernel.vArguments)
    {
        cl_mem memory = nullptr;
        if (!m_Unwritten.empty() && argument.vValue.size() == sizeof(memory))
        {
            std::memcpy(&memory, argument.vValue.data(), sizeof(memory));
            m_Unwritten.erase(memory);
        }
    }
}

bool CObjects::HasContents(cl_mem memory)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    return m_Unwritten.count(memory) == 0;
}

void CObjects::AddUserEvent(cl_event event)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_UserEvents.insert(event);
}

void CObjects::EndUserEvent(cl_event event)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_UserEvents.erase(event);
}

bool CObjects::HasUserEvents()
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    return !m_UserEvents.empty();
}

// ---------------------------------------------------------------------------------------- programs and kernels

void CObjects::AddProgram(cl_program program)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_mapPrograms[program] = SProgram();
}

void CObjects::ForgetProgram(cl_program program)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_mapPrograms[program].bAnnounced = false;
}

/// Reports a program to the debugger unless that was done. \return its number
uint32_t CObjects::Announce(cl_program program)
{
    // No other thread may report the program's kernels before the program itself.
    const std::lock_guard<std::mutex> announcing(m_AnnounceLock);
    uint32_t nId = 0;
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        SProgram& known = m_mapPrograms[program];
        if (known.bAnnounced)
        {
            return known.nId;
        }
        known.nId = known.nId != 0 ? known.nId : ++m_nPrograms;
        known.bAnnounced = true;
        nId = known.nId;
    }
    const cl_device_id device = AskFirstDevice(program);
    const auto askProgram = [&](cl_program_info nInfo)
    {
        return [=](size_t nSize, void* pValue, size_t* pSize)
        { return g_pTarget->clGetProgramInfo(program, nInfo, nSize, pValue, pSize); };
    };
    const std::string strSource = AskText(askProgram(CL_PROGRAM_SOURCE));
    const auto askBuild = [&](cl_program_build_info nInfo)
    {
        return [=](size_t nSize, void* pValue, size_t* pSize)
        { return g_pTarget->clGetProgramBuildInfo(program, device, nInfo, nSize, pValue, pSize); };
    };
    const std::string strOptions = AskText(askBuild(CL_PROGRAM_BUILD_OPTIONS));
    const std::string strLog = AskText(askBuild(CL_PROGRAM_BUILD_LOG));
    CConnection::Get().Ask({{"what", "program"},
                            {"program", nId},
                            {"built", strSource.empty() ? "binary" : "source"},
                            {"options", strOptions},
                            {"log", strLog},
                            {"kernels", AskText(askProgram(CL_PROGRAM_KERNEL_NAMES))}},
                           std::vector<unsigned char>(strSource.begin(), strSource.end()));
    return nId;
}

void CObjects::AddKernel(cl_kernel kernel)
{
    auto pKernel = std::make_shared<SKernel>();
    pKernel->nProgram = Announce(AskProgram(kernel));
    pKernel->strName =
        AskText([&](size_t nSize, void* pValue, size_t* pSize)
                { return g_pTarget->clGetKernelInfo(kernel, CL_KERNEL_FUNCTION_NAME, nSize, pValue, pSize); });
    pKernel->pParameters = std::make_shared<const std::vector<SParameter>>(ReadParameters(kernel));
    pKernel->vArguments.resize(pKernel->pParameters->size());
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        pKernel->nId = ++m_nKernels;
        m_mapKernels[kernel] = pKernel;
    }
    CConnection::Get().Tell(KestrelTool::WriteHeader(DescribeKernel(*pKernel)));
}

void CObjects::CopyKernel(cl_kernel from, cl_kernel to)
{
    AddKernel(to);
    const std::lock_guard<std::mutex> lock(m_Lock);
    const auto itFrom = m_mapKernels.find(from);
    if (itFrom != m_mapKernels.end())
    {
        m_mapKernels[to]->vArguments = itFrom->second->vArguments;
    }
}

void CObjects::RemoveKernel(cl_kernel kernel)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_mapKernels.erase(kernel);
}

void CObjects::SetArgument(cl_kernel kernel, cl_uint nIndex, size_t nSize, const void* pValue)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    const auto it = m_mapKernels.find(kernel);
    if (it == m_mapKernels.end() || nIndex >= it->second->vArguments.size())
    {
        return;
    }
    SSetArgument& argument = it->second->vArguments[nIndex];
    argument.bSet = true;
    argument.bNull = pValue == nullptr;
    argument.nSize = nSize;
    const unsigned char* const pBytes = static_cast<const unsigned char*>(pValue);
    argument.vValue.assign(pBytes, pBytes != nullptr ? pBytes + nSize : nullptr);
}

void CObjects::SpoilArgument(cl_kernel kernel, cl_uint nIndex)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    const auto it = m_mapKernels.find(kernel);
    if (it != m_mapKernels.end() && nIndex < it->second->vArguments.size())
    {
        it->second->vArguments[nIndex] = SSetArgument();
    }
}

std::shared_ptr<const SKernel> CObjects::FindKernel(cl_kernel kernel)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    const auto it = m_mapKernels.find(kernel);
    return it != m_mapKernels.end() ? std::make_shared<const SKernel>(*it->second) : nullptr;
}

} // namespace KestrelLayer
