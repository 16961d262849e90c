#ifndef KESTREL_PLATFORM_SIMT_BLOCKRECORDER_H
#define KESTREL_PLATFORM_SIMT_BLOCKRECORDER_H

#include <cstdint>

namespace KestrelPlatform
{

class CBlock;
struct SAccess;
struct SCode;
struct SMicroOp;

/// Looks at a block that runs. Of the traced form of its code there is one call an instruction; the plain form tells of
/// flow control, and of accesses to memory. What most have no use for has an empty body.
class IBlockRecorder
{
public:
    virtual ~IBlockRecorder() = default;

    /// The block has new groups and hasn't run yet.
    virtual void Start(const CBlock& /*block*/) {}
    /// The groups that it has had last have ended, or were stopped.
    virtual void Finish() {}
    /// Flow control. The block's mask is that of the work-items that the instruction counts for.
    virtual void Flow(const CBlock& block, uint32_t nInstruction) = 0;
    /// Any other instruction has taken effect.
    virtual void Written(const CBlock& block, const SCode& code, const SMicroOp& step) = 0;
    /// The active work-items are about to execute a body: the main one, which is 0, a function or a macro.
    virtual void Entered(const CBlock& /*block*/, uint32_t /*nBody*/) {}
    /// The active work-items are about to access memory: addresses and values to store are there.
    virtual void Accessing(const CBlock& /*block*/, const SMicroOp& /*step*/, const SAccess& /*access*/) {}
    /// They have: values loaded are there, and addresses may be overwritten.
    virtual void Accessed(const CBlock& /*block*/, const SMicroOp& /*step*/, const SAccess& /*access*/) {}
    /// Whether it is told of each step of the plain form.
    virtual bool SeesSteps() const { return false; }
    /// The active work-items are about to execute a step that isn't an access: what it reads is there.
    virtual void Stepping(const CBlock& /*block*/, const SMicroOp& /*step*/) {}
    /// They have executed a lane operation.
    virtual void Stepped(const CBlock& /*block*/, const SMicroOp& /*step*/) {}
    /// Whether it looks at memory, in which nothing may be held back then.
    virtual bool SeesMemory() const { return false; }
    /// The block has come to a barrier; what it executes from here on comes after what others did in front of theirs.
    virtual void Barrier(const CBlock& /*block*/, const SMicroOp& /*step*/) {}
    virtual void OpenLoop(uint32_t /*nStart*/, uint32_t /*nEnd*/) {}
    virtual void NextPass() {}
    virtual void CloseLoop() {}
    virtual void OpenCall(uint32_t /*nSite*/) {}
    virtual void CloseCall() {}
};

} // namespace KestrelPlatform

#endif
