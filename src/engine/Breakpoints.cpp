#include "core/Log.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <limits>

namespace OVK_ShaderDebugger
{

namespace
{

const LineNumber s_nAnyDistance = std::numeric_limits<LineNumber>::max();

} // namespace

bool CShaderDebuggerIL::AddBreakPointAtLineNumber(LineNumber nLineNumber, LineNumber lookAhead, LineNumber* pOutputLine)
{
    if (!SD_Assert(GetHost(), GetCurrentShader()))
    {
        return false;
    }
    const LineNumber nNearest = GetCurrentShader()->GetNearestLine(nLineNumber, lookAhead);
    // A caller that accepts only its own line still learns where the next one would be.
    const LineNumber nFollowing =
        lookAhead == 0 ? GetCurrentShader()->GetNearestLine(nLineNumber, s_nAnyDistance) : nNearest;
    if (pOutputLine != nullptr)
    {
        *pOutputLine = nFollowing;
    }
    if (nNearest == g_INVALID_LINE_NUMBER || (lookAhead == 0 && nNearest != nLineNumber))
    {
        return false;
    }
    return CShaderDebuggerBase::AddBreakPointAtLineNumber(nNearest, lookAhead, pOutputLine);
}

bool CShaderDebuggerIL::AddBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber)
{
    const CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    return SD_Assert(GetHost(), GetCurrentShader()) &&
           AddBreakPointAtLineNumber(pShader->GetLine(nInstructionNumber), s_nAnyDistance, nullptr);
}

bool CShaderDebuggerIL::RemoveBreakPointAtLineNumber(LineNumber nLineNumber)
{
    if (!SD_Assert(GetHost(), GetCurrentShader()) ||
        GetCurrentShader()->GetNearestLine(nLineNumber, s_nAnyDistance) != nLineNumber)
    {
        return false;
    }
    return CShaderDebuggerBase::RemoveBreakPointAtLineNumber(nLineNumber);
}

bool CShaderDebuggerIL::RemoveBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber)
{
    return SD_Assert(GetHost(), GetCurrentShader()) &&
           RemoveBreakPointAtLineNumber(GetCurrentShader()->GetLine(nInstructionNumber));
}

bool CShaderDebuggerIL::ToggleBreakPointAtLineNumber(LineNumber nLineNumber, bool bSnapToNearestLine)
{
    if (!SD_Assert(GetHost(), GetCurrentShader()))
    {
        return false;
    }
    const LineNumber nNearest = GetCurrentShader()->GetNearestLine(nLineNumber, s_nAnyDistance);
    if (nNearest == g_INVALID_LINE_NUMBER || (nNearest != nLineNumber && !bSnapToNearestLine))
    {
        return false;
    }
    if (m_Breakpoints.insert(nNearest).second)
    {
        return true;
    }
    return nNearest == nLineNumber && m_Breakpoints.erase(nNearest) != 0;
}

bool CShaderDebuggerIL::ToggleBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber)
{
    return SD_Assert(GetHost(), GetCurrentShader()) &&
           ToggleBreakPointAtLineNumber(GetCurrentShader()->GetLine(nInstructionNumber), false);
}

bool CShaderDebuggerIL::HasBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) const
{
    return GetCurrentShader() != nullptr && HasBreakPointAtLineNumber(GetCurrentShader()->GetLine(nInstructionNumber));
}

bool CShaderDebuggerIL::HasBreakPointInInstructionRange(InstructionNumber nRangeStart,
                                                        InstructionNumber nRangeEnd) const
{
    return GetCurrentShader() != nullptr &&
           HasBreakPointInLineRange(GetCurrentShader()->GetLine(nRangeStart), GetCurrentShader()->GetLine(nRangeEnd));
}

CShaderDebuggerIL::size_type
CShaderDebuggerIL::GetBreakPointsAsInstructionNumbers(std::set<unsigned int>* pBreakpoints) const
{
    if (pBreakpoints == nullptr || GetCurrentShader() == nullptr)
    {
        return pBreakpoints == nullptr ? m_Breakpoints.size() : 0;
    }
    pBreakpoints->clear();
    for (const LineNumber nLine : m_Breakpoints)
    {
        pBreakpoints->insert(GetCurrentShader()->GetInstruction(nLine));
    }
    return pBreakpoints->size();
}

} // namespace OVK_ShaderDebugger
