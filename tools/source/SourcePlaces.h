#ifndef KESTREL_TOOLS_SOURCE_SOURCEPLACES_H
#define KESTREL_TOOLS_SOURCE_SOURCEPLACES_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// Where in its source each line of a kernel binary's IL text comes from, by the line table (DWARF, section
/// `.debug_line`), whose addresses are numbers of lines of IL from 0.
/// \param nLines  lines of the IL text
/// \return "file:line" for each line of IL, "" for one that comes from nowhere; nothing at all for a binary without
/// such
///         a table or with a damaged one
std::vector<std::string> ReadSourcePlaces(const std::vector<char>& vBinary, size_t nLines);

/// The same place without the file's folder.
std::string ShortenPlace(const std::string& strPlace);

} // namespace KestrelTool

#endif
