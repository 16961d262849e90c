#include "platform/opencl_c/driver/IrCompiler.h"

#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>

namespace KestrelOpenCL
{
namespace
{

class COpenCLCompiler : public KestrelPlatform::IOpenCLCompiler
{
public:
    bool Build(const SCompileJob& job, KestrelPlatform::SModule&, std::string& strLog) const override
    {
        llvm::LLVMContext context;
        const std::unique_ptr<llvm::Module> pModule = CompileToIR(context, job, strLog);
        if (pModule)
        {
            strLog += "error: the device's code generator isn't part of this build\n";
        }
        return false;
    }
};

} // namespace
} // namespace KestrelOpenCL

/// The library's one function. The compiler lives as long as the library.
extern "C" __attribute__((visibility("default"))) const KestrelPlatform::IOpenCLCompiler* kestrelOpenCLCFrontEnd()
{
    static const KestrelOpenCL::COpenCLCompiler s_Compiler;
    return &s_Compiler;
}
