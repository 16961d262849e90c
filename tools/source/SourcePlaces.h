#ifndef KESTREL_TOOLS_SOURCE_SOURCEPLACES_H
#define KESTREL_TOOLS_SOURCE_SOURCEPLACES_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// The source place of each line of a kernel binary's IL text, from the line table (DWARF, section `.debug_line`),
/// whose addresses are line numbers of the IL, from 0.
/// \param nLines  number of lines of the IL text
/// \return "file:line" for each line of IL, "" for a line without a place; an empty list if there is no table or a
///         damaged one
std::vector<std::string> ReadSourcePlaces(const std::vector<char>& vBinary, size_t nLines);

/// A place without the file's folder.
std::string ShortenPlace(const std::string& strPlace);

} // namespace KestrelTool

#endif
