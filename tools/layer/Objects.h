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

/// The functions below the layer.
extern const cl_icd_dispatch* g_pTarget;

/// An argument as the program has set it.
struct SSetArgument
{
    bool bSet = false;
    bool bNull = false; ///< no value: local memory, or no memory object
    size_t nSize = 0;
    std::vector<unsigned char> vValue;
};

/// What a kernel's binary says of a parameter.
struct SParameter
{
    std::string strName;
    std::string strType;
    cl_kernel_arg_address_qualifier nSpace = CL_KERNEL_ARG_ADDRESS_PRIVATE;
    bool bKnown = false; ///< without it the rest is empty
};

/// What the layer keeps of a kernel object.
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

/// What the program has made. The layer holds no object of the program's alive: it takes note of handles while they
/// live. All functions may be called from any thread.
class CObjects
{
public:
    static CObjects& Get();

    void AddMemory(cl_mem memory);
    void AddSampler(cl_sampler sampler);
    void RemoveSampler(cl_sampler sampler);
    /// What 8 bytes are the handle of, among what lives.
    EHandle FindHandle(const SSetArgument& argument);
    size_t GetMemorySize(cl_mem memory);
    /// Nobody has written a buffer yet, until NoteContents says so.
    void NoteNoContents(cl_mem buffer);
    void NoteContents(cl_mem memory);
    bool HasContents(cl_mem memory);
    /// A kernel may have written all that it has been given.
    void NoteLaunched(const SKernel& kernel);

    /// A program that is new, or has been built anew, is told of at its next kernel.
    void AddProgram(cl_program program);
    void ForgetProgram(cl_program program);
    void AddKernel(cl_kernel kernel);
    void CopyKernel(cl_kernel from, cl_kernel to);
    void RemoveKernel(cl_kernel kernel);
    void SetArgument(cl_kernel kernel, cl_uint nIndex, size_t nSize, const void* pValue);
    /// An argument that the layer can't follow.
    void SpoilArgument(cl_kernel kernel, cl_uint nIndex);
    /// A copy, as it is now; nothing for a kernel whose making wasn't seen.
    std::shared_ptr<const SKernel> FindKernel(cl_kernel kernel);

    void AddUserEvent(cl_event event);
    void EndUserEvent(cl_event event);
    /// Whether the program still has to set an event, for which what is in a queue may wait.
    bool HasUserEvents();

private:
    uint32_t Announce(cl_program program);

    std::mutex m_Lock;
    std::mutex m_AnnounceLock; ///< taken before the other; only one program is told of at a time
    std::unordered_map<cl_mem, size_t> m_mapMemory;
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
