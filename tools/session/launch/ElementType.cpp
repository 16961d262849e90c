#include "tools/session/launch/ElementType.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>

namespace KestrelTool
{

namespace
{

const SElementType s_Types[] = {
    {"char", SElementType::Signed, 1},     {"uchar", SElementType::Unsigned, 1}, {"short", SElementType::Signed, 2},
    {"ushort", SElementType::Unsigned, 2}, {"int", SElementType::Signed, 4},     {"uint", SElementType::Unsigned, 4},
    {"long", SElementType::Signed, 8},     {"ulong", SElementType::Unsigned, 8}, {"float", SElementType::Float, 4},
    {"double", SElementType::Float, 8},    {"i8", SElementType::Signed, 1},      {"u8", SElementType::Unsigned, 1},
    {"i16", SElementType::Signed, 2},      {"u16", SElementType::Unsigned, 2},   {"i32", SElementType::Signed, 4},
    {"u32", SElementType::Unsigned, 4},    {"i64", SElementType::Signed, 8},     {"u64", SElementType::Unsigned, 8},
    {"f32", SElementType::Float, 4},       {"f64", SElementType::Float, 8},
};

/// Calls the visitor with a value of the type's C++ type.
template <typename Visitor>
auto Visit(const SElementType& type, const Visitor& visitor)
{
    if (type.eKind == SElementType::Float)
    {
        return type.nSize == 4 ? visitor(float()) : visitor(double());
    }
    const bool bSigned = type.eKind == SElementType::Signed;
    switch (type.nSize)
    {
    case 1:
        return bSigned ? visitor(int8_t()) : visitor(uint8_t());
    case 2:
        return bSigned ? visitor(int16_t()) : visitor(uint16_t());
    case 4:
        return bSigned ? visitor(int32_t()) : visitor(uint32_t());
    default:
        return bSigned ? visitor(int64_t()) : visitor(uint64_t());
    }
}

template <typename T>
T Convert(double fValue)
{
    if constexpr (std::numeric_limits<T>::is_integer)
    {
        // Converted through 64 bits, so that a negative number wraps in an unsigned type.
        return fValue < 0 ? static_cast<T>(static_cast<int64_t>(fValue))
                          : static_cast<T>(static_cast<uint64_t>(fValue));
    }
    return static_cast<T>(fValue);
}

template <typename T>
T Load(const unsigned char* pElement)
{
    T value;
    std::memcpy(&value, pElement, sizeof(value));
    return value;
}

} // namespace

const SElementType* FindElementType(const std::string& strName)
{
    for (const SElementType& type : s_Types)
    {
        if (strName == type.pszName)
        {
            return &type;
        }
    }
    return nullptr;
}

void StoreElement(const SElementType& type, double fValue, unsigned char* pElement)
{
    Visit(type,
          [&](auto zero)
          {
              const auto value = Convert<decltype(zero)>(fValue);
              std::memcpy(pElement, &value, sizeof(value));
              return 0;
          });
}

double ReadElement(const SElementType& type, const unsigned char* pElement)
{
    return Visit(type, [&](auto zero) { return static_cast<double>(Load<decltype(zero)>(pElement)); });
}

std::string FormatElement(const SElementType& type, const unsigned char* pElement)
{
    return Visit(type,
                 [&](auto zero)
                 {
                     using T = decltype(zero);
                     std::ostringstream stream;
                     stream.precision(std::numeric_limits<T>::max_digits10);
                     stream << +Load<T>(pElement);
                     return stream.str();
                 });
}

} // namespace KestrelTool
