#include "platform/simt/Program.h"

#include <new>

namespace KestrelPlatform
{

namespace
{

/// For streams up to this length a thread keeps the decoded form's memory for the next stream. That form is several
/// times as large as a program, and allocating it anew would cost more than the work in it.
const size_t s_nKeptTokens = 1u << 18;

struct SScratch
{
    SDecodedStream stream;
    SStructure structure;
    std::vector<SMicroOp> vSteps;
};

bool Lower(const uint32_t* pTokens, size_t nCount, bool bTrace, SScratch& scratch, SCode& code, SDecodeError& error)
{
    return DecodeStream(pTokens, nCount, scratch.stream, error) &&
           BuildStructure(scratch.stream, scratch.structure, error) &&
           LowerProgram(scratch.stream, scratch.structure, bTrace, code, error);
}

} // namespace

CProgram::CProgram(const SDecodedStream& stream, SCode&& code)
    : m_vTokens(stream.pTokens, stream.pTokens + stream.nTokens), m_Code(std::move(code))
{
}

const SCode& CProgram::GetTracedCode() const
{
    std::call_once(m_TraceOnce,
                   [this]
                   {
                       SScratch scratch;
                       SDecodeError error;
                       m_bTraceable = Lower(m_vTokens.data(), m_vTokens.size(), true, scratch, m_TracedCode, error);
                       for (const SItem& item : scratch.stream.vItems)
                       {
                           if (item.nInstruction != SItem::NoInstruction)
                           {
                               m_vOpCodes.push_back(item.eOpCode);
                           }
                       }
                   });
    return m_bTraceable ? m_TracedCode : m_Code;
}

std::shared_ptr<const CProgram> DecodeProgram(const uint32_t* pTokens, size_t nCount, SDecodeError& error)
{
    static thread_local SScratch s_Scratch;
    error = SDecodeError();
    try
    {
        SScratch own;
        SScratch& scratch = nCount <= s_nKeptTokens ? s_Scratch : own;
        SCode code;
        code.vSteps = std::move(scratch.vSteps);
        if (!Lower(pTokens, nCount, false, scratch, code, error))
        {
            return nullptr;
        }
        // Gives the program just the memory that its steps need. Steps of a long stream aren't worth another copy.
        if (&scratch == &s_Scratch)
        {
            scratch.vSteps = std::move(code.vSteps);
            code.vSteps.assign(scratch.vSteps.begin(), scratch.vSteps.end());
        }
        return std::make_shared<CProgram>(scratch.stream, std::move(code));
    }
    catch (const std::bad_alloc&)
    {
        error.strMessage = "out of memory";
        return nullptr;
    }
}

} // namespace KestrelPlatform
