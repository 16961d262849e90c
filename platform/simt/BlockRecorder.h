#ifndef KESTREL_PLATFORM_SIMT_BLOCKRECORDER_H
#define KESTREL_PLATFORM_SIMT_BLOCKRECORDER_H

#include <cstdint>

namespace KestrelPlatform
{

class CBlock;
struct SCode;
struct SMicroOp;

/// Looks at a block that runs the traced form of its code, one call an instruction. What most have no use for has an
/// empty body.
class IBlockRecorder
{
public:
    virtual ~IBlockRecorder() = default;

    /// The block has new groups and hasn't run yet.
    virtual void Start(const CBlock& /*block*/) {}
    /// Flow control. The block's mask is that of the work-items that the instruction counts for.
    virtual void Flow(const CBlock& block, uint32_t nInstruction) = 0;
    /// Any other instruction has taken effect.
    virtual void Written(const CBlock& block, const SCode& code, const SMicroOp& step) = 0;
    virtual void OpenLoop(uint32_t /*nStart*/, uint32_t /*nEnd*/) {}
    virtual void NextPass() {}
    virtual void CloseLoop() {}
    virtual void OpenCall(uint32_t /*nSite*/) {}
    virtual void CloseCall() {}
};

} // namespace KestrelPlatform

#endif
