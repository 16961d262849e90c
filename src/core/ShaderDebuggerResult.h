#ifndef KESTREL_CORE_SHADERDEBUGGERRESULT_H
#define KESTREL_CORE_SHADERDEBUGGERRESULT_H

#include "core/ShaderDebuggerCommon.h"

#include <stack>
#include <string>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerBuffer;
class CShaderDebuggerHost;

/// The engine's memory of one register or one global object: the newest value of every work-item,
/// and the stack of positions at which it changed. Earlier values aren't kept.
class CShaderDebuggerResult
{
public:
    struct ExecutedStep
    {
        ProgramCounter programCounter;
        RegisterMask mask; ///< the components that were written
    };

    CShaderDebuggerResult(CShaderDebuggerHost* pHost, const std::string& strName);
    virtual ~CShaderDebuggerResult();
    CShaderDebuggerResult(const CShaderDebuggerResult&) = delete;
    CShaderDebuggerResult& operator=(const CShaderDebuggerResult&) = delete;

    /// g_PC_NULL if nothing wrote it.
    ProgramCounter GetLastStep() const;
    RegisterMask GetChangedMask() const;
    const DataType* GetDataType() const { return m_DataType; } ///< one for each of four components
    unsigned int GetComponentCount() const { return m_nComponentCount; }
    const std::string& GetName() const { return m_strName; }
    CShaderDebuggerHost* GetHost() const { return m_pHost; }

    /// Removes the newest position and gives the one now newest, or g_PC_NULL. The stack must not
    /// be empty.
    ProgramCounter PopLastStep();
    /// Notes a position, unless it is the newest already.
    void SetProgramCounter(const ProgramCounter& pc, RegisterMask mask);

    /// Null until the first write; owned by the result.
    CShaderDebuggerBuffer* GetResult() const { return m_pResult; }
    CShaderDebuggerBuffer* GetExecMask() const { return m_pExecMask; }
    /// Whether the mask is known to have every work-item.
    bool HasFullExecMask() const { return m_bFullExecMask; }

    /// Stores new values and takes over pResult, null included. Where a mask is given and isn't full, or nComponents
    /// isn't 0, work-items outside the mask keep their old value; otherwise the new buffer replaces the old one without
    /// a copy. The mask stays the caller's.
    void UpdateResult(CShaderDebuggerBuffer* pResult, CShaderDebuggerBuffer* pExecMask, size_t nDestComponentOffset,
                      size_t nSrcComponentOffset, size_t nComponents);
    /// Takes over the mask, and deletes the old one if it is another.
    void UpdateExecMask(CShaderDebuggerBuffer* pExecMask);
    /// Takes over the mask, and hands the old one to the caller.
    /// \param bFull  every work-item is known to be in it
    CShaderDebuggerBuffer* ExchangeExecMask(CShaderDebuggerBuffer* pExecMask, bool bFull);

    void UpdateDataType(DataType dataType);
    /// DT_Int32 doesn't overwrite a component that is DT_SInt32 or DT_UInt32 already.
    void UpdateDataType(DataType dataType, RegisterMask mask);
    void UpdateDataType(const CShaderDebuggerResult* pSrcRegResult, RegisterMask mask);

private:
    bool NeedsMerge(const CShaderDebuggerBuffer* pResult, const CShaderDebuggerBuffer* pExecMask,
                    size_t nComponents) const;

    CShaderDebuggerHost* m_pHost;
    std::string m_strName;
    std::stack<ExecutedStep> m_ExecutionStack;
    CShaderDebuggerBuffer* m_pResult;
    CShaderDebuggerBuffer* m_pExecMask;
    bool m_bFullExecMask = false;
    DataType m_DataType[4];
    unsigned int m_nComponentCount;
};

} // namespace OVK_ShaderDebugger

#endif
