#include "engine/ResultRestorer.h"

#include "engine/BufferWords.h"
#include "engine/PrivateAccess.h"

#include <algorithm>
#include <cstring>

namespace OVK_ShaderDebugger
{

namespace
{

const unsigned int s_nComponents = 4;

} // namespace

CResultRestorer::CResultRestorer(CShaderDebuggerBuffer& result, const CShaderDebuggerBuffer* pChanged)
    : m_Result(result), m_vMissing(result.GetItemCount(), COMP_All), m_nMissing(0)
{
    if (pChanged != nullptr && pChanged->GetItemCount() == m_vMissing.size())
    {
        for (size_t n = 0; n < m_vMissing.size(); ++n)
        {
            m_vMissing[n] = WordAt(*pChanged, n) != 0 ? COMP_All : COMP_None;
        }
    }
    m_nMissing = m_vMissing.size() - std::count(m_vMissing.begin(), m_vMissing.end(), COMP_None);
}

bool CResultRestorer::Take(const CShaderDebuggerBuffer& values, const CShaderDebuggerBuffer& mask, const Register& reg,
                           bool bOldest)
{
    if (values.GetItemCount() != m_vMissing.size() || mask.GetItemCount() != m_vMissing.size())
    {
        return false;
    }
    const SPrivateAccess access = GetAccess(reg);
    for (size_t n = 0; n < m_vMissing.size(); ++n)
    {
        if (m_vMissing[n] == COMP_None || (!bOldest && WordAt(mask, n) == 0))
        {
            continue;
        }
        for (unsigned int i = 0; i < access.nComponents; ++i)
        {
            const unsigned int nComponent = access.nFirstComponent + i;
            if ((m_vMissing[n] & GetComponent(nComponent)) == 0)
            {
                continue;
            }
            const uint32_t nValue = WordAt(values, n * s_nComponents + i);
            std::memcpy(m_Result.GetData() + (n * s_nComponents + nComponent) * sizeof(nValue), &nValue,
                        sizeof(nValue));
            m_vMissing[n] = static_cast<unsigned char>(m_vMissing[n] & ~GetComponent(nComponent));
        }
        m_nMissing -= m_vMissing[n] == COMP_None ? 1 : 0;
    }
    return true;
}

} // namespace OVK_ShaderDebugger
