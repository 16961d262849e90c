#include "platform/opencl_c/lowering/LeanLoops.h"

#include "platform/opencl_c/lowering/LeanAddresses.h"

#include "llvm/Analysis/LoopInfo.h"
#include "llvm/IR/Constants.h"
#include "llvm/IR/Dominators.h"
#include "llvm/IR/IRBuilder.h"
#include "llvm/IR/InstIterator.h"
#include "llvm/IR/Instructions.h"
#include "llvm/IR/PatternMatch.h"
#include "llvm/IR/ValueHandle.h"
#include "llvm/Transforms/Utils/Local.h"

#include <vector>

namespace KestrelOpenCL
{
namespace
{

using namespace llvm::PatternMatch;

const unsigned s_nMaxTerm = 8; ///< how often the search for sums that need other sums is repeated

/// After a branch on `x == c`, earlier passes have replaced x by c, where c is a constant or an argument. This puts x
/// back: it is in a register when the loop is left, so no copy is needed.
void TakeComparedValues(llvm::Function& kernel)
{
    for (llvm::BasicBlock& block : kernel)
    {
        auto* const pBranch = llvm::dyn_cast<llvm::BranchInst>(block.getTerminator());
        llvm::CmpInst::Predicate ePredicate{};
        llvm::Value* pLeft = nullptr;
        llvm::Value* pRight = nullptr;
        if (pBranch == nullptr || !pBranch->isConditional() || pBranch->getSuccessor(0) == pBranch->getSuccessor(1) ||
            !match(pBranch->getCondition(), m_ICmp(ePredicate, m_Value(pLeft), m_Value(pRight))) ||
            !llvm::CmpInst::isEquality(ePredicate) || !llvm::isa<llvm::Instruction>(pLeft) ||
            !pLeft->getType()->isIntegerTy() || llvm::isa<llvm::Instruction>(pRight))
        {
            continue;
        }
        for (llvm::PHINode& phi : pBranch->getSuccessor(ePredicate == llvm::CmpInst::ICMP_EQ ? 0 : 1)->phis())
        {
            if (phi.getIncomingValueForBlock(&block) == pRight)
            {
                phi.setIncomingValueForBlock(&block, pLeft);
            }
        }
    }
}

/// `x < 4` next to `y = x >> 1` becomes `y < 2`. A loop that halves a number then doesn't need the old value.
void CompareShiftedValues(llvm::Function& kernel, const llvm::DominatorTree& dominators)
{
    for (llvm::Instruction& instruction : llvm::instructions(kernel))
    {
        llvm::Value* pValue = nullptr;
        const llvm::APInt* pBound = nullptr;
        llvm::CmpInst::Predicate ePredicate{};
        if (!match(&instruction, m_ICmp(ePredicate, m_Value(pValue), m_APInt(pBound))) ||
            (ePredicate != llvm::CmpInst::ICMP_ULT && ePredicate != llvm::CmpInst::ICMP_UGT))
        {
            continue;
        }
        // x > 3 equals x >= 4.
        const llvm::APInt bound = ePredicate == llvm::CmpInst::ICMP_UGT ? *pBound + 1 : *pBound;
        for (llvm::User* const pUser : pValue->users())
        {
            auto* const pShift = llvm::dyn_cast<llvm::Instruction>(pUser);
            const llvm::APInt* pAmount = nullptr;
            if (pShift == nullptr || !match(pShift, m_LShr(m_Specific(pValue), m_APInt(pAmount))) || bound.isZero() ||
                pAmount->uge(bound.getBitWidth()) || bound.countTrailingZeros() < pAmount->getZExtValue() ||
                !dominators.dominates(pShift, &instruction))
            {
                continue;
            }
            const llvm::APInt shifted = bound.lshr(*pAmount);
            instruction.setOperand(0, pShift);
            instruction.setOperand(1, llvm::ConstantInt::get(pShift->getType(), ePredicate == llvm::CmpInst::ICMP_UGT
                                                                                    ? shifted - 1
                                                                                    : shifted));
            break;
        }
    }
}

/// A loop that compares its counter with a value before it counts compares the incremented counter with the next value
/// instead. The answer is the same, and the old counter needn't be kept.
void CompareNextCounts(llvm::Function& kernel, const llvm::DominatorTree& dominators)
{
    const llvm::LoopInfo loops(dominators);
    for (const llvm::Loop* const pLoop : loops.getLoopsInPreorder())
    {
        llvm::BasicBlock* const pLatch = pLoop->getLoopLatch();
        llvm::BasicBlock* const pBefore = pLoop->getLoopPredecessor();
        if (pLatch == nullptr || pBefore == nullptr)
        {
            continue;
        }
        for (llvm::PHINode& phi : pLoop->getHeader()->phis())
        {
            llvm::Value* const pNext = phi.getIncomingValueForBlock(pLatch);
            llvm::Value* pStep = nullptr;
            llvm::Value* pBound = nullptr;
            llvm::CmpInst::Predicate ePredicate{};
            const auto* const pBranch = llvm::dyn_cast<llvm::BranchInst>(pLatch->getTerminator());
            if (pBranch == nullptr || !pBranch->isConditional() ||
                !match(pNext, m_c_Add(m_Specific(&phi), m_Value(pStep))) || !llvm::isa<llvm::Constant>(pStep) ||
                !match(pBranch->getCondition(), m_OneUse(m_ICmp(ePredicate, m_Specific(&phi), m_Value(pBound)))) ||
                !llvm::CmpInst::isEquality(ePredicate) || !pLoop->isLoopInvariant(pBound))
            {
                continue;
            }
            auto* const pCompare = llvm::cast<llvm::ICmpInst>(pBranch->getCondition());
            if (pCompare->getParent() != pLatch)
            {
                continue;
            }
            llvm::IRBuilder<> builder(pBefore->getTerminator());
            pCompare->moveBefore(pLatch->getTerminator());
            pCompare->setOperand(0, pNext);
            pCompare->setOperand(1, builder.CreateAdd(pBound, pStep));
        }
    }
}

/// Turns products of a loop's counter and a loop-invariant value into sums that grow with each pass. Each object serves
/// one kernel.
class CProductsToSums
{
public:
    explicit CProductsToSums(const llvm::DominatorTree& dominators) : m_Dominators(dominators), m_Loops(dominators) {}

    void Run()
    {
        for (llvm::Loop* const pLoop : m_Loops.getLoopsInPreorder())
        {
            if (pLoop->getLoopLatch() != nullptr && pLoop->getLoopPredecessor() != nullptr)
            {
                RunLoop(*pLoop);
            }
        }
    }

private:
    /// A number that grows by the same amount in each pass; start and step are computed outside the loop.
    struct SLine
    {
        llvm::Value* pStart = nullptr; ///< null: the number doesn't grow this way
        llvm::Value* pStep = nullptr;
        bool bProduct = false; ///< a product is part of it
    };

    void RunLoop(const llvm::Loop& loop)
    {
        m_mapLines.clear();
        m_pEnd = loop.getLoopPredecessor()->getTerminator();
        std::vector<llvm::Instruction*> vInstructions;
        for (llvm::BasicBlock* const pBlock : loop.blocks())
        {
            for (llvm::Instruction& instruction : *pBlock)
            {
                if (instruction.getType()->isIntegerTy(32) || instruction.getType()->isIntegerTy(64))
                {
                    vInstructions.push_back(&instruction);
                }
            }
        }
        // Blocks come in any order, so that a number may precede those it is made of.
        for (unsigned nPass = 0; nPass < s_nMaxTerm && FindLines(loop, vInstructions); ++nPass)
        {
        }
        std::vector<llvm::Instruction*> vTerms;
        for (llvm::Instruction* const pInstruction : vInstructions)
        {
            const auto it = m_mapLines.find(pInstruction);
            if (it != m_mapLines.end() && it->second.bProduct && IsNeeded(*pInstruction) &&
                m_Dominators.dominates(pInstruction->getParent(), loop.getLoopLatch()))
            {
                vTerms.push_back(pInstruction);
            }
        }
        for (llvm::Instruction* const pTerm : vTerms)
        {
            Replace(loop, *pTerm);
        }
    }

    /// Whether anything but such a number reads it.
    bool IsNeeded(const llvm::Instruction& instruction) const
    {
        return llvm::any_of(instruction.users(), [this](const llvm::User* pUser)
                            { return m_mapLines.count(llvm::cast<llvm::Instruction>(pUser)) == 0; });
    }

    bool FindLines(const llvm::Loop& loop, llvm::ArrayRef<llvm::Instruction*> instructions)
    {
        bool bFound = false;
        for (llvm::Instruction* const pInstruction : instructions)
        {
            if (m_mapLines.count(pInstruction) != 0)
            {
                continue;
            }
            const SLine line = MakeLine(loop, *pInstruction);
            if (line.pStart != nullptr)
            {
                m_mapLines[pInstruction] = line;
                bFound = true;
            }
        }
        return bFound;
    }

    SLine FindLine(const llvm::Loop& loop, llvm::Value* pValue) const
    {
        const auto* const pInstruction = llvm::dyn_cast<llvm::Instruction>(pValue);
        if (pInstruction == nullptr || !loop.contains(pInstruction))
        {
            return {pValue, llvm::ConstantInt::get(pValue->getType(), 0), false};
        }
        const auto it = m_mapLines.find(pInstruction);
        return it != m_mapLines.end() ? it->second : SLine();
    }

    SLine MakeLine(const llvm::Loop& loop, llvm::Instruction& instruction)
    {
        if (auto* const pPhi = llvm::dyn_cast<llvm::PHINode>(&instruction))
        {
            llvm::Value* pStep = nullptr;
            const bool bCounts =
                pPhi->getParent() == loop.getHeader() &&
                match(pPhi->getIncomingValueForBlock(loop.getLoopLatch()), m_c_Add(m_Specific(pPhi), m_Value(pStep))) &&
                loop.isLoopInvariant(pStep);
            return bCounts ? SLine{pPhi->getIncomingValueForBlock(loop.getLoopPredecessor()), pStep, false} : SLine();
        }
        const unsigned nOpcode = instruction.getOpcode();
        if (nOpcode != llvm::Instruction::Add && nOpcode != llvm::Instruction::Sub &&
            nOpcode != llvm::Instruction::Mul && nOpcode != llvm::Instruction::Shl)
        {
            return SLine();
        }
        const SLine a = FindLine(loop, instruction.getOperand(0));
        const SLine b = FindLine(loop, instruction.getOperand(1));
        if (a.pStart == nullptr || b.pStart == nullptr)
        {
            return SLine();
        }
        SLine line;
        line.bProduct = a.bProduct || b.bProduct;
        if (nOpcode == llvm::Instruction::Add || nOpcode == llvm::Instruction::Sub)
        {
            line.pStart = Make(nOpcode, a.pStart, b.pStart);
            line.pStep = Make(nOpcode, a.pStep, b.pStep);
            return line;
        }
        // One of the factors is invariant.
        const bool bFirst = IsZero(b.pStep);
        if ((!bFirst && !IsZero(a.pStep)) || (!bFirst && nOpcode == llvm::Instruction::Shl))
        {
            return SLine();
        }
        line.pStart = Make(nOpcode, a.pStart, b.pStart);
        line.pStep = bFirst ? Make(nOpcode, a.pStep, b.pStart) : Make(nOpcode, a.pStart, b.pStep);
        line.bProduct = true;
        return line;
    }

    static bool IsZero(const llvm::Value* pValue)
    {
        const auto* const pNumber = llvm::dyn_cast<llvm::ConstantInt>(pValue);
        return pNumber != nullptr && pNumber->isZero();
    }

    /// Creates an operation before the loop.
    llvm::Value* Make(unsigned nOpcode, llvm::Value* pA, llvm::Value* pB)
    {
        const bool bProduct = nOpcode == llvm::Instruction::Mul;
        if (bProduct ? match(pB, m_One()) : IsZero(pB))
        {
            return pA;
        }
        if ((bProduct && match(pA, m_One())) || (nOpcode == llvm::Instruction::Add && IsZero(pA)))
        {
            return pB;
        }
        if (IsZero(pA) && nOpcode != llvm::Instruction::Sub)
        {
            return pA; // zero times anything, or shifted by anything
        }
        llvm::IRBuilder<> builder(m_pEnd);
        return builder.CreateBinOp(static_cast<llvm::Instruction::BinaryOps>(nOpcode), pA, pB);
    }

    void Replace(const llvm::Loop& loop, llvm::Instruction& term)
    {
        const SLine line = m_mapLines[&term];
        llvm::BasicBlock& latch = *loop.getLoopLatch();
        auto* const pPhi = llvm::PHINode::Create(term.getType(), 2, "", &loop.getHeader()->front());
        auto* const pNext = llvm::BinaryOperator::CreateAdd(pPhi, line.pStep, "", latch.getTerminator());
        pPhi->setDebugLoc(term.getDebugLoc());
        pNext->setDebugLoc(term.getDebugLoc());
        pPhi->addIncoming(line.pStart, loop.getLoopPredecessor());
        pPhi->addIncoming(pNext, &latch);
        term.replaceAllUsesWith(pPhi);
    }

    const llvm::DominatorTree& m_Dominators;
    llvm::LoopInfo m_Loops;
    llvm::DenseMap<const llvm::Instruction*, SLine> m_mapLines; ///< of the current loop
    llvm::Instruction* m_pEnd = nullptr;                        ///< the end of the block before the loop
};

/// Removes instructions whose results aren't read any more.
void RemoveUnread(llvm::Function& kernel)
{
    llvm::SmallVector<llvm::WeakTrackingVH, 16> unread;
    for (llvm::Instruction& instruction : llvm::instructions(kernel))
    {
        if (llvm::isInstructionTriviallyDead(&instruction))
        {
            unread.push_back(&instruction);
        }
    }
    llvm::RecursivelyDeleteTriviallyDeadInstructionsPermissive(unread);
}

} // namespace

void MakeLean(llvm::Function& kernel, bool b64BitAddresses)
{
    llvm::DominatorTree dominators(kernel);
    CompareNextCounts(kernel, dominators);
    TakeComparedValues(kernel);
    CompareShiftedValues(kernel, dominators);
    CProductsToSums(dominators).Run();
    MakeAddressesLean(kernel, dominators, b64BitAddresses);
    RemoveUnread(kernel);
}

} // namespace KestrelOpenCL
