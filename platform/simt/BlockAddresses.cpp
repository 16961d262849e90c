// Where the work-items of a block are about to access memory.

#include "platform/simt/Block.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

/// A 32-bit index, read as a signed or unsigned number.
int64_t IndexOf(uint32_t nIndex, bool bSigned)
{
    return bSigned ? int64_t{static_cast<int32_t>(nIndex)} : int64_t{nIndex};
}

/// Pieces of 8 lanes and more are looked for.
const uint32_t s_nLeastShift = 3;

/// How many lanes a row's first piece has, as a shift. \return false if it isn't made of pieces
bool FindPieces(const uint32_t* pRow, uint32_t nCount, uint32_t nStride, uint32_t& nShift)
{
    for (nShift = s_nLeastShift; 1u << nShift < nCount; ++nShift)
    {
        if (pRow[1u << nShift] - pRow[0] != nStride << nShift)
        {
            return nCount % (1u << nShift) == 0;
        }
    }
    return false;
}

} // namespace

uint64_t CBlock::Address(const SAccess& access, uint32_t nLane) const
{
    const uint64_t nLow = Row(access.nAddressRows[0])[nLane];
    return access.b64BitAddress ? nLow | (static_cast<uint64_t>(Row(access.nAddressRows[1])[nLane]) << 32) : nLow;
}

/// The base of a scaled access.
uint64_t CBlock::BaseOf(const SAccess& access) const
{
    return Row(access.nBaseRows[0])[0] | static_cast<uint64_t>(Row(access.nBaseRows[1])[0]) << 32;
}

void CBlock::FillAddresses(const SAccess& access, uint32_t nBegin, uint32_t nEnd, uint64_t* pAddresses) const
{
    const uint32_t nCount = nEnd - nBegin;
    if (access.bUniform)
    {
        std::fill_n(pAddresses, nCount, Address(access, 0));
        return;
    }
    const uint32_t* const pRow = Row(access.bScaled ? access.nIndexRow : access.nAddressRows[0]) + nBegin;
    const uint32_t* const pHigh = Row(access.b64BitAddress ? access.nAddressRows[1] : s_nZeroRow) + nBegin;
    if (!access.bScaled)
    {
        for (uint32_t n = 0; n < nCount; ++n)
        {
            pAddresses[n] = pRow[n] | static_cast<uint64_t>(pHigh[n]) << 32;
        }
        return;
    }
    const uint64_t nBase = BaseOf(access);
    const int64_t nScale = IndexOf(Row(access.nScaleRow)[0], access.bIndexSigned);
    for (uint32_t n = 0; n < nCount; ++n)
    {
        pAddresses[n] = nBase + static_cast<uint64_t>(IndexOf(pRow[n], access.bIndexSigned) * nScale);
    }
}

bool CBlock::FindPlane(const SAccess& access, uint32_t nBegin, uint32_t nEnd, SAddressPlane& plane) const
{
    plane = SAddressPlane();
    if (access.bUniform)
    {
        plane.nFirst = Address(access, 0);
        return true;
    }
    const uint32_t nCount = nEnd - nBegin;
    const uint32_t* const pAll = Row(access.bScaled ? access.nIndexRow : access.nAddressRows[0]);
    const uint32_t* const pRow = pAll + nBegin;
    const uint32_t nStride = nCount > 1 ? pRow[1] - pRow[0] : 0;
    uint32_t nPieceStride = 0;
    if (!m_Lanes.pfIsSequence(pAll, nBegin, nEnd, nStride))
    {
        if (!FindPieces(pRow, nCount, nStride, plane.nShift))
        {
            return false;
        }
        nPieceStride = pRow[1u << plane.nShift] - pRow[0];
        if (!m_Lanes.pfIsPlane(pAll, nBegin, nEnd, {1u << plane.nShift, nStride, nPieceStride}))
        {
            return false;
        }
    }
    plane.nStep = static_cast<int32_t>(nStride);
    plane.nPieceStep = static_cast<int32_t>(nPieceStride);
    if (!IsWithoutTurn(access, pRow, nCount, plane))
    {
        return false;
    }
    if (!access.bScaled)
    {
        plane.nFirst = Address(access, nBegin);
        return !access.b64BitAddress || m_Lanes.pfIsSequence(Row(access.nAddressRows[1]), nBegin, nEnd, 0);
    }
    const int64_t nScale = IndexOf(Row(access.nScaleRow)[0], access.bIndexSigned);
    plane.nFirst = BaseOf(access) + static_cast<uint64_t>(IndexOf(pRow[0], access.bIndexSigned) * nScale);
    plane.nStep *= nScale;
    plane.nPieceStep *= nScale;
    return true;
}

/// A sequence that wraps around its number range isn't a sequence of addresses. If the corners don't, nothing between
/// them does.
bool CBlock::IsWithoutTurn(const SAccess& access, const uint32_t* pRow, uint32_t nCount, SAddressPlane plane)
{
    const bool bSigned = access.bScaled && access.bIndexSigned;
    plane.nFirst = static_cast<uint64_t>(IndexOf(pRow[0], bSigned));
    const uint32_t nLastOfPiece = plane.GetWidth(nCount) - 1;
    const uint32_t nLastPiece = (plane.GetPieces(nCount) - 1) << plane.nShift;
    const auto isRight = [&](uint32_t n) { return static_cast<int64_t>(plane.At(n)) == IndexOf(pRow[n], bSigned); };
    return isRight(nLastOfPiece) && isRight(nLastPiece) && isRight(nLastPiece + nLastOfPiece);
}

bool CBlock::FindRange(const SAccess& access, uint64_t& nLow, uint64_t& nHigh) const
{
    const uint32_t* const pRow = Row(access.bScaled ? access.nIndexRow : access.nAddressRows[0]);
    uint32_t nLeast = 0;
    uint32_t nMost = 0;
    m_Lanes.pfRange(pRow, m_pMask, m_nBegin, m_nLast, nLeast, nMost);
    const uint32_t nScale = access.bScaled ? Row(access.nScaleRow)[0] : 1;
    if (access.bScaled && access.bIndexSigned && (nMost | nScale) > 0x7FFFFFFFu)
    {
        return false;
    }
    uint64_t nBase = 0;
    if (access.bScaled)
    {
        nBase = BaseOf(access);
    }
    else if (access.b64BitAddress)
    {
        const uint32_t* const pHigh = Row(access.nAddressRows[1]);
        nBase = static_cast<uint64_t>(pHigh[m_nBegin]) << 32;
        if (!m_Lanes.pfIsSequence(pHigh, m_nBegin, m_nLast, 0))
        {
            return false;
        }
    }
    nLow = nBase + static_cast<uint64_t>(nLeast) * nScale;
    nHigh = nBase + static_cast<uint64_t>(nMost) * nScale;
    return true;
}

bool CBlock::AreAligned(const SAccess& access, uint32_t nUnit) const
{
    if (access.bUniform)
    {
        return Address(access, 0) % nUnit == 0;
    }
    const uint32_t nBits = access.bScaled ? static_cast<uint32_t>(BaseOf(access)) | Row(access.nScaleRow)[0]
                                          : AnyBits(Row(access.nAddressRows[0]));
    return nBits % nUnit == 0;
}

} // namespace KestrelPlatform
