#include "platform/opencl_c/driver/Builtins.h"

#include "platform/opencl_c/driver/EmbeddedFiles.h"

#include <llvm/Bitcode/BitcodeReader.h>
#include <llvm/IR/Module.h>
#include <llvm/Linker/Linker.h>
#include <llvm/Support/MemoryBufferRef.h>

namespace KestrelOpenCL
{
namespace
{

/// Whether the module calls anything that it doesn't define: most small kernels call an id function at least.
bool CallsOut(const llvm::Module& module)
{
    for (const llvm::Function& function : module)
    {
        if (function.isDeclaration() && !function.isIntrinsic() && !function.use_empty())
        {
            return true;
        }
    }
    return false;
}

} // namespace

bool LinkBuiltins(llvm::Module& module, bool b64BitAddresses, std::string& strLog)
{
    const std::string_view bitcode = BuiltinBitcode(b64BitAddresses);
    if (bitcode.empty() || !CallsOut(module))
    {
        return true;
    }
    // Functions are read from the bitcode when the linker moves them, and it moves those that are called only.
    llvm::Expected<std::unique_ptr<llvm::Module>> library = llvm::getLazyBitcodeModule(
        llvm::MemoryBufferRef(llvm::StringRef(bitcode.data(), bitcode.size()), "builtins"), module.getContext(), true);
    if (!library)
    {
        strLog += "error: the built-in functions can't be read: " + llvm::toString(library.takeError()) + "\n";
        return false;
    }
    (*library)->setDataLayout(module.getDataLayout());
    (*library)->setTargetTriple(module.getTargetTriple());
    if (llvm::Linker::linkModules(module, std::move(*library), llvm::Linker::LinkOnlyNeeded))
    {
        strLog += "error: the built-in functions can't be linked\n";
        return false;
    }
    return true;
}

} // namespace KestrelOpenCL
