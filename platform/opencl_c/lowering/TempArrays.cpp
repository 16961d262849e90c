#include "platform/opencl_c/lowering/TempArrays.h"

#include "llvm/ADT/APInt.h"
#include "llvm/IR/Constants.h"
#include "llvm/IR/DataLayout.h"
#include "llvm/IR/InstIterator.h"
#include "llvm/IR/IntrinsicInst.h"
#include "llvm/IR/Operator.h"
#include "llvm/Support/MathExtras.h"

#include <numeric>

namespace KestrelOpenCL
{
namespace
{

const uint64_t s_nWordBytes = 4;
const uint64_t s_nRegisterBytes = 16;
const uint64_t s_nMaxRegisters = 256; ///< of all arrays of a kernel

/// What all accesses to one variable have in common. Each object serves one variable.
class CArrayUses
{
public:
    CArrayUses(const llvm::AllocaInst& variable, const CValueTypes& types) : m_Variable(variable), m_Types(types) {}

    /// \return how many bytes of the variable each register holds, 0 if it has to be in memory
    uint64_t FindUnit()
    {
        m_vPointers = {&m_Variable};
        while (!m_vPointers.empty())
        {
            const llvm::Value* const pPointer = m_vPointers.back();
            m_vPointers.pop_back();
            for (const llvm::User* const pUser : pPointer->users())
            {
                if (!Allows(*pPointer, *pUser))
                {
                    return 0;
                }
            }
        }
        for (const uint64_t nUnit : {s_nRegisterBytes, s_nRegisterBytes * 3 / 4, s_nRegisterBytes / 2})
        {
            if (m_nStrides % nUnit == 0 && (!m_bLoops || llvm::isPowerOf2_64(nUnit)))
            {
                return nUnit;
            }
        }
        return s_nWordBytes;
    }

private:
    bool Allows(const llvm::Value& pointer, const llvm::User& user)
    {
        if (const auto* pGep = llvm::dyn_cast<llvm::GetElementPtrInst>(&user))
        {
            m_vPointers.push_back(pGep);
            return AllowsAddress(*pGep);
        }
        if (const auto* pLoad = llvm::dyn_cast<llvm::LoadInst>(&user))
        {
            return IsOfWords(pLoad->getType(), pLoad->getAlign());
        }
        if (const auto* pStore = llvm::dyn_cast<llvm::StoreInst>(&user))
        {
            return pStore->getValueOperand() != &pointer &&
                   IsOfWords(pStore->getValueOperand()->getType(), pStore->getAlign());
        }
        if (const auto* pBytes = llvm::dyn_cast<llvm::MemIntrinsic>(&user))
        {
            return AllowsBytes(pointer, *pBytes);
        }
        const auto* const pIntrinsic = llvm::dyn_cast<llvm::IntrinsicInst>(&user);
        return pIntrinsic != nullptr && pIntrinsic->isLifetimeStartOrEnd();
    }

    bool AllowsAddress(const llvm::GetElementPtrInst& gep)
    {
        const llvm::DataLayout& layout = m_Types.GetLayout();
        const unsigned nBits = layout.getIndexTypeSizeInBits(gep.getType());
        llvm::MapVector<llvm::Value*, llvm::APInt> mapOffsets;
        llvm::APInt known(nBits, 0);
        if (gep.getType()->isVectorTy() ||
            !llvm::cast<llvm::GEPOperator>(gep).collectOffset(layout, nBits, mapOffsets, known) ||
            known.getSExtValue() % static_cast<int64_t>(s_nWordBytes) != 0)
        {
            return false;
        }
        for (const auto& entry : mapOffsets)
        {
            const int64_t nStride = entry.second.getSExtValue();
            if (nStride <= 0 || nStride % static_cast<int64_t>(s_nWordBytes) != 0 ||
                entry.first->getType()->getIntegerBitWidth() > 64)
            {
                return false;
            }
            m_nStrides = std::gcd(m_nStrides, static_cast<uint64_t>(nStride));
        }
        return true;
    }

    bool IsOfWords(llvm::Type* pType, llvm::Align align) const
    {
        if (align.value() % s_nWordBytes != 0)
        {
            return false;
        }
        const llvm::SmallVector<SLeaf, 8> vLeaves = m_Types.GetLeaves(pType);
        return llvm::all_of(
            vLeaves, [](const SLeaf& leaf)
            { return leaf.nOffset % s_nWordBytes == 0 && leaf.nBytes != 0 && leaf.nBytes % s_nWordBytes == 0; });
    }

    bool AllowsBytes(const llvm::Value& pointer, const llvm::MemIntrinsic& bytes)
    {
        const auto* const pLength = llvm::dyn_cast<llvm::ConstantInt>(bytes.getLength());
        const auto* const pTransfer = llvm::dyn_cast<llvm::MemTransferInst>(&bytes);
        const bool bAligned = bytes.getRawDest() != &pointer || bytes.getDestAlign().valueOrOne() >= s_nWordBytes;
        const bool bSourceAligned = pTransfer == nullptr || pTransfer->getRawSource() != &pointer ||
                                    pTransfer->getSourceAlign().valueOrOne() >= s_nWordBytes;
        m_bLoops = true;
        return pLength != nullptr && pLength->getLimitedValue() % s_nWordBytes == 0 && bAligned && bSourceAligned;
    }

    const llvm::AllocaInst& m_Variable;
    const CValueTypes& m_Types;
    std::vector<const llvm::Value*> m_vPointers; ///< pointers into it whose uses have yet to be looked at
    uint64_t m_nStrides = 0;                     ///< a common divisor of all strides; 0 for none
    bool m_bLoops = false;                       ///< block copies may add offsets in steps of a register
};

} // namespace

TempArrays FindTempArrays(const llvm::Function& kernel, const CValueTypes& types)
{
    TempArrays arrays;
    uint64_t nTaken = 0;
    for (const llvm::Instruction& instruction : llvm::instructions(kernel))
    {
        const auto* const pVariable = llvm::dyn_cast<llvm::AllocaInst>(&instruction);
        if (pVariable == nullptr || !pVariable->isStaticAlloca())
        {
            continue;
        }
        const llvm::Optional<llvm::TypeSize> bits = pVariable->getAllocationSizeInBits(types.GetLayout());
        const uint64_t nBytes = bits.has_value() ? bits->getFixedSize() / 8 : 0;
        if (nBytes == 0 || nBytes > s_nMaxRegisters * s_nRegisterBytes)
        {
            continue;
        }
        const uint64_t nUnit = CArrayUses(*pVariable, types).FindUnit();
        const uint64_t nRegisters = nUnit != 0 ? (nBytes + nUnit - 1) / nUnit : s_nMaxRegisters;
        if (nUnit == 0 || nTaken + nRegisters > s_nMaxRegisters)
        {
            continue;
        }
        nTaken += nRegisters;
        const auto nNumber = static_cast<uint32_t>(arrays.size() + 1);
        arrays[pVariable] = {nNumber, static_cast<uint32_t>(nUnit), static_cast<uint32_t>(nRegisters)};
    }
    return arrays;
}

} // namespace KestrelOpenCL
