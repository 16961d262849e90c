#ifndef KESTREL_PLATFORM_COMPILER_REGISTERNAMES_H
#define KESTREL_PLATFORM_COMPILER_REGISTERNAMES_H

#include <string_view>

namespace KestrelPlatform
{

/// The register types that the compiler itself has to know; the numbers are the token format's.
enum ERegisterType : unsigned int
{
    RegisterTemp = 4,
    RegisterIndexedTemp = 30,
    RegisterConstantBuffer = 31,
    RegisterLiteral = 32,
    RegisterThreadIdInGroup = 41,
    RegisterThreadGroupIdFlat = 46
};

/// \return the text of a register type, 0 to 63; never empty, no two types share one, letters only
std::string_view GetRegisterTypeName(unsigned int nType);

/// \return the type of a name without its number, or -1 if there is none
int FindRegisterType(std::string_view name);

/// \return whether the number 0 isn't printed: the thread and group id registers, which have no other
bool IsRegisterNumberOptional(unsigned int nType);

} // namespace KestrelPlatform

#endif
