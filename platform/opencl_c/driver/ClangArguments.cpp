#include "platform/opencl_c/driver/ClangArguments.h"

#include "platform/compiler/LanguageExtensions.h"

namespace KestrelOpenCL
{

const char* const s_pszSourceName = "kernel.cl";
const char* const s_pszHeaderFolder = "/opencl-headers";

namespace
{

/// The arguments of every job, apart from the device's.
const char* const s_ppszAlways[] = {
    "-emit-llvm-only", "-disable-llvm-passes", "-disable-O0-optnone", "-x", "cl", "-cl-kernel-arg-info",
    // OpenCL C says little about inline. By C99's rules an inline function that isn't static would have no definition.
    "-fgnu89-inline",
    // Lifetime markers would keep a break from leaving its loop directly.
    "-disable-lifetime-markers",
    // Built-in functions are declared from a table when they are used.
    "-fdeclare-opencl-builtins", "-finclude-default-header", "-fbracket-depth", "256", "-ferror-limit", "50",
    "-fmacro-backtrace-limit", "4",
    // Keeps details of the build machine out of the binary.
    "-main-file-name", "kernel.cl", "-fdebug-compilation-dir=.", "-dwarf-version=4",
    // What the device reports.
    "-D__OPENCL_VERSION__=120", "-D__ENDIAN_LITTLE__=1", "-D__IMAGE_SUPPORT__=1"};

std::string Extensions()
{
    std::string strWord = "-cl-ext=-all";
    for (const std::string_view name : KestrelPlatform::s_LanguageExtensions)
    {
        strWord += ",+" + std::string(name);
    }
    return strWord;
}

void AddLanguageOptions(const KestrelPlatform::SBuildOptions& options, std::vector<std::string>& vArguments)
{
    vArguments.insert(vArguments.end(), options.vLanguage.begin(), options.vLanguage.end());
    vArguments.emplace_back(options.bMultiplyAdd ? "-ffp-contract=fast" : "-ffp-contract=off");
    for (const std::string& strDefine : options.vDefines)
    {
        vArguments.emplace_back("-D");
        vArguments.push_back(strDefine);
    }
    for (const std::string& strFolder : options.vIncludes)
    {
        vArguments.emplace_back("-I");
        vArguments.push_back(strFolder);
    }
}

} // namespace

std::vector<std::string> ClangArguments(const SCompileJob& job)
{
    std::vector<std::string> vArguments(std::begin(s_ppszAlways), std::end(s_ppszAlways));
    vArguments.insert(vArguments.end(),
                      {"-triple", job.target.b64BitAddresses ? "spir64-unknown-unknown" : "spir-unknown-unknown",
                       "-cl-std=CL1.2", Extensions(), "-I", s_pszHeaderFolder});
    // At -O0 clang omits lifetime markers, which debug data would keep for good.
    const bool bOptimize = !job.bDebug && !job.options.bOptDisable;
    vArguments.emplace_back(bOptimize ? "-O2" : "-O0");
    if (job.bDebug)
    {
        vArguments.insert(vArguments.end(), {"-debug-info-kind=limited", "-gembed-source"});
    }
    else
    {
        vArguments.emplace_back("-debug-info-kind=line-tables-only");
    }
    if (!job.options.bEmitLLVM)
    {
        vArguments.emplace_back("-discard-value-names"); // nobody reads them
    }
    AddLanguageOptions(job.options, vArguments);
    vArguments.emplace_back(s_pszSourceName);
    return vArguments;
}

} // namespace KestrelOpenCL
