#ifndef KESTREL_TESTS_OPENCL_C_STRUCTURE_REGIONWALK_H
#define KESTREL_TESTS_OPENCL_C_STRUCTURE_REGIONWALK_H

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/opencl_c/structure/Regions.h"
#include "llvm/IR/CFG.h"
#include "llvm/IR/Constants.h"
#include "llvm/IR/Instructions.h"

namespace KestrelTests
{

/// The path of one work-item.
struct SWalk
{
    std::vector<const llvm::BasicBlock*> vBlocks;
    bool bEnded = false;
    std::string strFault;
};

/// The values of conditions, the same for every walk with one seed. Asked once for each block on the path.
class CChoices
{
public:
    explicit CChoices(unsigned int nSeed) : m_Random(nSeed) {}

    /// The value of the block's condition; for a switch 64 bits.
    uint64_t Take(const llvm::BasicBlock& block)
    {
        const auto nRandom = static_cast<unsigned int>(m_Random());
        const auto* pSwitch = llvm::dyn_cast<llvm::SwitchInst>(block.getTerminator());
        if (!pSwitch)
        {
            return nRandom & 1;
        }
        const unsigned int nCase = nRandom % (pSwitch->getNumCases() + 1);
        return nCase == pSwitch->getNumCases() ? 0x9999999977777777
                                               : (pSwitch->case_begin() + nCase)->getCaseValue()->getZExtValue();
    }

private:
    std::mt19937 m_Random;
};

inline const llvm::BasicBlock* NextBlock(const llvm::BasicBlock& block, uint64_t nValue)
{
    const llvm::Instruction* pTerminator = block.getTerminator();
    if (const auto* pBranch = llvm::dyn_cast<llvm::BranchInst>(pTerminator))
    {
        return pBranch->getSuccessor(pBranch->isConditional() && nValue == 0 ? 1 : 0);
    }
    if (const auto* pSwitch = llvm::dyn_cast<llvm::SwitchInst>(pTerminator))
    {
        for (const auto& entry : pSwitch->cases())
        {
            if (entry.getCaseValue()->getZExtValue() == nValue)
            {
                return entry.getCaseSuccessor();
            }
        }
        return pSwitch->getDefaultDest();
    }
    return nullptr;
}

inline SWalk WalkFunction(const llvm::Function& function, unsigned int nSeed, size_t nLimit)
{
    SWalk walk;
    CChoices choices(nSeed);
    const llvm::BasicBlock* pBlock = &function.getEntryBlock();
    for (; pBlock && walk.vBlocks.size() < nLimit; pBlock = NextBlock(*pBlock, choices.Take(*pBlock)))
    {
        walk.vBlocks.push_back(pBlock);
    }
    walk.bEnded = !pBlock;
    return walk;
}

/// Executes the steps of a function like IL. Besides the path it checks what every lowering relies on: guards are set
/// before they are read, conditions are those of the block just left, and the copies into a block's phis ran last on
/// the edge by which it was reached.
class CRegionWalk
{
public:
    explicit CRegionWalk(const KestrelOpenCL::SRegions& regions) : m_vSteps(regions.vSteps)
    {
        m_vGuards.assign(regions.nGuards, Unset);
        FindEnds();
    }

    /// Blocks that don't nest, edges or blocks that occur twice.
    const std::string& GetShapeFault() const { return m_strShapeFault; }
    const std::set<const llvm::BasicBlock*>& GetBlocks() const { return m_setBlocks; }

    SWalk Run(unsigned int nSeed, size_t nLimit)
    {
        SWalk walk;
        CChoices choices(nSeed);
        uint64_t nValue = 0;
        size_t nSinceBlock = 0;
        std::map<const llvm::BasicBlock*, const llvm::BasicBlock*> mapCopiedFrom;
        for (size_t n = 0; n < m_vSteps.size() && walk.vBlocks.size() < nLimit;)
        {
            const KestrelOpenCL::SRegionStep& step = m_vSteps[n];
            const llvm::BasicBlock* pLast = walk.vBlocks.empty() ? nullptr : walk.vBlocks.back();
            if (++nSinceBlock > m_vSteps.size() * 2)
            {
                walk.strFault = "goes in circles without a block";
                return walk;
            }
            switch (step.eKind)
            {
            case KestrelOpenCL::SRegionStep::Block:
                if (llvm::isa<llvm::PHINode>(step.pBlock->front()) && mapCopiedFrom[step.pBlock] != pLast)
                {
                    walk.strFault = "no copies for the phis of a block";
                }
                walk.vBlocks.push_back(step.pBlock);
                nValue = choices.Take(*step.pBlock);
                nSinceBlock = 0;
                break;
            case KestrelOpenCL::SRegionStep::Edge:
                mapCopiedFrom[step.pTo] = step.pBlock;
                break;
            case KestrelOpenCL::SRegionStep::SetGuard:
                m_vGuards[step.nGuard] = step.bValue ? True : False;
                break;
            case KestrelOpenCL::SRegionStep::If:
                if (step.nGuard < 0 ? step.pBlock != pLast : m_vGuards[step.nGuard] == Unset)
                {
                    walk.strFault = "a condition that hasn't been computed";
                }
                if (step.bValue != (step.nGuard < 0 ? nValue != 0 : m_vGuards[step.nGuard] == True))
                {
                    n = m_vElse[n];
                }
                break;
            case KestrelOpenCL::SRegionStep::Else:
            case KestrelOpenCL::SRegionStep::Break:
            case KestrelOpenCL::SRegionStep::EndLoop:
            case KestrelOpenCL::SRegionStep::Continue:
                n = m_vTarget[n];
                continue;
            case KestrelOpenCL::SRegionStep::Switch:
                if (step.pBlock != pLast)
                {
                    walk.strFault = "a selector that hasn't been computed";
                }
                n = FindCase(n, nValue);
                break;
            case KestrelOpenCL::SRegionStep::Return:
                walk.bEnded = true;
                return walk;
            default:
                break;
            }
            if (!walk.strFault.empty())
            {
                return walk;
            }
            ++n;
        }
        return walk;
    }

private:
    enum EGuard
    {
        Unset,
        False,
        True
    };

    size_t FindCase(size_t nSwitch, uint64_t nValue) const
    {
        size_t nDefault = m_vTarget[nSwitch];
        for (size_t n : m_vCases[nSwitch])
        {
            for (const llvm::ConstantInt* pValue : m_vSteps[n].vCases)
            {
                if (pValue->getZExtValue() == (nValue & 0xFFFFFFFFU))
                {
                    return n;
                }
            }
            nDefault = m_vSteps[n].bValue ? n : nDefault;
        }
        return nDefault;
    }

    void FindEnds()
    {
        using KestrelOpenCL::SRegionStep;
        m_vElse.assign(m_vSteps.size(), 0);
        m_vTarget.assign(m_vSteps.size(), 0);
        m_vCases.assign(m_vSteps.size(), {});
        std::vector<size_t> vOpen;
        std::vector<std::vector<size_t>> vJumps(m_vSteps.size()); // to the end of the block, by its opening step
        std::set<std::pair<const void*, const void*>> setEdges;
        const auto Innermost = [&](bool bSwitchesToo)
        {
            for (size_t n = vOpen.size(); n-- > 0;)
            {
                const auto eKind = m_vSteps[vOpen[n]].eKind;
                if (eKind == SRegionStep::Loop || (bSwitchesToo && eKind == SRegionStep::Switch))
                {
                    return vOpen[n];
                }
            }
            m_strShapeFault = "a jump outside of loops";
            return size_t(0);
        };
        for (size_t n = 0; n < m_vSteps.size() && m_strShapeFault.empty(); ++n)
        {
            const SRegionStep& step = m_vSteps[n];
            const auto OpenIs = [&](SRegionStep::EKind eKind)
            { return !vOpen.empty() && m_vSteps[vOpen.back()].eKind == eKind; };
            bool bNests = true;
            switch (step.eKind)
            {
            case SRegionStep::Block:
                bNests = m_setBlocks.insert(step.pBlock).second;
                break;
            case SRegionStep::Edge:
                bNests = setEdges.insert({step.pBlock, step.pTo}).second;
                break;
            case SRegionStep::If:
            case SRegionStep::Loop:
            case SRegionStep::Switch:
                vOpen.push_back(n);
                break;
            case SRegionStep::Else:
                bNests = OpenIs(SRegionStep::If) && m_vElse[vOpen.back()] == 0;
                if (bNests)
                {
                    m_vElse[vOpen.back()] = n;
                    vJumps[vOpen.back()].push_back(n);
                }
                break;
            case SRegionStep::Case:
                bNests = OpenIs(SRegionStep::Switch);
                if (bNests)
                {
                    m_vCases[vOpen.back()].push_back(n);
                }
                break;
            case SRegionStep::EndIf:
            case SRegionStep::EndLoop:
            case SRegionStep::EndSwitch:
                bNests = OpenIs(step.eKind == SRegionStep::EndIf     ? SRegionStep::If
                                : step.eKind == SRegionStep::EndLoop ? SRegionStep::Loop
                                                                     : SRegionStep::Switch);
                if (bNests)
                {
                    const size_t nOpen = vOpen.back();
                    vOpen.pop_back();
                    for (size_t nJump : vJumps[nOpen])
                    {
                        m_vTarget[nJump] = n + 1;
                    }
                    m_vElse[nOpen] = m_vElse[nOpen] == 0 ? n : m_vElse[nOpen];
                    m_vTarget[nOpen] = n;
                    m_vTarget[n] = nOpen;
                }
                break;
            case SRegionStep::Break:
                vJumps[Innermost(true)].push_back(n);
                break;
            case SRegionStep::Continue:
                m_vTarget[n] = Innermost(false);
                break;
            case SRegionStep::Return:
                bNests = n + 1 == m_vSteps.size() && vOpen.empty();
                break;
            default:
                break;
            }
            if (!bNests)
            {
                m_strShapeFault = "step " + std::to_string(n) + " is out of place";
            }
        }
    }

    const std::vector<KestrelOpenCL::SRegionStep>& m_vSteps;
    std::vector<EGuard> m_vGuards;
    std::vector<size_t> m_vElse;   ///< for an If: its Else or EndIf
    std::vector<size_t> m_vTarget; ///< a jump's target; an opening step's end
    std::vector<std::vector<size_t>> m_vCases;
    std::set<const llvm::BasicBlock*> m_setBlocks;
    std::string m_strShapeFault;
};

} // namespace KestrelTests

#endif
