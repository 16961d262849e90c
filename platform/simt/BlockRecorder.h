#ifndef KESTREL_PLATFORM_SIMT_BLOCKRECORDER_H
#define KESTREL_PLATFORM_SIMT_BLOCKRECORDER_H

#include <cstdint>

namespace KestrelPlatform
{

class CBlock;
struct SAccess;
struct SCode;
struct SMicroOp;

/// Observes a running block. The traced form of the code makes one call for each instruction; the plain form makes
/// calls for control flow and memory accesses. Functions that most recorders don't need have empty bodies.
class IBlockRecorder
{
public:
    virtual ~IBlockRecorder() = default;

    /// The block has new groups and hasn't run yet.
    virtual void Start(const CBlock& /*block*/) {}
    /// The block's current groups have ended or were stopped.
    virtual void Finish() {}
    /// Control flow. The block's mask has the work-items that the instruction counts for.
    virtual void Flow(const CBlock& block, uint32_t nInstruction) = 0;
    /// Any other instruction has taken effect.
    virtual void Written(const CBlock& block, const SCode& code, const SMicroOp& step) = 0;
    /// The active work-items are about to enter a body: the main one, which is 0, a function or a macro.
    virtual void Entered(const CBlock& /*block*/, uint32_t /*nBody*/) {}
    /// The active work-items are about to access memory; addresses and values to store are in their rows.
    virtual void Accessing(const CBlock& /*block*/, const SMicroOp& /*step*/, const SAccess& /*access*/) {}
    /// They have accessed it; loaded values are in their rows, and the addresses may have been overwritten.
    virtual void Accessed(const CBlock& /*block*/, const SMicroOp& /*step*/, const SAccess& /*access*/) {}
    /// Whether to call Stepping and Stepped for each step of the plain form.
    virtual bool SeesSteps() const { return false; }
    /// The active work-items are about to execute a step that isn't an access; its sources are in their rows.
    virtual void Stepping(const CBlock& /*block*/, const SMicroOp& /*step*/) {}
    /// They have executed a lane operation.
    virtual void Stepped(const CBlock& /*block*/, const SMicroOp& /*step*/) {}
    /// Whether it reads memory, so that no additions may be held back.
    virtual bool SeesMemory() const { return false; }
    /// The block has reached a barrier: what it executes next comes after what the others did before theirs.
    virtual void Barrier(const CBlock& /*block*/, const SMicroOp& /*step*/) {}
    virtual void OpenLoop(uint32_t /*nStart*/, uint32_t /*nEnd*/) {}
    virtual void NextPass() {}
    virtual void CloseLoop() {}
    virtual void OpenCall(uint32_t /*nSite*/) {}
    virtual void CloseCall() {}
};

} // namespace KestrelPlatform

#endif
