#include "platform/opencl_c/structure/WideSwitches.h"

#include "llvm/ADT/SmallPtrSet.h"
#include "llvm/IR/CFG.h"
#include "llvm/IR/Function.h"
#include "llvm/IR/IRBuilder.h"
#include "llvm/IR/Instructions.h"

#include <map>
#include <vector>

namespace KestrelOpenCL
{

namespace
{

/// Removes a predecessor's entries from the phis of a block.
std::vector<llvm::Value*> TakeIncoming(llvm::BasicBlock& block, const llvm::BasicBlock& pred)
{
    std::vector<llvm::Value*> vValues;
    for (llvm::PHINode& phi : block.phis())
    {
        vValues.push_back(phi.getIncomingValueForBlock(&pred));
        for (int n = phi.getBasicBlockIndex(&pred); n >= 0; n = phi.getBasicBlockIndex(&pred))
        {
            phi.removeIncomingValue(static_cast<unsigned int>(n), false);
        }
    }
    return vValues;
}

void SplitSwitch(llvm::SwitchInst& wide)
{
    llvm::BasicBlock& block = *wide.getParent();
    std::map<llvm::BasicBlock*, std::vector<llvm::Value*>> mapIncoming;
    for (llvm::BasicBlock* pNext : llvm::successors(&block))
    {
        if (!mapIncoming.count(pNext))
        {
            mapIncoming[pNext] = TakeIncoming(*pNext, block);
        }
    }
    llvm::IRBuilder<> builder(&wide);
    llvm::Type* pType = wide.getCondition()->getType();
    llvm::IntegerType* pWord = builder.getInt32Ty();
    llvm::Value* pLow = builder.CreateTrunc(wide.getCondition(), pWord);
    llvm::Value* pShifted = builder.CreateLShr(wide.getCondition(), llvm::ConstantInt::get(pType, 32));
    llvm::SwitchInst* pOuter = builder.CreateSwitch(builder.CreateTrunc(pShifted, pWord), wide.getDefaultDest());
    std::map<uint64_t, llvm::SwitchInst*> mapInner;
    std::vector<llvm::BasicBlock*> vBlocks{&block};
    for (const auto& entry : wide.cases())
    {
        const uint64_t nValue = entry.getCaseValue()->getZExtValue();
        llvm::SwitchInst*& pInner = mapInner[nValue >> 32];
        if (!pInner)
        {
            auto* pInnerBlock =
                llvm::BasicBlock::Create(block.getContext(), "switch.low", block.getParent(), block.getNextNode());
            builder.SetInsertPoint(pInnerBlock);
            builder.SetCurrentDebugLocation(wide.getDebugLoc());
            pInner = builder.CreateSwitch(pLow, wide.getDefaultDest());
            pOuter->addCase(llvm::ConstantInt::get(pWord, nValue >> 32), pInnerBlock);
            vBlocks.push_back(pInnerBlock);
        }
        pInner->addCase(llvm::ConstantInt::get(pWord, nValue & 0xFFFFFFFFU), entry.getCaseSuccessor());
    }
    wide.eraseFromParent();
    for (llvm::BasicBlock* pPred : vBlocks)
    {
        for (llvm::BasicBlock* pNext : llvm::successors(pPred))
        {
            const auto it = mapIncoming.find(pNext);
            if (it == mapIncoming.end())
            {
                continue;
            }
            size_t n = 0;
            for (llvm::PHINode& phi : pNext->phis())
            {
                phi.addIncoming(it->second[n++], pPred);
            }
        }
    }
}

/// A condition is stored as all ones, which matches no case, so a switch over one bit becomes a branch.
void MakeBranch(llvm::SwitchInst& narrow)
{
    llvm::BasicBlock& block = *narrow.getParent();
    auto* const pType = llvm::cast<llvm::IntegerType>(narrow.getCondition()->getType());
    llvm::BasicBlock* const pTrue = narrow.findCaseValue(llvm::ConstantInt::get(pType, 1))->getCaseSuccessor();
    llvm::BasicBlock* const pFalse = narrow.findCaseValue(llvm::ConstantInt::get(pType, 0))->getCaseSuccessor();
    const llvm::SmallPtrSet<llvm::BasicBlock*, 4> setNext(llvm::succ_begin(&block), llvm::succ_end(&block));
    for (llvm::BasicBlock* const pNext : setNext)
    {
        const std::vector<llvm::Value*> vValues = TakeIncoming(*pNext, block);
        for (int nEdges = (pNext == pTrue ? 1 : 0) + (pNext == pFalse ? 1 : 0); nEdges > 0; --nEdges)
        {
            size_t n = 0;
            for (llvm::PHINode& phi : pNext->phis())
            {
                phi.addIncoming(vValues[n++], &block);
            }
        }
    }
    llvm::IRBuilder<>(&narrow).CreateCondBr(narrow.getCondition(), pTrue, pFalse);
    narrow.eraseFromParent();
}

} // namespace

void FitSwitches(llvm::Function& function)
{
    std::vector<llvm::SwitchInst*> vNarrow;
    std::vector<llvm::SwitchInst*> vWide;
    for (llvm::BasicBlock& block : function)
    {
        auto* pSwitch = llvm::dyn_cast_or_null<llvm::SwitchInst>(block.getTerminator());
        const unsigned int nBits = pSwitch ? pSwitch->getCondition()->getType()->getIntegerBitWidth() : 0;
        if (nBits > 32 && nBits <= 64)
        {
            vWide.push_back(pSwitch);
        }
        else if (nBits == 1)
        {
            vNarrow.push_back(pSwitch);
        }
    }
    for (llvm::SwitchInst* pSwitch : vNarrow)
    {
        MakeBranch(*pSwitch);
    }
    for (llvm::SwitchInst* pSwitch : vWide)
    {
        SplitSwitch(*pSwitch);
    }
}

} // namespace KestrelOpenCL
