#include "platform/opencl_c/driver/Guard.h"
#include "platform/opencl_c/driver/IrCompiler.h"
#include "platform/opencl_c/driver/ObjectModules.h"
#include "platform/opencl_c/driver/SourceInfo.h"
#include "platform/opencl_c/dwarf/DebugSections.h"
#include "platform/opencl_c/lowering/Lowered.h"

#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/Support/raw_ostream.h>

#include <cstring>

namespace KestrelOpenCL
{
namespace
{

using KestrelPlatform::SModule;

/// Adds what the source says about a kernel to its metadata, then reads the metadata again.
bool AddSourceInfo(SLowered& lowered, std::string& strLog)
{
    for (size_t i = 0; i < lowered.vKernels.size(); ++i)
    {
        KestrelPlatform::SModuleKernel& kernel = lowered.module.vKernels[i];
        const size_t nEnd = kernel.strMetadata.rfind(";ARGEND:");
        kernel.strMetadata.insert(nEnd == std::string::npos ? kernel.strMetadata.size() : nEnd,
                                  SourceInfoLines(*lowered.vKernels[i].pFunction));
        KestrelPlatform::SDiagnostic diag;
        if (!ReadKernelMetadata(kernel.strMetadata, kernel.metadata, diag))
        {
            strLog += "error: " + diag.ToString() + "\n";
            return false;
        }
    }
    return true;
}

/// Lowers a module that is a whole program to the device's form.
bool Finish(llvm::Module& llvmModule, const SCompileJob& job, SModule& module, std::string& strLog)
{
    if (!PrepareForLowering(llvmModule, job, strLog))
    {
        return false;
    }
    std::string strIntermediate;
    if (job.options.bEmitLLVM)
    {
        llvm::raw_string_ostream(strIntermediate) << llvmModule;
    }
    SLowered lowered;
    if (!LowerModule(llvmModule, job.target, job.bDebug, lowered, strLog) || !AddSourceInfo(lowered, strLog))
    {
        return false;
    }
    lowered.module.strIntermediate = std::move(strIntermediate);
    lowered.module.bReadFiles = llvmModule.getNamedMetadata(s_pszReadFiles) != nullptr;
    lowered.module.vDebugSections = WriteDwarf(llvmModule, lowered, !job.bDebug);
    module = std::move(lowered.module);
    return true;
}

class COpenCLCompiler : public KestrelPlatform::IOpenCLCompiler
{
public:
    bool Build(const SCompileJob& job, SModule& module, std::string& strLog) const override
    {
        return RunGuarded(
            [&]
            {
                llvm::LLVMContext context;
                const std::unique_ptr<llvm::Module> pModule = CompileToIR(context, job, strLog);
                return pModule && Finish(*pModule, job, module, strLog);
            },
            strLog);
    }

    bool Compile(const SCompileJob& job, std::string& strObject, bool& bReadFiles, std::string& strLog) const override
    {
        return RunGuarded(
            [&]
            {
                llvm::LLVMContext context;
                const std::unique_ptr<llvm::Module> pModule = CompileToIR(context, job, strLog);
                strObject = pModule ? WriteObject(*pModule) : std::string();
                bReadFiles = pModule && pModule->getNamedMetadata(s_pszReadFiles) != nullptr;
                return pModule != nullptr;
            },
            strLog);
    }

    bool LinkLibrary(const SCompileJob& job, const std::vector<std::string_view>& vObjects, std::string& strObject,
                     std::string& strLog) const override
    {
        return RunGuarded(
            [&]
            {
                llvm::LLVMContext context;
                const std::unique_ptr<llvm::Module> pModule =
                    LinkObjects(context, vObjects, job.target.b64BitAddresses, strLog);
                strObject = pModule ? WriteObject(*pModule) : std::string();
                return pModule != nullptr;
            },
            strLog);
    }

    bool LinkProgram(const SCompileJob& job, const std::vector<std::string_view>& vObjects, SModule& module,
                     std::string& strLog) const override
    {
        return RunGuarded(
            [&]
            {
                llvm::LLVMContext context;
                const std::unique_ptr<llvm::Module> pModule =
                    LinkObjects(context, vObjects, job.target.b64BitAddresses, strLog);
                return pModule && Finish(*pModule, job, module, strLog);
            },
            strLog);
    }
};

} // namespace
} // namespace KestrelOpenCL

/// See SCompilerInterface. The compiler lives as long as the library.
extern "C" __attribute__((visibility("default"))) const KestrelPlatform::IOpenCLCompiler*
kestrelOpenCLCompiler(const KestrelPlatform::SCompilerInterface* pInterface)
{
    static const KestrelOpenCL::COpenCLCompiler s_Compiler;
    const KestrelPlatform::SCompilerInterface own;
    return std::memcmp(pInterface, &own, sizeof own) == 0 ? &s_Compiler : nullptr;
}
