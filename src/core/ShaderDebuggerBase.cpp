#include "core/ShaderDebuggerBase.h"

#include "core/ShaderDebuggerShader.h"

namespace OVK_ShaderDebugger
{

namespace
{

const ThreadID s_NoThread(ShaderUtils::TID_2D, -1, -1, 0, 0);

} // namespace

CShaderDebuggerBase::CShaderDebuggerBase(CShaderDebuggerHost* pHost)
    : m_bIsDebugging(false), m_bIsProfiling(false), m_pHost(pHost), m_pCurrentShader(nullptr),
      m_CurrentThread(s_NoThread), m_bEnableTrackingVariables(false), m_dwWidth(0), m_dwHeight(0), m_dwDepth(0),
      m_dwArraySize(0), m_BufferType(ShaderUtils::BT_Unknown), m_nLoggingLevel(NA_LOG_TYPE), m_bNewError(false)
{
}

bool CShaderDebuggerBase::StartDebugging(const void*, size_t, ShaderLinkage*, ThreadID* pDimensions, Mode)
{
    if (m_bIsDebugging)
    {
        return false;
    }
    const ThreadID dimensions = pDimensions != nullptr ? *pDimensions : ThreadID();
    m_dwWidth = static_cast<unsigned int>(dimensions.x);
    m_dwHeight = static_cast<unsigned int>(dimensions.y);
    m_dwDepth = static_cast<unsigned int>(dimensions.z);
    m_dwArraySize = static_cast<unsigned int>(dimensions.nSubResource);
    m_BufferType = ShaderUtils::BT_Unknown;
    m_CurrentThread = s_NoThread;
    return true;
}

void CShaderDebuggerBase::EndDebugging(bool)
{
    m_bIsDebugging = false;
}

bool CShaderDebuggerBase::Profile(const void*, size_t, ProfileResults&, ShaderLinkage*, ThreadID*, Mode)
{
    return false;
}

bool CShaderDebuggerBase::GetShaderText(std::string& strShader, Mode textType)
{
    if (m_pCurrentShader == nullptr)
    {
        strShader.clear();
        return false;
    }
    return m_pCurrentShader->GetShaderText(strShader, textType);
}

bool CShaderDebuggerBase::GetShaderInfo(ShaderInfo& info) const
{
    info = ShaderInfo();
    return m_pCurrentShader != nullptr && m_pCurrentShader->GetShaderInfo(info);
}

ShaderType CShaderDebuggerBase::GetShaderType() const
{
    return m_pCurrentShader != nullptr ? m_pCurrentShader->GetShaderType() : ShaderUtils::ST_Unknown;
}

Mode CShaderDebuggerBase::GetMode() const
{
    return m_pCurrentShader != nullptr ? m_pCurrentShader->GetMode() : DM_Unknown;
}

bool CShaderDebuggerBase::SetMode(Mode mode)
{
    return m_pCurrentShader != nullptr && m_pCurrentShader->SetMode(mode);
}

bool CShaderDebuggerBase::Draw()
{
    return Execute();
}

bool CShaderDebuggerBase::AddBreakPointAtLineNumber(LineNumber nLineNumber, LineNumber, LineNumber*)
{
    m_Breakpoints.insert(nLineNumber);
    return true;
}

bool CShaderDebuggerBase::RemoveBreakPointAtLineNumber(LineNumber nLineNumber)
{
    m_Breakpoints.erase(nLineNumber);
    return true;
}

bool CShaderDebuggerBase::RemoveAllBreakPoints()
{
    m_Breakpoints.clear();
    return true;
}

bool CShaderDebuggerBase::ToggleBreakPointAtLineNumber(LineNumber nLineNumber, bool)
{
    if (m_Breakpoints.erase(nLineNumber) == 0)
    {
        m_Breakpoints.insert(nLineNumber);
    }
    return true;
}

bool CShaderDebuggerBase::HasBreakPointAtLineNumber(LineNumber nLineNumber) const
{
    return m_Breakpoints.count(nLineNumber) != 0;
}

bool CShaderDebuggerBase::HasBreakPointInLineRange(LineNumber nRangeStart, LineNumber nRangeEnd) const
{
    const auto it = m_Breakpoints.upper_bound(nRangeStart);
    return it != m_Breakpoints.end() && *it < nRangeEnd;
}

CShaderDebuggerBase::size_type
CShaderDebuggerBase::GetBreakPointsAsLineNumbers(std::set<unsigned int>* pBreakpoints) const
{
    if (pBreakpoints != nullptr)
    {
        *pBreakpoints = m_Breakpoints;
    }
    return m_Breakpoints.size();
}

bool CShaderDebuggerBase::SetTrackingVariables(const std::set<std::string>& variables)
{
    m_TrackingVariables = variables;
    return true;
}

bool CShaderDebuggerBase::GetLastError(std::string& strLastError)
{
    strLastError = m_strLastError;
    const bool bNewError = m_bNewError;
    m_bNewError = false;
    return bNewError;
}

void CShaderDebuggerBase::SetLastError(const std::string& strLastError)
{
    m_strLastError = strLastError;
    m_bNewError = true;
}

void CShaderDebuggerBase::SetCurrentShader(CShaderDebuggerShader* pShader)
{
    SD_SAFE_DELETE(m_pCurrentShader);
    m_pCurrentShader = pShader;
}

} // namespace OVK_ShaderDebugger
