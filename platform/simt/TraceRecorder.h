#ifndef KESTREL_PLATFORM_SIMT_TRACERECORDER_H
#define KESTREL_PLATFORM_SIMT_TRACERECORDER_H

#include <vector>

#include "platform/runtime/PlatformControl.h"
#include "platform/simt/Block.h"

namespace KestrelPlatform
{

/// Makes the records of one block while it runs: keeps the open calls and loops, and reads the
/// written register back out of the block.
class CTraceRecorder
{
public:
    CTraceRecorder(ITraceSink& sink, const CProgram& program) : m_Sink(sink), m_Program(program) {}

    void Start(const CBlock& block);
    void Flow(const CBlock& block, uint32_t nInstruction);
    /// pActive: the work-items to record as active in place of the block's mask.
    void FlowWith(const CBlock& block, uint32_t nInstruction, const uint32_t* pActive);
    void Written(const CBlock& block, const SCode& code, const SMicroOp& step);
    void OpenLoop(uint32_t nStart, uint32_t nEnd);
    void NextPass();
    void CloseLoop();
    void OpenCall(uint32_t nSite);
    void CloseCall();

private:
    void SetActive(const CBlock& block, const uint32_t* pMask);
    void Emit(uint32_t nInstruction);
    void FillValues(const CBlock& block, const SCode& code, const STraceInfo& info);

    ITraceSink& m_Sink;
    const CProgram& m_Program;
    std::vector<uint32_t> m_vItems;
    std::vector<uint32_t> m_vActive;
    std::vector<uint32_t> m_vIndices;
    std::vector<uint32_t> m_vValues;
    std::vector<SPlatformLoopPass> m_vLoops;
    std::vector<uint32_t> m_vCalls;
    SPlatformTraceRecord m_Record = {};
};

} // namespace KestrelPlatform

#endif
