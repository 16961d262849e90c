#include "tools/session/debug/Format.h"

#include "tools/session/debug/CommandError.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace KestrelTool
{

namespace
{

struct SFormatName
{
    char cLetter;
    EFormat eFormat;
    const char* pszName;
};

const SFormatName s_Formats[] = {
    {'\0', EFormat::Auto, "auto"},    {'a', EFormat::Address, "address"},   {'f', EFormat::Float, "float"},
    {'d', EFormat::Int, "int"},       {'u', EFormat::Unsigned, "unsigned"}, {'x', EFormat::Hex, "hex"},
    {'g', EFormat::Double, "double"}, {'q', EFormat::Long, "long"},         {'t', EFormat::Binary, "binary"},
    {'c', EFormat::Char, "char"},
};

std::string FormatReal(double fValue, int nDigits)
{
    if (std::isnan(fValue))
    {
        return "nan";
    }
    if (std::isinf(fValue))
    {
        return fValue < 0 ? "-inf" : "inf";
    }
    std::ostringstream stream;
    stream.precision(nDigits);
    stream << fValue;
    const bool bLooksInteger = stream.str().find_first_of(".e") == std::string::npos;
    return stream.str() + (bLooksInteger ? ".0" : "");
}

/// A comparison gives all ones, which is a NaN, so only the usual NaNs count as floats.
bool IsSpecialFloat(uint32_t nWord)
{
    const uint32_t nMagnitude = nWord & 0x7FFFFFFF;
    return nMagnitude == 0x7F800000 || nMagnitude == 0x7FC00000;
}

} // namespace

EFormat ReadFormat(const std::string& strLetters)
{
    if (strLetters.empty())
    {
        return EFormat::Auto;
    }
    for (const SFormatName& format : s_Formats)
    {
        if (strLetters == std::string(1, format.cLetter) || strLetters == format.pszName)
        {
            return format.eFormat;
        }
    }
    throw CCommandError("there is no format \"" + strLetters +
                        "\"; there are f (float), d (int), u (unsigned), x (hex), t (binary), c (character), g (double "
                        "pairs), q (long pairs), "
                        "a (address pairs)");
}

const char* GetFormatName(EFormat eFormat)
{
    for (const SFormatName& format : s_Formats)
    {
        if (format.eFormat == eFormat)
        {
            return format.pszName;
        }
    }
    return "";
}

float WordToFloat(uint32_t nWord)
{
    float fValue;
    std::memcpy(&fValue, &nWord, sizeof(fValue));
    return fValue;
}

double WordsToDouble(uint32_t nLow, uint32_t nHigh)
{
    const uint64_t nBits = uint64_t(nHigh) << 32 | nLow;
    double fValue;
    std::memcpy(&fValue, &nBits, sizeof(fValue));
    return fValue;
}

bool LooksLikeFloat(uint32_t nWord)
{
    const uint32_t nExponent = (nWord >> 23) & 0xFF;
    return (nExponent >= 96 && nExponent <= 160) || IsSpecialFloat(nWord);
}

std::string FormatFloat(double fValue)
{
    return FormatReal(fValue, 6);
}

std::string FormatDouble(double fValue)
{
    return FormatReal(fValue, 12);
}

std::string FormatHex(uint64_t nValue)
{
    std::ostringstream stream;
    stream << "0x" << std::hex << nValue;
    return stream.str();
}

std::string FormatBinary(uint64_t nValue)
{
    std::string strDigits;
    do
    {
        strDigits.insert(strDigits.begin(), static_cast<char>('0' + (nValue & 1)));
        nValue >>= 1;
    } while (nValue != 0);
    return strDigits;
}

std::string FormatCharacter(unsigned char nCharacter)
{
    static const struct
    {
        char cCharacter;
        const char* pszText;
    } s_Escapes[] = {{'\0', "\\0"}, {'\n', "\\n"}, {'\t', "\\t"}, {'\r', "\\r"}, {'\'', "\\'"}, {'\\', "\\\\"}};
    std::string strText(1, static_cast<char>(nCharacter));
    for (const auto& escape : s_Escapes)
    {
        strText = static_cast<char>(nCharacter) == escape.cCharacter ? escape.pszText : strText;
    }
    if (strText.size() == 1 && (nCharacter < 0x20 || nCharacter >= 0x7F))
    {
        char octal[8];
        std::snprintf(octal, sizeof(octal), "\\%03o", nCharacter);
        strText = octal;
    }
    return std::to_string(static_cast<int>(static_cast<signed char>(nCharacter))) + " '" + strText + "'";
}

std::string FormatWord(uint32_t nWord, EFormat eFormat)
{
    switch (eFormat)
    {
    case EFormat::Float:
        return FormatFloat(WordToFloat(nWord));
    case EFormat::Unsigned:
        return std::to_string(nWord);
    case EFormat::Hex:
        return FormatHex(nWord);
    case EFormat::Binary:
        return FormatBinary(nWord);
    case EFormat::Char:
        return FormatCharacter(static_cast<unsigned char>(nWord));
    case EFormat::Auto:
        return LooksLikeFloat(nWord) ? FormatFloat(WordToFloat(nWord)) : std::to_string(static_cast<int32_t>(nWord));
    default:
        return std::to_string(static_cast<int32_t>(nWord));
    }
}

std::vector<std::string> FormatWords(const std::vector<uint32_t>& vWords, EFormat eFormat)
{
    std::vector<std::string> vTexts;
    const bool bPairs = eFormat == EFormat::Double || eFormat == EFormat::Long || eFormat == EFormat::Address;
    if (bPairs && vWords.size() % 2 != 0)
    {
        throw CCommandError("double, long and address formats take pairs of components, as r2.xy");
    }
    for (size_t i = 0; i < vWords.size(); i += bPairs ? 2 : 1)
    {
        if (eFormat == EFormat::Double)
        {
            vTexts.push_back(FormatDouble(WordsToDouble(vWords[i], vWords[i + 1])));
        }
        else if (eFormat == EFormat::Address)
        {
            vTexts.push_back(FormatHex(uint64_t(vWords[i + 1]) << 32 | vWords[i]));
        }
        else if (eFormat == EFormat::Long)
        {
            vTexts.push_back(std::to_string(static_cast<int64_t>(uint64_t(vWords[i + 1]) << 32 | vWords[i])));
        }
        else
        {
            vTexts.push_back(FormatWord(vWords[i], eFormat));
        }
    }
    return vTexts;
}

std::string FormatTuple(const std::vector<std::string>& vTexts)
{
    if (vTexts.size() == 1)
    {
        return vTexts.front();
    }
    std::string strTuple = "(";
    for (size_t i = 0; i < vTexts.size(); ++i)
    {
        strTuple += (i != 0 ? ", " : "") + vTexts[i];
    }
    return strTuple + ")";
}

} // namespace KestrelTool
