#ifndef KESTREL_TOOLS_LAUNCHFILE_H
#define KESTREL_TOOLS_LAUNCHFILE_H

#include "tools/kestrel/ElementType.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A launch file that can't be used: the text names the file and the field.
class CLaunchFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// One argument of a kernel, its contents worked out.
struct SArgument
{
    enum EKind
    {
        Buffer,
        Same, ///< the memory object of an earlier argument once more
        Value,
        Local,
        Image,
        NullBuffer,
        NullImage
    };

    EKind eKind = NullBuffer;
    const SElementType* pType = nullptr;                 ///< of a buffer's elements, a value or an image's channels
    std::vector<unsigned char> vContents;                ///< of a buffer, a value or an image, before the launch
    std::optional<std::vector<unsigned char>> vExpected; ///< what the launch must leave in a buffer or image
    std::string strSave;                                 ///< file for what the launch has left; empty for none
    size_t nSame = 0;                                    ///< index of the earlier argument
    size_t nLocalBytes = 0;                              ///< size of local memory
    uint32_t nChannelOrder = 0;
    uint32_t nChannelType = 0;
    size_t nWidth = 0;
    size_t nHeight = 1;
    size_t nDepth = 0; ///< 0 for a 2D image
};

/// A kernel launch, as a file describes it. JSON, with comments allowed:
///   program  path of the IL module, relative to the launch file
///   kernel   its name
///   device   a device's name, or the beginning of it; the first GPU if missing
///   options  build options; "-g" if missing
///   global, local, offset   one to three numbers; local and offset may be missing
///   args     one object an argument, in order: {"buffer": ...}, {"same": INDEX}, {"value": ...},
///            {"local": BYTES}, {"image": ...}, {"null": "buffer"} or {"null": "image"}
/// A buffer has type, and count with fill ("zero", "iota", {"constant": C}, {"random": SEED}), or
/// values, or file (raw bytes); expect says what the launch must leave there (a list of values, or
/// {"file": PATH}); save names a file that is written with it. A value has type and values. An image has order ("R",
/// "RG", "RGBA"), channel (a "uint8", "int16", "float" and the like), width, height, depth, and contents as a buffer
/// has.
struct SLaunchFile
{
    std::string strPath;
    std::string strSource; ///< the program's text
    std::string strKernel;
    std::string strDevice;
    std::string strOptions;
    unsigned int nDimensions = 1;
    size_t nGlobalSize[3] = {1, 1, 1};
    size_t nLocalSize[3] = {0, 0, 0};
    size_t nGlobalOffset[3] = {0, 0, 0};
    bool bHasLocalSize = false;
    bool bHasOffset = false;
    std::vector<SArgument> vArguments;
};

/// Reads a launch file and all files that it names.
/// \throws CLaunchFileError
SLaunchFile ReadLaunchFile(const std::string& strPath);

/// The same for the text of a launch file.
/// \param strPath  what complaints name, and where the paths in the text start
SLaunchFile ParseLaunchFile(const std::string& strText, const std::string& strPath);

} // namespace KestrelTool

#endif
