#ifndef KESTREL_PLATFORM_SIMT_ADDRESSPLANE_H
#define KESTREL_PLATFORM_SIMT_ADDRESSPLANE_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace KestrelPlatform
{

/// The addresses of consecutive lanes: either in one piece with an even step, or in several such pieces, which are
/// evenly spaced. Several pieces are what a small group's rows touch of an array of two dimensions.
struct SAddressPlane
{
    static constexpr uint32_t s_nEvenShift = 8; ///< no piece has more lanes than a block

    uint64_t nFirst = 0;            ///< the first lane's address
    int64_t nStep = 0;              ///< from each lane of a piece to the next
    int64_t nPieceStep = 0;         ///< from each piece to the next
    uint32_t nShift = s_nEvenShift; ///< a piece has 1 << nShift lanes

    bool IsEven() const { return nShift == s_nEvenShift; }
    uint32_t GetPieces(uint32_t nCount) const { return IsEven() ? 1 : nCount >> nShift; }
    uint32_t GetWidth(uint32_t nCount) const { return IsEven() ? nCount : 1u << nShift; }
    uint64_t At(uint32_t n) const
    {
        return nFirst + static_cast<uint64_t>(nPieceStep * (n >> nShift)) +
               static_cast<uint64_t>(nStep * (n & ((1u << nShift) - 1)));
    }
    /// The lowest and the highest of nCount lanes' addresses.
    uint64_t GetLow(uint32_t nCount) const
    {
        return nFirst + static_cast<uint64_t>(std::min<int64_t>(PieceSpread(nCount), 0) +
                                              std::min<int64_t>(StepSpread(nCount), 0));
    }
    uint64_t GetHigh(uint32_t nCount) const
    {
        return nFirst + static_cast<uint64_t>(std::max<int64_t>(PieceSpread(nCount), 0) +
                                              std::max<int64_t>(StepSpread(nCount), 0));
    }
    /// Whether no two lanes touch the same byte if each touches nBytes.
    bool IsApart(uint32_t nCount, int64_t nBytes) const
    {
        const int64_t nSteps = std::abs(StepSpread(nCount));
        const int64_t nPieces = std::abs(PieceSpread(nCount));
        const bool bSteps = GetWidth(nCount) == 1 || std::abs(nStep) >= nBytes;
        const bool bPieces = GetPieces(nCount) == 1 || std::abs(nPieceStep) >= nBytes;
        return bSteps && bPieces &&
               (GetWidth(nCount) == 1 || GetPieces(nCount) == 1 || std::abs(nPieceStep) >= nSteps + nBytes ||
                std::abs(nStep) >= nPieces + nBytes);
    }
    /// The addresses of nCount lanes from nBegin on. \return false if they are in several pieces, and begin or end
    /// inside one
    bool GetPart(uint32_t nBegin, uint32_t nCount, SAddressPlane& part) const
    {
        const uint32_t nWidth = 1u << nShift;
        const uint32_t nInPiece = nBegin & (nWidth - 1);
        part = *this;
        part.nFirst = At(nBegin);
        if (IsEven() || nInPiece + nCount <= nWidth)
        {
            part.nShift = s_nEvenShift;
            part.nPieceStep = 0;
            return true;
        }
        return nInPiece == 0 && nCount % nWidth == 0;
    }
    bool operator==(const SAddressPlane& other) const = default;

private:
    int64_t StepSpread(uint32_t nCount) const { return nStep * (int64_t{GetWidth(nCount)} - 1); }
    int64_t PieceSpread(uint32_t nCount) const { return nPieceStep * (int64_t{GetPieces(nCount)} - 1); }
};

} // namespace KestrelPlatform

#endif
