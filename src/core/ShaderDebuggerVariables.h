#ifndef KESTREL_CORE_SHADERDEBUGGERVARIABLES_H
#define KESTREL_CORE_SHADERDEBUGGERVARIABLES_H

#include "core/ShaderDebuggerCommon.h"

#include <deque>
#include <string>

namespace OVK_ShaderDebugger
{

/// The bits of one component, to be read according to its type.
union Channel
{
    float fValue;
    int nValue;
    unsigned int uiValue;
    bool bValue;
};
static_assert(sizeof(Channel) == 4, "a channel is one component");

/// One register's value for one work-item.
class CShaderDebuggerVariable
{
public:
    /// The first nChannels components get the type, the others DT_Unknown; all values are 0.
    CShaderDebuggerVariable(const std::string& strName, RegisterMask bChangedMask, unsigned int nChannels,
                            DataType dataType);

    std::string m_strName;
    RegisterMask m_ChangedMask; ///< components changed at the current stop
    unsigned int m_nChannels;
    DataType m_nDataType[4];
    Channel m_data[4];
};

/// A snapshot of all registers for one work-item.
class CShaderDebuggerVariables
{
public:
    CShaderDebuggerVariables() = default;
    virtual ~CShaderDebuggerVariables() = default;

    /// Appends a variable with a type for each component; fValue holds nChannels values, whose bits
    /// are copied.
    void AddRegister(const std::string& strName, RegisterMask bChangedMask, unsigned int nChannels, float* fValue,
                     const DataType* dataType);
    /// The same with one type for all components.
    void AddVariable(const std::string& strName, RegisterMask bChangedMask, unsigned int nChannels, float* fValue,
                     DataType dataType);
    /// By name, without regard to case, character by character: r10 comes before r2.
    void Sort();

    ThreadID GetThreadID() const { return m_ThreadID; }
    void SetThreadID(const ThreadID& threadID) { m_ThreadID = threadID; }
    unsigned int GetWidth() const { return m_dwWidth; }
    void SetWidth(unsigned int dwWidth) { m_dwWidth = dwWidth; }
    unsigned int GetHeight() const { return m_dwHeight; }
    void SetHeight(unsigned int dwHeight) { m_dwHeight = dwHeight; }
    unsigned int GetDepth() const { return m_dwDepth; }
    void SetDepth(unsigned int dwDepth) { m_dwDepth = dwDepth; }
    unsigned int GetArraySize() const { return m_dwArraySize; }
    void SetArraySize(unsigned int dwArraySize) { m_dwArraySize = dwArraySize; }
    BufferType GetBufferType() const { return m_BufferType; }
    void SetBufferType(BufferType bufferType) { m_BufferType = bufferType; }
    const std::deque<CShaderDebuggerVariable>& GetVariables() const { return m_Variables; }
    void SetVariables(const std::deque<CShaderDebuggerVariable>& variables) { m_Variables = variables; }

private:
    ThreadID m_ThreadID; ///< the work-item whose values these are
    unsigned int m_dwWidth = 0;
    unsigned int m_dwHeight = 0;
    unsigned int m_dwDepth = 0;
    unsigned int m_dwArraySize = 0;
    BufferType m_BufferType = ShaderUtils::BT_Unknown;
    std::deque<CShaderDebuggerVariable> m_Variables;
};

} // namespace OVK_ShaderDebugger

#endif
