#ifndef KESTREL_TESTS_OPENCL_C_STRUCTURE_TESTGRAPH_H
#define KESTREL_TESTS_OPENCL_C_STRUCTURE_TESTGRAPH_H

#include <cctype>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "llvm/IR/CFG.h"
#include "llvm/IR/Function.h"
#include "llvm/IR/IRBuilder.h"
#include "llvm/IR/LLVMContext.h"
#include "llvm/IR/Module.h"

namespace KestrelTests
{

/// A block of a graph.
struct STestBlock
{
    enum EKind
    {
        Jump,   ///< to vTargets[0]
        Branch, ///< to vTargets[0] if true, else [1]
        Switch, ///< vCases[n] leads to vTargets[n + 1], all else to [0]
        Return,
        Unreachable
    };
    EKind eKind = Return;
    std::vector<int> vTargets;
    std::vector<int64_t> vCases;
    std::string strName;
    bool bPhi = false;
    bool bBarrier = false;
    unsigned int nSwitchBits = 32; ///< 1, 32 or 64
};

/// A function with a given control flow.
class CTestGraph
{
public:
    explicit CTestGraph(const std::vector<STestBlock>& vBlocks) : m_pModule(new llvm::Module("graph", m_Context))
    {
        llvm::IRBuilder<> builder(m_Context);
        auto* pBarrierType = llvm::FunctionType::get(builder.getVoidTy(), false);
        auto* pBarrier = llvm::Function::Create(pBarrierType, llvm::Function::ExternalLinkage, "barrier", *m_pModule);
        pBarrier->setConvergent();
        auto* pType = llvm::FunctionType::get(builder.getVoidTy(),
                                              {builder.getInt1Ty(), builder.getInt32Ty(), builder.getInt64Ty()}, false);
        m_pFunction = llvm::Function::Create(pType, llvm::Function::ExternalLinkage, "f", *m_pModule);
        std::vector<llvm::BasicBlock*> vMade;
        for (const STestBlock& block : vBlocks)
        {
            vMade.push_back(llvm::BasicBlock::Create(m_Context, block.strName, m_pFunction));
        }
        for (size_t n = 0; n < vBlocks.size(); ++n)
        {
            builder.SetInsertPoint(vMade[n]);
            if (vBlocks[n].bBarrier)
            {
                builder.CreateCall(pBarrier)->setConvergent();
            }
            AddTerminator(builder, vBlocks[n], vMade);
        }
        for (size_t n = 1; n < vBlocks.size(); ++n)
        {
            if (vBlocks[n].bPhi && llvm::pred_begin(vMade[n]) != llvm::pred_end(vMade[n]))
            {
                builder.SetInsertPoint(vMade[n], vMade[n]->begin());
                auto* pPhi = builder.CreatePHI(builder.getInt32Ty(), 2);
                for (llvm::BasicBlock* pPred : llvm::predecessors(vMade[n]))
                {
                    pPhi->addIncoming(builder.getInt32(0), pPred);
                }
            }
        }
    }

    llvm::Function& GetFunction() { return *m_pFunction; }

    /// Parses a text like "a?b:c b>d c[1:d 2:d e] d* e.": branch, jump, switch with its default last, return; "/" is
    /// unreachable. A "*" before that means a phi, a "!" a barrier.
    static std::vector<STestBlock> Parse(const std::string& strText)
    {
        std::vector<STestBlock> vBlocks;
        std::map<std::string, int> mapNames;
        const auto Find = [&](const std::string& strName)
        {
            const auto [it, bNew] = mapNames.insert({strName, static_cast<int>(vBlocks.size())});
            if (bNew)
            {
                vBlocks.emplace_back();
                vBlocks.back().strName = strName;
            }
            return it->second;
        };
        std::istringstream stream(strText);
        const auto Name = [&]
        {
            std::string strName;
            stream >> std::ws;
            while (std::isalnum(stream.peek()))
            {
                strName += static_cast<char>(stream.get());
            }
            return strName;
        };
        while (stream >> std::ws && stream.peek() != std::char_traits<char>::eof())
        {
            const int nBlock = Find(Name());
            STestBlock block = vBlocks[nBlock];
            char cMark = static_cast<char>(stream.get());
            for (; cMark == '*' || cMark == '!'; cMark = static_cast<char>(stream.get()))
            {
                (cMark == '*' ? block.bPhi : block.bBarrier) = true;
            }
            switch (cMark)
            {
            case '?':
                block.eKind = STestBlock::Branch;
                block.vTargets.push_back(Find(Name()));
                stream.get();
                block.vTargets.push_back(Find(Name()));
                break;
            case '>':
                block.eKind = STestBlock::Jump;
                block.vTargets.push_back(Find(Name()));
                break;
            case '[':
                block.eKind = STestBlock::Switch;
                block.vTargets.push_back(0);
                for (std::string strName = Name(); stream.peek() == ':'; strName = Name())
                {
                    stream.get();
                    block.vCases.push_back(std::stoll(strName));
                    block.vTargets.push_back(Find(Name()));
                    stream >> std::ws;
                    if (stream.peek() == ']')
                    {
                        break;
                    }
                    const auto nPlace = stream.tellg();
                    const std::string strNext = Name();
                    if (stream.peek() != ':')
                    {
                        block.vTargets[0] = Find(strNext);
                        break;
                    }
                    stream.seekg(nPlace);
                }
                stream >> std::ws;
                stream.get();
                break;
            case '/':
                block.eKind = STestBlock::Unreachable;
                break;
            default:
                break;
            }
            vBlocks[nBlock] = block;
        }
        return vBlocks;
    }

private:
    void AddTerminator(llvm::IRBuilder<>& builder, const STestBlock& block, const std::vector<llvm::BasicBlock*>& vMade)
    {
        switch (block.eKind)
        {
        case STestBlock::Jump:
            builder.CreateBr(vMade[block.vTargets[0]]);
            break;
        case STestBlock::Branch:
            builder.CreateCondBr(m_pFunction->getArg(0), vMade[block.vTargets[0]], vMade[block.vTargets[1]]);
            break;
        case STestBlock::Switch:
        {
            llvm::IntegerType* pType = builder.getIntNTy(block.nSwitchBits);
            const unsigned int nArgument = block.nSwitchBits == 1 ? 0 : block.nSwitchBits == 32 ? 1 : 2;
            auto* pSwitch = builder.CreateSwitch(m_pFunction->getArg(nArgument), vMade[block.vTargets[0]]);
            for (size_t n = 0; n < block.vCases.size(); ++n)
            {
                pSwitch->addCase(llvm::ConstantInt::get(pType, static_cast<uint64_t>(block.vCases[n])),
                                 vMade[block.vTargets[n + 1]]);
            }
            break;
        }
        case STestBlock::Return:
            builder.CreateRetVoid();
            break;
        case STestBlock::Unreachable:
            builder.CreateUnreachable();
            break;
        }
    }

    llvm::LLVMContext m_Context;
    std::unique_ptr<llvm::Module> m_pModule;
    llvm::Function* m_pFunction = nullptr;
};

} // namespace KestrelTests

#endif
