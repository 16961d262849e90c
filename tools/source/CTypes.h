#ifndef KESTREL_TOOLS_SOURCE_CTYPES_H
#define KESTREL_TOOLS_SOURCE_CTYPES_H

#include "tools/source/DebugInfo.h"

#include <map>

namespace KestrelTool
{

/// The types of register components in expressions, for which only integer or float is known.
extern const SSourceType g_RegisterInt;
extern const SSourceType g_RegisterFloat;

inline bool IsInteger(const SSourceType& type)
{
    return type.eKind == SSourceType::Signed || type.eKind == SSourceType::Unsigned;
}
inline bool IsFloating(const SSourceType& type)
{
    return type.eKind == SSourceType::Float;
}
inline bool IsVector(const SSourceType& type)
{
    return type.eKind == SSourceType::Vector;
}
inline bool IsPointer(const SSourceType& type)
{
    return type.eKind == SSourceType::Pointer;
}
bool IsBool(const SSourceType& type);
/// An integer or a float of a size that the language has.
bool IsArithmetic(const SSourceType& type);
/// A vector's element type, or the type itself.
const SSourceType& ScalarOf(const SSourceType& type);
/// The number of elements in memory: 4 for a vector of three, too.
size_t CountScalars(const SSourceType& type);
bool IsSameType(const SSourceType& left, const SSourceType& right);

/// The scalar type with this name: "int", "unsigned char", "size_t"; null if there is none.
const SSourceType* FindScalarType(const std::string& strName);
/// The integer type of this size.
const SSourceType& GetIntegerType(bool bSigned, size_t nBytes);
/// The type after C's integer promotion: int for smaller integers.
const SSourceType& Promote(const SSourceType& type);
/// The common type of two scalars, by C's usual arithmetic conversions.
const SSourceType& FindCommonType(const SSourceType& left, const SSourceType& right);

/// Owns types that are made of others.
class CTypeStore
{
public:
    const SSourceType& MakeVector(const SSourceType& element, size_t nCount);
    const SSourceType& MakePointer(const SSourceType& element, SSourceType::ESpace eSpace);
    /// The scalar or vector type with a name like "float4"; null if there is none.
    const SSourceType* Find(const std::string& strName);

private:
    std::map<std::pair<const SSourceType*, size_t>, std::unique_ptr<SSourceType>> m_mapTypes;
};

} // namespace KestrelTool

#endif
