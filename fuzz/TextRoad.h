#ifndef KESTREL_FUZZ_TEXTROAD_H
#define KESTREL_FUZZ_TEXTROAD_H

#include <string>
#include <vector>

namespace KestrelFuzz
{

/// The items of a stream that decodes, without its comments. A stream that doesn't is cut at the first fault.
std::vector<unsigned int> WithoutComments(const std::vector<unsigned int>& vTokens);

/// Requires that a stream becomes text and itself again; and that the text still gives the same instructions when it
/// has been cleaned for an assembler. Does nothing for a stream that doesn't decode.
/// \return false for such a stream
bool CheckTextRoad(const std::vector<unsigned int>& vTokens);

} // namespace KestrelFuzz

#endif
