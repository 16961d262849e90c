// How expressions read memory and registers.

#include "tools/session/debug/Evaluator.h"
#include "tools/session/debug/Format.h"
#include "tools/source/CNumbers.h"

#include <algorithm>
#include <cstring>

namespace KestrelTool
{

namespace
{

/// The bits of an integer element, extended according to its type, or of a double.
uint64_t LoadElement(const SElementType& type, const unsigned char* pElement)
{
    uint64_t nBits = 0;
    if (type.eKind == SElementType::Float)
    {
        const double fValue = ReadElement(type, pElement);
        std::memcpy(&nBits, &fValue, sizeof(nBits));
        return nBits;
    }
    std::memcpy(&nBits, pElement, type.nSize);
    const unsigned int nUnused = 64 - 8 * static_cast<unsigned int>(type.nSize);
    const uint64_t nHigh = nBits << nUnused;
    return type.eKind == SElementType::Signed ? static_cast<uint64_t>(static_cast<int64_t>(nHigh) >> nUnused)
                                              : nHigh >> nUnused;
}

/// The piece in a register that contains all bytes of a place; null if there is none.
const SBoundVariable::SPiece* FindPieceOf(const SBoundVariable& variable, size_t nOffset, size_t nBytes)
{
    for (const SBoundVariable::SPiece& piece : variable.vPieces)
    {
        if (piece.vBytes.empty() && piece.nFirst <= nOffset && nOffset - piece.nFirst < piece.nBytes)
        {
            return nBytes <= piece.nBytes - (nOffset - piece.nFirst) ? &piece : nullptr;
        }
    }
    return nullptr;
}

/// Copies a word of a piece for a number of work-items.
void LoadWords(const SBoundVariable::SPiece& piece, size_t nFirst, size_t nCount, unsigned char* pBytes)
{
    const unsigned int* pWord = &piece.values[nFirst][piece.nComponent];
    for (size_t i = 0; i < nCount; ++i, pWord += piece.values.nStride)
    {
        StoreAs(pBytes + i * sizeof(*pWord), *pWord);
    }
}

} // namespace

bool ReadPieces(const SBoundVariable& variable, size_t nOffset, size_t nItem, unsigned char* pBytes, size_t nBytes)
{
    const auto at = [](size_t n) { return static_cast<std::ptrdiff_t>(n); };
    if (nOffset + nBytes > variable.vKnown.size() ||
        std::find(variable.vKnown.begin() + at(nOffset), variable.vKnown.begin() + at(nOffset + nBytes), false) !=
            variable.vKnown.begin() + at(nOffset + nBytes))
    {
        return false;
    }
    for (const SBoundVariable::SPiece& piece : variable.vPieces)
    {
        const size_t nFirst = std::max(piece.nFirst, nOffset);
        const size_t nEnd = std::min(piece.nFirst + piece.nBytes, nOffset + nBytes);
        if (nFirst >= nEnd)
        {
            continue;
        }
        const unsigned char* const pPiece =
            !piece.vBytes.empty() ? &piece.vBytes[piece.bForAll ? 0 : nItem * piece.nBytes]
                                  : reinterpret_cast<const unsigned char*>(&piece.values[nItem][piece.nComponent]);
        std::memcpy(pBytes + (nFirst - nOffset), pPiece + (nFirst - piece.nFirst), nEnd - nFirst);
    }
    return true;
}

/// Replaces indices by the elements.
void CEvaluator::LoadElements(const SExpressionNode& node, size_t nNode, SBlock& block, size_t nFirst, size_t nCount)
{
    const SElementType& type = *node.elements.pType;
    const SExtent& extent = m_pSource->GetExtent();
    for (size_t i = 0; i < nCount; ++i)
    {
        const auto nIndex = LoadAs<int64_t>(&block.vBytes[i * sizeof(int64_t)]);
        if (block.bad[i] || static_cast<uint64_t>(nIndex) >= node.elements.nCount)
        {
            Miss(block, i, nNode, nIndex);
            continue;
        }
        const size_t nGroup = node.elements.bPerGroup ? extent.GroupOf(nFirst + i) : 0;
        const unsigned char* const pElement =
            m_Memory.FindElement(node.elements, nGroup, static_cast<uint64_t>(nIndex) * type.nSize);
        StoreAs(&block.vBytes[i * sizeof(int64_t)], LoadElement(type, pElement));
    }
}

/// Computes 64-bit addresses and offsets from others.
void CEvaluator::FindPlaces(const SExpressionNode& node, size_t nNode, SBlock* pBlocks, size_t nCount)
{
    for (size_t i = 0; i < nCount; ++i)
    {
        unsigned char* const pResult = &pBlocks[0].vBytes[i * sizeof(uint64_t)];
        uint64_t nFirst = LoadAs<uint64_t>(pResult);
        if (node.eNode == ENode::Member)
        {
            StoreAs(pResult, nFirst + node.nOffset);
            continue;
        }
        uint64_t nSecond = LoadAs<uint64_t>(&pBlocks[1].vBytes[i * sizeof(uint64_t)]);
        if (pBlocks[1].bad[i] && !pBlocks[0].bad[i])
        {
            pBlocks[0].bad[i] = true; // its own reason is kept
        }
        if (node.eNode == ENode::Index && nSecond >= node.nOffset)
        {
            Miss(pBlocks[0], i, nNode, static_cast<int64_t>(nSecond));
            continue;
        }
        if (node.eNode == ENode::Advance && node.nOffset == 1)
        {
            std::swap(nFirst, nSecond);
        }
        const int64_t nDistance = static_cast<int64_t>(nFirst - nSecond);
        StoreAs(pResult, node.eNode == ENode::Distance
                             ? static_cast<uint64_t>(nDistance / static_cast<int64_t>(node.nScale))
                             : nFirst + nSecond * node.nScale);
    }
    if (node.eNode == ENode::Advance && node.pType->nSize < sizeof(uint64_t))
    {
        // Pointers to private or local memory are shorter.
        m_vScratch.resize(nCount * node.pType->nSize);
        ConvertNumbers(GetIntegerType(false, 8), pBlocks[0].vBytes.data(), *node.pType, m_vScratch.data(), nCount);
        pBlocks[0].vBytes.swap(m_vScratch);
    }
}

/// Replaces places by the values there.
void CEvaluator::Load(const std::vector<SExpressionNode>& vNodes, size_t nNode, SBlock& block, size_t nFirst,
                      size_t nCount)
{
    const SExpressionNode& node = vNodes[nNode];
    const SExpressionNode& root = vNodes[node.nRoot];
    const SBoundVariable* const pVariable = root.pVariable.get();
    const size_t nSize = node.pType->nSize;
    if (pVariable != nullptr && pVariable->bMemory && root.eSpace == SSourceType::PrivateSpace)
    {
        m_Memory.Prepare(pVariable->nBase + root.nOffset, root.pType->nSize);
    }
    m_vScratch.resize(nCount * nSize);
    for (size_t i = 0; i < nCount; ++i)
    {
        const auto nPlace = LoadAs<uint64_t>(&block.vBytes[i * sizeof(uint64_t)]);
        unsigned char* const pBytes = &m_vScratch[i * nSize];
        const bool bThere =
            !block.bad[i] && (pVariable != nullptr && !pVariable->bMemory
                                  ? ReadPieces(*pVariable, static_cast<size_t>(nPlace), nFirst + i, pBytes, nSize)
                                  : m_Memory.Read(root.eSpace, nPlace, nFirst + i, pBytes, nSize));
        if (!bThere)
        {
            std::memset(pBytes, 0, nSize);
            Miss(block, i, node.nRoot, static_cast<int64_t>(nPlace));
        }
    }
    block.vBytes.swap(m_vScratch);
}

/// The most frequent case: a variable of one word in a register that has a value for all work-items. No places have to
/// be computed.
bool CEvaluator::LoadFromRegister(const SExpressionNode& node, SBlock& block, size_t nFirst, size_t nCount)
{
    const SBoundVariable* const pVariable = node.eNode == ENode::Variable ? node.pVariable.get() : nullptr;
    unsigned char probe[sizeof(unsigned int)];
    if (pVariable == nullptr || pVariable->bMemory || node.pType->nSize != sizeof(probe) || nCount == 0 ||
        !ReadPieces(*pVariable, node.nOffset, nFirst, probe, sizeof(probe)))
    {
        return false;
    }
    const SBoundVariable::SPiece* const pPiece = FindPieceOf(*pVariable, node.nOffset, sizeof(probe));
    if (pPiece == nullptr || pPiece->nFirst != node.nOffset)
    {
        return false;
    }
    std::fill(block.bad, block.bad + nCount, false);
    block.vBytes.resize(nCount * sizeof(probe));
    LoadWords(*pPiece, nFirst, nCount, block.vBytes.data());
    return true;
}

} // namespace KestrelTool
