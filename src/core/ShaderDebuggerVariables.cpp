#include "core/ShaderDebuggerVariables.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <locale>

namespace OVK_ShaderDebugger
{

CShaderDebuggerVariable::CShaderDebuggerVariable(const std::string& strName, RegisterMask bChangedMask,
                                                 unsigned int nChannels, DataType dataType)
    : m_strName(strName), m_ChangedMask(bChangedMask), m_nChannels(std::min(nChannels, 4u))
{
    for (unsigned int i = 0; i < 4; ++i)
    {
        m_nDataType[i] = i < m_nChannels ? dataType : ShaderUtils::DT_Unknown;
        m_data[i].uiValue = 0;
    }
}

void CShaderDebuggerVariables::AddRegister(const std::string& strName, RegisterMask bChangedMask,
                                           unsigned int nChannels, float* fValue, const DataType* dataType)
{
    AddVariable(strName, bChangedMask, nChannels, fValue, ShaderUtils::DT_Unknown);
    CShaderDebuggerVariable& variable = m_Variables.back();
    std::copy(dataType, dataType + variable.m_nChannels, variable.m_nDataType);
}

void CShaderDebuggerVariables::AddVariable(const std::string& strName, RegisterMask bChangedMask,
                                           unsigned int nChannels, float* fValue, DataType dataType)
{
    m_Variables.emplace_back(strName, bChangedMask, nChannels, dataType);
    CShaderDebuggerVariable& variable = m_Variables.back();
    std::memcpy(variable.m_data, fValue, variable.m_nChannels * sizeof(Channel));
}

namespace
{

bool SDVarCompare(const CShaderDebuggerVariable& lhs, const CShaderDebuggerVariable& rhs)
{
    static const std::locale s_Locale;
    return std::lexicographical_compare(
        lhs.m_strName.begin(), lhs.m_strName.end(), rhs.m_strName.begin(), rhs.m_strName.end(),
        [](char a, char b) { return std::tolower(a, s_Locale) < std::tolower(b, s_Locale); });
}

} // namespace

void CShaderDebuggerVariables::Sort()
{
    std::stable_sort(m_Variables.begin(), m_Variables.end(), SDVarCompare);
}

} // namespace OVK_ShaderDebugger
