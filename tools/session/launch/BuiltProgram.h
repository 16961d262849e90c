#ifndef KESTREL_TOOLS_LAUNCH_BUILTPROGRAM_H
#define KESTREL_TOOLS_LAUNCH_BUILTPROGRAM_H

#include "tools/session/launch/Libraries.h"

#include <string>
#include <vector>

namespace KestrelTool
{

/// A failed build; the text is the build log.
class CBuildError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A built program.
struct SBuiltProgram
{
    std::vector<char> vImage;
    std::string strLog; ///< warnings
};

/// Builds a program's text for a device.
/// \param strDevice  a device's name, or the beginning of it; the first GPU if empty
/// \throws CBuildError, CPlatformError
SBuiltProgram BuildProgram(const CLibraries& libraries, const std::string& strSource, const std::string& strDevice,
                           const std::string& strOptions);

/// Whether the bytes are an ELF image.
bool IsImage(const std::string& strBytes);

} // namespace KestrelTool

#endif
