#include "platform/opencl_c/lowering/LeanAddresses.h"

#include "platform/opencl_c/lowering/ValueTypes.h"

#include "llvm/ADT/DenseMap.h"
#include "llvm/ADT/MapVector.h"
#include "llvm/ADT/PostOrderIterator.h"
#include "llvm/Analysis/LoopInfo.h"
#include "llvm/IR/Constants.h"
#include "llvm/IR/DataLayout.h"
#include "llvm/IR/Dominators.h"
#include "llvm/IR/IRBuilder.h"
#include "llvm/IR/Instructions.h"
#include "llvm/IR/Module.h"
#include "llvm/IR/Operator.h"
#include "llvm/IR/PatternMatch.h"
#include "llvm/Support/MathExtras.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <vector>

namespace KestrelOpenCL
{
namespace
{

using namespace llvm::PatternMatch;

/// Splits the addresses of one kernel into parts. Each object serves one kernel.
class CAddressParts
{
public:
    CAddressParts(llvm::Function& kernel, const llvm::DominatorTree& dominators, bool b64BitAddresses)
        : m_Kernel(kernel), m_Layout(kernel.getParent()->getDataLayout()), m_Dominators(dominators),
          m_Loops(dominators), m_b64BitAddresses(b64BitAddresses)
    {
    }

    void Run()
    {
        std::vector<llvm::GetElementPtrInst*> vAddresses;
        const llvm::ReversePostOrderTraversal<llvm::Function*> order(&m_Kernel);
        for (llvm::BasicBlock* const pBlock : order)
        {
            for (llvm::Instruction& instruction : *pBlock)
            {
                auto* const pAddress = llvm::dyn_cast<llvm::GetElementPtrInst>(&instruction);
                if (pAddress != nullptr && IsOneWord(*pAddress))
                {
                    vAddresses.push_back(pAddress);
                }
            }
        }
        for (llvm::GetElementPtrInst* const pAddress : vAddresses)
        {
            TakeApart(*pAddress);
        }
    }

private:
    /// An index times a constant.
    struct SPart
    {
        llvm::Value* pIndex = nullptr;
        uint64_t nStride = 0;
        unsigned nDepth = 0; ///< of the innermost loop in which the index changes
    };
    typedef std::tuple<llvm::Value*, llvm::Value*, uint64_t> Key; ///< base, and the part that is added to it

    bool IsOneWord(const llvm::GetElementPtrInst& address) const
    {
        const unsigned nSpace = address.getAddressSpace();
        return !address.getType()->isVectorTy() &&
               (!m_b64BitAddresses || nSpace == SpaceLocal || nSpace == SpacePrivate);
    }

    unsigned DepthOf(const llvm::Value* pValue) const
    {
        const auto* const pInstruction = llvm::dyn_cast<llvm::Instruction>(pValue);
        return pInstruction != nullptr ? m_Loops.getLoopDepth(pInstruction->getParent()) : 0;
    }

    /// Moves the constant part of an index to the constant part of the address. Both wrap at 2^32, however the index
    /// was extended from 32 bits.
    static llvm::Value* TakeKnown(llvm::Value* pIndex, uint64_t nStride, uint64_t& nKnown)
    {
        llvm::Value* pInner = pIndex;
        if (auto* const pCast = llvm::dyn_cast<llvm::CastInst>(pIndex))
        {
            const bool bWord =
                pCast->getSrcTy()->isIntegerTy(s_nWordBits) &&
                (pCast->getOpcode() == llvm::Instruction::SExt || pCast->getOpcode() == llvm::Instruction::ZExt);
            pInner = bWord ? pCast->getOperand(0) : pIndex;
        }
        llvm::Value* pVariable = nullptr;
        const llvm::APInt* pNumber = nullptr;
        if (!pInner->getType()->isIntegerTy(s_nWordBits) && !pInner->getType()->isIntegerTy(2 * s_nWordBits))
        {
            return pIndex;
        }
        if (match(pInner, m_Add(m_Value(pVariable), m_APInt(pNumber))))
        {
            nKnown += pNumber->sextOrTrunc(2 * s_nWordBits).getZExtValue() * nStride;
            return pVariable;
        }
        return pInner;
    }

    void TakeApart(llvm::GetElementPtrInst& address)
    {
        const unsigned nBits = m_Layout.getIndexTypeSizeInBits(address.getType());
        llvm::MapVector<llvm::Value*, llvm::APInt> mapOffsets;
        llvm::APInt known(nBits, 0);
        if (!llvm::cast<llvm::GEPOperator>(address).collectOffset(m_Layout, nBits, mapOffsets, known) ||
            mapOffsets.empty())
        {
            return;
        }
        uint64_t nKnown = static_cast<uint64_t>(known.getSExtValue());
        std::vector<SPart> vParts;
        for (const auto& [pIndex, stride] : mapOffsets)
        {
            SPart part;
            part.nStride = stride.getZExtValue();
            if (part.nStride == 0 || part.nStride > 0x7FFFFFFFu)
            {
                return;
            }
            part.pIndex = TakeKnown(pIndex, part.nStride, nKnown);
            part.nDepth = DepthOf(part.pIndex);
            vParts.push_back(part);
        }
        std::stable_sort(vParts.begin(), vParts.end(),
                         [](const SPart& a, const SPart& b) { return a.nDepth < b.nDepth; });
        llvm::Value* pSum = address.getPointerOperand();
        for (const SPart& part : vParts)
        {
            pSum = Add(pSum, part, address);
        }
        llvm::IRBuilder<> builder(&address);
        const auto nOffset = static_cast<int64_t>(llvm::SignExtend64(nKnown, s_nWordBits));
        if (nOffset != 0)
        {
            llvm::Type* const pNumber = builder.getIntNTy(nBits);
            pSum = builder.CreateGEP(builder.getInt8Ty(), pSum,
                                     llvm::ConstantInt::get(pNumber, static_cast<uint64_t>(nOffset), true));
        }
        address.replaceAllUsesWith(pSum);
        address.eraseFromParent();
    }

    /// Adds a part to a base: reuses a sum that is there already, or computes it before all loops in which it is
    /// constant.
    llvm::Value* Add(llvm::Value* pBase, const SPart& part, llvm::Instruction& user)
    {
        std::vector<llvm::Instruction*>& vThere = m_mapSums[Key(pBase, part.pIndex, part.nStride)];
        for (llvm::Instruction* const pSum : vThere)
        {
            if (m_Dominators.dominates(pSum, &user))
            {
                return pSum;
            }
        }
        llvm::Instruction* pBefore = &user;
        for (const llvm::Loop* pLoop = m_Loops.getLoopFor(user.getParent());
             pLoop != nullptr && pLoop->getLoopPredecessor() != nullptr && pLoop->isLoopInvariant(pBase) &&
             pLoop->isLoopInvariant(part.pIndex);
             pLoop = pLoop->getParentLoop())
        {
            pBefore = pLoop->getLoopPredecessor()->getTerminator();
        }
        llvm::Type* const pElement = llvm::ArrayType::get(llvm::Type::getInt8Ty(user.getContext()), part.nStride);
        auto* const pSum = llvm::GetElementPtrInst::Create(pElement, pBase, {part.pIndex}, "", pBefore);
        pSum->setDebugLoc(user.getDebugLoc());
        vThere.push_back(pSum);
        return pSum;
    }

    llvm::Function& m_Kernel;
    const llvm::DataLayout& m_Layout;
    const llvm::DominatorTree& m_Dominators;
    llvm::LoopInfo m_Loops;
    bool m_b64BitAddresses;
    std::map<Key, std::vector<llvm::Instruction*>> m_mapSums;
};

} // namespace

void MakeAddressesLean(llvm::Function& kernel, const llvm::DominatorTree& dominators, bool b64BitAddresses)
{
    CAddressParts(kernel, dominators, b64BitAddresses).Run();
}

} // namespace KestrelOpenCL
