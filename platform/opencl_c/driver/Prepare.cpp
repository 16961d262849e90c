#include "platform/opencl_c/driver/CallTree.h"
#include "platform/opencl_c/driver/Divisions.h"
#include "platform/opencl_c/driver/ExpandPrintf.h"
#include "platform/opencl_c/driver/IrCompiler.h"
#include "platform/opencl_c/driver/LinkBuiltins.h"
#include "platform/opencl_c/driver/Passes.h"
#include "platform/opencl_c/lowering/MaskedShifts.h"

#include <llvm/ADT/SmallVector.h>
#include <llvm/IR/DebugInfoMetadata.h>
#include <llvm/IR/InstIterator.h>
#include <llvm/IR/InstrTypes.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/Module.h>
#include <llvm/Transforms/Utils/Cloning.h>

namespace KestrelOpenCL
{
namespace
{

/// Tells LLVM the device's integer widths, so that passes don't create others.
void NameNativeIntegers(llvm::Module& module)
{
    module.setDataLayout(module.getDataLayoutStr() + "-n8:16:32:64");
}

/// Clang marks every function as convergent: all work-items must call it together. Functions that access no memory
/// don't need that; without the mark they may be moved out of loops.
void DropConvergence(llvm::Module& module)
{
    for (llvm::Function& function : module)
    {
        if (!function.isDeclaration() || !function.doesNotAccessMemory())
        {
            continue;
        }
        function.removeFnAttr(llvm::Attribute::Convergent);
        for (llvm::User* const pUser : function.users())
        {
            if (auto* const pCall = llvm::dyn_cast<llvm::CallBase>(pUser))
            {
                pCall->removeFnAttr(llvm::Attribute::Convergent);
            }
        }
    }
}

/// Inlines every call of a function, after the same was done to its callees.
bool InlineCalls(llvm::Function& function, std::string& strLog)
{
    llvm::SmallVector<llvm::CallBase*, 16> calls;
    for (llvm::BasicBlock& block : function)
    {
        for (llvm::Instruction& instruction : block)
        {
            auto* const pCall = llvm::dyn_cast<llvm::CallBase>(&instruction);
            const llvm::Function* const pCallee = pCall != nullptr ? pCall->getCalledFunction() : nullptr;
            if (pCallee != nullptr && !pCallee->isDeclaration())
            {
                calls.push_back(pCall);
            }
        }
    }
    for (llvm::CallBase* const pCall : calls)
    {
        const std::string strCallee = pCall->getCalledFunction()->getName().str();
        llvm::InlineFunctionInfo info;
        const llvm::InlineResult result = llvm::InlineFunction(*pCall, info);
        if (!result.isSuccess())
        {
            strLog += "error: the call of " + strCallee + " can't be inlined: " + result.getFailureReason() + "\n";
            return false;
        }
    }
    return true;
}

/// Clang gives no line to the instructions that store arguments into parameters. In an inlined function they are part
/// of the call and get the call's line: otherwise they would count as part of the line before it. Until the function is
/// inlined, line 0 marks them.
void PlaceArguments(llvm::Function& function)
{
    for (llvm::Instruction& instruction : llvm::instructions(function))
    {
        const llvm::DILocation* const pPlace = instruction.getDebugLoc().get();
        if (pPlace != nullptr && pPlace->getLine() == 0 && pPlace->getInlinedAt() != nullptr)
        {
            instruction.setDebugLoc(pPlace->getInlinedAt());
        }
    }
    for (llvm::Instruction& instruction : function.getEntryBlock())
    {
        const auto* const pStore = llvm::dyn_cast<llvm::StoreInst>(&instruction);
        const bool bParameter = pStore != nullptr && llvm::isa<llvm::Argument>(pStore->getValueOperand());
        if (bParameter && !instruction.getDebugLoc() && function.getSubprogram() != nullptr && !IsKernel(function))
        {
            instruction.setDebugLoc(llvm::DILocation::get(function.getContext(), 0, 0, function.getSubprogram()));
        }
    }
}

/// Drops attributes about inlining and optimisation, which don't matter once only kernels are left.
void DropHints(llvm::Function& function)
{
    function.removeFnAttr(llvm::Attribute::OptimizeNone);
    function.removeFnAttr(llvm::Attribute::NoInline);
}

/// Removes everything but the kernels and what they use.
void RemoveUnused(llvm::Module& module)
{
    bool bChanged = true;
    while (bChanged)
    {
        bChanged = false;
        for (llvm::Function& function : llvm::make_early_inc_range(module))
        {
            function.removeDeadConstantUsers();
            if (!IsKernel(function) && function.use_empty())
            {
                function.eraseFromParent();
                bChanged = true;
            }
        }
        for (llvm::GlobalVariable& variable : llvm::make_early_inc_range(module.globals()))
        {
            variable.removeDeadConstantUsers();
            if (variable.use_empty())
            {
                variable.eraseFromParent();
                bChanged = true;
            }
        }
    }
}

} // namespace

bool PrepareForLowering(llvm::Module& module, const SCompileJob& job, std::string& strLog)
{
    const bool bOptimize = !job.bDebug && !job.options.bOptDisable;
    if (bOptimize)
    {
        HideDivisions(module);
    }
    else
    {
        MarkMaskedShifts(module);
    }
    std::vector<llvm::Function*> vOrder;
    if (!LinkBuiltins(module, job.target.b64BitAddresses, strLog) || !OrderCalls(module, vOrder, strLog))
    {
        return false;
    }
    NameNativeIntegers(module);
    DropConvergence(module);
    CPasses passes;
    for (llvm::Function* const pFunction : vOrder)
    {
        DropHints(*pFunction);
        if (!InlineCalls(*pFunction, strLog))
        {
            return false;
        }
        if (job.bDebug)
        {
            PlaceArguments(*pFunction);
        }
        if (IsKernel(*pFunction) && !ExpandPrintf(*pFunction, strLog))
        {
            return false;
        }
        if (bOptimize)
        {
            IsKernel(*pFunction) ? passes.Optimize(*pFunction) : passes.Simplify(*pFunction);
        }
    }
    RemoveUnused(module);
    return true;
}

} // namespace KestrelOpenCL
