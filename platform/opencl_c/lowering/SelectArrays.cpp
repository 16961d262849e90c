#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"
#include "llvm/IR/DataLayout.h"
#include "llvm/IR/Operator.h"
#include "llvm/Support/MathExtras.h"

// Variables in arrays of temps. A pointer into one is a register index and a constant distance in bytes.

namespace KestrelOpenCL
{
namespace
{

const unsigned s_nWordBytes = 4;

} // namespace

const CSelector::SArrayPointer* CSelector::FindArrayPointer(const Value* pPointer) const
{
    const auto it = m_mapArrayPointers.find(pPointer);
    return it == m_mapArrayPointers.end() ? nullptr : &it->second;
}

void CSelector::FindArrays()
{
    if (!m_bDebug)
    {
        m_mapArrays = FindTempArrays(m_Kernel, m_Types);
    }
    for (const auto& entry : m_mapArrays)
    {
        m_mapArrayPointers[entry.first] = {&entry.second, LiteralWord(0), 0};
    }
}

void CSelector::SelectArrayAddress(const llvm::GetElementPtrInst& gep)
{
    SArrayPointer pointer = *FindArrayPointer(gep.getPointerOperand());
    const unsigned nBits = m_Types.GetLayout().getIndexTypeSizeInBits(gep.getType());
    llvm::MapVector<Value*, llvm::APInt> mapOffsets;
    llvm::APInt known(nBits, 0);
    llvm::cast<llvm::GEPOperator>(gep).collectOffset(m_Types.GetLayout(), nBits, mapOffsets, known);
    pointer.nOffset += static_cast<uint64_t>(known.getSExtValue());
    for (const auto& [pIndex, stride] : mapOffsets)
    {
        const SWord index = SignedSource(pIndex)[0];
        const auto nStep = static_cast<uint32_t>(stride.getZExtValue() / pointer.pArray->nUnitBytes);
        pointer.index = nStep == 1 ? m_Machine.One("iadd", {index, pointer.index})
                        : pointer.index.IsLiteral(0) && llvm::isPowerOf2_32(nStep)
                            ? m_Machine.One("ishl", {index, LiteralWord(llvm::Log2_32(nStep))})
                        : pointer.index.IsLiteral(0)
                            ? m_Machine.One("imul", {index, LiteralWord(nStep)})
                            : m_Machine.One("imad", {index, LiteralWord(nStep), pointer.index});
    }
    if (pointer.index.eKind != SWord::Register && pointer.index.eKind != SWord::Literal)
    {
        // A fixed register's own name may have an index in it, so its value is copied to a temp first.
        const Words copy = m_Machine.NewWords(1);
        m_Machine.Move(copy, {pointer.index});
        pointer.index = copy[0];
    }
    m_mapArrayPointers[&gep] = pointer;
}

/// Finds a word of an array: sets the component, gives the register's distance from the index.
int64_t CSelector::FindArrayRegister(const SPlace& place, uint64_t nWord, unsigned& nComponent)
{
    const auto nUnit = static_cast<int64_t>(place.pArray->nUnitBytes);
    const auto nByte = static_cast<int64_t>(place.nArrayOffset + nWord * s_nWordBytes);
    const bool bBelow = nByte % nUnit < 0;
    const int64_t nInside = nByte % nUnit + (bBelow ? nUnit : 0);
    nComponent = static_cast<unsigned>(nInside) / s_nWordBytes;
    return nByte / nUnit - (bBelow ? 1 : 0);
}

/// The name of an array, or of one of its registers if the index is known. An index out of range stays out of range.
uint32_t CSelector::NameArray(const SPlace& place, int64_t nDistance)
{
    std::string strName = "x" + std::to_string(place.pArray->nNumber);
    if (place.address[0].eKind == SWord::Literal)
    {
        const uint32_t nRegister = place.address[0].nId + static_cast<uint32_t>(nDistance);
        strName += "[" + std::to_string(std::min(nRegister, place.pArray->nRegisters)) + "]";
    }
    return m_Machine.Name(strName);
}

Words CSelector::LoadArray(const SPlace& place, unsigned nCount)
{
    const bool bIndexed = place.address[0].eKind != SWord::Literal;
    Words result = m_Machine.NewWords(nCount);
    for (unsigned n = 0; n < nCount;)
    {
        unsigned nComponent = 0;
        const int64_t nDistance = FindArrayRegister(place, n, nComponent);
        SInstruction load = m_Machine.Make("mov");
        load.nDestination = result[n].nId;
        load.nSources = 1;
        load.sources[0].index = bIndexed ? place.address[0] : SWord();
        load.sources[0].nImmediate = bIndexed ? static_cast<uint32_t>(nDistance) : 0;
        const uint32_t nName = NameArray(place, nDistance);
        do
        {
            load.nMask |= 1u << result[n].nComponent;
            load.sources[0].words[result[n].nComponent] = {SWord::Fixed, static_cast<uint8_t>(nComponent), nName};
            ++n;
        } while (n < nCount && result[n].nId == load.nDestination &&
                 FindArrayRegister(place, n, nComponent) == nDistance);
        m_Machine.Add(load);
    }
    return result;
}

void CSelector::StoreArray(const SPlace& place, llvm::ArrayRef<SWord> words)
{
    for (size_t n = 0; n < words.size();)
    {
        unsigned nComponent = 0;
        const int64_t nDistance = FindArrayRegister(place, n, nComponent);
        std::array<SWord, s_nComponents> values = {};
        do
        {
            values[nComponent] = words[n++];
        } while (n < words.size() && FindArrayRegister(place, n, nComponent) == nDistance);
        m_Machine.MoveToArray(NameArray(place, nDistance), place.address[0], static_cast<uint32_t>(nDistance), values);
    }
}

} // namespace KestrelOpenCL
