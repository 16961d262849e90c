#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/CFG.h"
#include "llvm/IR/Constants.h"
#include "llvm/IR/DebugInfoMetadata.h"
#include "llvm/IR/Module.h"
#include "llvm/Support/raw_ostream.h"

namespace KestrelOpenCL
{

CSelector::CSelector(llvm::Function& kernel, const KestrelPlatform::SDeviceTarget& target, bool bDebug)
    : m_Kernel(kernel), m_Target(target), m_bDebug(bDebug),
      m_Types(kernel.getParent()->getDataLayout(), target.b64BitAddresses),
      m_Storage(kernel.getParent()->getDataLayout()), m_vParameters(ReadParameters(kernel, target))
{
    for (const SKernelParameter& parameter : m_vParameters)
    {
        m_nSamplerArguments += parameter.eKind == SKernelParameter::Sampler ? 1 : 0;
        m_bLocal = m_bLocal || (parameter.eKind == SKernelParameter::Pointer && parameter.nSpace == SpaceLocal);
    }
}

/// Adds a line to the faults, with its source place if known. \return false
bool CSelector::Fail(const Instruction* pInstruction, const std::string& strWhat)
{
    const llvm::DILocation* const pLocation =
        pInstruction != nullptr && pInstruction->getDebugLoc() ? pInstruction->getDebugLoc().get() : nullptr;
    if (pLocation != nullptr)
    {
        m_strFaults += pLocation->getFilename().str() + ":" + std::to_string(pLocation->getLine()) + ":" +
                       std::to_string(pLocation->getColumn()) + ": ";
    }
    m_strFaults += "error: kernel '" + m_Kernel.getName().str() + "': " + strWhat + "\n";
    return false;
}

bool CSelector::Run(const std::vector<llvm::BasicBlock*>& vBlocks)
{
    for (const llvm::BasicBlock* const pBlock : vBlocks)
    {
        m_mapBlocks.try_emplace(pBlock, m_mapBlocks.size());
    }
    m_Machine.SetBlock(static_cast<unsigned>(vBlocks.size() - 1));
    m_Machine.SetBlock(0);
    m_Code.vConditions.resize(vBlocks.size());
    m_Code.vPredecessors.resize(vBlocks.size());
    FindArrays();
    FindVariables();
    LoadArguments();
    for (const llvm::BasicBlock* const pBlock : vBlocks)
    {
        for (const llvm::PHINode& phi : pBlock->phis())
        {
            const Words words = m_Machine.NewWords(m_Types.CountWords(phi.getType()));
            for (const SWord& word : words)
            {
                m_Machine.Registers()[word.nId].bPhi = true;
                m_Machine.Registers()[word.nId].nDefiningBlock = static_cast<int>(GetBlockNumber(pBlock));
            }
            m_mapValues[&phi] = words;
        }
    }
    for (const llvm::BasicBlock* const pBlock : vBlocks)
    {
        m_Machine.SetBlock(GetBlockNumber(pBlock));
        for (const Instruction& instruction : *pBlock)
        {
            if (!llvm::isa<llvm::PHINode>(instruction) && !instruction.isTerminator())
            {
                Select(instruction);
            }
        }
        SelectTerminator(*pBlock);
    }
    for (const llvm::BasicBlock* const pBlock : vBlocks)
    {
        CollectCopies(*pBlock);
    }
    return m_strFaults.empty();
}

void CSelector::Select(const Instruction& instruction)
{
    m_Machine.SetLocation(instruction.getDebugLoc().get());
    if (const auto* p = llvm::dyn_cast<llvm::BinaryOperator>(&instruction))
    {
        return SelectBinary(*p);
    }
    if (const auto* p = llvm::dyn_cast<llvm::CastInst>(&instruction))
    {
        return SelectCast(*p);
    }
    switch (instruction.getOpcode())
    {
    case Instruction::FNeg:
        return SelectFNeg(llvm::cast<llvm::UnaryOperator>(instruction));
    case Instruction::ICmp:
        return SelectICmp(llvm::cast<llvm::ICmpInst>(instruction));
    case Instruction::FCmp:
        return SelectFCmp(llvm::cast<llvm::FCmpInst>(instruction));
    case Instruction::Select:
        return SelectSelect(llvm::cast<llvm::SelectInst>(instruction));
    case Instruction::ExtractElement:
        return SelectExtractElement(llvm::cast<llvm::ExtractElementInst>(instruction));
    case Instruction::InsertElement:
        return SelectInsertElement(llvm::cast<llvm::InsertElementInst>(instruction));
    case Instruction::ShuffleVector:
        return SelectShuffle(llvm::cast<llvm::ShuffleVectorInst>(instruction));
    case Instruction::ExtractValue:
        return SelectExtractValue(llvm::cast<llvm::ExtractValueInst>(instruction));
    case Instruction::InsertValue:
        return SelectInsertValue(llvm::cast<llvm::InsertValueInst>(instruction));
    case Instruction::GetElementPtr:
        return SelectGetElementPtr(llvm::cast<llvm::GetElementPtrInst>(instruction));
    case Instruction::Load:
        return SelectLoad(llvm::cast<llvm::LoadInst>(instruction));
    case Instruction::Store:
        return SelectStore(llvm::cast<llvm::StoreInst>(instruction));
    case Instruction::AtomicRMW:
        return SelectAtomic(llvm::cast<llvm::AtomicRMWInst>(instruction));
    case Instruction::AtomicCmpXchg:
        return SelectCompareExchange(llvm::cast<llvm::AtomicCmpXchgInst>(instruction));
    case Instruction::Call:
        return SelectCall(llvm::cast<llvm::CallInst>(instruction));
    case Instruction::Alloca:
        if (FindVariable(&instruction) == nullptr && FindArrayPointer(&instruction) == nullptr)
        {
            const auto& variable = llvm::cast<llvm::AllocaInst>(instruction);
            m_mapValues[&instruction] = {LiteralWord(m_Storage.GetPrivate(variable))};
        }
        return;
    case Instruction::Freeze:
    {
        Words words = Get(instruction.getOperand(0));
        for (SWord& word : words)
        {
            word = word.eKind == SWord::Undefined ? LiteralWord(0) : word;
        }
        m_mapValues[&instruction] = words;
        return;
    }
    case Instruction::Fence:
        m_Machine.Add(
            [this]
            {
                SInstruction fence = m_Machine.Make("fence_lds_memory");
                fence.bKeep = true;
                return fence;
            }());
        return;
    default:
        Fail(&instruction, std::string("no translation of ") + instruction.getOpcodeName());
    }
}

void CSelector::SelectTerminator(const llvm::BasicBlock& block)
{
    const Instruction* const pTerminator = block.getTerminator();
    m_Machine.SetLocation(pTerminator->getDebugLoc().get());
    if (const auto* pBranch = llvm::dyn_cast<llvm::BranchInst>(pTerminator))
    {
        if (pBranch->isConditional())
        {
            m_Code.vConditions[m_Machine.GetBlock()] = MakeCondition(pBranch->getCondition());
        }
    }
    else if (const auto* pSwitch = llvm::dyn_cast<llvm::SwitchInst>(pTerminator))
    {
        SWord word = GetWord(pSwitch->getCondition());
        word = word.eKind == SWord::Undefined ? LiteralWord(0) : word;
        m_Code.vConditions[m_Machine.GetBlock()].word = word;
    }
    m_Code.vConditions[m_Machine.GetBlock()].pLocation = m_Machine.GetLocation();
}

/// A branch tests whether a word is 0. Often there is such a word already, and no comparison is needed.
SCondition CSelector::MakeCondition(const Value* pCondition)
{
    SCondition condition;
    while (const auto* pNot = llvm::dyn_cast<llvm::BinaryOperator>(pCondition))
    {
        const auto* const pOnes = llvm::dyn_cast<llvm::ConstantInt>(pNot->getOperand(1));
        if (pNot->getOpcode() != Instruction::Xor || pOnes == nullptr || !pOnes->isOne())
        {
            break;
        }
        condition.bInvert = !condition.bInvert;
        pCondition = pNot->getOperand(0);
    }
    if (const auto* pCompare = llvm::dyn_cast<llvm::ICmpInst>(pCondition))
    {
        const auto* const pZero = llvm::dyn_cast<llvm::ConstantInt>(pCompare->getOperand(1));
        const Words words = Get(pCompare->getOperand(0));
        if (pCompare->isEquality() && pZero != nullptr && pZero->isZero() && words.size() == 1)
        {
            condition.bInvert = condition.bInvert != (pCompare->getPredicate() == llvm::CmpInst::ICMP_EQ);
            condition.word = words[0];
            return condition;
        }
    }
    const auto* const pTrunc = llvm::dyn_cast<llvm::TruncInst>(pCondition);
    condition.word = pTrunc != nullptr ? m_Machine.One("iand", {GetWord(pTrunc->getOperand(0)), LiteralWord(1)})
                                       : GetWord(pCondition);
    if (condition.word.eKind == SWord::Undefined)
    {
        condition.word = LiteralWord(0);
    }
    return condition;
}

void CSelector::CollectCopies(const llvm::BasicBlock& block)
{
    const unsigned nTo = GetBlockNumber(&block);
    for (const llvm::BasicBlock* const pFrom : llvm::predecessors(&block))
    {
        llvm::SmallVectorImpl<unsigned>& vPredecessors = m_Code.vPredecessors[nTo];
        if (m_mapBlocks.count(pFrom) == 0 || llvm::is_contained(vPredecessors, GetBlockNumber(pFrom)))
        {
            continue;
        }
        SEdge edge;
        edge.nFrom = GetBlockNumber(pFrom);
        edge.nTo = nTo;
        edge.pLocation = pFrom->getTerminator()->getDebugLoc().get();
        vPredecessors.push_back(edge.nFrom);
        m_Machine.SetBlock(edge.nFrom);
        m_Machine.SetLocation(edge.pLocation);
        for (const llvm::PHINode& phi : block.phis())
        {
            const Words& to = m_mapValues[&phi];
            const Words from = Get(phi.getIncomingValueForBlock(pFrom));
            for (size_t n = 0; n < to.size(); ++n)
            {
                if (from[n].eKind != SWord::Undefined)
                {
                    edge.to.push_back(to[n]);
                    edge.from.push_back(from[n]);
                }
            }
        }
        if (!edge.to.empty())
        {
            m_Code.vEdges.push_back(edge);
        }
    }
}

} // namespace KestrelOpenCL
