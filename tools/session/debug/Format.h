#ifndef KESTREL_TOOLS_DEBUG_FORMAT_H
#define KESTREL_TOOLS_DEBUG_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KestrelTool
{

/// How to read the bits of a component or a pair.
enum class EFormat
{
    Auto, ///< as a float if the word looks like one, else as an integer
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

/// The format of a letter ("f d u x t c g q a"); Auto for an empty text.
/// \throws CCommandError for any other letter
EFormat ReadFormat(const std::string& strLetters);
const char* GetFormatName(EFormat eFormat);

float WordToFloat(uint32_t nWord);
double WordsToDouble(uint32_t nLow, uint32_t nHigh);

/// Whether a word looks like a float of usual size, rather than a small integer or an address.
bool LooksLikeFloat(uint32_t nWord);

/// One word as text; formats for pairs treat it as an int.
std::string FormatWord(uint32_t nWord, EFormat eFormat);
/// Words as texts: one for each word, or for each pair.
std::vector<std::string> FormatWords(const std::vector<uint32_t>& vWords, EFormat eFormat);
/// A number with a float's precision, and marked as a float.
std::string FormatFloat(double fValue);
std::string FormatDouble(double fValue);
/// "(1, 2, 3, 4)", or only the value if there is one.
std::string FormatTuple(const std::vector<std::string>& vTexts);
std::string FormatHex(uint64_t nValue);
std::string FormatBinary(uint64_t nValue);
/// "65 'A'"
std::string FormatCharacter(unsigned char nCharacter);

} // namespace KestrelTool

#endif
