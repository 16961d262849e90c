#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerResult.h"
#include "core/ShaderDebuggerVariables.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"
#include "il/ShaderDebuggerUtilsIL.h"

#include <new>

namespace OVK_ShaderDebugger
{

namespace
{

/// The first work-item that a mask marks as active; the default one for a mask in a form that isn't searched.
ThreadID FindActive(const CShaderDebuggerBuffer& mask, int nSubResource)
{
    switch (mask.GetFormat())
    {
    case ShaderUtils::BF_RGBA_8:
    {
        unsigned char point[4] = {0xFF, 0xFF, 0xFF, 0xFF};
        return mask.FindThread(point, nSubResource);
    }
    case ShaderUtils::BF_RGBA_32F:
    case ShaderUtils::BF_XYZW_32F:
    {
        float point[4] = {1.0f, 1.0f, 1.0f, 1.0f};
        return mask.FindThread(point, nSubResource);
    }
    default:
        return ThreadID();
    }
}

/// Where a work-item of a 3D dispatch lies in a result, whose slices stand one after the other in a single one.
ThreadID InResult(const ThreadID& threadID, unsigned int nHeight)
{
    if (threadID.type != ShaderUtils::TID_3D)
    {
        return threadID;
    }
    ThreadID folded = threadID;
    folded.type = ShaderUtils::TID_2D;
    folded.y += threadID.z * static_cast<int>(nHeight);
    folded.z = 0;
    return folded;
}

} // namespace

CShaderDebuggerVariables* CShaderDebuggerIL::GetVariables(ThreadID& threadID)
{
    if (!ShaderUtils::IsValid(threadID))
    {
        threadID = GetCurrentThread();
    }
    if (!ShaderUtils::IsValid(threadID))
    {
        SetThreadIDUsingResult(threadID);
    }
    CShaderDebuggerVariables* pVariables = new (std::nothrow) CShaderDebuggerVariables;
    if (pVariables != nullptr && GetCurrentShader() != nullptr)
    {
        GetCurrentShader()->RestoreOverwritten();
        GetASMVariables(pVariables, threadID);
    }
    return pVariables;
}

bool CShaderDebuggerIL::GetASMVariables(CShaderDebuggerVariables* pVariables, ThreadID& threadID)
{
    if (m_bValuesOnDemand)
    {
        // Their names are what is wanted: a value would cost a run.
        float fNoValues[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        const DataType types[4] = {ShaderUtils::DT_UInt32, ShaderUtils::DT_UInt32, ShaderUtils::DT_UInt32,
                                   ShaderUtils::DT_UInt32};
        for (const Register& reg : GetCurrentShader()->FindWritten())
        {
            pVariables->AddRegister(ShaderDebuggerUtilsIL::GetILRegisterName(GetResultRegister(reg), true),
                                    RegisterMask(0), 4, fNoValues, types);
        }
    }
    for (const auto& entry : m_Results)
    {
        if (m_bValuesOnDemand || entry.first == s_szNoDestination || !IsTracked(entry.first))
        {
            continue;
        }
        const CShaderDebuggerResult& result = *entry.second;
        float fValues[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        if (result.GetResult() != nullptr)
        {
            result.GetResult()->GetThreadValue(fValues, InResult(threadID, GetBufferHeight()));
        }
        const bool bChanged = result.GetLastStep().m_nPos == GetCurrentInstruction().m_nPos;
        pVariables->AddRegister(entry.first, bChanged ? result.GetChangedMask() : RegisterMask(0),
                                result.GetComponentCount(), fValues, result.GetDataType());
    }
    pVariables->SetThreadID(threadID);
    pVariables->SetWidth(GetBufferWidth());
    pVariables->SetHeight(GetBufferHeight());
    pVariables->Sort();
    return true;
}

/// Picks a work-item when none is chosen.
bool CShaderDebuggerIL::SetThreadIDUsingResult(ThreadID& threadID)
{
    if (ShaderUtils::IsValid(threadID))
    {
        return true;
    }
    GetExecutionMaskBuffer(); // makes the client's form of a mask that is kept as bits
    for (const auto& entry : m_Results)
    {
        const CShaderDebuggerBuffer* pExecMask = entry.second->GetExecMask();
        if (pExecMask == nullptr)
        {
            continue;
        }
        const ThreadID found = FindActive(*pExecMask, threadID.nSubResource);
        if (ShaderUtils::IsValid(found))
        {
            threadID = found;
            SetCurrentThread(threadID);
            return true;
        }
    }
    for (const auto& entry : m_Results)
    {
        const CShaderDebuggerBuffer* pResult = entry.second->GetResult();
        if (pResult != nullptr)
        {
            threadID = ThreadID(ShaderUtils::GetThreadIDType(pResult->GetType()), 0, 0, 0, 0);
            return true;
        }
    }
    return false;
}

CShaderDebuggerBuffer* CShaderDebuggerIL::GetRegisterResultsBuffer(VariableID& variableID)
{
    const CShaderDebuggerResult* pResult = nullptr;
    if (variableID.type == VID_LastTouched)
    {
        pResult = m_pLastTouchedResult;
    }
    else if (variableID.type == VID_ByName)
    {
        if (m_bValuesOnDemand)
        {
            return BringValues(variableID.strName);
        }
        if (GetCurrentShader() != nullptr)
        {
            GetCurrentShader()->RestoreOverwritten();
        }
        // What isn't tracked may have been read once, and isn't kept up to date.
        pResult = IsTracked(variableID.strName) ? FindResult(m_Results, variableID.strName) : nullptr;
    }
    return pResult != nullptr ? pResult->GetResult() : nullptr;
}

CShaderDebuggerBuffer* CShaderDebuggerIL::GetGlobalResultsBuffer(const VariableID& variableID)
{
    CShaderDebuggerResult* pResult = FindResult(m_GlobalResults, variableID.strName);
    if (pResult == nullptr)
    {
        return nullptr;
    }
    // What can't be brought up to date isn't shown.
    return UpdateGlobalResult(pResult) || !IsOfArgument(pResult) ? pResult->GetResult() : nullptr;
}

bool CShaderDebuggerIL::GetLocalMemory(bool bArgument, unsigned int nNumber, unsigned int nGroup,
                                       const unsigned char** ppBytes, size_t* pnSize)
{
    CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    const SLocalBlock* pBlock = pShader != nullptr ? pShader->FindLocalBlock(bArgument, nNumber) : nullptr;
    *pnSize = pBlock != nullptr ? pBlock->nSize : 0;
    if (pBlock == nullptr || ppBytes == nullptr)
    {
        return pBlock != nullptr;
    }
    const std::vector<unsigned char>* pvBytes = pShader->BringLocalMemory(nGroup);
    *ppBytes = pvBytes != nullptr && !pvBytes->empty() ? pvBytes->data() + pBlock->nOffset : nullptr;
    return pvBytes != nullptr;
}

CShaderDebuggerBuffer* CShaderDebuggerIL::GetExecutionMaskBuffer() const
{
    return HasMask() ? ShowMask(*m_pLastTouchedResult) : nullptr;
}

} // namespace OVK_ShaderDebugger
