#include "platform/opencl_c/driver/Divisions.h"

#include <llvm/ADT/STLExtras.h>
#include <llvm/IR/Constants.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/Module.h>

namespace KestrelOpenCL
{
namespace
{

struct SDivision
{
    const char* pszFunction;
    llvm::Instruction::BinaryOps eOperation;
};

const SDivision s_Divisions[] = {{"kestrel.udiv.", llvm::Instruction::UDiv},
                                 {"kestrel.sdiv.", llvm::Instruction::SDiv},
                                 {"kestrel.urem.", llvm::Instruction::URem},
                                 {"kestrel.srem.", llvm::Instruction::SRem}};

/// A constant without an element 0 or -1, so that dividing by it is always defined.
bool IsHarmless(const llvm::Value* pDivisor)
{
    const auto IsNumber = [](const llvm::Constant* pConstant)
    {
        const auto* const pNumber = llvm::dyn_cast_or_null<llvm::ConstantInt>(pConstant);
        return pNumber != nullptr && !pNumber->isZero() && !pNumber->isMinusOne();
    };
    const auto* const pConstant = llvm::dyn_cast<llvm::Constant>(pDivisor);
    if (pConstant == nullptr)
    {
        return false;
    }
    const auto* const pVector = llvm::dyn_cast<llvm::FixedVectorType>(pConstant->getType());
    if (pVector == nullptr)
    {
        return IsNumber(pConstant);
    }
    for (unsigned int i = 0; i < pVector->getNumElements(); ++i)
    {
        if (!IsNumber(pConstant->getAggregateElement(i)))
        {
            return false;
        }
    }
    return true;
}

std::string TypeName(const llvm::Type& type)
{
    const auto* const pVector = llvm::dyn_cast<llvm::FixedVectorType>(&type);
    return (pVector != nullptr ? "v" + std::to_string(pVector->getNumElements()) : "") + "i" +
           std::to_string(type.getScalarSizeInBits());
}

llvm::FunctionCallee Declare(llvm::Module& module, const SDivision& division, llvm::Type* pType)
{
    llvm::FunctionCallee callee = module.getOrInsertFunction(division.pszFunction + TypeName(*pType),
                                                             llvm::FunctionType::get(pType, {pType, pType}, false));
    auto* const pFunction = llvm::cast<llvm::Function>(callee.getCallee());
    pFunction->setDoesNotAccessMemory();
    pFunction->setDoesNotThrow();
    pFunction->setWillReturn();
    pFunction->setSpeculatable();
    return callee;
}

void Hide(llvm::BinaryOperator& operation)
{
    const auto* const pDivision = llvm::find_if(s_Divisions, [&](const SDivision& division)
                                                { return division.eOperation == operation.getOpcode(); });
    if (pDivision == std::end(s_Divisions) || IsHarmless(operation.getOperand(1)))
    {
        return;
    }
    llvm::IRBuilder<> builder(&operation);
    llvm::CallInst* const pCall = builder.CreateCall(Declare(*operation.getModule(), *pDivision, operation.getType()),
                                                     {operation.getOperand(0), operation.getOperand(1)});
    operation.replaceAllUsesWith(pCall);
    operation.eraseFromParent();
}

void Show(llvm::CallInst& call, bool bAll)
{
    const llvm::Function* const pCallee = call.getCalledFunction();
    const auto* const pDivision = pCallee == nullptr
                                      ? std::end(s_Divisions)
                                      : llvm::find_if(s_Divisions, [&](const SDivision& division)
                                                      { return pCallee->getName().startswith(division.pszFunction); });
    if (pDivision == std::end(s_Divisions) || (!bAll && !IsHarmless(call.getArgOperand(1))))
    {
        return;
    }
    // Created directly: a builder would fold a division by zero away.
    auto* const pOperation =
        llvm::BinaryOperator::Create(pDivision->eOperation, call.getArgOperand(0), call.getArgOperand(1), "", &call);
    pOperation->setDebugLoc(call.getDebugLoc());
    call.replaceAllUsesWith(pOperation);
    call.eraseFromParent();
}

} // namespace

void HideDivisions(llvm::Module& module)
{
    for (llvm::Function& function : module)
    {
        for (llvm::BasicBlock& block : function)
        {
            for (llvm::Instruction& instruction : llvm::make_early_inc_range(block))
            {
                if (auto* const pOperation = llvm::dyn_cast<llvm::BinaryOperator>(&instruction))
                {
                    Hide(*pOperation);
                }
            }
        }
    }
}

void ShowDivisions(llvm::Function& function, bool bAll)
{
    for (llvm::BasicBlock& block : function)
    {
        for (llvm::Instruction& instruction : llvm::make_early_inc_range(block))
        {
            if (auto* const pCall = llvm::dyn_cast<llvm::CallInst>(&instruction))
            {
                Show(*pCall, bAll);
            }
        }
    }
}

} // namespace KestrelOpenCL
