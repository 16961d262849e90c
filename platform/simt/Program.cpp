#include "platform/simt/Program.h"

#include <new>

namespace KestrelPlatform
{

void CProgram::CollectOpCodes()
{
    m_vOpCodes.assign(m_Stream.nInstructions, IL_OP_UNKNOWN);
    for (const SItem& item : m_Stream.vItems)
    {
        if (item.nInstruction != SItem::NoInstruction)
            m_vOpCodes[item.nInstruction] = item.eOpCode;
    }
}

const SCode& CProgram::GetTracedCode() const
{
    std::call_once(m_TraceOnce,
                   [this]
                   {
                       SDecodeError error;
                       m_bTraceable = LowerProgram(m_Stream, m_Structure, true, m_TracedCode, error);
                   });
    return m_bTraceable ? m_TracedCode : m_Code;
}

std::shared_ptr<const CProgram> DecodeProgram(const uint32_t* pTokens, size_t nCount, SDecodeError& error)
{
    error = SDecodeError();
    try
    {
        SDecodedStream stream;
        SStructure structure;
        SCode code;
        if (!DecodeStream(pTokens, nCount, stream, error) || !BuildStructure(stream, structure, error) ||
            !LowerProgram(stream, structure, false, code, error))
            return nullptr;
        const auto pProgram = std::make_shared<CProgram>(std::move(stream), std::move(structure), std::move(code));
        pProgram->CollectOpCodes();
        return pProgram;
    }
    catch (const std::bad_alloc&)
    {
        error.strMessage = "out of memory";
        return nullptr;
    }
}

} // namespace KestrelPlatform
