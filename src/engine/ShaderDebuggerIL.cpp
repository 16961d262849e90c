#include "engine/ShaderDebuggerIL.h"

#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <new>

namespace OVK_ShaderDebugger
{

CShaderDebuggerIL::CShaderDebuggerIL(CShaderDebuggerHost* pHost)
    : CShaderDebuggerBase(pHost), m_pLastTouchedResult(nullptr), m_bDeviceEntered(false), m_bOutputsComplete(true),
      m_bResultsDelivered(true)
{
}

CShaderDebuggerIL::~CShaderDebuggerIL()
{
    // The host that would be told is being destroyed itself.
    m_bDeviceEntered = false;
    CloseSession(false);
}

CShaderDebuggerShaderIL* CShaderDebuggerIL::GetCurrentShader() const
{
    return static_cast<CShaderDebuggerShaderIL*>(m_pCurrentShader);
}

CShaderDebuggerShaderIL* CShaderDebuggerIL::CreateShader(const void* pShaderData, size_t nShaderSize)
{
    return new (std::nothrow) CShaderDebuggerShaderIL(this, pShaderData, nShaderSize);
}

bool CShaderDebuggerIL::StartDebugging(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData,
                                       ThreadID* pDimensions, Mode mode)
{
    if (!SD_Assert(GetHost(), !m_bIsDebugging) ||
        !CShaderDebuggerBase::StartDebugging(pShaderData, nShaderSize, pLinkageData, pDimensions, mode))
    {
        return false;
    }
    if (!OpenSession(pShaderData, nShaderSize, pLinkageData, pDimensions, mode))
    {
        CloseSession(false);
        return false;
    }
    return true;
}

bool CShaderDebuggerIL::OpenSession(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData,
                                    ThreadID* pDimensions, Mode mode)
{
    m_pLastTouchedResult = nullptr;
    m_LastUpdatedGlobalResultPC = ProgramCounter(0);
    m_bOutputsComplete = true;
    m_pCurrentShader = CreateShader(pShaderData, nShaderSize);
    if (!SD_Assert(GetHost(), m_pCurrentShader != nullptr))
    {
        return false;
    }
    ShaderInfo info;
    if (!m_pCurrentShader->GetShaderInfo(info) || info.shaderType == ShaderUtils::ST_Unknown)
    {
        return false;
    }
    const Mode sessionMode = mode == DM_Current ? GetMode() : mode;
    if (!CreateTargetBuffers() || !CreateCBDumpBuffer() || !m_pCurrentShader->StartDebugging(sessionMode) ||
        !GetHost()->EnterDebuggingMode(pShaderData, nShaderSize, pLinkageData, pDimensions, sessionMode))
    {
        return false;
    }
    m_bDeviceEntered = true;
    m_bIsDebugging = true;
    m_bOpened = !m_bValuesOnDemand;
    return !m_bOpened || (Execute() && GetCurrentShader()->PostStep());
}

/// Executes the first instruction, unless that has been done. With values on demand the first movement does it: what is
/// read, and how, is settled by then, and a session that only starts takes no memory for its work-items.
bool CShaderDebuggerIL::Open()
{
    CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    if (m_bOpened || pShader == nullptr)
    {
        return pShader != nullptr;
    }
    m_bOpened = pShader->UpdateTargetInstruction(true) && Execute() && pShader->PostStep();
    return m_bOpened;
}

/// The same for a run to a breakpoint, which shows no stop at the first instruction.
bool CShaderDebuggerIL::OpenToRun()
{
    CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    const uint64_t nItems = uint64_t(std::max(m_MaskDesc.m_nWidth, 1u)) * std::max(m_MaskDesc.m_nHeight, 1u);
    if (m_bOpened || pShader == nullptr || !pShader->PassFirst(nItems))
    {
        return Open();
    }
    m_bOpened = pShader->PostStep();
    return m_bOpened;
}

void CShaderDebuggerIL::EndDebugging(bool bUpdateOriginalBuffers)
{
    if (m_bIsDebugging)
    {
        CloseSession(bUpdateOriginalBuffers);
    }
}

void CShaderDebuggerIL::CloseSession(bool bUpdateOriginalBuffers)
{
    if (m_bDeviceEntered)
    {
        GetHost()->ExitDebuggingMode();
        m_bDeviceEntered = false;
    }
    SetCurrentShader(nullptr);
    DeleteTargetBuffers(bUpdateOriginalBuffers);
    m_pCBBuffer.reset();
    m_pLastTouchedResult = nullptr;
    m_Results.clear();
    m_GlobalResults.clear();
    m_GlobalResultDirtyFlags.clear();
    CShaderDebuggerBase::EndDebugging(bUpdateOriginalBuffers);
}

bool CShaderDebuggerIL::GetShaderText(std::string& strShader, Mode textType)
{
    return CShaderDebuggerBase::GetShaderText(strShader, textType);
}

bool CShaderDebuggerIL::GetShaderText(const void* pShaderData, size_t nShaderSize, std::string& strShader,
                                      Mode textType)
{
    const std::unique_ptr<CShaderDebuggerShader> pShader(CreateShader(pShaderData, nShaderSize));
    if (pShader == nullptr)
    {
        strShader.clear();
        return false;
    }
    return pShader->GetShaderText(strShader, textType);
}

bool CShaderDebuggerIL::GetShaderKeyWords(KeyWordsList& keyWords, Mode textType)
{
    return m_pCurrentShader != nullptr && m_pCurrentShader->GetShaderKeyWords(keyWords, textType);
}

bool CShaderDebuggerIL::GetShaderKeyWords(const void* pShaderData, size_t nShaderSize, KeyWordsList& keyWords,
                                          Mode textType)
{
    keyWords.clear();
    const std::unique_ptr<CShaderDebuggerShader> pShader(CreateShader(pShaderData, nShaderSize));
    return pShader != nullptr && pShader->GetShaderKeyWords(keyWords, textType);
}

bool CShaderDebuggerIL::GetShaderInfo(const void* pShaderData, size_t nShaderSize, ShaderInfo& info)
{
    info.textModes = info.debugModes = 0;
    info.strFunction.clear();
    info.nFunctionLine = 0;
    info.strHash.clear();
    const std::unique_ptr<CShaderDebuggerShader> pShader(CreateShader(pShaderData, nShaderSize));
    return pShader != nullptr && pShader->GetShaderInfo(info);
}

bool CShaderDebuggerIL::Execute()
{
    return DoExecute(true);
}

bool CShaderDebuggerIL::DoExecute(bool bUpdateHistory)
{
    if (!SD_Assert(GetHost(), m_pHost) || !SD_Assert(GetHost(), GetCurrentShader()))
    {
        return false;
    }
    return GetCurrentShader()->Execute(bUpdateHistory);
}

bool CShaderDebuggerIL::Draw()
{
    if (!SD_Assert(GetHost(), m_pHost) || !SD_Assert(GetHost(), GetCurrentShader()))
    {
        return false;
    }
    return GetCurrentShader()->Draw();
}

bool CShaderDebuggerIL::EndMovement(bool bMoved)
{
    if (!bMoved && m_bIsDebugging && GetCurrentShader() != nullptr)
    {
        m_bOutputsComplete = GetCurrentShader()->CompleteKernel();
    }
    return bMoved;
}

/// One movement, with the first instruction in front of it if that hasn't been executed. If a run of it was broken off,
/// the session is where it began.
template <typename Action>
bool CShaderDebuggerIL::Move(bool (CShaderDebuggerIL::*open)(), Action move)
{
    ForgetValues();
    HideMask();
    CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    if (pShader == nullptr)
    {
        return false;
    }
    GetHost()->SetBrokenOff(false);
    bool bMoved = (this->*open)() && pShader->BeginMovement();
    m_KeptMask.Forget();
    m_bMaskFiled = false;
    bMoved = bMoved && move(*pShader);
    if (!GetHost()->IsBrokenOff())
    {
        return bMoved;
    }
    bool bSameStop = false;
    if (m_bOpened && pShader->ReturnToStop(bSameStop))
    {
        m_bMaskStale = m_bMaskStale || (m_bMaskFiled && !(bSameStop && RestoreMask()));
    }
    return true;
}

bool CShaderDebuggerIL::Step()
{
    return EndMovement(Move(&CShaderDebuggerIL::Open, [this](CShaderDebuggerShaderIL& shader)
                            { return shader.Step() && Execute() && shader.PostStep(); }));
}

bool CShaderDebuggerIL::Run()
{
    return EndMovement(Move(&CShaderDebuggerIL::OpenToRun, [this](CShaderDebuggerShaderIL& shader)
                            { return shader.Run() && Execute() && shader.PostStep(); }));
}

bool CShaderDebuggerIL::Back()
{
    return Move(&CShaderDebuggerIL::Open,
                [this](CShaderDebuggerShaderIL& shader) { return shader.Back() && Execute() && shader.PostBack(); });
}

bool CShaderDebuggerIL::RunBack()
{
    return Move(&CShaderDebuggerIL::Open,
                [this](CShaderDebuggerShaderIL& shader) { return shader.RunBack() && Execute() && shader.PostBack(); });
}

LineNumber CShaderDebuggerIL::GetCurrentLine() const
{
    return m_pCurrentShader != nullptr ? m_pCurrentShader->GetCurrentLine() : 0;
}

LineNumber CShaderDebuggerIL::GetNextLine() const
{
    return m_pCurrentShader != nullptr ? m_pCurrentShader->GetNextLine() : 0;
}

LineNumber CShaderDebuggerIL::GetPreviousLine() const
{
    return m_pCurrentShader != nullptr ? m_pCurrentShader->GetPreviousLine() : 0;
}

ProgramCounter CShaderDebuggerIL::GetCurrentInstruction() const
{
    return m_pCurrentShader != nullptr ? m_pCurrentShader->GetCurrentInstruction() : ProgramCounter(0);
}

} // namespace OVK_ShaderDebugger
