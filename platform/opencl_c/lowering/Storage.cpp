#include "platform/opencl_c/lowering/Storage.h"

#include "llvm/IR/Constants.h"
#include "llvm/IR/DataLayout.h"
#include "llvm/IR/GlobalVariable.h"
#include "llvm/IR/Instructions.h"
#include "llvm/IR/Operator.h"

namespace KestrelOpenCL
{
namespace
{

/// Address 0 is the null pointer, so no variable lies there.
const uint64_t s_nNullBytes = 16;

/// \param nEnd end of the last block; receives the end of this one, which begins at the result
uint64_t Place(uint64_t& nEnd, uint64_t nBytes, uint64_t nAlignment)
{
    const uint64_t nStart = (std::max(nEnd, s_nNullBytes) + nAlignment - 1) / nAlignment * nAlignment;
    nEnd = nStart + nBytes;
    return nStart;
}

} // namespace

void CStorage::KeepLocalNull()
{
    m_nLocal = std::max(m_nLocal, s_nNullBytes);
}

uint32_t CStorage::GetLocal(const llvm::GlobalVariable& variable)
{
    const auto inserted = m_mapLocal.insert({&variable, 0});
    if (inserted.second)
    {
        // Local memory is scarce, and kernels often use all of its round size: it starts at 0.
        const uint64_t nAlignment = std::max<uint64_t>(4, m_Layout.getPreferredAlign(&variable).value());
        const uint64_t nStart = (m_nLocal + nAlignment - 1) / nAlignment * nAlignment;
        m_nLocal = nStart + m_Layout.getTypeAllocSize(variable.getValueType());
        inserted.first->second = static_cast<uint32_t>(nStart);
    }
    return inserted.first->second;
}

uint32_t CStorage::AddPrivate(uint64_t nBytes, uint64_t nAlignment)
{
    return static_cast<uint32_t>(Place(m_nPrivate, nBytes, std::max<uint64_t>(4, nAlignment)));
}

uint32_t CStorage::GetPrivate(const llvm::AllocaInst& variable)
{
    const auto inserted = m_mapPrivate.try_emplace(&variable, 0);
    if (inserted.second)
    {
        const auto* const pCount = llvm::dyn_cast<llvm::ConstantInt>(variable.getArraySize());
        const uint64_t nCount = pCount != nullptr ? pCount->getZExtValue() : 1;
        inserted.first->second =
            AddPrivate(m_Layout.getTypeAllocSize(variable.getAllocatedType()) * nCount, variable.getAlign().value());
    }
    return inserted.first->second;
}

uint32_t CStorage::GetConstant(const llvm::GlobalVariable& variable)
{
    const auto inserted = m_mapConstants.try_emplace(&variable, 0);
    if (!inserted.second)
    {
        return inserted.first->second;
    }
    uint64_t nEnd = m_vConstants.size();
    const uint64_t nStart = Place(nEnd, m_Layout.getTypeAllocSize(variable.getValueType()),
                                  std::max<uint64_t>(4, m_Layout.getPreferredAlign(&variable).value()));
    inserted.first->second = static_cast<uint32_t>(nStart);
    m_vConstants.resize(nEnd);
    if (variable.hasInitializer())
    {
        WriteConstant(*variable.getInitializer(), nStart);
    }
    return static_cast<uint32_t>(nStart);
}

std::vector<uint8_t> CStorage::GetConstants() const
{
    std::vector<uint8_t> vConstants = m_vConstants;
    vConstants.resize(vConstants.size() + m_nAfterConstants);
    return vConstants;
}

void CStorage::WriteInteger(uint64_t nValue, uint64_t nBytes, uint64_t nOffset)
{
    for (uint64_t n = 0; n < nBytes; ++n)
    {
        m_vConstants[nOffset + n] = n < 8 ? static_cast<uint8_t>(nValue >> (n * 8)) : 0;
    }
}

void CStorage::WriteConstant(const llvm::Constant& value, uint64_t nOffset)
{
    llvm::Type* const pType = value.getType();
    const uint64_t nBytes = m_Layout.getTypeStoreSize(pType);
    if (const auto* pInteger = llvm::dyn_cast<llvm::ConstantInt>(&value))
    {
        WriteInteger(pInteger->getValue().zextOrTrunc(64).getZExtValue(), nBytes, nOffset);
        return;
    }
    if (const auto* pFloat = llvm::dyn_cast<llvm::ConstantFP>(&value))
    {
        WriteInteger(pFloat->getValueAPF().bitcastToAPInt().getZExtValue(), nBytes, nOffset);
        return;
    }
    if (pType->isPointerTy())
    {
        llvm::APInt offset(m_Layout.getIndexTypeSizeInBits(pType), 0);
        const llvm::Value* const pBase = value.stripAndAccumulateConstantOffsets(m_Layout, offset, true);
        const auto* const pVariable = llvm::dyn_cast<llvm::GlobalVariable>(pBase);
        WriteInteger(pVariable != nullptr ? GetConstant(*pVariable) + offset.getZExtValue() : 0, nBytes, nOffset);
        return;
    }
    if (auto* pStruct = llvm::dyn_cast<llvm::StructType>(pType))
    {
        const llvm::StructLayout* const pLayout = m_Layout.getStructLayout(pStruct);
        for (unsigned n = 0; n < pStruct->getNumElements(); ++n)
        {
            WriteConstant(*value.getAggregateElement(n), nOffset + pLayout->getElementOffset(n));
        }
        return;
    }
    const auto* const pArray = llvm::dyn_cast<llvm::ArrayType>(pType);
    const auto* const pVector = llvm::dyn_cast<llvm::FixedVectorType>(pType);
    if ((pArray == nullptr && pVector == nullptr) || llvm::isa<llvm::UndefValue>(value) || value.isNullValue())
    {
        return; // zeros already
    }
    const uint64_t nCount = pArray != nullptr ? pArray->getNumElements() : pVector->getNumElements();
    const uint64_t nStride = pArray != nullptr ? m_Layout.getTypeAllocSize(pArray->getElementType())
                                               : m_Layout.getTypeStoreSize(pVector->getElementType());
    for (uint64_t n = 0; n < nCount; ++n)
    {
        WriteConstant(*value.getAggregateElement(static_cast<unsigned>(n)), nOffset + n * nStride);
    }
}

} // namespace KestrelOpenCL
