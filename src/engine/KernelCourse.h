#ifndef KESTREL_ENGINE_KERNELCOURSE_H
#define KESTREL_ENGINE_KERNELCOURSE_H

#include "engine/Position.h"

#include <optional>
#include <set>
#include <vector>

namespace OVK_ShaderDebugger
{

class CAnalyzedShaderIL;

/// Where the text of a kernel can lead: what may be executed before and after a position, what that may write, and
/// where jumps go. It answers from the analysed text alone, and no session has to be open.
class CKernelCourse
{
public:
    /// \param kernel  analysed when it is first asked; must outlive this object
    explicit CKernelCourse(const CAnalyzedShaderIL& kernel) : m_Kernel(kernel) {}

    const CAnalyzedShaderIL& GetKernel() const { return m_Kernel; }

    /// The instructions of all functions that are called, directly or not, from the instructions between nFirst and
    /// nEnd.
    std::set<InstructionNumber> FindCalled(InstructionNumber nFirst, InstructionNumber nEnd) const;
    /// Adds the instructions from nFirst on and before nEnd, and those of the functions that they call.
    void AddWithCalled(InstructionNumber nFirst, InstructionNumber nEnd, std::set<InstructionNumber>& found) const;

    /// Adds the registers that the functions called from there write, and those that macros called there do, if they
    /// aren't in the list.
    void AddWrittenByCalls(InstructionNumber nFirst, InstructionNumber nEnd, std::vector<Register>& vRegisters) const;
    /// Whether one of these instructions or of the functions that they call stores to global memory.
    bool Stores(InstructionNumber nFirst, InstructionNumber nEnd) const;
    /// A store, or an atomic, which stores as well.
    bool WritesGlobalMemory(InstructionNumber nInst) const;
    /// A store, an atomic, or a call of a macro whose text the analysis doesn't know; stores to private memory don't
    /// count.
    bool MayWrite(InstructionNumber nInst) const;

    /// Whether anything up to a position, and with it, may have changed global memory.
    bool MayHaveWritten(const SPosition& position) const;
    /// Whether anything after it may.
    bool MayStillWrite(const SPosition& position) const;
    /// Whether the patched kernel of a position executes the position and nothing that comes after it.
    bool IsCutExactly(const SPosition& position) const;
    /// Whether a work-item may leave the kernel, or not enter a function, without coming to the stores to the output
    /// buffers. They are where the target's function ends, so a work-item misses them if it returns before, or if the
    /// function is called inside a block that it doesn't enter.
    bool CanMissStores() const;

    /// A place to which a jump leads, in the block that the jump leaves.
    struct STarget
    {
        InstructionNumber nBlock = 0; ///< the instruction that opens the block
        InstructionNumber nInst = 0;
        bool bLoop = false; ///< whether the block is a loop
    };
    /// Where a break or continue leads: an instruction of the loop or switch that it leaves. Nothing for a return.
    std::optional<STarget> FindTarget(InstructionNumber nJump) const;

private:
    bool IsInRepeatedText(InstructionNumber nInst) const;
    std::set<InstructionNumber> FindAround(const SPosition& position, bool bBefore) const;
    bool AnyMayWrite(const std::set<InstructionNumber>& instructions) const;

    const CAnalyzedShaderIL& m_Kernel;
};

} // namespace OVK_ShaderDebugger

#endif
