#include "platform/simt/TraceRecorder.h"

namespace KestrelPlatform
{

void CTraceRecorder::Start(const CBlock& block)
{
    m_vLoops.clear();
    m_vCalls.clear();
    const uint32_t nItems = block.GetLive();
    m_vItems.resize(nItems);
    for (uint32_t n = 0; n < nItems; ++n)
    {
        m_vItems[n] = static_cast<uint32_t>(block.GetWorkItem(n));
    }
    m_vActive.assign(nItems, 0);
    m_vIndices.assign(nItems, 0);
    m_vValues.assign(nItems * 4, 0);
}

void CTraceRecorder::SetActive(const CBlock& block, const uint32_t* pMask)
{
    for (uint32_t n = 0; n < block.GetLive(); ++n)
    {
        m_vActive[n] = pMask[n] & 1;
    }
}

void CTraceRecorder::Emit(uint32_t nInstruction)
{
    m_Record.nInstruction = nInstruction;
    m_Record.nOpCode = m_Program.GetOpCode(nInstruction);
    m_Record.nCalls = static_cast<uint32_t>(m_vCalls.size());
    m_Record.pCallSites = m_vCalls.data();
    m_Record.nLoops = static_cast<uint32_t>(m_vLoops.size());
    m_Record.pLoops = m_vLoops.data();
    m_Record.nItems = static_cast<uint32_t>(m_vItems.size());
    m_Record.pItems = m_vItems.data();
    m_Record.pActive = m_vActive.data();
    m_Sink.OnRecord(m_Record);
}

void CTraceRecorder::Flow(const CBlock& block, uint32_t nInstruction)
{
    SetActive(block, block.Mask());
    m_Record.nRegisterType = 0xFFFFFFFF;
    m_Record.nRegisterNumber = 0;
    m_Record.nComponents = 0;
    m_Record.pIndices = nullptr;
    m_Record.pValues = nullptr;
    Emit(nInstruction);
}

void CTraceRecorder::Written(const CBlock& block, const SCode& code, const SMicroOp& step)
{
    const STraceInfo& info = code.vTraces[step.nAux];
    SetActive(block, block.Mask());
    m_Record.nRegisterType = info.nType;
    m_Record.nRegisterNumber = info.nNumber;
    m_Record.nComponents = info.nComponents;
    m_Record.pIndices = nullptr;
    m_Record.pValues = nullptr;
    FillValues(block, code, info);
    Emit(step.nInstruction);
}

void CTraceRecorder::FillValues(const CBlock& block, const SCode& code, const STraceInfo& info)
{
    if (info.eKind == STraceInfo::Nothing || info.eKind == STraceInfo::Memory)
    {
        return;
    }
    m_Record.pValues = m_vValues.data();
    if (info.eKind != STraceInfo::Register)
    {
        m_Record.pIndices = m_vIndices.data();
    }
    for (uint32_t n = 0; n < block.GetLive(); ++n)
    {
        uint32_t* pValues = &m_vValues[n * 4];
        if (info.eKind == STraceInfo::Register)
        {
            for (uint32_t i = 0; i < 4; ++i)
            {
                pValues[i] = block.Row(info.nRow + i)[n];
            }
        }
        else if (info.eKind == STraceInfo::Array)
        {
            const SIndexed& indexed = code.vIndexed[info.nIndexed];
            const SCode::SArray& array = code.vArrays[indexed.nArray];
            const uint32_t nIndex = block.Row(indexed.nIndexRow)[n] + indexed.nImmediate;
            m_vIndices[n] = nIndex;
            for (uint32_t i = 0; i < 4; ++i)
            {
                pValues[i] = nIndex < array.nElements ? block.Row(array.Row(nIndex, i))[n] : 0;
            }
        }
        else
        {
            const SCode::SPrivate& area = code.vPrivate[info.nArea];
            m_vIndices[n] = block.Row(info.nAddressRow)[n];
            for (uint32_t i = 0; i < 4; ++i)
            {
                pValues[i] = block.PrivateWord(area, static_cast<uint64_t>(m_vIndices[n]) + i * 4, n);
            }
        }
    }
}

void CTraceRecorder::OpenLoop(uint32_t nStart, uint32_t nEnd)
{
    m_vLoops.push_back({static_cast<uint32_t>(m_vCalls.size()), nStart, nEnd, 0});
}

void CTraceRecorder::NextPass()
{
    ++m_vLoops.back().nIteration;
}

void CTraceRecorder::CloseLoop()
{
    m_vLoops.pop_back();
}

void CTraceRecorder::OpenCall(uint32_t nSite)
{
    m_vCalls.push_back(nSite);
}

void CTraceRecorder::CloseCall()
{
    m_vCalls.pop_back();
}

} // namespace KestrelPlatform
