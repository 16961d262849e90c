#include "tools/session/debug/SourceValue.h"

#include "tools/session/debug/CommandError.h"
#include "tools/source/CNumbers.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

const size_t s_nMaxElements = 200; ///< shown of an array

uint64_t BitsOf(const SSourceValue& value)
{
    uint64_t nBits = 0;
    std::memcpy(&nBits, value.vBytes.data(), std::min(value.vBytes.size(), sizeof(nBits)));
    return nBits;
}

std::string FormatFloating(const SSourceValue& value)
{
    const uint64_t nBits = BitsOf(value);
    switch (value.vBytes.size())
    {
    case 8:
    {
        const double fValue = WordsToDouble(static_cast<uint32_t>(nBits), static_cast<uint32_t>(nBits >> 32));
        return value.pType == &g_RegisterFloat ? FormatFloat(fValue) : FormatDouble(fValue);
    }
    case 2:
        return FormatFloat(static_cast<double>(LoadAs<SHalf>(value.vBytes.data())));
    default:
        return FormatFloat(WordToFloat(static_cast<uint32_t>(nBits)));
    }
}

std::string FormatInteger(const SSourceValue& value, EFormat eFormat)
{
    const uint64_t nBits = BitsOf(value);
    const size_t nUnused = 64 - 8 * std::clamp<size_t>(value.vBytes.size(), 1, 8);
    const bool bSigned =
        eFormat == EFormat::Int || (eFormat != EFormat::Unsigned && value.pType->eKind == SSourceType::Signed);
    switch (eFormat)
    {
    case EFormat::Hex:
        return FormatHex(nBits);
    case EFormat::Binary:
        return FormatBinary(nBits);
    case EFormat::Char:
        return FormatCharacter(static_cast<unsigned char>(nBits));
    default:
        return bSigned ? std::to_string(static_cast<int64_t>(nBits << nUnused) >> nUnused) : std::to_string(nBits);
    }
}

} // namespace

SSourceValue PartOf(const SSourceValue& whole, size_t nOffset, const SSourceType& type)
{
    if (nOffset > whole.vBytes.size() || type.nSize > whole.vBytes.size() - nOffset)
    {
        throw CCommandError("the debug data give " + whole.pType->strName + " parts outside of itself");
    }
    const auto nFirst = static_cast<std::ptrdiff_t>(nOffset);
    const auto nEnd = static_cast<std::ptrdiff_t>(nOffset + type.nSize);
    return {&type,
            {whole.vBytes.begin() + nFirst, whole.vBytes.begin() + nEnd},
            {whole.vKnown.begin() + nFirst, whole.vKnown.begin() + nEnd}};
}

bool SSourceValue::IsKnown() const
{
    return std::find(vKnown.begin(), vKnown.end(), false) == vKnown.end();
}

std::string FormatValue(const SSourceValue& value, EFormat eFormat,
                        const std::function<std::string(uint64_t)>& nameAddress)
{
    const SSourceType& type = *value.pType;
    std::string strText;
    if (type.nSize == 0)
    {
        return "<optimized out>";
    }
    switch (type.eKind)
    {
    case SSourceType::Vector:
    case SSourceType::Array:
        for (size_t n = 0; n < type.nCount; ++n)
        {
            if (n == s_nMaxElements)
            {
                strText += ", ...";
                break;
            }
            strText += (n == 0 ? "" : ", ") +
                       FormatValue(PartOf(value, n * type.pElement->nSize, *type.pElement), eFormat, nameAddress);
        }
        return type.eKind == SSourceType::Vector ? "(" + strText + ")" : "{" + strText + "}";
    case SSourceType::Struct:
        for (const SSourceType::SMember& member : type.vMembers)
        {
            strText += (strText.empty() ? "" : ", ") + member.strName + " = " +
                       FormatValue(PartOf(value, member.nOffset, *member.pType), eFormat, nameAddress);
        }
        return "{" + strText + "}";
    default:
        break;
    }
    if (!value.IsKnown())
    {
        return "<optimized out>";
    }
    if (type.eKind == SSourceType::Pointer && (eFormat == EFormat::Auto || eFormat == EFormat::Address) && nameAddress)
    {
        return nameAddress(BitsOf(value));
    }
    const bool bBits = eFormat == EFormat::Hex || eFormat == EFormat::Binary || eFormat == EFormat::Char;
    const bool bFloat = type.eKind == SSourceType::Float || (eFormat == EFormat::Float && type.nSize != 1);
    if (type.eKind == SSourceType::Pointer && eFormat == EFormat::Auto)
    {
        return FormatHex(BitsOf(value));
    }
    return bFloat && !bBits ? FormatFloating(value) : FormatInteger(value, eFormat);
}

} // namespace KestrelTool
