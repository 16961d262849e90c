#include "platform/opencl_c/lowering/ValueTypes.h"

#include "llvm/IR/DataLayout.h"
#include "llvm/IR/DerivedTypes.h"

namespace KestrelOpenCL
{
namespace
{

} // namespace

CValueTypes::CValueTypes(const llvm::DataLayout& layout, bool b64BitAddresses)
    : m_Layout(layout), m_b64BitAddresses(b64BitAddresses)
{
}

unsigned CValueTypes::CountPointerWords(unsigned nSpace) const
{
    return m_b64BitAddresses && nSpace != SpacePrivate && nSpace != SpaceLocal ? 2 : 1;
}

unsigned CValueTypes::CountBits(llvm::Type* pType) const
{
    llvm::Type* const pScalar = pType->getScalarType();
    if (pScalar->isPointerTy())
    {
        return CountPointerWords(pScalar->getPointerAddressSpace()) * s_nWordBits;
    }
    return static_cast<unsigned>(pScalar->getPrimitiveSizeInBits().getFixedSize());
}

unsigned CValueTypes::CountElementWords(llvm::Type* pType) const
{
    return (CountBits(pType) + s_nWordBits - 1) / s_nWordBits;
}

bool CValueTypes::IsNarrow(llvm::Type* pType) const
{
    llvm::Type* const pScalar = pType->getScalarType();
    return pScalar->isIntegerTy() && !pScalar->isIntegerTy(1) && CountBits(pScalar) % s_nWordBits != 0;
}

unsigned CValueTypes::CountWords(llvm::Type* pType) const
{
    if (auto* pVector = llvm::dyn_cast<llvm::FixedVectorType>(pType))
    {
        return pVector->getNumElements() * CountElementWords(pVector);
    }
    if (const auto* pArray = llvm::dyn_cast<llvm::ArrayType>(pType))
    {
        return static_cast<unsigned>(pArray->getNumElements()) * CountWords(pArray->getElementType());
    }
    if (const auto* pStruct = llvm::dyn_cast<llvm::StructType>(pType))
    {
        unsigned nWords = 0;
        for (llvm::Type* const pElement : pStruct->elements())
        {
            nWords += CountWords(pElement);
        }
        return nWords;
    }
    return pType->isVoidTy() ? 0 : CountElementWords(pType);
}

void CValueTypes::AddLeaves(llvm::Type* pType, uint64_t nOffset, unsigned& nWord,
                            llvm::SmallVectorImpl<SLeaf>& vLeaves) const
{
    if (auto* pStruct = llvm::dyn_cast<llvm::StructType>(pType))
    {
        const llvm::StructLayout* const pLayout = m_Layout.getStructLayout(pStruct);
        for (unsigned n = 0; n < pStruct->getNumElements(); ++n)
        {
            AddLeaves(pStruct->getElementType(n), nOffset + pLayout->getElementOffset(n), nWord, vLeaves);
        }
        return;
    }
    if (auto* pArray = llvm::dyn_cast<llvm::ArrayType>(pType))
    {
        const uint64_t nStride = m_Layout.getTypeAllocSize(pArray->getElementType());
        for (uint64_t n = 0; n < pArray->getNumElements(); ++n)
        {
            AddLeaves(pArray->getElementType(), nOffset + n * nStride, nWord, vLeaves);
        }
        return;
    }
    const auto* const pVector = llvm::dyn_cast<llvm::FixedVectorType>(pType);
    SLeaf leaf;
    leaf.pType = pType->getScalarType();
    leaf.nBytes = m_Layout.getTypeStoreSize(leaf.pType);
    leaf.nWords = CountElementWords(pType);
    for (unsigned n = 0; n < (pVector != nullptr ? pVector->getNumElements() : 1); ++n)
    {
        leaf.nOffset = nOffset + n * leaf.nBytes;
        leaf.nFirstWord = nWord;
        nWord += leaf.nWords;
        vLeaves.push_back(leaf);
    }
}

llvm::SmallVector<SLeaf, 8> CValueTypes::GetLeaves(llvm::Type* pType) const
{
    llvm::SmallVector<SLeaf, 8> vLeaves;
    unsigned nWord = 0;
    AddLeaves(pType, 0, nWord, vLeaves);
    return vLeaves;
}

} // namespace KestrelOpenCL
