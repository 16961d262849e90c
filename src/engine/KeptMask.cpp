#include "engine/KeptMask.h"

#include "engine/BufferWords.h"

#include <algorithm>
#include <bitset>
#include <new>

namespace OVK_ShaderDebugger
{

namespace
{

const size_t s_nBitsPerByte = 8;
constexpr uint64_t s_nLowBits = 0x0101010101010101;

/// A bit for each of eight bytes that isn't 0, the first byte's the lowest.
uint8_t GatherBytes(uint64_t nBytes)
{
    nBytes |= nBytes >> 4;
    nBytes |= nBytes >> 2;
    nBytes |= nBytes >> 1;
    return static_cast<uint8_t>(((nBytes & s_nLowBits) * 0x0102040810204080) >> 56);
}

/// The same of up to eight elements.
template <typename T>
uint8_t GatherElements(const unsigned char* pElements, size_t nElements, const unsigned char* pHidden)
{
    unsigned int nBits = 0;
    for (size_t n = 0; n < nElements; ++n)
    {
        T nValue = 0;
        std::memcpy(&nValue, pElements + n * sizeof(nValue), sizeof(nValue));
        const bool bActive = nValue != 0 && (pHidden == nullptr || nValue != *pHidden);
        nBits |= unsigned(bActive) << n;
    }
    return static_cast<uint8_t>(nBits);
}

} // namespace

/// \param gather  gives the bits of the items from a number on, eight at most
template <typename Gather>
void CKeptMask::Keep(size_t nItems, Gather gather)
{
    Forget();
    try
    {
        for (size_t n = 0; n < nItems; n += s_nBitsPerByte)
        {
            const size_t nHere = std::min(nItems - n, s_nBitsPerByte);
            const uint8_t nBits = gather(n, nHere);
            if (m_vBits.empty() && m_nActive == n && nBits == (1u << nHere) - 1)
            {
                m_nActive += nHere;
                continue;
            }
            if (m_vBits.empty())
            {
                m_vBits.assign((nItems + s_nBitsPerByte - 1) / s_nBitsPerByte, 0);
                std::memset(m_vBits.data(), 0xff, n / s_nBitsPerByte);
            }
            m_vBits[n / s_nBitsPerByte] = nBits;
            m_nActive += std::bitset<s_nBitsPerByte>(nBits).count();
        }
    }
    catch (const std::bad_alloc&)
    {
        Forget();
        return;
    }
    m_nItems = nItems;
    m_bKept = true;
}

void CKeptMask::KeepBytes(const unsigned char* pBytes, size_t nItems, const unsigned char* pHidden)
{
    const uint64_t nHidden = pHidden != nullptr ? *pHidden * s_nLowBits : 0;
    Keep(nItems,
         [&](size_t n, size_t nHere)
         {
             if (nHere != s_nBitsPerByte)
             {
                 return GatherElements<uint8_t>(pBytes + n, nHere, pHidden);
             }
             uint64_t nEight = 0;
             std::memcpy(&nEight, pBytes + n, sizeof(nEight));
             return static_cast<uint8_t>(GatherBytes(nEight) & GatherBytes(nEight ^ nHidden));
         });
}

void CKeptMask::KeepWords(const unsigned char* pWords, size_t nItems, const unsigned char* pHidden)
{
    Keep(nItems, [&](size_t n, size_t nHere)
         { return GatherElements<uint32_t>(pWords + n * sizeof(uint32_t), nHere, pHidden); });
}

bool CKeptMask::Restore(CShaderDebuggerBuffer& execMask) const
{
    if (!m_bKept || execMask.GetItemCount() != m_nItems)
    {
        return false;
    }
    for (size_t n = 0; n < m_nItems; ++n)
    {
        const bool bFull = m_vBits.empty();
        const uint32_t nWord = bFull || ((m_vBits[n / s_nBitsPerByte] >> n % s_nBitsPerByte) & 1) != 0 ? 1 : 0;
        std::memcpy(execMask.GetData() + n * sizeof(nWord), &nWord, sizeof(nWord));
    }
    return true;
}

} // namespace OVK_ShaderDebugger
