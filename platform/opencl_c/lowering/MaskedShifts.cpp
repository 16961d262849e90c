#include "platform/opencl_c/lowering/MaskedShifts.h"

#include "platform/opencl_c/lowering/ValueTypes.h"

#include "llvm/IR/InstIterator.h"
#include "llvm/IR/Module.h"
#include "llvm/IR/PatternMatch.h"

namespace KestrelOpenCL
{
namespace
{

using namespace llvm::PatternMatch;

const char s_szMark[] = "kestrel.masked_shift";

/// The amount without the mask of the front end; null for one that has none, and for widths that the device's
/// instructions don't mask.
const llvm::Value* FindUnmasked(const llvm::BinaryOperator& shift)
{
    const unsigned nWidth = shift.getType()->getScalarSizeInBits();
    const llvm::Value* pAmount = nullptr;
    const bool bMasked = (nWidth == s_nWordBits || nWidth == 2 * s_nWordBits) &&
                         match(shift.getOperand(1), m_ZExtOrSelf(m_And(m_Value(pAmount), m_SpecificInt(nWidth - 1)))) &&
                         pAmount->getType()->getScalarSizeInBits() % s_nWordBits == 0;
    return bMasked ? pAmount : nullptr;
}

} // namespace

void MarkMaskedShifts(llvm::Module& module)
{
    for (llvm::Function& function : module)
    {
        for (llvm::Instruction& instruction : llvm::instructions(function))
        {
            if (instruction.isShift() && FindUnmasked(llvm::cast<llvm::BinaryOperator>(instruction)) != nullptr)
            {
                instruction.setMetadata(s_szMark, llvm::MDNode::get(module.getContext(), {}));
            }
        }
    }
}

const llvm::Value* FindShiftAmount(const llvm::BinaryOperator& shift)
{
    // Inlining copies marks, and may put a constant in a masked amount's place.
    const llvm::Value* const pUnmasked = shift.hasMetadata(s_szMark) ? FindUnmasked(shift) : nullptr;
    return pUnmasked != nullptr ? pUnmasked : shift.getOperand(1);
}

} // namespace KestrelOpenCL
