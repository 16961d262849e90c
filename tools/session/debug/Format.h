#ifndef KESTREL_TOOLS_DEBUG_FORMAT_H
#define KESTREL_TOOLS_DEBUG_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KestrelTool
{

/// How the bits of a component, or of a pair of them, are read.
enum class EFormat
{
    Auto, ///< as the float that a word looks like, or as an integer
    Float,
    Int,
    Unsigned,
    Hex,
    Double,  ///< pairs, low word first
    Long,    ///< pairs, low word first
    Address, ///< pairs, low word first
    Binary,
    Char
};

/// The format of a letter ("f d u x t c g q a"); Auto for none.
/// \throws CCommandError for another one
EFormat ReadFormat(const std::string& strLetters);
const char* GetFormatName(EFormat eFormat);

float WordToFloat(uint32_t nWord);
double WordsToDouble(uint32_t nLow, uint32_t nHigh);

/// Whether a word is a float of usual size, and not a small integer or an address.
bool LooksLikeFloat(uint32_t nWord);

/// One word as text; the pair formats take it for an int.
std::string FormatWord(uint32_t nWord, EFormat eFormat);
/// Words as texts: one a word, or one a pair.
std::vector<std::string> FormatWords(const std::vector<uint32_t>& vWords, EFormat eFormat);
/// A number with as many digits as a float has, and a mark that it is one.
std::string FormatFloat(double fValue);
std::string FormatDouble(double fValue);
/// "(1, 2, 3, 4)", or the value alone if there is one.
std::string FormatTuple(const std::vector<std::string>& vTexts);
std::string FormatHex(uint64_t nValue);
std::string FormatBinary(uint64_t nValue);
/// "65 'A'"
std::string FormatCharacter(unsigned char nCharacter);

} // namespace KestrelTool

#endif
