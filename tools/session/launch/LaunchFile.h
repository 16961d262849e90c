#ifndef KESTREL_TOOLS_LAUNCHFILE_H
#define KESTREL_TOOLS_LAUNCHFILE_H

#include "tools/session/launch/ElementType.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A launch file that can't be used; the text names the file and the field.
class CLaunchFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// One argument of a kernel, with its contents.
struct SArgument
{
    enum EKind
    {
        Buffer,
        Same, ///< the memory object of an earlier argument
        Value,
        Local,
        Image,
        Sampler,
        Sub, ///< all or a part of one of the launch's shared buffers
        NullBuffer,
        NullImage
    };

    EKind eKind = NullBuffer;
    const SElementType* pType = nullptr;                 ///< of a buffer's elements, a value, or an image's channels
    std::vector<unsigned char> vContents;                ///< of a buffer, a value or an image, before the launch
    uint64_t nObject = 0;                                ///< tells a program's buffers apart; 0 if it has no program
    bool bUnwritten = false;                             ///< a buffer created without contents
    std::optional<std::vector<unsigned char>> vExpected; ///< expected contents after the launch
    std::string strSave;                                 ///< file for the contents after the launch; empty for none
    size_t nSame = 0;                                    ///< index of the earlier argument, or of the shared buffer
    std::optional<size_t> nOrigin;                       ///< for a part: its first byte; none for the whole buffer
    size_t nLocalBytes = 0;                              ///< size of local memory
    uint32_t nChannelOrder = 0;
    uint32_t nChannelType = 0;
    uint32_t nImageType = 0; ///< OpenCL's number for the kind of image
    size_t nWidth = 0;
    size_t nHeight = 1;
    size_t nDepth = 0;        ///< 0 unless it is a 3D image
    size_t nArray = 0;        ///< number of images in an array; 0 for no array
    bool bNormalized = false; ///< for a sampler
    uint32_t nAddressing = 0;
    uint32_t nFilter = 0;
};

/// A name in launch files, and OpenCL's number for it.
struct SNamedNumber
{
    const char* pszName;
    uint32_t nNumber;
};

/// The launch file's names for an image's channel order and type, kinds of image, and a sampler's modes; null for a
/// number without a name.
const char* NameChannelOrder(uint32_t nOrder);
const char* NameChannelType(uint32_t nType);
/// The element type for contents of an image with this channel type; null for an unknown one.
const SElementType* FindChannelElement(uint32_t nType);
const char* NameImageShape(uint32_t nImageType);
const char* NameAddressing(uint32_t nAddressing);
const char* NameFilter(uint32_t nFilter);

/// A kernel launch, as described by a file. JSON, with comments allowed:
///   program  path of the program's text (IL, or OpenCL C in a file *.cl) or of its binary, relative to the launch file
///   kernel   its name
///   device   a device's name, or the beginning of it; the first GPU if missing
///   options  build options; "-g" if missing
///   global, local, offset   one to three numbers; local and offset may be missing
///   buffers  buffers that arguments may be parts of, so that these can overlap: a list of values as for "buffer"
///   args     one object for each argument, in order: {"buffer": ...}, {"same": INDEX}, {"value": ...}, {"sub": ...},
///            {"local": BYTES}, {"image": ...}, {"sampler": ...}, {"null": "buffer"} or {"null": "image"}
/// A buffer has type, and count with fill ("zero", "none" for no contents, "iota", {"constant": C}, {"random": SEED}),
/// or values, or file (raw bytes); expect gives the contents after the launch (a list of values, or {"file": PATH});
/// save names a file to write them to. A value has type and values. An image has order ("R", "RG", "RGBA"), channel
/// (such as "uint8", "int16" or "float"), width, height, depth, and contents like a buffer; shape ("1d", "1d_buffer",
/// "1d_array", "2d_array") for one that is neither 2D nor 3D, and array with the number of images in it. A sub has of
/// (the index in buffers), and origin and size in bytes for a part of it. A sampler has normalized (true or false),
/// addressing ("none", "clamp_to_edge", "clamp", "repeat", "mirrored_repeat") and filter ("nearest", "linear").
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
    std::vector<SArgument> vBuffers; ///< buffers that arguments may be parts of
    std::vector<SArgument> vArguments;
};

/// Reads a launch file and all files that it names.
/// \throws CLaunchFileError
SLaunchFile ReadLaunchFile(const std::string& strPath);

/// Parses the text of a launch file.
/// \param strPath  for messages, and as the base of relative paths
SLaunchFile ParseLaunchFile(const std::string& strText, const std::string& strPath);

} // namespace KestrelTool

#endif
