#include "core/ShaderDebuggerResult.h"

#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace OVK_ShaderDebugger
{

CShaderDebuggerResult::CShaderDebuggerResult(CShaderDebuggerHost* pHost, const std::string& strName)
    : m_pHost(pHost), m_strName(strName), m_pResult(nullptr), m_pExecMask(nullptr), m_nComponentCount(4)
{
    std::fill(std::begin(m_DataType), std::end(m_DataType), ShaderUtils::DT_Float32);
}

CShaderDebuggerResult::~CShaderDebuggerResult()
{
    SD_SAFE_DELETE(m_pResult);
    SD_SAFE_DELETE(m_pExecMask);
}

ProgramCounter CShaderDebuggerResult::GetLastStep() const
{
    return m_ExecutionStack.empty() ? g_PC_NULL : m_ExecutionStack.top().programCounter;
}

RegisterMask CShaderDebuggerResult::GetChangedMask() const
{
    return m_ExecutionStack.empty() ? RegisterMask(0) : m_ExecutionStack.top().mask;
}

ProgramCounter CShaderDebuggerResult::PopLastStep()
{
    m_ExecutionStack.pop();
    return GetLastStep();
}

void CShaderDebuggerResult::SetProgramCounter(const ProgramCounter& pc, RegisterMask mask)
{
    if (m_ExecutionStack.empty() || m_ExecutionStack.top().programCounter != pc)
    {
        m_ExecutionStack.push({pc, mask});
    }
}

bool CShaderDebuggerResult::NeedsMerge(const CShaderDebuggerBuffer* pResult, const CShaderDebuggerBuffer* pExecMask,
                                       size_t nComponents) const
{
    if (pResult == nullptr || pExecMask == nullptr)
    {
        return false;
    }
    return nComponents != 0 || (m_pResult != nullptr && pExecMask->GetActiveItemCount(0) != pExecMask->GetItemCount());
}

void CShaderDebuggerResult::UpdateResult(CShaderDebuggerBuffer* pResult, CShaderDebuggerBuffer* pExecMask,
                                         size_t nDestComponentOffset, size_t nSrcComponentOffset, size_t nComponents)
{
    if (pResult == m_pResult)
    {
        return;
    }
    if (NeedsMerge(pResult, pExecMask, nComponents))
    {
        if (m_pResult == nullptr)
        {
            m_pResult = new (std::nothrow) CShaderDebuggerBuffer(m_pHost);
            if (m_pResult != nullptr && !m_pResult->Create(pResult->GetDesc(), nullptr))
            {
                SD_SAFE_DELETE(m_pResult);
            }
        }
        if (SD_Assert(m_pHost, m_pResult != nullptr))
        {
            // The merge runs in the old buffer; the new one takes its memory instead of a copy of it.
            m_pResult->Merge(*pResult, *pExecMask, false, nDestComponentOffset, nSrcComponentOffset, nComponents);
            m_pResult->Swap(*pResult);
        }
    }
    delete m_pResult;
    m_pResult = pResult;
}

void CShaderDebuggerResult::UpdateExecMask(CShaderDebuggerBuffer* pExecMask)
{
    if (pExecMask != m_pExecMask)
    {
        delete ExchangeExecMask(pExecMask, false);
    }
}

CShaderDebuggerBuffer* CShaderDebuggerResult::ExchangeExecMask(CShaderDebuggerBuffer* pExecMask, bool bFull)
{
    m_bFullExecMask = bFull;
    return std::exchange(m_pExecMask, pExecMask);
}

namespace
{

/// The more specific integer types aren't overwritten by the plain one.
bool Overwrites(DataType newType, DataType oldType)
{
    return newType != ShaderUtils::DT_Int32 || (oldType != ShaderUtils::DT_SInt32 && oldType != ShaderUtils::DT_UInt32);
}

} // namespace

void CShaderDebuggerResult::UpdateDataType(DataType dataType)
{
    m_DataType[0] = dataType;
    m_nComponentCount = 1;
}

void CShaderDebuggerResult::UpdateDataType(DataType dataType, RegisterMask mask)
{
    for (unsigned int i = 0; i < 4; ++i)
    {
        if ((mask & GetComponent(i)) != 0 && Overwrites(dataType, m_DataType[i]))
        {
            m_DataType[i] = dataType;
        }
    }
}

void CShaderDebuggerResult::UpdateDataType(const CShaderDebuggerResult* pSrcRegResult, RegisterMask mask)
{
    if (pSrcRegResult == nullptr)
    {
        return;
    }
    for (unsigned int i = 0; i < 4; ++i)
    {
        if ((mask & GetComponent(i)) != 0 && Overwrites(pSrcRegResult->m_DataType[i], m_DataType[i]))
        {
            m_DataType[i] = pSrcRegResult->m_DataType[i];
        }
    }
}

} // namespace OVK_ShaderDebugger
