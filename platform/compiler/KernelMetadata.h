#ifndef KESTREL_PLATFORM_COMPILER_KERNELMETADATA_H
#define KESTREL_PLATFORM_COMPILER_KERNELMETADATA_H

#include "platform/compiler/Assembler.h"
#include "platform/compiler/ProgramBuilder.h"

#include <string>
#include <string_view>
#include <vector>

namespace KestrelPlatform
{

/// What the compiler reads from a kernel's metadata block.
struct SKernelMetadata
{
    std::string strKernel; ///< without the wrapper's prefix and suffix
    bool bHasUniqueId = false;
    uint32_t nUniqueId = 0;
    std::string strDevice;
    uint32_t nPointerFields = 0; ///< how many fields a pointer line has, with its type, by the block's revision
    bool b64BitAddresses = false;
    uint32_t nLocalBytes = 0;
    uint32_t nPrivateBytes = 0;
    uint32_t nConstantBuffer1Elements = 0;
    std::vector<SKernelArgument> vArguments;
    std::vector<SKernelSampler> vSamplers;
    std::vector<SPrintfFormat> vFormats;
    std::string strAttributes;
    std::vector<uint32_t> vConstants; ///< contents of constant buffer s_nConstantsBuffer, four words an element
};

/// Reads a metadata block, from its ARGSTART to its ARGEND line. Takes what debuggers change in it: a `function` line
/// may hold any number of labels, and lines of unknown types are skipped.
///
/// \param diag receives the first fault; the line counts from the start of the text
/// \return false for a block without its first or last line, with a malformed argument, memory or id line, or without a
///         unique id
bool ReadKernelMetadata(std::string_view text, SKernelMetadata& metadata, SDiagnostic& diag);

} // namespace KestrelPlatform

#endif
