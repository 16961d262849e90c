#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_PASSES_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_PASSES_H

#include <memory>

namespace llvm
{
class Function;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// LLVM's passes, as far as they pay here. Only those named in the source file are linked.
class CPasses
{
public:
    CPasses();
    ~CPasses();

    /// After a function's calls have been inlined and before it is inlined itself: takes away what needn't be copied.
    void Simplify(llvm::Function& function);

    /// For a kernel that is complete.
    void Optimize(llvm::Function& kernel);

private:
    struct SManagers;
    std::unique_ptr<SManagers> m_pManagers;
};

} // namespace KestrelOpenCL

#endif
