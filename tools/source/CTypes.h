#ifndef KESTREL_TOOLS_SOURCE_CTYPES_H
#define KESTREL_TOOLS_SOURCE_CTYPES_H

#include "tools/source/DebugInfo.h"

#include <map>

namespace KestrelTool
{

/// What components of registers are computed with: nothing says more of them than that they are integers or floats.
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
/// A vector's element, or the type itself.
const SSourceType& ScalarOf(const SSourceType& type);
/// How many of those: 4 for a vector of three, too.
size_t CountScalars(const SSourceType& type);
bool IsSameType(const SSourceType& left, const SSourceType& right);

/// The scalar type of a name: "int", "unsigned char", "size_t"; null if there is none.
const SSourceType* FindScalarType(const std::string& strName);
/// The integer type of a size.
const SSourceType& GetIntegerType(bool bSigned, size_t nBytes);
/// What C computes in: int for what is smaller.
const SSourceType& Promote(const SSourceType& type);
/// The common type of two scalars, by C's usual conversions.
const SSourceType& FindCommonType(const SSourceType& left, const SSourceType& right);

/// Types that are made of others; they live as long as the store.
class CTypeStore
{
public:
    const SSourceType& MakeVector(const SSourceType& element, size_t nCount);
    const SSourceType& MakePointer(const SSourceType& element, SSourceType::ESpace eSpace);
    /// The scalar or vector type of a name as "float4"; null if there is none.
    const SSourceType* Find(const std::string& strName);

private:
    std::map<std::pair<const SSourceType*, size_t>, std::unique_ptr<SSourceType>> m_mapTypes;
};

} // namespace KestrelTool

#endif
