#ifndef KESTREL_TOOLS_LAYER_OBJECTS_H
#define KESTREL_TOOLS_LAYER_OBJECTS_H

#include <CL/cl.h>
#include <CL/cl_icd.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace KestrelLayer
{

/// The functions of the driver below the layer.
extern const cl_icd_dispatch* g_pTarget;

/// An argument as the program has set it.
struct SSetArgument
{
    bool bSet = false;
    bool bNull = false; ///< no value: local memory, or no memory object
    size_t nSize = 0;
    std::vector<unsigned char> vValue;
};

/// A kernel parameter, as described by the kernel's binary.
struct SParameter
{
    std::string strName;
    std::string strType;
    cl_kernel_arg_address_qualifier nSpace = CL_KERNEL_ARG_ADDRESS_PRIVATE;
    bool bKnown = false; ///< if false, the rest is empty
};

/// The layer's notes on a kernel object.
struct SKernel
{
    uint32_t nId = 0;
    uint32_t nProgram = 0;
    std::string strName;
    std::shared_ptr<const std::vector<SParameter>> pParameters; ///< shared by all copies
    std::vector<SSetArgument> vArguments;
};

enum class EHandle
{
    None,
    Memory,
    Sampler
};

/// Notes on the objects that the program has created. The layer keeps none of them alive: it only notes their handles.
/// Any thread may call all functions.
class CObjects
{
public:
    static CObjects& Get();

    void AddMemory(cl_mem memory);
    void AddSampler(cl_sampler sampler);
    void RemoveSampler(cl_sampler sampler);
    /// The kind of live object whose handle these 8 bytes are.
    EHandle FindHandle(const SSetArgument& argument);
    size_t GetMemorySize(cl_mem memory);
    /// Counts the memory objects that the program has created, from 1; 0 for one that wasn't seen.
    uint64_t GetMemoryNumber(cl_mem memory);
    /// Marks a buffer as unwritten until NoteContents is called for it.
    void NoteNoContents(cl_mem buffer);
    void NoteContents(cl_mem memory);
    bool HasContents(cl_mem memory);
    /// Marks all buffers of the kernel as written.
    void NoteLaunched(const SKernel& kernel);

    /// Notes a new or rebuilt program. It is reported at its next kernel.
    void AddProgram(cl_program program);
    void ForgetProgram(cl_program program);
    void AddKernel(cl_kernel kernel);
    void CopyKernel(cl_kernel from, cl_kernel to);
    void RemoveKernel(cl_kernel kernel);
    void SetArgument(cl_kernel kernel, cl_uint nIndex, size_t nSize, const void* pValue);
    /// Notes an argument that the layer can't track.
    void SpoilArgument(cl_kernel kernel, cl_uint nIndex);
    /// A copy of the current state; nothing for a kernel whose creation wasn't seen.
    std::shared_ptr<const SKernel> FindKernel(cl_kernel kernel);

    void AddUserEvent(cl_event event);
    void EndUserEvent(cl_event event);
    /// Whether the program still has to set an event that queued commands may wait for.
    bool HasUserEvents();

private:
    uint32_t Announce(cl_program program);

    std::mutex m_Lock;
    std::mutex m_AnnounceLock; ///< locked before the other; one program at a time is reported
    struct SMemory
    {
        size_t nBytes = 0;
        uint64_t nNumber = 0;
    };
    std::unordered_map<cl_mem, SMemory> m_mapMemory;
    uint64_t m_nMemories = 0;     ///< created so far
    std::set<cl_mem> m_Unwritten; ///< buffers without contents
    std::set<cl_sampler> m_Samplers;
    std::set<cl_event> m_UserEvents;
    struct SProgram
    {
        uint32_t nId = 0;
        bool bAnnounced = false;
    };
    std::unordered_map<cl_program, SProgram> m_mapPrograms;
    std::unordered_map<cl_kernel, std::shared_ptr<SKernel>> m_mapKernels;
    uint32_t m_nPrograms = 0;
    uint32_t m_nKernels = 0;
};

} // namespace KestrelLayer

#endif
