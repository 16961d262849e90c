#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_MASKEDSHIFTS_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_MASKEDSHIFTS_H

namespace llvm
{
class BinaryOperator;
class Module;
class Value;
} // namespace llvm

namespace KestrelOpenCL
{

/// In OpenCL C only the low bits of a shift's amount count. The front end masks the amount accordingly, and the
/// device's instructions do so too. Where nothing is optimised, the program's own shifts are lowered without the front
/// end's mask, so that a check sees an amount that is too large. Those of the built-in functions keep it: they were
/// optimised, and the mask may be one of their own.

/// Marks the shifts of a module that no pass has changed and that has no built-in functions yet.
void MarkMaskedShifts(llvm::Module& module);

/// A marked shift's amount without the mask; the amount as it is for any other shift.
const llvm::Value* FindShiftAmount(const llvm::BinaryOperator& shift);

} // namespace KestrelOpenCL

#endif
