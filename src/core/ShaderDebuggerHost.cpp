#include "core/ShaderDebuggerHost.h"

#include "core/Log.h"
#include "core/ShaderDebuggerDevice.h"

namespace OVK_ShaderDebugger
{

CShaderDebuggerHost::CShaderDebuggerHost(CShaderDebuggerDevice* pDevice) : m_pDebugger(nullptr), m_pDevice(pDevice)
{
    if (SD_Assert(nullptr, m_pDevice != nullptr))
    {
        m_pDevice->SetHost(this);
    }
}

CShaderDebuggerHost::~CShaderDebuggerHost()
{
    SD_SAFE_DELETE(m_pDebugger);
    SD_SAFE_DELETE(m_pDevice);
}

void CShaderDebuggerHost::RegisterDebugger(IShaderDebugger* pDebugger)
{
    if (SD_Assert(nullptr, m_pDebugger == nullptr) && SD_Assert(nullptr, pDebugger != nullptr))
    {
        m_pDebugger = pDebugger;
    }
}

// The operations of the debugger, in the interface's order. A host may be asked before a debugger is
// registered: its own construction logs, and the log asks for the level.
#define FORWARD(call) return m_pDebugger != nullptr && m_pDebugger->call
#define FORWARD_OR(fallback, call) return m_pDebugger != nullptr ? m_pDebugger->call : (fallback)
#define FORWARD_VOID(call)                                                                                             \
    if (m_pDebugger != nullptr)                                                                                        \
    {                                                                                                                  \
        m_pDebugger->call;                                                                                             \
    }

bool CShaderDebuggerHost::StartDebugging(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData,
                                         ThreadID* pDimensions, Mode mode)
{
    FORWARD(StartDebugging(pShaderData, nShaderSize, pLinkageData, pDimensions, mode));
}

void CShaderDebuggerHost::EndDebugging(bool bUpdateOriginalBuffers)
{
    FORWARD_VOID(EndDebugging(bUpdateOriginalBuffers))
}

bool CShaderDebuggerHost::HasDeliveredResults() const
{
    FORWARD_OR(true, HasDeliveredResults());
}

bool CShaderDebuggerHost::RestoreArguments()
{
    FORWARD(RestoreArguments());
}

bool CShaderDebuggerHost::IsDebugging() const
{
    FORWARD(IsDebugging());
}

bool CShaderDebuggerHost::Profile(const void* pShaderData, size_t nShaderSize, ProfileResults& rResults,
                                  ShaderLinkage* pLinkageData, ThreadID* pDimensions, Mode mode)
{
    FORWARD(Profile(pShaderData, nShaderSize, rResults, pLinkageData, pDimensions, mode));
}

bool CShaderDebuggerHost::GetShaderText(std::string& strShader, Mode textType)
{
    FORWARD(GetShaderText(strShader, textType));
}

bool CShaderDebuggerHost::GetShaderText(const void* pShaderData, size_t nShaderSize, std::string& strShader,
                                        Mode textType)
{
    FORWARD(GetShaderText(pShaderData, nShaderSize, strShader, textType));
}

bool CShaderDebuggerHost::GetShaderKeyWords(KeyWordsList& keyWords, Mode textType)
{
    FORWARD(GetShaderKeyWords(keyWords, textType));
}

bool CShaderDebuggerHost::GetShaderKeyWords(const void* pShaderData, size_t nShaderSize, KeyWordsList& keyWords,
                                            Mode textType)
{
    FORWARD(GetShaderKeyWords(pShaderData, nShaderSize, keyWords, textType));
}

bool CShaderDebuggerHost::GetShaderInfo(ShaderInfo& info) const
{
    FORWARD(GetShaderInfo(info));
}

bool CShaderDebuggerHost::GetShaderInfo(const void* pShaderData, size_t nShaderSize, ShaderInfo& info)
{
    FORWARD(GetShaderInfo(pShaderData, nShaderSize, info));
}

Mode CShaderDebuggerHost::GetMode() const
{
    FORWARD_OR(DM_Unknown, GetMode());
}

bool CShaderDebuggerHost::SetMode(Mode mode)
{
    FORWARD(SetMode(mode));
}

bool CShaderDebuggerHost::Execute()
{
    FORWARD(Execute());
}

bool CShaderDebuggerHost::Draw()
{
    FORWARD(Draw());
}

bool CShaderDebuggerHost::Step()
{
    FORWARD(Step());
}

bool CShaderDebuggerHost::Back()
{
    FORWARD(Back());
}

bool CShaderDebuggerHost::Run()
{
    FORWARD(Run());
}

bool CShaderDebuggerHost::RunBack()
{
    FORWARD(RunBack());
}

LineNumber CShaderDebuggerHost::GetCurrentLine() const
{
    FORWARD_OR(0, GetCurrentLine());
}

LineNumber CShaderDebuggerHost::GetNextLine() const
{
    FORWARD_OR(0, GetNextLine());
}

LineNumber CShaderDebuggerHost::GetPreviousLine() const
{
    FORWARD_OR(0, GetPreviousLine());
}

ProgramCounter CShaderDebuggerHost::GetCurrentInstruction() const
{
    FORWARD_OR(ProgramCounter(), GetCurrentInstruction());
}

void CShaderDebuggerHost::SetCurrentThread(ThreadID& threadID){FORWARD_VOID(SetCurrentThread(threadID))}

ThreadID CShaderDebuggerHost::GetCurrentThread() const
{
    FORWARD_OR(ThreadID(), GetCurrentThread());
}

bool CShaderDebuggerHost::AddBreakPointAtLineNumber(LineNumber nLineNumber, LineNumber lookAhead,
                                                    LineNumber* pOutputLine)
{
    FORWARD(AddBreakPointAtLineNumber(nLineNumber, lookAhead, pOutputLine));
}

bool CShaderDebuggerHost::AddBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber)
{
    FORWARD(AddBreakPointAtInstructionNumber(nInstructionNumber));
}

bool CShaderDebuggerHost::RemoveBreakPointAtLineNumber(LineNumber nLineNumber)
{
    FORWARD(RemoveBreakPointAtLineNumber(nLineNumber));
}

bool CShaderDebuggerHost::RemoveBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber)
{
    FORWARD(RemoveBreakPointAtInstructionNumber(nInstructionNumber));
}

bool CShaderDebuggerHost::RemoveAllBreakPoints()
{
    FORWARD(RemoveAllBreakPoints());
}

bool CShaderDebuggerHost::ToggleBreakPointAtLineNumber(LineNumber nLineNumber, bool bSnapToNearestLine)
{
    FORWARD(ToggleBreakPointAtLineNumber(nLineNumber, bSnapToNearestLine));
}

bool CShaderDebuggerHost::ToggleBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber)
{
    FORWARD(ToggleBreakPointAtInstructionNumber(nInstructionNumber));
}

bool CShaderDebuggerHost::HasBreakPointAtLineNumber(LineNumber nLineNumber) const
{
    FORWARD(HasBreakPointAtLineNumber(nLineNumber));
}

bool CShaderDebuggerHost::HasBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) const
{
    FORWARD(HasBreakPointAtInstructionNumber(nInstructionNumber));
}

bool CShaderDebuggerHost::HasBreakPointInLineRange(LineNumber nRangeStart, LineNumber nRangeEnd) const
{
    FORWARD(HasBreakPointInLineRange(nRangeStart, nRangeEnd));
}

bool CShaderDebuggerHost::HasBreakPointInInstructionRange(InstructionNumber nRangeStart,
                                                          InstructionNumber nRangeEnd) const
{
    FORWARD(HasBreakPointInInstructionRange(nRangeStart, nRangeEnd));
}

CShaderDebuggerHost::size_type
CShaderDebuggerHost::GetBreakPointsAsLineNumbers(std::set<unsigned int>* pBreakpoints) const
{
    FORWARD_OR(0, GetBreakPointsAsLineNumbers(pBreakpoints));
}

CShaderDebuggerHost::size_type
CShaderDebuggerHost::GetBreakPointsAsInstructionNumbers(std::set<unsigned int>* pBreakpoints) const
{
    FORWARD_OR(0, GetBreakPointsAsInstructionNumbers(pBreakpoints));
}

bool CShaderDebuggerHost::SetTrackingVariables(const std::set<std::string>& variables)
{
    FORWARD(SetTrackingVariables(variables));
}

std::set<std::string> CShaderDebuggerHost::GetTrackingVariables() const
{
    FORWARD_OR(std::set<std::string>(), GetTrackingVariables());
}

void CShaderDebuggerHost::SetEnableTrackingVariables(bool bEnableTrackingVariables)
{
    FORWARD_VOID(SetEnableTrackingVariables(bEnableTrackingVariables))
}

bool CShaderDebuggerHost::HasPrivateUAV(unsigned int nNumber) const
{
    FORWARD_OR(false, HasPrivateUAV(nNumber));
}

void CShaderDebuggerHost::SetValuesOnDemand(bool bOn)
{
    FORWARD_VOID(SetValuesOnDemand(bOn))
}

bool CShaderDebuggerHost::HasValuesOnDemand() const
{
    FORWARD(HasValuesOnDemand());
}

bool CShaderDebuggerHost::GetEnableTrackingVariables() const
{
    FORWARD(GetEnableTrackingVariables());
}

CShaderDebuggerVariables* CShaderDebuggerHost::GetVariables(ThreadID& threadID)
{
    FORWARD_OR(nullptr, GetVariables(threadID));
}

CShaderDebuggerBuffer* CShaderDebuggerHost::GetRegisterResultsBuffer(VariableID& variableID)
{
    FORWARD_OR(nullptr, GetRegisterResultsBuffer(variableID));
}

CShaderDebuggerBuffer* CShaderDebuggerHost::GetGlobalResultsBuffer(const VariableID& variableID)
{
    FORWARD_OR(nullptr, GetGlobalResultsBuffer(variableID));
}

CShaderDebuggerBuffer* CShaderDebuggerHost::GetExecutionMaskBuffer() const
{
    FORWARD_OR(nullptr, GetExecutionMaskBuffer());
}

bool CShaderDebuggerHost::CountActive(size_t& nActive) const
{
    FORWARD(CountActive(nActive));
}

bool CShaderDebuggerHost::GetLocalMemory(bool bArgument, unsigned int nNumber, unsigned int nGroup,
                                         const unsigned char** ppBytes, size_t* pnSize)
{
    FORWARD_OR(false, GetLocalMemory(bArgument, nNumber, nGroup, ppBytes, pnSize));
}

unsigned int CShaderDebuggerHost::GetBufferWidth() const
{
    FORWARD_OR(0, GetBufferWidth());
}

unsigned int CShaderDebuggerHost::GetBufferHeight() const
{
    FORWARD_OR(0, GetBufferHeight());
}

unsigned int CShaderDebuggerHost::GetBufferDepth() const
{
    FORWARD_OR(0, GetBufferDepth());
}

unsigned int CShaderDebuggerHost::GetBufferArraySize() const
{
    FORWARD_OR(0, GetBufferArraySize());
}

BufferType CShaderDebuggerHost::GetBufferType() const
{
    FORWARD_OR(ShaderUtils::BT_Unknown, GetBufferType());
}

bool CShaderDebuggerHost::GetLastError(std::string& strLastError)
{
    FORWARD(GetLastError(strLastError));
}

void CShaderDebuggerHost::SetLastError(const std::string& strLastError){FORWARD_VOID(SetLastError(strLastError))}

LogType CShaderDebuggerHost::GetLoggingLevel() const
{
    FORWARD_OR(NA_LOG_TYPE, GetLoggingLevel());
}

void CShaderDebuggerHost::SetLoggingLevel(LogType nLevel)
{
    FORWARD_VOID(SetLoggingLevel(nLevel))
}

#undef FORWARD
#undef FORWARD_OR
#undef FORWARD_VOID

// The operations of the device.

bool CShaderDebuggerHost::EnterDebuggingMode(const void*, size_t, ShaderLinkage*, ThreadID*, Mode)
{
    return m_pDevice->EnterDebuggingMode();
}

bool CShaderDebuggerHost::ExitDebuggingMode()
{
    return m_pDevice->ExitDebuggingMode();
}

bool CShaderDebuggerHost::GetDeviceBufferDesc(ShaderType shaderType, int nDeviceBufferIndex,
                                              BufferDesc& bufferDesc) const
{
    return m_pDevice->GetDeviceBufferDesc(shaderType, nDeviceBufferIndex, bufferDesc);
}

CShaderDebuggerDeviceBuffer* CShaderDebuggerHost::CreateDeviceBuffer(const BufferDesc& bufferDesc)
{
    return m_pDevice->CreateDeviceBuffer(bufferDesc);
}

unsigned int CShaderDebuggerHost::GetNumDeviceBuffers(ShaderType shaderType) const
{
    return m_pDevice->GetNumDeviceBuffers(shaderType);
}

CShaderDebuggerDeviceBuffer* CShaderDebuggerHost::GetDeviceBuffer(ShaderType shaderType,
                                                                  std::string strDeviceBuffer) const
{
    return m_pDevice->GetDeviceBuffer(shaderType, std::move(strDeviceBuffer));
}

CShaderDebuggerDeviceBuffer* CShaderDebuggerHost::GetDeviceBuffer(ShaderType shaderType, unsigned int nIndex) const
{
    return m_pDevice->GetDeviceBuffer(shaderType, nIndex);
}

bool CShaderDebuggerHost::SetDeviceBuffer(ShaderType shaderType, std::string strDeviceBuffer,
                                          CShaderDebuggerDeviceBuffer* pBuffer)
{
    return m_pDevice->SetDeviceBuffer(shaderType, std::move(strDeviceBuffer), pBuffer);
}

bool CShaderDebuggerHost::SetDeviceBuffer(ShaderType shaderType, unsigned int nIndex,
                                          CShaderDebuggerDeviceBuffer* pBuffer)
{
    return m_pDevice->SetDeviceBuffer(shaderType, nIndex, pBuffer);
}

bool CShaderDebuggerHost::CreateShader(ShaderType shaderType, const void* pShaderData, size_t nShaderSize,
                                       void** ppShader)
{
    return m_pDevice->CreateShader(shaderType, pShaderData, nShaderSize, ppShader);
}

bool CShaderDebuggerHost::SetShader(ShaderType shaderType, const void* pShaderData, size_t nShaderSize)
{
    return m_pDevice->SetShader(shaderType, pShaderData, nShaderSize);
}

void* CShaderDebuggerHost::GetShader(ShaderType shaderType) const
{
    return m_pDevice->GetShader(shaderType);
}

std::string CShaderDebuggerHost::GetShaderFunctionName(ShaderType shaderType) const
{
    return m_pDevice->GetShaderFunctionName(shaderType);
}

bool CShaderDebuggerHost::DisassembleShader(const void* pShaderData, size_t nShaderSize, std::string& strShader)
{
    return m_pDevice->DisassembleShader(pShaderData, nShaderSize, strShader);
}

void CShaderDebuggerHost::LogMessage(LogType, const std::string&) {}

void CShaderDebuggerHost::GetDeviceName(std::string&) {}

} // namespace OVK_ShaderDebugger
