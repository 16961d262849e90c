#include "platform/opencl_c/driver/IrCompiler.h"

#include "platform/opencl_c/driver/BareNames.h"
#include "platform/opencl_c/driver/ClangArguments.h"
#include "platform/opencl_c/driver/EmbeddedFiles.h"

#include <clang/Basic/Builtins.h>
#include <clang/Basic/TargetInfo.h>
#include <clang/CodeGen/ModuleBuilder.h>
#include <clang/Frontend/CompilerInstance.h>
#include <clang/Frontend/TextDiagnosticPrinter.h>
#include <clang/Lex/Preprocessor.h>
#include <clang/Parse/ParseAST.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/Support/VirtualFileSystem.h>

#include <algorithm>

namespace KestrelOpenCL
{

const char* const s_pszReadFiles = "kestrel.files";

namespace
{

/// The most tokens after macro expansion; a source with more has macros that grow without end.
const uint64_t s_nMostTokens = 2'000'000;

llvm::IntrusiveRefCntPtr<llvm::vfs::FileSystem> MakeFiles(const SCompileJob& job)
{
    llvm::IntrusiveRefCntPtr<llvm::vfs::InMemoryFileSystem> pMemory(new llvm::vfs::InMemoryFileSystem);
    const std::string strFolder = std::string(s_pszHeaderFolder) + "/";
    for (const SHeader& header : job.vHeaders)
    {
        pMemory->addFile(strFolder + header.strName, 0,
                         llvm::MemoryBuffer::getMemBufferCopy(header.strSource, header.strName));
    }
    const llvm::StringRef base(BaseHeader().data(), BaseHeader().size());
    pMemory->addFile(strFolder + "opencl-c-base.h", 0, llvm::MemoryBuffer::getMemBuffer(base));
    llvm::IntrusiveRefCntPtr<llvm::vfs::OverlayFileSystem> pFiles(
        new llvm::vfs::OverlayFileSystem(llvm::vfs::getRealFileSystem()));
    pFiles->pushOverlay(pMemory);
    return pFiles;
}

/// Restores the names that the client gave its headers.
void RemoveHeaderFolder(std::string& strText)
{
    const std::string strFolder = std::string(s_pszHeaderFolder) + "/";
    for (size_t n = strText.find(strFolder); n != std::string::npos; n = strText.find(strFolder, n))
    {
        strText.erase(n, strFolder.size());
    }
}

/// clang's invocation for a job. \return null, with the reason in the log, for a wrong option
std::shared_ptr<clang::CompilerInvocation> MakeInvocation(const SCompileJob& job, llvm::raw_ostream& log)
{
    const std::vector<std::string> vArguments = ClangArguments(job);
    std::vector<const char*> vpszArguments;
    for (const std::string& strArgument : vArguments)
    {
        vpszArguments.push_back(strArgument.c_str());
    }
    llvm::IntrusiveRefCntPtr<clang::DiagnosticOptions> pOptions(new clang::DiagnosticOptions);
    clang::TextDiagnosticPrinter printer(log, pOptions.get());
    clang::DiagnosticsEngine diagnostics(new clang::DiagnosticIDs, pOptions, &printer, false);
    auto pInvocation = std::make_shared<clang::CompilerInvocation>();
    if (!clang::CompilerInvocation::CreateFromArgs(*pInvocation, vpszArguments, diagnostics))
    {
        return nullptr;
    }
    const llvm::MemoryBufferRef source(job.strSource, s_pszSourceName);
    pInvocation->getFrontendOpts().Inputs = {
        clang::FrontendInputFile(source, clang::InputKind(clang::Language::OpenCL))};
    return pInvocation;
}

/// \return whether clang would read past the end of something in this file; then the log says so
bool HasBareName(const std::string& strName, llvm::StringRef source, llvm::raw_ostream& log)
{
    const size_t nOffset = FindBareName(source);
    if (nOffset == std::string_view::npos)
    {
        return false;
    }
    const llvm::StringRef before = source.take_front(nOffset);
    log << strName << ':' << before.count('\n') + 1 << ':' << nOffset - (before.rfind('\n') + 1) + 1
        << ": error: '\\N' must be followed by the name of a character in braces\n";
    return true;
}

bool HasBareNames(const SCompileJob& job, llvm::raw_ostream& log)
{
    return HasBareName(s_pszSourceName, job.strSource, log) ||
           std::any_of(job.vHeaders.begin(), job.vHeaders.end(),
                       [&log](const SHeader& header) { return HasBareName(header.strName, header.strSource, log); });
}

/// Whether a string or character constant from a macro or from a file on disk ends in a bare name.
bool EndsInBareName(const clang::Preprocessor& preprocessor, const clang::Token& token)
{
    if (!clang::tok::isStringLiteral(token.getKind()) && token.isNot(clang::tok::char_constant))
    {
        return false;
    }
    llvm::SmallString<64> buffer;
    return FindBareName(preprocessor.getSpelling(token, buffer)) != std::string_view::npos;
}

/// Stops a compilation whose macros grow without end, and one that clang can't read: the rest of the source then counts
/// as empty.
void WatchTokens(clang::Preprocessor& preprocessor)
{
    const auto refuse = [&preprocessor](const clang::Token& token, const std::string& strWhy)
    {
        clang::DiagnosticsEngine& diagnostics = preprocessor.getDiagnostics();
        diagnostics.Report(token.getLocation(), diagnostics.getCustomDiagID(clang::DiagnosticsEngine::Fatal, "%0"))
            << strWhy;
        llvm::report_fatal_error(strWhy.c_str(), false);
    };
    preprocessor.setTokenWatcher(
        [&preprocessor, refuse, nTokens = uint64_t{0}](const clang::Token& token) mutable
        {
            if (++nTokens == s_nMostTokens)
            {
                refuse(token, "the source has more than " + std::to_string(s_nMostTokens) + " tokens");
            }
            if (EndsInBareName(preprocessor, token))
            {
                refuse(token, "'\\N' must be followed by the name of a character in braces");
            }
        });
}

/// Notes in the module that it was compiled from files on disk too.
void NoteFiles(const clang::SourceManager& sources, llvm::Module& module)
{
    const llvm::StringRef folder(s_pszHeaderFolder);
    for (auto it = sources.fileinfo_begin(); it != sources.fileinfo_end(); ++it)
    {
        const llvm::StringRef name = it->first->getName();
        if (!name.startswith(folder) && name != s_pszSourceName)
        {
            module.getOrInsertNamedMetadata(s_pszReadFiles);
        }
    }
}

bool OpenSource(clang::CompilerInstance& compiler, llvm::IntrusiveRefCntPtr<llvm::vfs::FileSystem> pFiles)
{
    compiler.createFileManager(std::move(pFiles));
    if (!compiler.createTarget())
    {
        return false;
    }
    compiler.createSourceManager(compiler.getFileManager());
    if (!compiler.InitializeSourceManager(compiler.getFrontendOpts().Inputs[0]))
    {
        return false;
    }
    compiler.createPreprocessor(clang::TU_Complete);
    clang::Preprocessor& preprocessor = compiler.getPreprocessor();
    preprocessor.getBuiltinInfo().initializeBuiltins(preprocessor.getIdentifierTable(), compiler.getLangOpts());
    WatchTokens(preprocessor);
    return true;
}

} // namespace

std::unique_ptr<llvm::Module> CompileToIR(llvm::LLVMContext& context, const SCompileJob& job, std::string& strLog)
{
    std::string strText;
    llvm::raw_string_ostream log(strText);
    std::unique_ptr<llvm::Module> pModule;
    const std::shared_ptr<clang::CompilerInvocation> pInvocation =
        HasBareNames(job, log) ? nullptr : MakeInvocation(job, log);
    if (pInvocation)
    {
        clang::CompilerInstance compiler;
        compiler.setInvocation(pInvocation);
        clang::TextDiagnosticPrinter printer(log, &compiler.getDiagnosticOpts());
        compiler.createDiagnostics(&printer, false);
        const llvm::IntrusiveRefCntPtr<llvm::vfs::FileSystem> pFiles = MakeFiles(job);
        if (OpenSource(compiler, pFiles))
        {
            compiler.createASTContext();
            clang::CodeGenerator* const pGenerator = clang::CreateLLVMCodeGen(
                compiler.getDiagnostics(), s_pszSourceName, pFiles, compiler.getHeaderSearchOpts(),
                compiler.getPreprocessorOpts(), compiler.getCodeGenOpts(), context);
            compiler.setASTConsumer(std::unique_ptr<clang::ASTConsumer>(pGenerator));
            compiler.createSema(clang::TU_Complete, nullptr);
            printer.BeginSourceFile(compiler.getLangOpts(), &compiler.getPreprocessor());
            clang::ParseAST(compiler.getSema());
            printer.EndSourceFile();
            pModule.reset(pGenerator->ReleaseModule());
            if (pModule)
            {
                NoteFiles(compiler.getSourceManager(), *pModule);
            }
        }
        if (compiler.getDiagnostics().hasErrorOccurred())
        {
            pModule.reset();
        }
    }
    RemoveHeaderFolder(strText);
    strLog += strText;
    return pModule;
}

} // namespace KestrelOpenCL
