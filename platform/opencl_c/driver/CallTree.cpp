#include "platform/opencl_c/driver/CallTree.h"

#include <llvm/ADT/DenseMap.h>
#include <llvm/ADT/DenseSet.h>
#include <llvm/Demangle/Demangle.h>
#include <llvm/IR/DebugInfoMetadata.h>
#include <llvm/IR/InstrTypes.h>
#include <llvm/IR/Module.h>

#include <cstdint>

namespace KestrelOpenCL
{
namespace
{

/// Real kernels are far smaller. A few lines of functions that each call the next one twice can grow beyond it.
const uint64_t s_nMostInstructions = 1'000'000;

/// Functions that the device provides: intrinsics, and those that lowering turns into instructions.
bool IsKnown(const llvm::Function& function)
{
    return function.isIntrinsic() || function.getName().startswith("__il_") ||
           function.getName().startswith("kestrel.") || function.getName() == "printf" ||
           function.getName() == "__translate_sampler_initializer";
}

/// The name as the source has it.
std::string SourceName(const llvm::Function& function)
{
    const std::string strName = llvm::demangle(function.getName().str());
    return strName.substr(0, strName.find('('));
}

std::string Place(const llvm::CallBase& call)
{
    const llvm::DILocation* const pPlace = call.getDebugLoc().get();
    return pPlace == nullptr ? std::string()
                             : pPlace->getFilename().str() + ":" + std::to_string(pPlace->getLine()) + ":" +
                                   std::to_string(pPlace->getColumn()) + ": ";
}

/// A depth-first walk over the calls. It has a stack of its own, as call depth is unlimited.
class CWalk
{
public:
    CWalk(std::vector<llvm::Function*>& vOrder, std::string& strLog) : m_vOrder(vOrder), m_strLog(strLog) {}

    void Take(llvm::Function& root);
    uint64_t Size(const llvm::Function& function) { return m_Sizes[&function]; }
    bool IsOk() const { return m_bOk; }

private:
    struct SFrame
    {
        llvm::Function* pFunction;
        std::vector<llvm::CallBase*> vCalls;
        uint64_t nSize = 0;
    };

    void Enter(llvm::Function& function);
    void Follow(llvm::CallBase& call);
    void Leave();
    void Fail(const std::string& strMessage)
    {
        m_strLog += strMessage + "\n";
        m_bOk = false;
    }

    std::vector<llvm::Function*>& m_vOrder;
    std::string& m_strLog;
    std::vector<SFrame> m_vStack;
    llvm::DenseSet<const llvm::Function*> m_Open; ///< on the stack
    llvm::DenseSet<const llvm::Function*> m_Told; ///< undefined functions that have been reported
    llvm::DenseMap<const llvm::Function*, uint64_t> m_Sizes;
    bool m_bOk = true;
};

void CWalk::Enter(llvm::Function& function)
{
    SFrame frame;
    frame.pFunction = &function;
    for (llvm::BasicBlock& block : function)
    {
        frame.nSize += block.size();
        for (llvm::Instruction& instruction : block)
        {
            if (auto* const pCall = llvm::dyn_cast<llvm::CallBase>(&instruction))
            {
                frame.vCalls.push_back(pCall);
            }
        }
    }
    m_Open.insert(&function);
    m_vStack.push_back(std::move(frame));
}

void CWalk::Leave()
{
    SFrame& frame = m_vStack.back();
    m_Open.erase(frame.pFunction);
    m_Sizes[frame.pFunction] = std::min(frame.nSize, s_nMostInstructions + 1);
    m_vOrder.push_back(frame.pFunction);
    const uint64_t nSize = std::min(frame.nSize, s_nMostInstructions + 1);
    m_vStack.pop_back();
    if (!m_vStack.empty())
    {
        m_vStack.back().nSize += nSize;
    }
}

void CWalk::Follow(llvm::CallBase& call)
{
    llvm::Function* const pCallee = call.getCalledFunction();
    if (pCallee == nullptr)
    {
        if (!call.isInlineAsm())
        {
            Fail(Place(call) + "error: a call through a pointer");
        }
        else
        {
            Fail(Place(call) + "error: assembly isn't part of OpenCL C");
        }
    }
    else if (IsKnown(*pCallee))
    {
        return;
    }
    else if (pCallee->isDeclaration())
    {
        if (m_Told.insert(pCallee).second)
        {
            Fail(Place(call) + "error: function '" + SourceName(*pCallee) + "' is called and nowhere defined");
        }
    }
    else if (m_Open.count(pCallee) != 0)
    {
        Fail(Place(call) + "error: function '" + SourceName(*pCallee) + "' calls itself; OpenCL C has no recursion");
    }
    else if (const auto it = m_Sizes.find(pCallee); it != m_Sizes.end())
    {
        m_vStack.back().nSize += it->second;
    }
    else
    {
        Enter(*pCallee);
    }
}

void CWalk::Take(llvm::Function& root)
{
    if (m_Sizes.count(&root) != 0)
    {
        return;
    }
    Enter(root);
    while (!m_vStack.empty())
    {
        std::vector<llvm::CallBase*>& vCalls = m_vStack.back().vCalls;
        if (vCalls.empty())
        {
            Leave();
            continue;
        }
        llvm::CallBase* const pCall = vCalls.back();
        vCalls.pop_back();
        Follow(*pCall);
    }
}

} // namespace

bool IsKernel(const llvm::Function& function)
{
    return function.getCallingConv() == llvm::CallingConv::SPIR_KERNEL && !function.isDeclaration();
}

bool OrderCalls(llvm::Module& module, std::vector<llvm::Function*>& vOrder, std::string& strLog)
{
    CWalk walk(vOrder, strLog);
    bool bOk = true;
    for (llvm::Function& function : module)
    {
        if (!IsKernel(function))
        {
            continue;
        }
        walk.Take(function);
        if (walk.IsOk() && walk.Size(function) > s_nMostInstructions)
        {
            strLog += "error: kernel " + function.getName().str() + " would have more than " +
                      std::to_string(s_nMostInstructions) + " instructions with its calls inlined\n";
            bOk = false;
        }
    }
    return bOk && walk.IsOk();
}

} // namespace KestrelOpenCL
