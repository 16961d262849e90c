#ifndef KESTREL_PLATFORM_SIMT_TRACERECORDER_H
#define KESTREL_PLATFORM_SIMT_TRACERECORDER_H

#include "KestrelPlatform.h"
#include "platform/simt/Block.h"
#include "platform/simt/BlockRecorder.h"

#include <vector>

namespace KestrelPlatform
{

/// Makes the trace records of a running block: keeps track of open calls and loops, and reads the written registers
/// from the block.
class CTraceRecorder : public IBlockRecorder
{
public:
    CTraceRecorder(ITraceSink& sink, const CProgram& program) : m_Sink(sink), m_Program(program) {}

    void Start(const CBlock& block) override;
    void Flow(const CBlock& block, uint32_t nInstruction) override;
    void Written(const CBlock& block, const SCode& code, const SMicroOp& step) override;
    void OpenLoop(uint32_t nStart, uint32_t nEnd) override;
    void NextPass() override;
    void CloseLoop() override;
    void OpenCall(uint32_t nSite) override;
    void CloseCall() override;

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
