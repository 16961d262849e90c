#include "platform/opencl_c/dwarf/PlaceExpressions.h"

#include "platform/opencl_c/dwarf/ByteWriter.h"

#include "llvm/BinaryFormat/Dwarf.h"
#include "llvm/IR/DebugInfoMetadata.h"

#include <algorithm>
#include <map>

namespace KestrelOpenCL
{

using namespace llvm::dwarf;

namespace
{

/// The number of the first word of constant buffer 1; temps' numbers are always lower.
const uint32_t s_nConstantBufferWords = 0x100000;

uint32_t BytesOfType(const llvm::DIType* pType)
{
    while (pType && pType->getSizeInBits() == 0)
    {
        const auto* pDerived = llvm::dyn_cast<llvm::DIDerivedType>(pType);
        pType = pDerived ? pDerived->getBaseType() : nullptr;
    }
    return pType ? static_cast<uint32_t>(pType->getSizeInBits() / 8) : 0;
}

bool IsPointer(const llvm::DIType* pType)
{
    const auto* pDerived = llvm::dyn_cast_or_null<llvm::DIDerivedType>(pType);
    while (pDerived && pDerived->getTag() != DW_TAG_pointer_type)
    {
        pDerived = llvm::dyn_cast_or_null<llvm::DIDerivedType>(pDerived->getBaseType());
    }
    return pDerived != nullptr;
}

/// Bytes of a vector's element, 0 for other types.
uint32_t BytesOfElement(const llvm::DIType* pType)
{
    while (const auto* pDerived = llvm::dyn_cast_or_null<llvm::DIDerivedType>(pType))
    {
        pType = pDerived->getBaseType();
    }
    const auto* pVector = llvm::dyn_cast_or_null<llvm::DICompositeType>(pType);
    return pVector && pVector->isVector() ? BytesOfType(pVector->getBaseType()) : 0;
}

/// How many bytes a component of a place holds.
uint32_t BytesOfComponent(const SVariablePlace& place, uint32_t nBytes)
{
    const uint32_t nElement = BytesOfElement(place.pVariable->getType());
    const auto nComponents = static_cast<uint32_t>(std::max<size_t>(1, place.vComponents.size()));
    if (nElement > 0 && nElement < 4)
    {
        return nElement;
    }
    return std::min<uint32_t>(4, std::max<uint32_t>(1, nBytes / nComponents));
}

void WriteRegister(CByteWriter& writer, uint32_t nNumber)
{
    writer.U8(DW_OP_regx);
    writer.Unsigned(nNumber);
}

void WritePiece(CByteWriter& writer, uint32_t nBytes)
{
    writer.U8(DW_OP_piece);
    writer.Unsigned(nBytes);
}

/// \param nBytes size of the part that the place is for
/// \param bPieces whether it is one of several parts, or consists of several pieces
void WritePlace(CByteWriter& writer, const SVariablePlace& place, uint32_t nBytes, bool bPieces)
{
    if (place.eKind == SVariablePlace::Private)
    {
        writer.U8(DW_OP_fbreg);
        writer.Signed(place.nOffset);
    }
    else if (place.eKind == SVariablePlace::Local)
    {
        writer.Bytes(LocalExpression(place.nOffset));
    }
    if (place.eKind == SVariablePlace::Private || place.eKind == SVariablePlace::Local)
    {
        if (bPieces)
        {
            WritePiece(writer, nBytes);
        }
        return;
    }
    const bool bBuffer = place.eKind == SVariablePlace::ConstantBuffer;
    const uint32_t nComponents = bBuffer ? (nBytes + 3) / 4 : static_cast<uint32_t>(place.vComponents.size());
    const uint32_t nSize = bBuffer ? 4 : BytesOfComponent(place, nBytes);
    uint32_t nLeft = nBytes;
    for (uint32_t n = 0; n < nComponents && nLeft > 0; ++n)
    {
        const uint32_t nPiece = std::min(nSize, nLeft);
        nLeft -= nPiece;
        if (place.eKind == SVariablePlace::Literal)
        {
            writer.U8(DW_OP_implicit_value);
            writer.Unsigned(nPiece);
            for (uint32_t i = 0; i < nPiece; ++i)
            {
                writer.U8(place.vComponents[n] >> (8 * i));
            }
        }
        else
        {
            WriteRegister(writer, bBuffer ? s_nConstantBufferWords + place.nOffset / 4 + n : place.vComponents[n]);
        }
        if (bPieces || nComponents > 1)
        {
            WritePiece(writer, nPiece);
        }
    }
    if (nLeft > 0 && nComponents == 1 && !bPieces && IsPointer(place.pVariable->getType()))
    {
        // Pointers to local or private memory have no high word stored: it is 0.
        WritePiece(writer, nBytes - nLeft);
        writer.U8(DW_OP_implicit_value);
        writer.Unsigned(nLeft);
        writer.Bytes(std::string(nLeft, '\0'));
        WritePiece(writer, nLeft);
    }
    else if (nLeft > 0 && (bPieces || nComponents > 1))
    {
        WritePiece(writer, nLeft);
    }
}

/// \param vParts ordered by offset in the variable
std::string JoinParts(const std::vector<const SVariablePlace*>& vParts)
{
    const uint32_t nAll = BytesOfType(vParts[0]->pVariable->getType());
    CByteWriter writer;
    uint32_t nPlace = 0;
    for (const SVariablePlace* pPart : vParts)
    {
        const uint32_t nBytes = pPart->nByteSize ? pPart->nByteSize : nAll - std::min(nAll, pPart->nByteOffset);
        const bool bPieces = pPart->nByteOffset > 0 || nBytes < nAll;
        if (pPart->nByteOffset < nPlace)
        {
            continue; // two places for the same byte: the first one is taken
        }
        if (pPart->nByteOffset > nPlace)
        {
            WritePiece(writer, pPart->nByteOffset - nPlace);
        }
        WritePlace(writer, *pPart, nBytes, bPieces);
        nPlace = pPart->nByteOffset + nBytes;
    }
    return writer.Data();
}

} // namespace

std::string LocalExpression(uint32_t nOffset)
{
    CByteWriter writer;
    writer.U8(DW_OP_addr);
    writer.U64(nOffset);
    return writer.Data();
}

std::vector<SLocationRange> JoinPlaces(const std::vector<const SVariablePlace*>& vPlaces)
{
    // The valid parts are joined anew at each line where a part begins or ends.
    std::map<uint32_t, std::vector<std::pair<bool, const SVariablePlace*>>> mapChanges;
    for (const SVariablePlace* pPlace : vPlaces)
    {
        if (pPlace->nFirstLine > pPlace->nLastLine)
        {
            continue;
        }
        mapChanges[pPlace->nFirstLine].push_back({true, pPlace});
        mapChanges[pPlace->nLastLine + 1].push_back({false, pPlace});
    }
    const auto Before = [](const SVariablePlace* pA, const SVariablePlace* pB)
    { return pA->nByteOffset < pB->nByteOffset; };
    std::vector<SLocationRange> vRanges;
    std::vector<const SVariablePlace*> vOpen;
    for (auto it = mapChanges.begin(); it != mapChanges.end(); ++it)
    {
        for (const auto& [bBegins, pPlace] : it->second)
        {
            if (bBegins)
            {
                vOpen.insert(std::upper_bound(vOpen.begin(), vOpen.end(), pPlace, Before), pPlace);
            }
            else
            {
                vOpen.erase(std::find(vOpen.begin(), vOpen.end(), pPlace));
            }
        }
        if (vOpen.empty())
        {
            continue;
        }
        const uint32_t nEnd = std::next(it)->first;
        std::string strExpression = JoinParts(vOpen);
        if (!vRanges.empty() && vRanges.back().nEnd == it->first && vRanges.back().strExpression == strExpression)
        {
            vRanges.back().nEnd = nEnd;
        }
        else
        {
            vRanges.push_back({it->first, nEnd, std::move(strExpression)});
        }
    }
    return vRanges;
}

} // namespace KestrelOpenCL
