#ifndef KESTREL_PLATFORM_COMPILER_PROGRAMBUILDER_H
#define KESTREL_PLATFORM_COMPILER_PROGRAMBUILDER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KestrelPlatform
{

/// The properties of a device that matter to the compiler.
struct SDeviceTarget
{
    std::string strName; ///< "Quench", "Kiln", "Host"
    bool b64BitAddresses = true;
    bool bRawUavOnly = false;     ///< the older generation: one raw UAV, number 11
    uint32_t nMaxGroupSize = 256; ///< limit for a kernel that declares none
    uint64_t nLocalMemoryBytes = 32768;
};

/// One argument of a kernel, in argument order.
struct SKernelArgument
{
    enum EKind
    {
        Value,
        GlobalPointer,   ///< takes a memory object
        ConstantPointer, ///< takes a memory object, read only
        LocalPointer,    ///< takes a size
        Image,           ///< takes an image object
        Sampler,         ///< takes a sampler object; not an argument entry of constant buffer 1
        Counter          ///< takes a memory object
    };
    enum EAccess
    {
        ReadOnly,
        WriteOnly,
        ReadWrite
    };

    EKind eKind = Value;
    EAccess eAccess = ReadWrite;
    std::string strName;
    std::string strTypeName; ///< the data type token: "float", "i32", "2D", ...
    uint32_t nSize = 0;      ///< bytes of a value, else 0
    uint32_t nSlotSize = 0;  ///< bytes of constant buffer taken, a multiple of 16; 0 for a sampler or counter
    uint32_t nConstantBuffer = 1;
    uint32_t nConstantBufferOffset = 0; ///< in bytes
    uint32_t nResource =
        0; ///< UAV number, resource number of an image read, UAV number of an image written, sampler number
    uint32_t nAlignment = 0;
    bool bVolatile = false;
    bool bRestrict = false;
    // As in the source; empty for an IL module.
    std::string strSourceType; ///< "float*", "uint4", a struct's name
    bool bSourceConst = false;
};

/// A sampler that the kernel itself defines.
struct SKernelSampler
{
    uint32_t nSampler = 0;
    /// Bit 0 normalised coordinates, bits 1-3 addressing, bit 4 nearest, bit 5 linear; see docs/kernel-binary.md.
    uint32_t nValue = 0;
};

/// A format of a kernel's printf, and what its records hold; docs/kernel-binary.md.
struct SPrintfFormat
{
    std::string strTypes; ///< of the arguments, with commas between them: "i32,f32x4,s"
    std::string strText;
    std::vector<std::string> vStrings; ///< that an argument may name
};
/// The constant buffer that holds a program's constants; the metadata of its kernels has their bytes.
const uint32_t s_nConstantsBuffer = 2;

/// One kernel, ready to be decoded for running.
struct SCompiledKernel
{
    std::string strName;
    uint32_t nUniqueId = 0;
    std::vector<SKernelArgument> vArguments;
    std::vector<SKernelSampler> vSamplers;
    std::vector<SPrintfFormat> vFormats;   ///< empty for a kernel that prints nothing, or isn't to
    std::string strAttributes;             ///< as the source has them, with blanks between them
    std::vector<uint32_t> vConstants;      ///< contents of constant buffer s_nConstantsBuffer
    uint32_t nConstantBuffer1Elements = 0; ///< 16-byte elements that the arguments take
    uint32_t nStaticLocalBytes = 0;
    uint32_t nPrivateBytes = 0;
    uint32_t nMaxGroupSize = 0; ///< from the declarations, else the target's
    uint32_t nRequiredGroupSize[3] = {0, 0, 0};
    bool b64BitAddresses = true;
    std::vector<uint32_t> vTokens; ///< the whole stream, with the call of this kernel's function in place
    std::vector<uint32_t> vLines;  ///< 1-based line of the IL text for each instruction; may be empty
};

class CProgramImage;

/// What an image contains.
enum class EImageType
{
    Executable, ///< kernels
    Object,     ///< a compiled source, which waits to be linked
    Library     ///< several of them
};

/// The result of a build.
struct SBuildResult
{
    /// The bytes of the image; empty after a failed build.
    const std::vector<char>& GetImage() const;

    bool bOk = false;
    EImageType eType = EImageType::Executable;
    std::string strLog;                          ///< says which line and why; empty for a clean build
    std::shared_ptr<const CProgramImage> pImage; ///< the ELF image, as CL_PROGRAM_BINARIES hands it out, or null
    std::vector<SCompiledKernel> vKernels;       ///< in the order of the source, or of the symbol table
    std::vector<uint32_t> vSourceLines; ///< by line of the IL text, if that comes from the source: 1-based line there
};

/// A text that a source may include, and the name it is included by.
struct SSourceHeader
{
    std::string strName;
    std::string strSource;
};

/// What a program is built with: the options of OpenCL 1.2 and the platform's own. Options of the language have no
/// effect on IL.
struct SBuildOptions
{
    std::string strText; ///< all of it, as the client gave it
    bool bDebug = false; ///< "-g"
    bool bUseDebugIL = false;
    bool bEmitLLVM = false; ///< "-emit-llvm": `.llvmir` gets the intermediate code as text
    std::string strJustKernel;

    std::vector<std::string> vDefines;  ///< NAME or NAME=VALUE, in their order
    std::vector<std::string> vIncludes; ///< folders
    std::vector<std::string> vLanguage; ///< the words that the compiler of OpenCL C takes as they are
    bool bOptDisable = false;           ///< "-cl-opt-disable"
    bool bMultiplyAdd = false;          ///< "-cl-mad-enable", or an option that includes it

    bool bCreateLibrary = false; ///< of a link
};

/// Reads options. Words are separated by blanks; quotes hold blanks in a word, and a backslash makes the next character
/// an ordinary one.
/// \return false, with the word in strUnknown, for an unknown option or one whose value is missing
bool ParseBuildOptions(const std::string& strOptions, SBuildOptions& options, std::string& strUnknown);

/// The same for a link. It takes "-create-library", "-enable-link-options", and of the other options those about
/// arithmetic.
bool ParseLinkOptions(const std::string& strOptions, SBuildOptions& options, std::string& strUnknown);

/// Builds an IL module, or a program in OpenCL C, into an image and its kernels. Reentrant.
SBuildResult BuildFromSource(const std::string& strSource, const SBuildOptions& options, const SDeviceTarget& target,
                             const std::vector<SSourceHeader>& vHeaders = {});

/// Compiles a source in OpenCL C to an object. An IL module is complete, so it is built. Reentrant.
SBuildResult CompileSource(const std::string& strSource, const SBuildOptions& options, const SDeviceTarget& target,
                           const std::vector<SSourceHeader>& vHeaders);

/// Links images of objects and libraries into an executable, or with bCreateLibrary into a library. Reentrant.
SBuildResult LinkImages(const std::vector<const std::vector<char>*>& vImages, const SBuildOptions& options,
                        const SDeviceTarget& target);

/// What an image says that it contains. Executable for bytes that aren't an image.
EImageType GetImageType(const char* pImage, size_t nSize);

/// Reads an image back: from .text, or with bUseDebugIL from .debugil, where a call of each kernel replaces the
/// placeholder. Trusts no offset, size or count in the image. Reentrant.
SBuildResult BuildFromBinary(const char* pImage, size_t nSize, const SBuildOptions& options,
                             const SDeviceTarget& target);

} // namespace KestrelPlatform

#endif
