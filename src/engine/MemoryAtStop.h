#ifndef KESTREL_ENGINE_MEMORYATSTOP_H
#define KESTREL_ENGINE_MEMORYATSTOP_H

#include "engine/KernelCourse.h"
#include "instrument/LocalMemory.h"

#include <map>
#include <optional>
#include <vector>

namespace OVK_ShaderDebugger
{

class CInstrumentedShaderIL;
class CPatchedRuns;
class CShaderDebuggerDeviceBuffer;
class CTargetBuffers;

/// Memory, and registers of all work-items, as they are at a stop. In many cases the run that read the stop's registers
/// leaves global memory like that, and nothing else is done. Where text after the target is in its kernel, or where
/// there was no run, a memory kernel runs when memory is first asked for.
class CMemoryAtStop
{
public:
    /// All must outlive this object.
    CMemoryAtStop(CInstrumentedShaderIL& kernel, const CKernelCourse& course, CPatchedRuns& runs,
                  CTargetBuffers& buffers);

    /// Makes the working copies hold global memory as it is at a stop. \return false if that isn't possible
    bool BringGlobal(const SPosition& stop);
    /// The local memory of a work-group at a stop, in which the offsets of blocks count. The bytes stay until memory of
    /// another stop is asked for. Empty if there is no such group, null if the run that is needed fails.
    const std::vector<unsigned char>* BringLocal(const SPosition& stop, unsigned int nGroup);
    /// One run for the values of some registers at a stop, which leaves memory as it is there, too.
    /// \param nPlane  bytes of one register's values; values has room for as many planes as there are registers
    bool ReadValues(const SPosition& stop, const std::vector<Register>& vRegisters, unsigned int nPlane,
                    CShaderDebuggerDeviceBuffer& values);

    /// A block of local memory, by its number or by the index of its argument; null if there is none.
    const SLocalBlock* FindLocalBlock(bool bArgument, unsigned int nNumber);

private:
    bool Run(const SPosition& stop, unsigned int nGroup, CShaderDebuggerDeviceBuffer* pLocal);
    const std::vector<SLocalBlock>& LocalBlocks();
    void AddDeclaredBlocks(std::vector<SLocalBlock>& vBlocks) const;
    void AddArgumentBlocks(std::vector<SLocalBlock>& vBlocks) const;

    CInstrumentedShaderIL& m_Kernel;
    const CKernelCourse& m_Course;
    CPatchedRuns& m_Runs;
    CTargetBuffers& m_Buffers;
    std::optional<SPosition> m_At;                              ///< the stop of the next two
    std::vector<char> m_vImage;                                 ///< its memory kernel
    std::map<unsigned int, std::vector<unsigned char>> m_Local; ///< by group; empty for one that isn't there
    std::optional<std::vector<SLocalBlock>> m_LocalBlocks;      ///< found when first asked for
};

} // namespace OVK_ShaderDebugger

#endif
