#ifndef KESTREL_PLATFORM_IL_REGISTERNAMES_H
#define KESTREL_PLATFORM_IL_REGISTERNAMES_H

#include "il/ILFormatDecode.h"

#include <cstdint>
#include <string_view>

namespace KestrelPlatform
{

/// \return the name of a register type, 0 to 63: unique, never empty, letters only
std::string_view GetRegisterTypeName(unsigned int nType);

/// The types whose name is one letter, by that letter; -1 for the others.
struct SLetterTypes
{
    int8_t nTypes[256] = {};
};

extern const SLetterTypes g_LetterTypes;

/// FindRegisterType for names of any length.
int SearchRegisterType(std::string_view name);

/// \return the type of a name without its number, or -1 if there is none. Nearly all registers of a kernel have names
///         of one letter, which are looked up without a search.
inline int FindRegisterType(std::string_view name)
{
    return name.size() == 1 ? g_LetterTypes.nTypes[static_cast<unsigned char>(name[0])] : SearchRegisterType(name);
}

/// \return whether the number 0 isn't printed: thread and group id registers have no other number
bool IsRegisterNumberOptional(unsigned int nType);

} // namespace KestrelPlatform

#endif
