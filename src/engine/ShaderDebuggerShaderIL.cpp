#include "engine/ShaderDebuggerShaderIL.h"

#include "core/Log.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/ShaderDebuggerIL.h"

#include <limits>

namespace OVK_ShaderDebugger
{

namespace
{

/// The partner of a number in one half of the line table; the largest number if it has none.
template <typename Map>
unsigned int Find(const Map& map, unsigned int nKey)
{
    const auto it = map.find(nKey);
    return it != map.end() ? it->second : std::numeric_limits<unsigned int>::max();
}

} // namespace

CShaderDebuggerShaderIL::CShaderDebuggerShaderIL(CShaderDebuggerIL* pDebugger, const void* pShaderData,
                                                 size_t nShaderSize)
    : CInstrumentedShaderIL(pDebugger, pShaderData, nShaderSize), m_Course(*this), m_Lanes(m_Course),
      m_Walk(m_Course, *pDebugger), m_Runs(*this, m_Course, pDebugger->GetTargetBuffers()),
      m_Memory(*this, m_Course, m_Runs, pDebugger->GetTargetBuffers())
{
    GetHost()->GetDeviceName(m_DeviceName);
    const bool bRet = AnalyzeShader();
    if (!SD_Assert(GetHost(), bRet))
    {
        m_ShaderInfo.debugModes &= ~static_cast<unsigned int>(DM_Source);
    }
}

CShaderDebuggerShaderIL::~CShaderDebuggerShaderIL() = default;

CShaderDebuggerIL* CShaderDebuggerShaderIL::GetDebuggerIL() const
{
    return static_cast<CShaderDebuggerIL*>(GetDebugger());
}

bool CShaderDebuggerShaderIL::StartDebugging(Mode mode)
{
    if (!CInstrumentedShaderIL::StartDebugging(mode))
    {
        return false;
    }
    SetByteMask(GetDebuggerIL()->GetTargetBuffers().HasByteMask());
    const bool didDumpCB = GetDebuggerIL()->DumpArguments(*this);
    if (!SD_Assert(GetHost(), didDumpCB))
    {
        return false;
    }
    m_bReadInputRegisters = true;
    m_ExecuteList.clear();
    if (!EnterInstruction())
    {
        return false;
    }
    MoveToNext();
    return UpdateTargetInstruction(false);
}

void CShaderDebuggerShaderIL::EndDebugging()
{
    CInstrumentedShaderIL::EndDebugging();
    m_Runs.SetPresentMask(false);
}

bool CShaderDebuggerShaderIL::GetShaderText(std::string& strShader, Mode textType)
{
    const Mode shown = textType != DM_Current ? textType : GetDebugger()->GetMode() == DM_Source ? DM_Source : DM_Asm;
    if (shown != DM_Asm)
    {
        return SD_Break(GetHost(), "Invalid text type");
    }
    return GetHost()->DisassembleShader(GetShaderData(), GetShaderDataSize(), strShader);
}

bool CShaderDebuggerShaderIL::GetShaderKeyWords(KeyWordsList& keyWords, Mode)
{
    keyWords.clear();
    return false;
}

bool CShaderDebuggerShaderIL::Draw()
{
    return SD_Break(GetHost(), "draw?? doesn't have meaning");
}

InstructionNumber CShaderDebuggerShaderIL::GetInstruction(LineNumber nLineNumber) const
{
    return Find(m_PC_LineNumberMap.right, nLineNumber);
}

LineNumber CShaderDebuggerShaderIL::GetLine(InstructionNumber nInstructionNumber) const
{
    return Find(m_PC_LineNumberMap.left, nInstructionNumber);
}

LineNumber CShaderDebuggerShaderIL::GetCurrentLine() const
{
    return GetLine(m_nCurrentInstruction.m_nPos);
}

LineNumber CShaderDebuggerShaderIL::GetNextLine() const
{
    return GetLine(m_nNextInstruction.m_nPos);
}

LineNumber CShaderDebuggerShaderIL::GetPreviousLine() const
{
    return GetLine(m_nCurrentInstruction.m_nPos - 1);
}

LineNumber CShaderDebuggerShaderIL::GetNearestLine(LineNumber nLineNumber, LineNumber lookAhead)
{
    const LineNumber nBefore = nLineNumber != 0 ? nLineNumber - 1 : 0;
    const auto it = m_PC_LineNumberMap.right.upper_bound(nBefore);
    if (it == m_PC_LineNumberMap.right.end())
    {
        return g_INVALID_LINE_NUMBER;
    }
    const bool bAny = lookAhead == std::numeric_limits<LineNumber>::max();
    return bAny || it->first - nLineNumber <= lookAhead ? it->first : g_INVALID_LINE_NUMBER;
}

Register CShaderDebuggerShaderIL::GetDestRegister(ProgramCounter nTargetInstruction)
{
    return WrittenBy(nTargetInstruction.m_nPos);
}

Register CShaderDebuggerShaderIL::GetCurrentRegister()
{
    return GetDestRegister(GetCurrentInstruction());
}

Register CShaderDebuggerShaderIL::GetSrcRegister(InstructionNumber nInstruction, unsigned int nSrcReg)
{
    return nInstruction < m_Instructions.size() ? m_Instructions[nInstruction].GetSrcRegister(nSrcReg) : g_Reg_NULL;
}

Register CShaderDebuggerShaderIL::GetSrcRegister(ProgramCounter nInstruction, unsigned int nSrcReg)
{
    return GetSrcRegister(nInstruction.m_nPos, nSrcReg);
}

} // namespace OVK_ShaderDebugger
