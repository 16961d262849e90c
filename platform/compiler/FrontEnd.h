#ifndef KESTREL_PLATFORM_COMPILER_FRONTEND_H
#define KESTREL_PLATFORM_COMPILER_FRONTEND_H

#include "platform/compiler/KernelMetadata.h"

#include <string>
#include <string_view>
#include <vector>

namespace KestrelPlatform
{

/// The line of a module's text that the call of the kernel replaces.
const std::string_view s_Placeholder = ";$$$$$$$$$$";

/// Where a line of a module's text comes from.
struct SSourcePlace
{
    unsigned int nLine = 0;   ///< 1-based line of the source
    unsigned int nColumn = 0; ///< columns of the source before the line's first character
};

struct SModuleKernel
{
    std::string strMetadata; ///< the block, ARGSTART to ARGEND, each line with its "\n"
    SKernelMetadata metadata;
};

/// A section of debug data, as it goes into the image.
struct SDebugSection
{
    std::string strName;
    std::string strData;
};

/// What a front end makes of a source: the metadata of its kernels and one IL text for all of them.
struct SModule
{
    std::vector<SModuleKernel> vKernels;
    /// One item a line, no blank lines, comments on lines of their own; each line ends with "\n".
    std::string strText;
    bool bReadFiles = false; ///< the text depends on files of the machine, which the source includes
    /// The intermediate code as text, for `.llvmir`; empty if only a note goes there.
    std::string strIntermediate;
    /// Lines and variables of the source, for the lines of the text; docs/kernel-binary.md.
    std::vector<SDebugSection> vDebugSections;
    /// By line of the text; empty if the text isn't part of the source.
    std::vector<SSourcePlace> vPlaces;
};

/// Whether a source looks like an IL module: metadata blocks, then an IL text. All others are OpenCL C.
bool IsILModule(std::string_view source);

/// Takes an IL module apart.
///
/// \param module receives the result, undefined on failure
/// \param diag   receives the first fault, with its place in the source
bool CompileILModule(std::string_view source, SModule& module, SDiagnostic& diag);

/// Appends an IL text to the module's, one item a line. Comments that no token stream has a place for are left out.
///
/// \param nFirstLine line of the source at which the text starts, 1-based
void AppendNormalizedText(std::string_view text, unsigned int nFirstLine, SModule& module);

} // namespace KestrelPlatform

#endif
