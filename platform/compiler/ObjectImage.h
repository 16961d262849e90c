#ifndef KESTREL_PLATFORM_COMPILER_OBJECTIMAGE_H
#define KESTREL_PLATFORM_COMPILER_OBJECTIMAGE_H

#include "platform/compiler/ProgramBuilder.h"

#include <string>
#include <string_view>
#include <vector>

namespace KestrelPlatform
{

/// What an image of an object or a library holds.
struct SObjectImage
{
    EImageType eType = EImageType::Object;
    bool bDebug = false; ///< compiled with "-g", so that programs linked with it get debug data too
    std::string_view object;
};

/// Writes the ELF image of an object or a library: `.llvmir` with the object, `.ovkobj` with its kind and checksum.
std::vector<char> WriteObjectImage(EImageType eType, std::string_view object, bool bDebug);

/// Reads such an image back; the object is a view of it.
///
/// \return false, with the reason, for an image of kernels, and for one that is cut short or damaged
bool ReadObjectImage(const char* pImage, size_t nSize, SObjectImage& object, std::string& strError);

} // namespace KestrelPlatform

#endif
