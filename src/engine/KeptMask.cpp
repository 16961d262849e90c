#include "engine/KeptMask.h"

#include "engine/BufferWords.h"

#include <new>

namespace OVK_ShaderDebugger
{

namespace
{

const size_t s_nBitsPerWord = 64;

} // namespace

void CKeptMask::Keep(const CShaderDebuggerBuffer& execMask, bool bFull)
{
    m_bKept = true;
    m_bFull = bFull;
    m_vBits.clear();
    const size_t nItems = execMask.GetItemCount();
    if (bFull)
    {
        m_nActiveWord = nItems != 0 ? WordAt(execMask, 0) : 1;
        return;
    }
    try
    {
        m_vBits.resize((nItems + s_nBitsPerWord - 1) / s_nBitsPerWord);
    }
    catch (const std::bad_alloc&)
    {
        m_bKept = false;
        return;
    }
    for (size_t n = 0; n < nItems; ++n)
    {
        const uint32_t nWord = WordAt(execMask, n);
        m_nActiveWord = nWord != 0 ? nWord : m_nActiveWord;
        m_vBits[n / s_nBitsPerWord] |= uint64_t(nWord != 0) << n % s_nBitsPerWord;
    }
}

bool CKeptMask::Restore(CShaderDebuggerBuffer& execMask) const
{
    const size_t nItems = execMask.GetItemCount();
    if (!m_bKept || (!m_bFull && m_vBits.size() != (nItems + s_nBitsPerWord - 1) / s_nBitsPerWord))
    {
        return false;
    }
    for (size_t n = 0; n < nItems; ++n)
    {
        const bool bActive = m_bFull || ((m_vBits[n / s_nBitsPerWord] >> n % s_nBitsPerWord) & 1) != 0;
        const uint32_t nWord = bActive ? m_nActiveWord : 0;
        std::memcpy(execMask.GetData() + n * sizeof(nWord), &nWord, sizeof(nWord));
    }
    return true;
}

} // namespace OVK_ShaderDebugger
