#include "platform/opencl_c/dwarf/ConstantBytes.h"

#include "llvm/IR/Constants.h"
#include "llvm/IR/DataLayout.h"

namespace KestrelOpenCL
{

namespace
{

void PutInteger(const llvm::APInt& value, size_t nPlace, std::string& strBytes)
{
    for (size_t n = 0; n * 8 < value.getBitWidth(); ++n)
    {
        const unsigned int nBits = std::min<unsigned int>(8, value.getBitWidth() - static_cast<unsigned int>(n) * 8);
        strBytes[nPlace + n] = static_cast<char>(value.extractBitsAsZExtValue(nBits, static_cast<unsigned int>(n) * 8));
    }
}

/// Recursion is safe here: types nest only as deep as in the source.
bool Put(const llvm::Constant& constant, const llvm::DataLayout& layout, size_t nPlace, std::string& strBytes)
{
    if (constant.isNullValue() || llvm::isa<llvm::UndefValue>(constant))
    {
        return true;
    }
    if (const auto* pInteger = llvm::dyn_cast<llvm::ConstantInt>(&constant))
    {
        PutInteger(pInteger->getValue(), nPlace, strBytes);
        return true;
    }
    if (const auto* pFloat = llvm::dyn_cast<llvm::ConstantFP>(&constant))
    {
        PutInteger(pFloat->getValueAPF().bitcastToAPInt(), nPlace, strBytes);
        return true;
    }
    const llvm::Type* pType = constant.getType();
    const auto* pStruct = llvm::dyn_cast<llvm::StructType>(pType);
    const bool bSequence = llvm::isa<llvm::ArrayType, llvm::FixedVectorType>(pType);
    if (!pStruct && !bSequence)
    {
        return false;
    }
    const uint64_t nElements = pStruct ? pStruct->getNumElements()
                               : llvm::isa<llvm::ArrayType>(pType)
                                   ? llvm::cast<llvm::ArrayType>(pType)->getNumElements()
                                   : llvm::cast<llvm::FixedVectorType>(pType)->getNumElements();
    for (uint64_t n = 0; n < nElements; ++n)
    {
        const auto nIndex = static_cast<unsigned int>(n);
        const llvm::Constant* pElement = constant.getAggregateElement(nIndex);
        if (!pElement)
        {
            return false;
        }
        const uint64_t nOffset =
            pStruct ? layout.getStructLayout(const_cast<llvm::StructType*>(pStruct))->getElementOffset(nIndex)
                    : n * layout.getTypeAllocSize(pElement->getType()).getFixedSize();
        if (!Put(*pElement, layout, nPlace + nOffset, strBytes))
        {
            return false;
        }
    }
    return true;
}

} // namespace

bool GetConstantBytes(const llvm::Constant& constant, const llvm::DataLayout& layout, std::string& strBytes)
{
    strBytes.assign(layout.getTypeAllocSize(constant.getType()).getFixedSize(), '\0');
    return Put(constant, layout, 0, strBytes);
}

} // namespace KestrelOpenCL
