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

/// Those of LLVM's passes that pay off here. Only the passes named in the source file are linked.
class CPasses
{
public:
    CPasses();
    ~CPasses();

    /// Simplifies a function after its calls have been inlined and before it is inlined itself, so that less is copied.
    void Simplify(llvm::Function& function);

    /// Optimises a kernel that is complete.
    void Optimize(llvm::Function& kernel);

private:
    struct SManagers;
    std::unique_ptr<SManagers> m_pManagers;
};

} // namespace KestrelOpenCL

#endif
