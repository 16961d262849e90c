#ifndef KESTREL_TOOLS_ELEMENTTYPE_H
#define KESTREL_TOOLS_ELEMENTTYPE_H

#include <cstddef>
#include <string>

namespace KestrelTool
{

/// The type of a buffer's elements, of a value, or of an image's channels.
struct SElementType
{
    enum EKind
    {
        Signed,
        Unsigned,
        Float
    };

    const char* pszName; ///< as spelled in a launch file
    EKind eKind;
    size_t nSize; ///< bytes
};

/// The type with this name, or null. Names are "char uchar short ushort int uint long ulong
/// float double", or the sized "i8 u8 ... i64 u64 f32 f64".
const SElementType* FindElementType(const std::string& strName);

/// Stores a number as an element, converted as C++ converts it.
void StoreElement(const SElementType& type, double fValue, unsigned char* pElement);

/// Reads an element as a number.
double ReadElement(const SElementType& type, const unsigned char* pElement);

/// An element as text, with enough digits to restore its value.
std::string FormatElement(const SElementType& type, const unsigned char* pElement);

} // namespace KestrelTool

#endif
