#include "platform/opencl_c/driver/IrCompiler.h"

#include "platform/opencl_c/driver/EmbeddedFiles.h"

#include <clang/Basic/Builtins.h>
#include <clang/Basic/TargetInfo.h>
#include <clang/CodeGen/ModuleBuilder.h>
#include <clang/Frontend/CompilerInstance.h>
#include <clang/Frontend/FrontendActions.h>
#include <clang/Frontend/TextDiagnosticPrinter.h>
#include <clang/Lex/Preprocessor.h>
#include <clang/Parse/ParseAST.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/Support/VirtualFileSystem.h>

namespace KestrelOpenCL
{
namespace
{

const char* const s_pszSourceName = "kernel.cl";
const char* const s_pszHeaderFolder = "/kestrel-headers";

/// What clang calls the device: 64-bit addresses or 32-bit ones.
const char* Triple(const KestrelPlatform::SDeviceTarget& target)
{
    return target.b64BitAddresses ? "spir64-unknown-unknown" : "spir-unknown-unknown";
}

std::vector<std::string> Arguments(const SCompileJob& job)
{
    std::vector<std::string> vArguments = {"-triple",
                                           Triple(job.target),
                                           "-emit-llvm-only",
                                           "-cl-std=CL1.2",
                                           "-fdeclare-opencl-builtins",
                                           "-finclude-default-header",
                                           "-fgnu89-inline",
                                           "-cl-kernel-arg-info",
                                           "-cl-ext=-all,+cl_khr_fp64,+cl_khr_byte_addressable_store,"
                                           "+cl_khr_global_int32_base_atomics,+cl_khr_global_int32_extended_atomics,"
                                           "+cl_khr_local_int32_base_atomics,+cl_khr_local_int32_extended_atomics,"
                                           "+cl_khr_3d_image_writes",
                                           "-D__ENDIAN_LITTLE__=1",
                                           "-D__IMAGE_SUPPORT__=1",
                                           "-disable-llvm-passes",
                                           "-O0",
                                           "-I",
                                           s_pszHeaderFolder};
    if (job.bDebug)
    {
        vArguments.insert(vArguments.end(), {"-debug-info-kind=limited", "-dwarf-version=4"});
    }
    vArguments.insert(vArguments.end(), {"-x", "cl", s_pszSourceName});
    return vArguments;
}

llvm::IntrusiveRefCntPtr<llvm::vfs::FileSystem> MakeFiles(const SCompileJob& job)
{
    llvm::IntrusiveRefCntPtr<llvm::vfs::InMemoryFileSystem> pMemory(new llvm::vfs::InMemoryFileSystem);
    for (const SHeader& header : job.vHeaders)
    {
        pMemory->addFile(std::string(s_pszHeaderFolder) + "/" + header.strName, 0,
                         llvm::MemoryBuffer::getMemBuffer(header.strSource, header.strName));
    }
    pMemory->addFile(std::string(s_pszHeaderFolder) + "/opencl-c-base.h", 0,
                     llvm::MemoryBuffer::getMemBuffer(llvm::StringRef(BaseHeader().data(), BaseHeader().size())));
    llvm::IntrusiveRefCntPtr<llvm::vfs::OverlayFileSystem> pFiles(
        new llvm::vfs::OverlayFileSystem(llvm::vfs::getRealFileSystem()));
    pFiles->pushOverlay(pMemory);
    return pFiles;
}

} // namespace

std::unique_ptr<llvm::Module> CompileToIR(llvm::LLVMContext& context, const SCompileJob& job, std::string& strLog)
{
    llvm::raw_string_ostream log(strLog);
    clang::CompilerInstance compiler;
    llvm::IntrusiveRefCntPtr<clang::DiagnosticOptions> pDiagnosticOptions(new clang::DiagnosticOptions);
    clang::TextDiagnosticPrinter printer(log, pDiagnosticOptions.get());
    compiler.createDiagnostics(&printer, false);

    std::vector<std::string> vArguments = Arguments(job);
    std::vector<const char*> vpszArguments;
    for (const std::string& strArgument : vArguments)
    {
        vpszArguments.push_back(strArgument.c_str());
    }
    if (!clang::CompilerInvocation::CreateFromArgs(compiler.getInvocation(), vpszArguments, compiler.getDiagnostics()))
    {
        return nullptr;
    }
    const llvm::MemoryBufferRef source(job.strSource, s_pszSourceName);
    compiler.getFrontendOpts().Inputs = {clang::FrontendInputFile(source, clang::InputKind(clang::Language::OpenCL))};
    const llvm::IntrusiveRefCntPtr<llvm::vfs::FileSystem> pFiles = MakeFiles(job);
    compiler.createFileManager(pFiles);
    if (!compiler.createTarget())
    {
        return nullptr;
    }
    compiler.createSourceManager(compiler.getFileManager());
    if (!compiler.InitializeSourceManager(compiler.getFrontendOpts().Inputs[0]))
    {
        return nullptr;
    }
    compiler.createPreprocessor(clang::TU_Complete);
    compiler.getPreprocessor().getBuiltinInfo().initializeBuiltins(compiler.getPreprocessor().getIdentifierTable(),
                                                                   compiler.getLangOpts());
    compiler.createASTContext();
    clang::CodeGenerator* const pGenerator =
        clang::CreateLLVMCodeGen(compiler.getDiagnostics(), s_pszSourceName, pFiles, compiler.getHeaderSearchOpts(),
                                 compiler.getPreprocessorOpts(), compiler.getCodeGenOpts(), context);
    compiler.setASTConsumer(std::unique_ptr<clang::ASTConsumer>(pGenerator));
    compiler.createSema(clang::TU_Complete, nullptr);
    printer.BeginSourceFile(compiler.getLangOpts(), &compiler.getPreprocessor());
    clang::ParseAST(compiler.getSema());
    printer.EndSourceFile();
    std::unique_ptr<llvm::Module> pModule(pGenerator->ReleaseModule());
    return compiler.getDiagnostics().hasErrorOccurred() ? nullptr : std::move(pModule);
}

} // namespace KestrelOpenCL
