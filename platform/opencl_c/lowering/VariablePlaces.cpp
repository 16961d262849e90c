#include "platform/opencl_c/lowering/VariablePlaces.h"

#include "llvm/IR/DebugInfoMetadata.h"
#include "llvm/IR/InstIterator.h"

namespace KestrelOpenCL
{
namespace
{

/// \return false for a variable without a place: an image, a sampler, or one whose address wasn't found
bool FindPlace(const llvm::Value* pAddress, const CSelector& selector, const SAllocation& allocation,
               SVariablePlace& place)
{
    const auto* const pVariable = llvm::dyn_cast_or_null<llvm::AllocaInst>(pAddress);
    const auto it = selector.GetVariables().find(const_cast<llvm::AllocaInst*>(pVariable));
    if (pVariable == nullptr || it == selector.GetVariables().end())
    {
        place.eKind = SVariablePlace::Private;
        return pAddress != nullptr && selector.FindPrivate(pAddress, place.nOffset);
    }
    const SRegisterVariable& variable = it->second;
    if (variable.pArgument != nullptr)
    {
        const SKernelParameter& parameter = selector.GetParameters()[variable.pArgument->getArgNo()];
        place.eKind = SVariablePlace::ConstantBuffer;
        place.nOffset = parameter.nOffset;
        return parameter.eKind == SKernelParameter::Value || parameter.eKind == SKernelParameter::Pointer;
    }
    place.eKind = SVariablePlace::Register;
    for (const SWord& word : variable.words)
    {
        const STemp& temp = allocation.vTemps[word.nId];
        place.vComponents.push_back(temp.nRegister * 4 + temp.nComponent + word.nComponent);
    }
    return true;
}

} // namespace

void AddVariablePlaces(const llvm::Function& kernel, const CSelector& selector, const SAllocation& allocation,
                       const SLoweredKernel& lines, SLowered& lowered)
{
    for (const llvm::Instruction& instruction : llvm::instructions(kernel))
    {
        const auto* const pDeclare = llvm::dyn_cast<llvm::DbgDeclareInst>(&instruction);
        SVariablePlace place;
        if (pDeclare == nullptr || !FindPlace(pDeclare->getAddress(), selector, allocation, place))
        {
            continue;
        }
        place.pVariable = pDeclare->getVariable();
        place.pInlinedAt = pDeclare->getDebugLoc().getInlinedAt();
        place.pKernel = &kernel;
        place.nFirstLine = lines.nFirst;
        place.nLastLine = lines.nLast;
        lowered.vVariables.push_back(std::move(place));
    }
    for (const auto& [pVariable, nOffset] : selector.GetStorage().GetLocals())
    {
        lowered.vLocals.push_back({pVariable, &kernel, nOffset});
    }
}

} // namespace KestrelOpenCL
