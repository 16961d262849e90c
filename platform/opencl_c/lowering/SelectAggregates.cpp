#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

namespace KestrelOpenCL
{

void CSelector::SelectExtractElement(const llvm::ExtractElementInst& extract)
{
    const Words vector = Get(extract.getVectorOperand());
    const unsigned nStep = m_Types.CountElementWords(extract.getType());
    const unsigned nElements = static_cast<unsigned>(vector.size()) / nStep;
    const auto Element = [&](unsigned n) { return llvm::ArrayRef<SWord>(vector).slice(n * nStep, nStep); };
    if (const auto* pIndex = llvm::dyn_cast<llvm::ConstantInt>(extract.getIndexOperand()))
    {
        const uint64_t n = pIndex->getLimitedValue();
        Set(extract, n < nElements
                         ? Words(Element(static_cast<unsigned>(n)).begin(), Element(static_cast<unsigned>(n)).end())
                         : Words(nStep, SWord()));
        return;
    }
    const SWord index = GetWord(extract.getIndexOperand());
    Words result(Element(0).begin(), Element(0).end());
    for (unsigned n = 1; n < nElements; ++n)
    {
        const SWord equal = m_Machine.One("ieq", {index, LiteralWord(n)});
        result = m_Machine.Each("cmov_logical", nStep, {equal, Element(n), result});
    }
    Set(extract, result);
}

void CSelector::SelectInsertElement(const llvm::InsertElementInst& insert)
{
    Words vector = Get(insert.getOperand(0));
    const Words element = Get(insert.getOperand(1));
    const unsigned nStep = static_cast<unsigned>(element.size());
    const unsigned nElements = static_cast<unsigned>(vector.size()) / nStep;
    const auto* const pIndex = llvm::dyn_cast<llvm::ConstantInt>(insert.getOperand(2));
    if (pIndex != nullptr)
    {
        if (pIndex->getLimitedValue() < nElements)
        {
            std::copy(element.begin(), element.end(), vector.begin() + pIndex->getLimitedValue() * nStep);
        }
        Set(insert, vector);
        return;
    }
    const SWord index = GetWord(insert.getOperand(2));
    for (unsigned n = 0; n < nElements; ++n)
    {
        const SWord equal = m_Machine.One("ieq", {index, LiteralWord(n)});
        const llvm::ArrayRef<SWord> old = llvm::ArrayRef<SWord>(vector).slice(n * nStep, nStep);
        const Words chosen = m_Machine.Each("cmov_logical", nStep, {equal, element, old});
        std::copy(chosen.begin(), chosen.end(), vector.begin() + n * nStep);
    }
    Set(insert, vector);
}

void CSelector::SelectShuffle(const llvm::ShuffleVectorInst& shuffle)
{
    Words both = Get(shuffle.getOperand(0));
    const Words second = Get(shuffle.getOperand(1));
    both.append(second.begin(), second.end());
    const unsigned nStep = m_Types.CountElementWords(shuffle.getType());
    Words result;
    for (const int nElement : shuffle.getShuffleMask())
    {
        for (unsigned i = 0; i < nStep; ++i)
        {
            result.push_back(nElement < 0 ? SWord() : both[static_cast<unsigned>(nElement) * nStep + i]);
        }
    }
    Set(shuffle, result);
}

/// The index of the first word of an element within nested structs and arrays.
unsigned CSelector::FirstWord(Type* pType, llvm::ArrayRef<unsigned> indices, Type*& pElement) const
{
    unsigned nWord = 0;
    for (const unsigned nIndex : indices)
    {
        if (auto* pArray = llvm::dyn_cast<llvm::ArrayType>(pType))
        {
            pType = pArray->getElementType();
            nWord += nIndex * m_Types.CountWords(pType);
            continue;
        }
        auto* const pStruct = llvm::cast<llvm::StructType>(pType);
        for (unsigned n = 0; n < nIndex; ++n)
        {
            nWord += m_Types.CountWords(pStruct->getElementType(n));
        }
        pType = pStruct->getElementType(nIndex);
    }
    pElement = pType;
    return nWord;
}

void CSelector::SelectExtractValue(const llvm::ExtractValueInst& extract)
{
    const Words words = Get(extract.getAggregateOperand());
    Type* pElement = nullptr;
    const unsigned nFirst = FirstWord(extract.getAggregateOperand()->getType(), extract.getIndices(), pElement);
    const llvm::ArrayRef<SWord> part = llvm::ArrayRef<SWord>(words).slice(nFirst, m_Types.CountWords(pElement));
    Set(extract, Words(part.begin(), part.end()));
}

void CSelector::SelectInsertValue(const llvm::InsertValueInst& insert)
{
    Words words = Get(insert.getAggregateOperand());
    const Words part = Get(insert.getInsertedValueOperand());
    Type* pElement = nullptr;
    const unsigned nFirst = FirstWord(insert.getType(), insert.getIndices(), pElement);
    std::copy(part.begin(), part.end(), words.begin() + nFirst);
    Set(insert, words);
}

} // namespace KestrelOpenCL
