// The current place of a debugging session in the source.

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Debugger.h"

namespace KestrelTool
{

bool CDebugger::HasSource() const
{
    return HasLines(*m_pListing, m_pCode->FindFunction(m_pCode->GetFirstStop()));
}

std::vector<SFrame> CDebugger::GetFrames()
{
    return ListFrames(*m_pListing, *m_pCode, *m_pDebugInfo, m_nLabel, IsLive() ? m_nLine : m_pCode->GetFirstStop());
}

std::vector<SSourceVariable> CDebugger::FindVariables(unsigned int nLine)
{
    const bool bHead = m_pListing->GetMnemonic(nLine) == "func";
    const unsigned int nNext = bHead ? m_pListing->GetNextInstruction(nLine) : nLine;
    return m_pDebugInfo->FindVariables(nNext != CListing::NoLine ? nNext : nLine);
}

void CDebugger::SelectFrame(size_t nFrame)
{
    RequireLive();
    const size_t nFrames = GetFrames().size();
    if (nFrame >= nFrames)
    {
        throw CCommandError("there is no frame " + std::to_string(nFrame) + "; the outermost is " +
                            std::to_string(nFrames - 1));
    }
    m_nFrame = nFrame;
}

std::optional<SSourceLine> CDebugger::GetSourceLine()
{
    const std::vector<SFrame> vFrames = GetFrames();
    // Before the launch, the kernel's own line says more than that of a function inlined at its beginning.
    const size_t nFrame = IsLive() ? m_nFrame : vFrames.size() - 1;
    return nFrame < vFrames.size() ? vFrames[nFrame].place : std::nullopt;
}

} // namespace KestrelTool
