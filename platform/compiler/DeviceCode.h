#ifndef KESTREL_PLATFORM_COMPILER_DEVICECODE_H
#define KESTREL_PLATFORM_COMPILER_DEVICECODE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KestrelPlatform
{

/// The code of one kernel, as it stands in `.text`.
struct SDeviceCode
{
    std::string strKernel;
    std::vector<uint32_t> vTokens;
    std::vector<uint32_t> vLines; ///< line of the debug text for each instruction; may be empty
};

/// One kernel's block of `.text`: a header of eight words (mark, version, sizes, checksum), the name, the tokens, the
/// lines, all little-endian words. Its length is a multiple of 4.
std::string WriteDeviceCode(std::string_view kernel, const std::vector<uint32_t>& vTokens,
                            const std::vector<uint32_t>& vLines);

/// Reads a block back. \return false for a block that is cut short, of another version, or damaged
bool ReadDeviceCode(std::string_view block, SDeviceCode& code);

} // namespace KestrelPlatform

#endif
