#ifndef KESTREL_FUZZ_TEXTROAD_H
#define KESTREL_FUZZ_TEXTROAD_H

#include <string>
#include <vector>

namespace KestrelFuzz
{

/// The items of a stream without its comments. A stream that doesn't decode is cut off at the first fault.
std::vector<unsigned int> WithoutComments(const std::vector<unsigned int>& vTokens);

/// Requires that a stream can be converted to text and back, and that the text still gives the same instructions after
/// it is cleaned for an assembler. Does nothing for a stream that doesn't decode.
/// \return false for such a stream
bool CheckTextRoad(const std::vector<unsigned int>& vTokens);

} // namespace KestrelFuzz

#endif
