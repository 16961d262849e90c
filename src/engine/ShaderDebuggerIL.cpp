#include "engine/ShaderDebuggerIL.h"

#include "core/ErrorStrings.h"
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

namespace
{

/// The kernel-wide result that holds constant buffer 1.
const char s_szArgumentDump[] = "cb1";

} // namespace

CShaderDebuggerIL::CShaderDebuggerIL(CShaderDebuggerHost* pHost)
    : CShaderDebuggerBase(pHost), m_TargetBuffers(pHost), m_pLastTouchedResult(nullptr), m_bDeviceEntered(false),
      m_bOutputsComplete(true), m_bResultsDelivered(true)
{
}

CShaderDebuggerIL::~CShaderDebuggerIL()
{
    // The host isn't told, since it is being destroyed itself.
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

bool CShaderDebuggerIL::CreateTargetBuffers()
{
    BufferDesc desc;
    if (!GetHost()->GetDeviceBufferDesc(ShaderUtils::ST_Compute, -1, desc))
    {
        SD_Log(GetHost(), logERROR, "ShaderDebugger can not get render target description.\n");
        return false;
    }
    m_dwWidth = desc.m_nWidth;
    m_dwHeight = desc.m_nHeight;
    m_dwDepth = desc.m_nDepth;
    m_dwArraySize = desc.m_nArraySize;
    m_BufferType = desc.m_Type;
    return m_TargetBuffers.Create(desc, m_bValuesOnDemand) && CreateGlobalResults();
}

void CShaderDebuggerIL::DeleteTargetBuffers(bool bUpdateOriginalBuffers)
{
    if (bUpdateOriginalBuffers)
    {
        m_bResultsDelivered = m_bOutputsComplete && m_TargetBuffers.WriteBack();
    }
    m_TargetBuffers.Clear();
    m_pValues.reset();
    m_pSpareExecMask.reset();
    m_StopMask.Forget();
    m_KeptMask.Forget();
}

bool CShaderDebuggerIL::RestoreArguments()
{
    return m_bIsDebugging && m_TargetBuffers.RestoreArguments();
}

bool CShaderDebuggerIL::CreateCBDumpBuffer()
{
    const CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    if (!SD_AssertText(GetHost(), pShader != nullptr, "pShader != NULL"))
    {
        return false;
    }
    CShaderDebuggerResult* pResult =
        m_ArgumentDump.CreateBuffer(*pShader) ? GetResult(m_GlobalResults, s_szArgumentDump) : nullptr;
    if (pResult == nullptr)
    {
        SD_Log(GetHost(), logERROR, "%s", ES_CanNotDebug_OutOfMemory);
        SetLastError(ES_CanNotDebug_OutOfMemory);
        return false;
    }
    pResult->UpdateDataType(ShaderUtils::DT_UInt32, COMP_All);
    return true;
}

bool CShaderDebuggerIL::DumpArguments(CShaderDebuggerShaderIL& shader)
{
    if (!m_ArgumentDump.Run(shader, m_TargetBuffers, !m_bValuesOnDemand))
    {
        return false;
    }
    if (!UpdateCBDumpBuffer())
    {
        SD_Log(GetHost(), logERROR, "Failed to update CBDump buffer.");
        return false;
    }
    return true;
}

bool CShaderDebuggerIL::UpdateCBDumpBuffer()
{
    CShaderDebuggerResult* pResult = FindResult(m_GlobalResults, s_szArgumentDump);
    if (pResult == nullptr)
    {
        return false;
    }
    std::unique_ptr<CShaderDebuggerBuffer> pBuf = m_ArgumentDump.Read();
    if (!SD_Assert(GetHost(), pBuf))
    {
        return false;
    }
    pResult->UpdateResult(pBuf.release(), nullptr, 0, 0, 0);
    return true;
}

/// Executes the first instruction, unless that has been done. With values on demand the first movement does it: by then
/// the client has chosen what is read, and a session that is only started takes no memory for its work-items.
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
    const BufferDesc& mask = m_TargetBuffers.GetMaskDesc();
    const uint64_t nItems = uint64_t(std::max(mask.m_nWidth, 1u)) * std::max(mask.m_nHeight, 1u);
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
    m_ArgumentDump.Clear();
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

/// One movement. The first instruction is executed before it if that hasn't been done. If a run of the movement is
/// broken off, the session goes back to where it began.
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
