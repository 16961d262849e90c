#include "platform/simt/checks/StoredValues.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

/// Notes values of bytes, some of which were stored before.
/// \param nMask    the bytes, as bits
/// \param pValues  their values, beginning with the first byte in nMask
void SStoredValues::NoteRest(uint64_t nFirst, uint64_t nMask, uint64_t nOld, const unsigned char* pValues)
{
    for (uint64_t nBits = nMask; nBits != 0; nBits &= nBits - 1)
    {
        const uint32_t n = static_cast<uint32_t>(__builtin_ctzll(nBits));
        const unsigned char nValue = pValues[n - __builtin_ctzll(nMask)];
        unsigned char& nStored = m_First[nFirst + n];
        if ((nOld >> n & 1) == 0)
        {
            nStored = nValue;
        }
        m_nDiffer[nFirst / s_nBits] |= uint64_t{nStored != nValue} << n;
    }
}

void SStoredValues::Note(uint64_t nBegin, uint64_t nEnd, const unsigned char* pValues)
{
    for (uint64_t n = nBegin; n < nEnd;)
    {
        const uint64_t nFirst = n / s_nBits * s_nBits;
        const uint64_t nNext = std::min(nEnd, nFirst + s_nBits);
        const uint64_t nMask = (~uint64_t(0) >> (s_nBits - (nNext - n))) << (n - nFirst);
        uint64_t& nWritten = m_nWritten[nFirst / s_nBits];
        const uint64_t nOld = nWritten & nMask;
        if (nOld == 0)
        {
            std::memcpy(m_First + n, pValues, nNext - n);
        }
        else if (nOld != nMask ||
                 ((nMask & ~m_nDiffer[nFirst / s_nBits]) != 0 && std::memcmp(m_First + n, pValues, nNext - n) != 0))
        {
            NoteRest(nFirst, nMask, nOld, pValues);
        }
        nWritten |= nMask;
        pValues += nNext - n;
        n = nNext;
    }
}

bool SStoredValues::Differ(uint64_t nBegin, uint32_t nBytes) const
{
    const uint64_t nMask = ((uint64_t(1) << nBytes) - 1) << nBegin % s_nBits;
    return (m_nDiffer[nBegin / s_nBits] & nMask) != 0;
}

} // namespace KestrelPlatform
